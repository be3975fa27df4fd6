// vexa-launch end to end: remuxes checked packet by packet against ffprobe's
// reading of the source, bad pipelines and arguments with their messages and
// exit codes, Ctrl-C during a run, and the graph output.

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

#include "mediaprobe.h"
#include "vexatest.h"

class tst_VexaLaunch : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void remux_data();
    void remux();
    void badInput_data();
    void badInput();
    void interrupt();
    void checkWritesGraph();

private:
    QString writePipeline(const QString &name, const QByteArray &text);
    QByteArray remuxPipeline(const QString &in, const QString &out, const QString &outExtra = QString());

    QTemporaryDir dir;
    QString clipMp4;
    QString clipMkv;
    QString clipTs;
};

void tst_VexaLaunch::initTestCase()
{
    if (!MediaProbe::toolsAvailable())
        QSKIP("ffmpeg and ffprobe are needed to make and read test media");
    QVERIFY(dir.isValid());
    clipMp4 = dir.filePath("clip.mp4");
    clipMkv = dir.filePath("clip.mkv");
    clipTs = dir.filePath("clip.ts");
    QString error;
    QVERIFY2(MediaProbe::makeClip(clipMp4, 2.0, &error), qPrintable(error));
    QVERIFY(MediaProbe::rewrap(clipMp4, clipMkv));
    QVERIFY(MediaProbe::rewrap(clipMp4, clipTs));
}

QString tst_VexaLaunch::writePipeline(const QString &name, const QByteArray &text)
{
    const QString path = dir.filePath(name);
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QString();
    f.write(text);
    return path;
}

QByteArray tst_VexaLaunch::remuxPipeline(const QString &in, const QString &out, const QString &outExtra)
{
    return QStringLiteral(R"({
  "modules": [
    {"class": "InputFile", "name": "in", "settings": {"path": "%1"}},
    {"class": "OutputFile", "name": "out", "settings": {"path": "%2"%3}}
  ],
  "links": [{"from": "in", "to": "out", "kind": "AV"}]
})").arg(in, out, outExtra).toUtf8();
}

void tst_VexaLaunch::remux_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("outSettings");
    // Timestamps equal to the microsecond, or (across containers, whose
    // muxers may shift the start) equal up to one offset within a millisecond.
    QTest::addColumn<bool>("sameTimes");

    QTest::newRow("mp4 to mp4") << "clip.mp4" << "out.mp4" << QString() << true;
    QTest::newRow("mkv to mkv (no decode times)") << "clip.mkv" << "out.mkv" << QString() << true;
    QTest::newRow("ts to ts") << "clip.ts" << "out.ts" << QString() << true;
    QTest::newRow("mp4 to mkv") << "clip.mp4" << "cross.mkv" << QString() << false;
    // Queues of one packet and a ring a few keyframes long: the input is held
    // back constantly and the ring wraps many times.
    QTest::newRow("tight queues and ring") << "clip.mp4" << "tight.mp4"
                                           << R"(, "bufLenA": 2, "bufLenV": 2, "memSize": 30000)" << true;
}

