// The command-line tools end to end. vexa-launch: remuxes checked packet by
// packet against ffprobe's reading of the source, Ctrl-C during a run, bad
// pipelines and arguments with their messages and exit codes. vexa-inspect:
// the class list, one class's published interface and its exit codes.

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

#include "mediaprobe.h"
#include "vexatest.h"

class tst_Tools : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        if (!MediaProbe::toolsAvailable())
            return;
        QString error;
        QVERIFY2(MediaProbe::makeClip(clip, 2.0, &error), qPrintable(error));
        QVERIFY(MediaProbe::rewrap(clip, dir.filePath("clip.mkv")));
        QVERIFY(MediaProbe::rewrap(clip, dir.filePath("clip.ts")));
    }

    void remux_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("outSettings");

        QTest::newRow("mp4 to mp4") << "clip.mp4" << "out.mp4" << QString();
        QTest::newRow("mkv to mkv (no decode times)") << "clip.mkv" << "out.mkv" << QString();
        QTest::newRow("ts to ts") << "clip.ts" << "out.ts" << QString();
        QTest::newRow("mp4 to mkv") << "clip.mp4" << "cross.mkv" << QString();
        // Queues of one packet and a ring a few keyframes long: the input is held
        // back constantly and the ring wraps many times.
        QTest::newRow("tight queues and ring") << "clip.mp4" << "tight.mp4"
                                               << R"(, "bufLenA": 2, "bufLenV": 2, "memSize": 30000)";
    }
    void remux()
    {
        QFETCH(QString, source);
        QFETCH(QString, target);
        QFETCH(QString, outSettings);
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg and ffprobe are needed to make and read test media");

        const QString in = dir.filePath(source);
        const QString out = dir.filePath(target);
        const QString graph = dir.filePath(target + ".dot");
        QProcess proc;
        QVERIFY(VexaTest::run(proc, VEXA_LAUNCH, {writePipeline(remuxPipeline(in, out, outSettings)), "--quiet", "--graph", graph}, 120000));
        const QString stdOut = QString::fromUtf8(proc.readAllStandardOutput());
        QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
        QVERIFY2(proc.exitCode() == 0, proc.readAllStandardError().constData());

        // The summary reports no drop for the output.
        const QRegularExpressionMatch m = QRegularExpression(QStringLiteral("^out\\s+OutputFile\\s+\\S+\\s+\\d+\\s+\\d+\\s+\\d+\\s+(\\d+)$"),
                                                             QRegularExpression::MultilineOption).match(stdOut);
        QVERIFY2(m.hasMatch(), qPrintable(stdOut));
        QCOMPARE(m.captured(1), QStringLiteral("0"));

        MediaProbe::Streams want, got;
        QString error;
        QVERIFY2(MediaProbe::probe(in, &want, &error), qPrintable(error));
        QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
        QCOMPARE(want.keys(), QStringList({"audio", "video"}));
        error = MediaProbe::mismatch(want, got, source.section('.', -1) == target.section('.', -1));
        QVERIFY2(error.isEmpty(), qPrintable(error));

        QFile dot(graph);
        QVERIFY(dot.open(QIODevice::ReadOnly));
        const QByteArray dotText = dot.readAll();
        for (const char *edge : {"\"in\" -> \"out\" [label=\"V\"", "\"in\" -> \"out\" [label=\"A\"", "stoped"})
            QVERIFY2(dotText.contains(edge), dotText.constData());
    }

    // A looping, paced input never ends by itself; Ctrl-C must still leave a
    // finished file whose packets are the source's, in order.
    void interrupt()
    {
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg and ffprobe are needed to make and read test media");
        const QString out = dir.filePath("interrupted.mp4");
        QStringList cmd = VexaTest::emulator();
        cmd << VEXA_LAUNCH << writePipeline(remuxPipeline(clip, out)) << "--set" << "in.loop=true"
            << "--set" << "in.realtime=true" << "--interval" << "200";
        QProcess proc;
        proc.start(cmd.takeFirst(), cmd);
        QVERIFY(proc.waitForStarted(30000));

        // Wait for three progress lines that show packets flowing into the
        // output (600 ms of paced media), so both streams have reached it.
        QByteArray err;
        const QRegularExpression flowing(QStringLiteral("out [1-9]\\d* pkt/s"));
        const bool seen = QTest::qWaitFor([&] {
            proc.waitForReadyRead(100);
            err += proc.readAllStandardError();
            int lines = 0;
            for (auto it = flowing.globalMatch(QString::fromUtf8(err)); it.hasNext(); it.next())
                ++lines;
            return lines >= 3 || proc.state() != QProcess::Running;
        }, 60000);
        QVERIFY2(seen && proc.state() == QProcess::Running, err.constData());
        // A pid of 0 would signal the whole process group, test runner included.
        const qint64 pid = proc.processId();
        QVERIFY(pid > 0);
        QCOMPARE(::kill(pid_t(pid), SIGINT), 0);
        QVERIFY(proc.waitForFinished(60000));
        err += proc.readAllStandardError();
        QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
        QVERIFY2(proc.exitCode() == 130 && err.contains("interrupted"), err.constData());

        MediaProbe::Streams want, got;
        QString error;
        QVERIFY(MediaProbe::probe(clip, &want, &error));
        QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
        for (const QString &kind : {QStringLiteral("audio"), QStringLiteral("video")}) {
            const QList<MediaProbe::Packet> &a = want[kind];
            const QList<MediaProbe::Packet> &b = got[kind];
            QVERIFY2(!b.isEmpty(), qPrintable(kind));
            for (int i = 0; i < b.size(); ++i)
                QVERIFY2(b[i].hash == a[i % a.size()].hash, qPrintable(QStringLiteral("%1 packet %2").arg(kind).arg(i)));
        }
    }

    // One run of a tool: its exit code and what it prints.
    void messages_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QByteArray>("pipeline");    // content of the pipeline file, empty: none written
        QTest::addColumn<QStringList>("args");       // "@" stands for the pipeline file, "@DIR@" for its folder
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("expected");   // regular expressions on stdout + stderr
        QTest::addColumn<QStringList>("unexpected");

        const QStringList plain{"@", "--quiet"};
        const auto launch = [](const char *tag, const QByteArray &pipeline, const QStringList &args, int code, const QString &re) {
            QTest::newRow(tag) << QString::fromUtf8(VEXA_LAUNCH) << pipeline << args << code << QStringList{re} << QStringList();
        };
        const auto inspect = [](const char *tag, const QStringList &args, int code, const QStringList &re, const QStringList &no = {}) {
            QTest::newRow(tag) << QString::fromUtf8(VEXA_INSPECT) << QByteArray() << args << code << re << no;
        };

        const QByteArray good = R"({"modules": [{"class": "PacketStats", "name": "s"}]})";
        launch("malformed JSON", "{\n  \"modules\": [\n    {\"class\": \"InputFile\" \"name\": \"in\"}\n  ]\n}\n", plain, 3,
               R"(pipeline\.json:3:\d+: malformed JSON)");
        launch("top level not an object", "[1, 2]", plain, 3, "top level must be a JSON object");
        launch("no modules", R"({"modules": []})", plain, 3, "\"modules\" must be a non-empty array");
        launch("unknown key", R"({"modules": [{"class": "PacketStats", "name": "s", "setting": {}}]})", plain, 3,
               "unknown key \"setting\"");
        launch("unknown class", R"({"modules": [{"class": "InputFle", "name": "in"}]})", plain, 3,
               "module \"in\": unknown class \"InputFle\" \\(known classes: .*InputFile");
        launch("duplicate name", R"({"modules": [{"class": "PacketStats", "name": "s"}, {"class": "PacketStats", "name": "s"}]})",
               plain, 3, "module name \"s\" is used twice");
        launch("link to unknown module",
               R"({"modules": [{"class": "PacketStats", "name": "s"}], "links": [{"from": "s", "to": "nope", "kind": "V"}]})",
               plain, 3, "links\\[0\\]: \"to\" names unknown module \"nope\"");
        launch("bad link kind", R"({"modules": [{"class": "PacketStats", "name": "a"}, {"class": "PacketStats", "name": "b"}],
                                    "links": [{"from": "a", "to": "b", "kind": "AX"}]})",
               plain, 3, "bad link kind \"AX\"");
        launch("missing board", R"({"board": "no-such-board.json", "modules": [{"class": "PacketStats", "name": "s"}]})",
               plain, 3, "board file .*no-such-board\\.json does not exist");
        launch("missing library", R"({"libraries": ["libno-such-modules.so"], "modules": [{"class": "PacketStats", "name": "s"}]})",
               plain, 3, "cannot load module library .*libno-such-modules\\.so");
        launch("missing pipeline file", "", {"no-such-pipeline.json"}, 3, "cannot read pipeline file no-such-pipeline\\.json");
        launch("no arguments", "", {}, 2, "no pipeline file given");
        launch("unknown option", good, {"@", "--bogus"}, 2, "Unknown option 'bogus'");
        launch("bad --set", good, {"@", "--set", "nodot"}, 2, "--set expects module\\.key=value");
        launch("--set on unknown module", good, {"@", "--set", "x.path=1"}, 2, "no module named \"x\"");
        launch("bad duration", good, {"@", "--duration", "soon"}, 2, "--duration expects a positive number");
        launch("check only", remuxPipeline("x.mp4", "y.mp4"), {"@", "--check"}, 0, "valid, 2 modules, 2 links");
        launch("missing input file", remuxPipeline("/no/such/clip.mp4", "@DIR@/bad-out.mp4"), plain, 4,
               "error: in: cannot open /no/such/clip\\.mp4: No such file or directory");
        const QByteArray unwritable = remuxPipeline("@DIR@/clip.mp4", "/no/such/dir/out.mp4");
        launch("unwritable output", unwritable, plain, 4, "error: out: cannot create /no/such/dir/out\\.mp4");
        launch("unknown container", unwritable, {"@", "--quiet", "--set", "out.path=@DIR@/out.nosuchext"}, 4,
               "error: out: cannot choose a container for .*out\\.nosuchext");

        inspect("list", {}, 0,
                {"Module classes \\(3\\)", "InputFile\\s+VexaInputFile\\s+settings: path, loop, realtime",
                 "OutputFile\\s+VexaOutputFile", "PacketStats\\s+VexaPacketStats"},
                {"VexaObject\\b\\s*\\n"});
        // Loading the library the tool already knows registers nothing twice.
        inspect("list with library", {"-l", VEXA_EXAMPLE_MODULES}, 0, {"Module classes \\(3\\)"});
        inspect("one class", {"InputFile"}, 0,
                {"Class VexaInputFile \\(create as \"InputFile\"\\), inherits VexaObject < QObject",
                 "Settings:\\n\\s+path\\s+media file to read", "Events:\\n\\s+eos", "VexaInputFile\\(QObject\\*\\)",
                 "Declared by VexaInputFile:\\n  Invokable methods:\\n\\s+QVariant stats\\(\\)",
                 "Declared by VexaObject:\\n  Signals:\\n\\s+void newEvent\\(QString type, QVariant msg\\)",
                 "void newPacketV\\(Packet pkt\\)", "void onNewPacketV\\(Packet\\)", "void onStart\\(\\)  \\[private\\]"},
                {"Declared by QObject"});
        inspect("full class name, with QObject", {"VexaOutputFile", "--all"}, 0,
                {"Class VexaOutputFile", "Declared by QObject:", "void deleteLater\\(\\)"});
        inspect("unknown class", {"NoSuchModule"}, 1, {"vexa-inspect: unknown module class \"NoSuchModule\""});
        inspect("base class is not a module", {"VexaObject"}, 1, {"unknown module class \"VexaObject\""});
        inspect("two classes", {"InputFile", "OutputFile"}, 2, {"at most one class name expected"});
        inspect("inspect, missing library", {"-l", "/no/such/libmodules.so"}, 3,
                {"cannot load module library /no/such/libmodules\\.so"});
    }
    void messages()
    {
        QFETCH(QString, tool);
        QFETCH(QByteArray, pipeline);
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QStringList, expected);
        QFETCH(QStringList, unexpected);

        if (pipeline.contains("@DIR@/clip") && !MediaProbe::toolsAvailable())
            QSKIP("ffmpeg is needed to make the input clip");
        pipeline.replace("@DIR@", dir.path().toUtf8());
        if (!pipeline.isEmpty())
            args.replaceInStrings(QRegularExpression("^@$"), writePipeline(pipeline));
        args.replaceInStrings(QStringLiteral("@DIR@"), dir.path());

        QProcess proc;
        proc.setWorkingDirectory(dir.path());
        QVERIFY(VexaTest::run(proc, tool, args));
        const QString text = QString::fromUtf8(proc.readAllStandardOutput() + proc.readAllStandardError());
        QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
        QVERIFY2(proc.exitCode() == exitCode, qPrintable(QStringLiteral("exit %1:\n%2").arg(proc.exitCode()).arg(text)));
        for (const QString &re : expected)
            QVERIFY2(QRegularExpression(re).match(text).hasMatch(), qPrintable(re + "\n--- in ---\n" + text));
        for (const QString &re : unexpected)
            QVERIFY2(!QRegularExpression(re).match(text).hasMatch(), qPrintable(re + "\n--- in ---\n" + text));
    }

private:
    QString writePipeline(const QByteArray &text)
    {
        const QString path = dir.filePath(QStringLiteral("pipeline.json"));
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return QString();
        f.write(text);
        return path;
    }
    static QByteArray remuxPipeline(const QString &in, const QString &out, const QString &outExtra = QString())
    {
        return QStringLiteral(R"({"modules": [
            {"class": "InputFile", "name": "in", "settings": {"path": "%1"}},
            {"class": "OutputFile", "name": "out", "settings": {"path": "%2"%3}}],
          "links": [{"from": "in", "to": "out", "kind": "AV"}]})").arg(in, out, outExtra).toUtf8();
    }

    QTemporaryDir dir;
    const QString clip = dir.filePath("clip.mp4");
};

QTEST_GUILESS_MAIN(tst_Tools)
#include "tst_tools.moc"