void tst_VexaLaunch::remux()
{
    QFETCH(QString, source);
    QFETCH(QString, target);
    QFETCH(QString, outSettings);
    QFETCH(bool, sameTimes);

    const QString in = dir.filePath(source);
    const QString out = dir.filePath(target);
    const QString graph = dir.filePath(target + ".dot");
    const QString pipeline = writePipeline("remux.json", remuxPipeline(in, out, outSettings));

    QProcess proc;
    QVERIFY(VexaTest::run(proc, VEXA_LAUNCH, {pipeline, "--quiet", "--graph", graph}, 120000));
    const QByteArray stdErr = proc.readAllStandardError();
    const QString stdOut = QString::fromUtf8(proc.readAllStandardOutput());
    QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
    QVERIFY2(proc.exitCode() == 0, stdErr.constData());

    // The summary reports no drop for the output.
    const QRegularExpression outRow(QStringLiteral("^out\\s+OutputFile\\s+\\S+\\s+(\\d+)\\s+(\\d+)\\s+(\\d+)\\s+(\\d+)$"),
                                    QRegularExpression::MultilineOption);
    const QRegularExpressionMatch m = outRow.match(stdOut);
    QVERIFY2(m.hasMatch(), qPrintable(stdOut));
    QCOMPARE(m.captured(4), QStringLiteral("0"));

    MediaProbe::Streams want;
    MediaProbe::Streams got;
    QString error;
    QVERIFY2(MediaProbe::probe(in, &want, &error), qPrintable(error));
    QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
    QCOMPARE(got.keys(), want.keys());
    QCOMPARE(want.keys(), QStringList({"audio", "video"}));

    qint64 offset = 0;
    if (!sameTimes)
        offset = got.value("video").first().ptsUs - want.value("video").first().ptsUs;
    const qint64 tolerance = sameTimes ? 1 : 1000;
    for (const QString &kind : want.keys()) {
        const QList<MediaProbe::Packet> &a = want[kind];
        const QList<MediaProbe::Packet> &b = got[kind];
        QCOMPARE(b.size(), a.size());
        for (int i = 0; i < a.size(); ++i) {
            const QString whereText = QStringLiteral("%1 packet %2").arg(kind).arg(i);
            const QByteArray where = whereText.toUtf8();
            QVERIFY2(b[i].size == a[i].size, where.constData());
            QVERIFY2(b[i].hash == a[i].hash, where.constData());
            QVERIFY2(b[i].key == a[i].key, where.constData());
            QVERIFY2(b[i].hasPts == a[i].hasPts, where.constData());
            if (a[i].hasPts)
                QVERIFY2(qAbs(b[i].ptsUs - offset - a[i].ptsUs) <= tolerance,
                         QStringLiteral("%1: pts %2 us, source %3 us").arg(whereText).arg(b[i].ptsUs).arg(a[i].ptsUs).toUtf8());
            if (a[i].hasDts && b[i].hasDts)
                QVERIFY2(qAbs(b[i].dtsUs - offset - a[i].dtsUs) <= tolerance,
                         QStringLiteral("%1: dts %2 us, source %3 us").arg(whereText).arg(b[i].dtsUs).arg(a[i].dtsUs).toUtf8());
        }
    }

    QFile dot(graph);
    QVERIFY(dot.open(QIODevice::ReadOnly));
    const QByteArray dotText = dot.readAll();
    QVERIFY(dotText.contains("\"in\" -> \"out\" [label=\"V\""));
    QVERIFY(dotText.contains("\"in\" -> \"out\" [label=\"A\""));
    QVERIFY(dotText.contains("stoped"));
}

void tst_VexaLaunch::badInput_data()
{
    QTest::addColumn<QByteArray>("pipeline");   // content of the pipeline file, empty: none written
    QTest::addColumn<QStringList>("args");      // "@" stands for the pipeline file
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");       // regular expression expected on stderr

    const QByteArray good = R"({"modules": [{"class": "PacketStats", "name": "s"}]})";
    const QStringList plain{"@", "--quiet"};

    QTest::newRow("malformed JSON")
        << QByteArray("{\n  \"modules\": [\n    {\"class\": \"InputFile\" \"name\": \"in\"}\n  ]\n}\n")
        << plain << 3 << R"(bad\.json:3:\d+: malformed JSON)";
    QTest::newRow("top level not an object") << QByteArray("[1, 2]") << plain << 3 << "top level must be a JSON object";
    QTest::newRow("no modules") << QByteArray(R"({"modules": []})") << plain << 3 << "\"modules\" must be a non-empty array";
    QTest::newRow("unknown key") << QByteArray(R"({"modules": [{"class": "PacketStats", "name": "s", "setting": {}}]})")
                                 << plain << 3 << "unknown key \"setting\"";
    QTest::newRow("unknown class") << QByteArray(R"({"modules": [{"class": "InputFle", "name": "in"}]})")
                                   << plain << 3 << "module \"in\": unknown class \"InputFle\" \\(known classes: .*InputFile";
    QTest::newRow("duplicate name")
        << QByteArray(R"({"modules": [{"class": "PacketStats", "name": "s"}, {"class": "PacketStats", "name": "s"}]})")
        << plain << 3 << "module name \"s\" is used twice";
    QTest::newRow("link to unknown module")
        << QByteArray(R"({"modules": [{"class": "PacketStats", "name": "s"}], "links": [{"from": "s", "to": "nope", "kind": "V"}]})")
        << plain << 3 << "links\\[0\\]: \"to\" names unknown module \"nope\"";
    QTest::newRow("bad link kind")
        << QByteArray(R"({"modules": [{"class": "PacketStats", "name": "a"}, {"class": "PacketStats", "name": "b"}],
                          "links": [{"from": "a", "to": "b", "kind": "AX"}]})")
        << plain << 3 << "bad link kind \"AX\"";
    QTest::newRow("missing board") << QByteArray(R"({"board": "no-such-board.json", "modules": [{"class": "PacketStats", "name": "s"}]})")
                                   << plain << 3 << "board file .*no-such-board\\.json does not exist";
    QTest::newRow("missing library") << QByteArray(R"({"libraries": ["libno-such-modules.so"], "modules": [{"class": "PacketStats", "name": "s"}]})")
                                     << plain << 3 << "cannot load module library .*libno-such-modules\\.so";
    QTest::newRow("missing pipeline file") << QByteArray() << QStringList{"no-such-pipeline.json"} << 3
                                           << "cannot read pipeline file no-such-pipeline\\.json";
    QTest::newRow("no arguments") << QByteArray() << QStringList() << 2 << "no pipeline file given";
    QTest::newRow("unknown option") << good << QStringList{"@", "--bogus"} << 2 << "Unknown option 'bogus'";
    QTest::newRow("bad --set") << good << QStringList{"@", "--set", "nodot"} << 2 << "--set expects module\\.key=value";
    QTest::newRow("--set on unknown module") << good << QStringList{"@", "--set", "x.path=1"} << 2 << "no module named \"x\"";
    QTest::newRow("bad duration") << good << QStringList{"@", "--duration", "soon"} << 2 << "--duration expects a positive number";

    const QByteArray remuxMissing = R"({"modules": [
        {"class": "InputFile", "name": "in", "settings": {"path": "/no/such/clip.mp4"}},
        {"class": "OutputFile", "name": "out", "settings": {"path": "@OUT@"}}],
      "links": [{"from": "in", "to": "out", "kind": "AV"}]})";
    QTest::newRow("missing input file") << remuxMissing << plain << 4
                                        << "error: in: cannot open /no/such/clip\\.mp4: No such file or directory";
    const QByteArray remuxUnwritable = R"({"modules": [
        {"class": "InputFile", "name": "in", "settings": {"path": "@CLIP@"}},
        {"class": "OutputFile", "name": "out", "settings": {"path": "/no/such/dir/out.mp4"}}],
      "links": [{"from": "in", "to": "out", "kind": "AV"}]})";
    QTest::newRow("unwritable output") << remuxUnwritable << plain << 4 << "error: out: cannot create /no/such/dir/out\\.mp4";
    QTest::newRow("unknown container") << remuxUnwritable << QStringList{"@", "--quiet", "--set", "out.path=@DIR@/out.nosuchext"}
                                       << 4 << "error: out: cannot choose a container for .*out\\.nosuchext";
}

void tst_VexaLaunch::badInput()
{
    QFETCH(QByteArray, pipeline);
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, message);

    pipeline.replace("@CLIP@", clipMp4.toUtf8()).replace("@OUT@", dir.filePath("bad-out.mp4").toUtf8());
    const QString file = pipeline.isEmpty() ? QString() : writePipeline("bad.json", pipeline);
    for (QString &a : args)
        a.replace(QLatin1String("@DIR@"), dir.path());
    args.replaceInStrings(QRegularExpression("^@$"), file);

    QProcess proc;
    proc.setWorkingDirectory(dir.path());
    QVERIFY(VexaTest::run(proc, VEXA_LAUNCH, args, 60000));
    const QString err = QString::fromUtf8(proc.readAllStandardError());
    QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
    QVERIFY2(proc.exitCode() == exitCode, qPrintable(QStringLiteral("exit %1, stderr:\n%2").arg(proc.exitCode()).arg(err)));
    QVERIFY2(QRegularExpression(message).match(err).hasMatch(), qPrintable(err));
}

void tst_VexaLaunch::interrupt()
{
    // A looping, paced input never ends by itself; Ctrl-C must still leave a
    // finished file whose packets are the source's, in order.
    const QString out = dir.filePath("interrupted.mp4");
    const QString pipeline = writePipeline("live.json", remuxPipeline(clipMp4, out, QString()));
    QStringList cmd = VexaTest::emulator();
    cmd << VEXA_LAUNCH << pipeline << "--set" << "in.loop=true" << "--set" << "in.realtime=true" << "--interval" << "200";
    QProcess proc;
    proc.start(cmd.takeFirst(), cmd);
    QVERIFY(proc.waitForStarted(30000));

    // Wait for a progress line that shows packets flowing into the output.
    QByteArray err;
    const QRegularExpression flowing(QStringLiteral("out [1-9]\\d* pkt/s"));
    QElapsedTimer waited;
    waited.start();
    while (!flowing.match(QString::fromUtf8(err)).hasMatch()) {
        QVERIFY2(proc.state() == QProcess::Running, err.constData());
        if (waited.elapsed() > 60000) {
            proc.kill();
            proc.waitForFinished();
            QFAIL(err.constData());
        }
        proc.waitForReadyRead(1000);
        err += proc.readAllStandardError();
    }
    QCOMPARE(::kill(pid_t(proc.processId()), SIGINT), 0);
    QVERIFY(proc.waitForFinished(60000));
    err += proc.readAllStandardError();
    QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
    QVERIFY2(proc.exitCode() == 130, err.constData());
    QVERIFY2(err.contains("interrupted"), err.constData());

    MediaProbe::Streams want;
    MediaProbe::Streams got;
    QString error;
    QVERIFY(MediaProbe::probe(clipMp4, &want, &error));
    QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
    for (const QString &kind : {QStringLiteral("audio"), QStringLiteral("video")}) {
        const QList<MediaProbe::Packet> &a = want[kind];
        const QList<MediaProbe::Packet> &b = got[kind];
        QVERIFY2(!b.isEmpty(), qPrintable(kind));
        for (int i = 0; i < b.size(); ++i)
            QVERIFY2(b[i].hash == a[i % a.size()].hash, qPrintable(QStringLiteral("%1 packet %2").arg(kind).arg(i)));
    }
}

void tst_VexaLaunch::checkWritesGraph()
{
    const QString pipeline = writePipeline("graph.json", R"({
  "modules": [
    {"class": "InputFile", "name": "in", "settings": {"path": "x.mp4"}},
    {"class": "OutputFile", "name": "out", "settings": {"path": "y.mp4"}},
    {"class": "PacketStats", "name": "count"}
  ],
  "links": [
    {"from": "in", "to": "out", "kind": "AV"},
    {"from": "in", "to": "count", "kind": "V"},
    {"from": "in", "to": "count", "kind": "E"}
  ]
})");
    const QString graph = dir.filePath("check.dot");
    QProcess proc;
    QVERIFY(VexaTest::run(proc, VEXA_LAUNCH, {pipeline, "--check", "--graph", graph}));
    QCOMPARE(proc.exitCode(), 0);
    QVERIFY(proc.readAllStandardOutput().contains("valid, 3 modules, 4 links"));
    QFile f(graph);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray dot = f.readAll();
    QVERIFY(dot.startsWith("digraph"));
    QVERIFY(dot.contains("\"count\" [label=\"count\\nPacketStats\\nnot created\""));
    QVERIFY(dot.contains("\"in\" -> \"count\" [label=\"E\""));
    QCOMPARE(dot.count(" -> "), 4);
    if (!QStandardPaths::findExecutable("dot").isEmpty())
        QVERIFY(QFile::exists(dir.filePath("check.svg")));
}

QTEST_GUILESS_MAIN(tst_VexaLaunch)
#include "tst_vexalaunch.moc"
