// The command-line tools end to end. vexa-launch: remuxes checked packet by
// packet (data hash, size, key flag, timestamps, duration) against what
// `ffmpeg -c copy` writes from the same source into the same container;
// Ctrl-C, SIGTERM and SIGHUP during a run; bad pipelines, settings, links,
// outputs and arguments with their messages, exit codes and what is left on
// disk. vexa-inspect: the class list, one class's published interface and
// its exit codes.

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
        {
            // Cut inside the first frames: FFmpeg's demuxer and parser have
            // things to say while it is probed.
            QFile ts(dir.filePath("clip.ts"));
            QVERIFY(ts.open(QIODevice::ReadOnly));
            VexaTest::writeFile(dir.filePath("truncated.ts"), ts.read(3000));
        }
        QVERIFY(MediaProbe::rewrap(clip, dir.filePath("clip.flv")));
        QVERIFY(MediaProbe::rewrap(clip, dir.filePath("clip.mov")));
        const QStringList shortClips[] = {
            {"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-f", "lavfi", "-i", "sine=sample_rate=48000", "-t", "0.5",
             "-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-c:a", "libopus", "-shortest", dir.filePath("clip.webm")},
            // Audio only, lengths that end inside a frame: the last packet's
            // duration and the end trim must survive.
            {"-f", "lavfi", "-i", "sine=sample_rate=48000", "-t", "0.77", "-c:a", "libopus", dir.filePath("opus.mp4")},
            {"-f", "lavfi", "-i", "sine=sample_rate=44100", "-t", "0.77", "-c:a", "aac", dir.filePath("aac.m4a")},
            {"-f", "lavfi", "-i", "sine=sample_rate=44100", "-t", "0.5", "-c:a", "libmp3lame", dir.filePath("clip.mp3")},
            // Video only, B-frames, no decode times in the container.
            {"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-t", "0.6", "-c:v", "libx264", "-preset", "ultrafast",
             "-bf", "2", dir.filePath("video.mkv")},
            // Variable frame rate: the predicted first decode times fall between milliseconds.
            {"-f", "lavfi", "-i", "testsrc=size=160x120:rate=30", "-t", "0.6", "-vf", "setpts='(N*1001+if(mod(N,4),0,377))/30000/TB'",
             "-fps_mode", "passthrough", "-c:v", "libx264", "-preset", "ultrafast", "-bf", "2", dir.filePath("vfr.mkv")}};
        for (const QStringList &args : shortClips)
            QVERIFY2(MediaProbe::ffmpeg(args, &error), qPrintable(error));
        // What a container holds beside the packets: its own aspect ratio
        // (MP4 "pasp", Matroska display size), global tags, stream
        // languages and chapters.
        QVERIFY(MediaProbe::ffmpeg({"-i", clip, "-c", "copy", "-aspect", "16:9", dir.filePath("aspect.mp4")}));
        QVERIFY(MediaProbe::ffmpeg({"-i", clip, "-c", "copy", "-aspect", "16:9", dir.filePath("aspect.mkv")}));
        VexaTest::writeFile(dir.filePath("tags.txt"), ";FFMETADATA1\ntitle=A title\nartist=Someone\n"
                                                      "[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1000\ntitle=First\n"
                                                      "[CHAPTER]\nTIMEBASE=1/1000\nSTART=1000\nEND=2000\ntitle=Second\n");
        QVERIFY(MediaProbe::ffmpeg({"-i", clip, "-i", dir.filePath("tags.txt"), "-map", "0", "-map_metadata", "1", "-map_chapters", "1",
                                    "-c", "copy", "-metadata:s:v:0", "language=eng", "-metadata:s:a:0", "language=fra",
                                    dir.filePath("tags.mkv")}));
        // Every kind of stream: two audio tracks, one with a language, and subtitles.
        VexaTest::writeFile(dir.filePath("subs.srt"), "1\n00:00:00,000 --> 00:00:00,800\nOne\n\n"
                                                      "2\n00:00:01,000 --> 00:00:01,500\nTwo\n");
        QVERIFY(MediaProbe::ffmpeg({"-i", clip, "-f", "lavfi", "-i", "sine=frequency=880:duration=2", "-i", dir.filePath("subs.srt"),
                                    "-map", "0", "-map", "1", "-map", "2", "-c:v", "copy", "-c:a", "aac", "-c:s", "srt",
                                    "-metadata:s:a:1", "language=deu", dir.filePath("multi.mkv")}));
        // A rotated video: the display matrix is stream side data.
        QVERIFY(MediaProbe::ffmpeg({"-i", clip, "-c", "copy", "-metadata:s:v:0", "rotate=90", dir.filePath("rotated.mp4")}));
        // Raw video: every frame (28800 bytes) is larger than a 20000-byte ring.
        QVERIFY2(MediaProbe::ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-f", "lavfi", "-i", "sine=sample_rate=8000",
                                     "-t", "0.5", "-c:v", "rawvideo", "-pix_fmt", "yuv420p", "-c:a", "pcm_s16le",
                                     dir.filePath("raw.nut")}, &error), qPrintable(error));
        // Two transport streams joined: the timestamps start again halfway.
        QFile ts(dir.filePath("clip.ts"));
        QFile joined(dir.filePath("joined.ts"));
        QVERIFY(ts.open(QIODevice::ReadOnly) && joined.open(QIODevice::WriteOnly));
        const QByteArray tsData = ts.readAll();
        joined.write(tsData + tsData);
        joined.close();
        QVERIFY(QFile::link(clip, dir.filePath("alias.mp4")));
        for (const char *name : {"exists.mp4", "replaced.mp4"}) {
            QFile f(dir.filePath(name));
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(notMedia);
        }
    }

    // Remuxes compared with what `ffmpeg -c copy` writes from the same
    // source. "streams": "all" carries every stream, as `ffmpeg -map 0 -c
    // copy`; one the container cannot hold is left out and its packets
    // counted as lost (exit code 5).
    void remux_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("outSettings");
        QTest::addColumn<bool>("shared");   // both modules in one worker thread
        QTest::addColumn<QString>("inSettings");
        QTest::addColumn<QStringList>("maps"); // what the reference takes of the source
        QTest::addColumn<int>("exitCode");

        const auto row = [](const char *tag, const char *source, const char *target, const QString &outSettings = QString(),
                            bool shared = false, const QString &inSettings = QString(),
                            const QStringList &maps = {"-map", "0:v:0?", "-map", "0:a:0?"}, int exitCode = 0) {
            QTest::newRow(tag) << source << target << outSettings << shared << inSettings << maps << exitCode;
        };
        row("mp4 to mp4", "clip.mp4", "out.mp4");
        row("mov to mov", "clip.mov", "out.mov");
        row("mkv to mkv (no decode times)", "clip.mkv", "out.mkv");
        row("webm to webm (Opus end trim)", "clip.webm", "out.webm");
        // Also: audio frames packed into PES packets as ffmpeg does (same file size).
        row("ts to ts", "clip.ts", "out.ts");
        row("flv to flv", "clip.flv", "out.flv");
        row("mp4 to mkv", "clip.mp4", "cross.mkv");
        row("mp4 to ts", "clip.mp4", "cross.ts");
        // Millisecond time bases: audio times follow the samples.
        row("mkv to mp4", "clip.mkv", "cross.mp4");
        row("flv to mov", "clip.flv", "cross.mov");
        row("ts to flv", "clip.ts", "cross.flv");
        // The timestamps restart halfway: every packet is kept.
        row("joined ts to mp4", "joined.ts", "joined.mp4");
        row("joined ts to ts", "joined.ts", "joined-out.ts");
        row("opus, audio only, mp4", "opus.mp4", "opus-out.mp4");
        row("aac, audio only, to mkv", "aac.m4a", "aac-out.mkv");
        // Packet side data (skip samples: the encoder delay and the end trim).
        row("mp3, audio only", "clip.mp3", "out.mp3");
        row("video only, mkv to mp4", "video.mkv", "video-out.mp4");
        row("variable frame rate, mkv to mp4", "vfr.mkv", "vfr.mp4");
        // The source's codec tag where the container takes it.
        row("raw video to mkv", "raw.nut", "raw.mkv");
        row("rotated video", "rotated.mp4", "rotated-out.mp4");
        // The container's aspect ratio, tags, languages and chapters.
        row("aspect, mp4 to mp4", "aspect.mp4", "aspect-out.mp4");
        row("aspect, mkv to mkv", "aspect.mkv", "aspect-out.mkv");
        row("aspect, mkv to mp4", "aspect.mkv", "aspect-cross.mp4");
        row("tags and chapters, mkv to mkv", "tags.mkv", "tags-out.mkv");
        row("tags and chapters, mkv to mp4", "tags.mkv", "tags-cross.mp4");
        // Queues of one packet and a ring a few keyframes long: the input is held
        // back constantly and the ring wraps many times.
        row("tight queues and ring", "clip.mp4", "tight.mp4", R"(, "bufLenA": 2, "bufLenV": 2, "memSize": 30000)");
        row("packets larger than the ring", "raw.nut", "raw-out.nut", R"(, "memSize": 20000)");
        // Both modules in one thread: the input writes the output's batches
        // itself, and makes room in a full ring by writing what holds it.
        row("one thread", "clip.mp4", "shared.mkv", QString(), true);
        row("one thread, tight queues and ring", "clip.mp4", "shared-tight.mp4", R"(, "bufLenA": 2, "bufLenV": 2, "memSize": 30000)",
            true);
        const QString all = R"(, "streams": "all")";
        row("all streams, mkv to mkv", "multi.mkv", "all.mkv", QString(), false, all, {"-map", "0"});
        row("all streams, mkv to mp4, no subtitles there", "multi.mkv", "all.mp4", QString(), false, all,
            {"-map", "0", "-map", "-0:s"}, 5);
    }
    void remux()
    {
        QFETCH(QString, source);
        QFETCH(QString, target);
        QFETCH(QString, outSettings);
        QFETCH(bool, shared);
        QFETCH(QString, inSettings);
        QFETCH(QStringList, maps);
        QFETCH(int, exitCode);
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg and ffprobe are needed to make and read test media");

        const QString in = dir.filePath(source);
        const QString out = dir.filePath(target);
        const QString graph = dir.filePath(target + ".dot");
        QProcess proc;
        QByteArray pipeline = remuxPipeline(in, out, outSettings, inSettings);
        if (shared)
            pipeline.replace(R"("name": "in",)", R"("name": "in", "thread": "remux",)")
                .replace(R"("name": "out",)", R"("name": "out", "thread": "remux",)");
        // A failing run is not quiet: it says why.
        QVERIFY(VexaTest::run(proc, VEXA_LAUNCH, QStringList{writePipeline(pipeline), "--graph", graph}
                                                     + (exitCode ? QStringList() : QStringList{"--quiet"}), 120000));
        const QString stdOut = QString::fromUtf8(proc.readAllStandardOutput());
        const QByteArray err = proc.readAllStandardError();
        QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
        QVERIFY2(proc.exitCode() == exitCode, err.constData());
        const QString reference = dir.filePath("ffmpeg-" + target);
        QVERIFY(MediaProbe::ffmpeg(QStringList{"-i", in} + maps + QStringList{"-c", "copy", reference}));

        if (exitCode != 0) {
            QVERIFY2(err.contains("subtitle stream 3 (subrip) left out: mp4 cannot hold it"), err.constData());
        } else {
            // The summary reports no drop for the output.
            const QRegularExpressionMatch m = QRegularExpression(QStringLiteral("^out\\s+OutputFile\\s+\\S+\\s+\\d+\\s+\\d+\\s+\\d+\\s+(\\d+)$"),
                                                                 QRegularExpression::MultilineOption).match(stdOut);
            QVERIFY2(m.hasMatch(), qPrintable(stdOut));
            QCOMPARE(m.captured(1), QStringLiteral("0"));
            // Media time and speed, as ffmpeg's time= and speed=, beside the packet rate.
            QVERIFY2(QRegularExpression(QStringLiteral("^time=00:00:0[0-4]\\.\\d\\d speed=\\d+\\.\\d+x in \\d+\\.\\d+ s, \\d+ pkt/s$"),
                                        QRegularExpression::MultilineOption).match(stdOut).hasMatch(), qPrintable(stdOut));
        }

        MediaProbe::Streams want, got;
        QString error;
        QVERIFY2(MediaProbe::probe(reference, &want, &error), qPrintable(error));
        QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
        QVERIFY(!want.isEmpty());
        error = MediaProbe::mismatch(want, got);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        if (target.endsWith(QLatin1String(".ts")))
            QCOMPARE(QFileInfo(out).size(), QFileInfo(reference).size());
        QCOMPARE(MediaProbe::streamSideData(out), MediaProbe::streamSideData(reference));
        QCOMPARE(MediaProbe::containerFacts(out), MediaProbe::containerFacts(reference));

        QFile dot(graph);
        QVERIFY(dot.open(QIODevice::ReadOnly));
        const QByteArray dotText = dot.readAll();
        for (const char *edge : {"\"in\" -> \"out\" [label=\"V\"", "\"in\" -> \"out\" [label=\"A\"", "stoped"})
            QVERIFY2(dotText.contains(edge), dotText.constData());
    }

    // A looping, paced input never ends by itself; Ctrl-C, SIGTERM and SIGHUP
    // must each still leave a finished file whose packets are the source's,
    // in order. So must a second signal during the stop that the first began
    // (`timeout` signals the process and then its group), every time: a
    // module that takes half a second to stop, ahead of the output, holds the
    // stop open for it. The third signal ends the process at once, even while
    // that module takes ten seconds.
    void interrupt_data()
    {
        QTest::addColumn<int>("sig");
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("said");
        QTest::newRow("SIGINT") << int(SIGINT) << 1 << "interrupted.mp4" << "interrupted";
        QTest::newRow("SIGTERM") << int(SIGTERM) << 1 << "terminated.mp4" << "interrupted by SIGTERM";
        QTest::newRow("SIGHUP, to Matroska") << int(SIGHUP) << 1 << "hangup.mkv" << "interrupted by SIGHUP";
        for (int attempt = 1; attempt <= 5; ++attempt) {
            QTest::addRow("SIGTERM twice, MP4, try %d", attempt) << int(SIGTERM) << 2 << "twice.mp4"
                                                                  << "SIGTERM again: still stopping in order";
            QTest::addRow("SIGINT twice, Matroska, try %d", attempt) << int(SIGINT) << 2 << "twice.mkv"
                                                                       << "SIGINT again: still stopping in order";
        }
        QTest::newRow("SIGINT three times") << int(SIGINT) << 3 << "thrice.mkv" << "SIGINT again: ending at once";
    }
    void interrupt()
    {
        QFETCH(int, sig);
        QFETCH(int, count);
        QFETCH(QString, target);
        QFETCH(QString, said);
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg and ffprobe are needed to make and read test media");
        const QString out = dir.filePath(target);
        QFile::remove(out);
        QByteArray pipeline = remuxPipeline(clip, out);
        // The slow module holds the stop open until the test has sent its
        // last signal and seen it taken (a file the test writes), at most a
        // minute. The third signal must end the run at once: it is never
        // released, so that only the signal can end the run in time.
        const QString release = dir.filePath(target + QStringLiteral(".release"));
        QFile::remove(release);
        if (count > 1) {
            const int stopDelayMs = 60000;
            pipeline = QStringLiteral(R"({"modules": [
                {"class": "InputFile", "name": "in", "settings": {"path": "%1"}},
                {"class": "LossySink", "name": "slow", "settings": {"dropping": true, "stopDelayMs": %3, "stopUntil": "%4"}},
                {"class": "OutputFile", "name": "out", "settings": {"path": "%2"}}],
                "links": [{"from": "in", "to": "slow", "kind": "V"}, {"from": "in", "to": "out", "kind": "A"},
                          {"from": "in", "to": "out", "kind": "V"}]})").arg(clip, out).arg(stopDelayMs).arg(release).toUtf8();
        }
        QProcess proc;
        QVERIFY(VexaTest::start(proc, VEXA_LAUNCH, {writePipeline(pipeline), "--set", "in.loop=true", "--set", "in.realtime=true",
                                                    "--interval", "200", "-l", QStringLiteral(VEXA_TEST_MODULES)}));
        // Wait for three progress lines that show packets flowing into the
        // output (600 ms of paced media), so both streams have reached it.
        QByteArray err;
        const QRegularExpression flowing(QStringLiteral("time=\\d\\d:\\d\\d:\\d\\d\\.\\d\\d speed=\\S+x \\|.* out [1-9]\\d* pkt/s"));
        QVERIFY2(VexaTest::waitForMatches(proc, flowing, 3, 60000, &err), err.constData());
        // A pid of 0 would signal the whole process group, test runner included.
        const qint64 pid = proc.processId();
        QVERIFY(pid > 0);
        QCOMPARE(::kill(pid_t(pid), sig), 0);
        // Each further signal once the one before has been taken (signals
        // sent back to back may arrive as one).
        const QStringList steps = {QStringLiteral("vexa-launch: interrupted"), QStringLiteral("again: still stopping")};
        for (int i = 1; i < count; ++i) {
            QVERIFY2(VexaTest::waitForMatches(proc, QRegularExpression(steps.at(i - 1)), 1, 60000, &err), err.constData());
            QCOMPARE(::kill(pid_t(pid), sig), 0);
        }
        if (count == 2) {
            QVERIFY2(VexaTest::waitForMatches(proc, QRegularExpression(steps.at(1)), 1, 60000, &err), err.constData());
            VexaTest::writeFile(release, "go");
        }
        QVERIFY(proc.waitForFinished(60000));
        err += proc.readAllStandardError();
        QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
        QVERIFY2(proc.exitCode() == 128 + sig && err.contains(said.toUtf8()), err.constData());
        if (count >= 3)
            return;  // ended at once: the output need not be whole

        MediaProbe::Streams want, got;
        QString error;
        QVERIFY(MediaProbe::probe(clip, &want, &error));
        QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
        error = MediaProbe::sameData(want, got, 0);
        QVERIFY2(error.isEmpty(), qPrintable(error));
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
        QTest::addColumn<QStringList>("files");      // "name:absent", "name:unchanged" (still notMedia) or "name:media"

        const QStringList plain{"@", "--quiet"};
        const auto launch = [](const char *tag, const QByteArray &pipeline, const QStringList &args, int code, const QString &re,
                               const QStringList &files = {}) {
            QTest::newRow(tag) << QString::fromUtf8(VEXA_LAUNCH) << pipeline << args << code << QStringList{re} << QStringList() << files;
        };
        const auto inspect = [](const char *tag, const QStringList &args, int code, const QStringList &re, const QStringList &no = {}) {
            QTest::newRow(tag) << QString::fromUtf8(VEXA_INSPECT) << QByteArray() << args << code << re << no << QStringList();
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
        launch("bad thread name", R"({"modules": [{"class": "PacketStats", "name": "s", "thread": "main"}]})", plain, 3,
               "modules\\[0\\] \\(\"s\"\\): \"thread\" must be a name of letters, digits, '_' and '-' other than \"main\"");
        launch("duplicate name", R"({"modules": [{"class": "PacketStats", "name": "s"}, {"class": "PacketStats", "name": "s"}]})",
               plain, 3, "module name \"s\" is used twice");
        launch("link to unknown module",
               R"({"modules": [{"class": "PacketStats", "name": "s"}], "links": [{"from": "s", "to": "nope", "kind": "V"}]})",
               plain, 3, "links\\[0\\]: \"to\" names unknown module \"nope\"");
        launch("bad link kind", R"({"modules": [{"class": "PacketStats", "name": "a"}, {"class": "PacketStats", "name": "b"}],
                                    "links": [{"from": "a", "to": "b", "kind": "AX"}]})",
               plain, 3, "bad link kind \"AX\"");
        launch("missing board", R"({"board": "no-such-board.json", "modules": [{"class": "InputFile", "name": "in"}]})",
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
        // The shipped pipelines pass every check.
        for (const char *name : {"remux.json", "remux-stats.json", "live-loop.json", "publish-live.json", "receive-record.json",
                                 "relay.json", "camera.json", "transcode.json"}) {
            QTest::newRow(qPrintable(QStringLiteral("example %1").arg(name))) << QString::fromUtf8(VEXA_LAUNCH) << QByteArray()
                << QStringList{QStringLiteral(VEXA_EXAMPLE_PIPELINES "/") + name, "--check"} << 0 << QStringList{": valid, "}
                << QStringList() << QStringList();
        }
        // The output file is created only once the input has been opened.
        launch("missing input file", remuxPipeline("/no/such/clip.mp4", "@DIR@/bad-out.mp4"), plain, 4,
               "error: in: cannot open /no/such/clip\\.mp4: No such file or directory", {"bad-out.mp4:absent"});
        // The log level governs FFmpeg's own lines too; -q leaves them all out.
        const QByteArray truncated = remuxPipeline("@DIR@/truncated.ts", "@DIR@/from-truncated.mkv");
        const auto logged = [&truncated](const char *tag, const QStringList &args, const QStringList &re, const QStringList &no) {
            QTest::newRow(tag) << QString::fromUtf8(VEXA_LAUNCH) << truncated << (QStringList{"@", "-y"} + args) << 0 << re << no
                               << QStringList();
        };
        logged("log level warning", {"-loglevel", "warning"}, {R"(\[\w+ @ 0x[0-9a-f]+\] )"}, {"running 2 modules", "VexaSDK"});
        logged("log level info", {"-v", "info"}, {"running 2 modules"}, {"VexaSDK"});
        logged("-q", {"-q"}, {"^module "}, {" @ 0x", "running 2 modules"});
        logged("log level quiet", {"-v", "quiet"}, {"^module "}, {" @ 0x", "running 2 modules", "vexa-launch"});
        launch("bad log level", good, {"@", "-v", "loud"}, 2, "--loglevel expects quiet, error, warning, info or debug, not \"loud\"");
        // Without --quiet too, each error is printed once.
        QTest::newRow("error printed once") << QString::fromUtf8(VEXA_LAUNCH) << remuxPipeline("/no/such/clip.mp4", "@DIR@/bad-out.mp4")
            << QStringList{"@"} << 4 << QStringList{"vexa-launch: error: in: cannot open /no/such/clip\\.mp4"}
            << QStringList{"\\[in\\] cannot open"} << QStringList();
        const QByteArray unwritable = remuxPipeline("@DIR@/clip.mp4", "/no/such/dir/out.mp4");
        launch("unwritable output", unwritable, plain, 4, "error: out: cannot create /no/such/dir/out\\.mp4");
        const QByteArray remux = remuxPipeline("@DIR@/clip.mp4", "@DIR@/fresh.mp4");
        // Settings, from the file and from --set, checked against the class's declarations.
        launch("bool given as text", remuxPipeline("@DIR@/clip.mp4", "@DIR@/fresh.mp4").replace(R"("path": "@DIR@/clip.mp4")",
                                                   R"("path": "@DIR@/clip.mp4", "loop": "no")"), plain, 3,
               R"(pipeline\.json: module "in" \(InputFile\): setting "loop": expected bool, got the string "no")", {"fresh.mp4:absent"});
        launch("--set outside the allowed set", remux, {"@", "--quiet", "--set", "out.overflow=dorp"}, 2,
               R"(--set out\.overflow=dorp: module "out" \(OutputFile\): setting "overflow": expected one of wait, drop, got the string "dorp")");
        launch("--set unknown key", remux, {"@", "--quiet", "--set", "out.pathh=x.mp4"}, 2,
               R"(setting "pathh": unknown setting \(known: path, format, overflow, overwrite, memSize, bufLenA, bufLenV, debugLevel\))");
        launch("base setting, wrong type", remux, {"@", "--quiet", "--set", "in.bufLenV=1.5"}, 2,
               R"(module "in" \(InputFile\): setting "bufLenV": expected integer, got the number 1\.5)");
        launch("path given as a number", remux, {"@", "--quiet", "--set", "out.path=12"}, 2,
               R"(setting "path": expected output file path \(string\), got the number 12)");
        // Links and sources, checked against the classes' interfaces.
        launch("reversed link", QByteArray(remux).replace(R"("from": "in", "to": "out")", R"("from": "out", "to": "in")"), plain, 3,
               R"(link out -> in \(A\): class OutputFile does not send audio \(it sends: events\))");
        launch("events into a file reader", R"({"modules": [{"class": "InputFile", "name": "in", "settings": {"path": "x.mp4"}},
                                                {"class": "PacketStats", "name": "s"}],
                                                "links": [{"from": "in", "to": "s", "kind": "V"}, {"from": "s", "to": "in", "kind": "E"}]})",
               plain, 3, R"(link s -> in \(E\): class InputFile does not accept events \(it accepts: none\))");
        launch("no source", good, plain, 3, "the pipeline has no source");
        launch("output without links", QByteArray(remux).replace(R"({"from": "in", "to": "out", "kind": "AV"})", ""), plain, 3,
               R"(module "out" \(OutputFile\) has no audio or video link into it)", {"fresh.mp4:absent"});
        // Outputs that would destroy a file.
        launch("output is the input", remux, {"@", "--quiet", "-y", "--set", "out.path=@DIR@//clip.mp4"}, 3,
               R"(module "out" would write .*clip\.mp4, which is the input of module "in" \("path"\); refused)", {"clip.mp4:media"});
        launch("output is the input by a link", remux, {"@", "--quiet", "-y", "--set", "out.path=@DIR@/alias.mp4"}, 3,
               "which is the input of module \"in\"", {"clip.mp4:media"});
        launch("existing output", remux, {"@", "--quiet", "--set", "out.path=@DIR@/exists.mp4"}, 3,
               R"(module "out": .*exists\.mp4 already exists; not replaced \(use -y, or set "overwrite"\))", {"exists.mp4:unchanged"});
        launch("existing output, -y", remux, {"@", "--quiet", "-y", "--set", "out.path=@DIR@/replaced.mp4"}, 0,
               "^module ", {"replaced.mp4:media"});
        // Packets a module loses make the run fail, with where and how many,
        // unless the pipeline asked for drops.
        const QString testModules = QStringLiteral(VEXA_TEST_MODULES);
        const QByteArray lossy = QByteArray(remux).replace(R"("class": "OutputFile", "name": "out", "settings": {"path": "@DIR@/fresh.mp4"})",
                                                           R"("class": "LossySink", "name": "out")");
        launch("packets lost", lossy, {"@", "--quiet", "-l", testModules}, 5, R"(error: out lost \d+ packets \(\d+ audio, \d+ video\))");
        launch("drops asked for, other module", lossy, {"@", "--quiet", "-l", testModules, "--set", "out.dropping=true"}, 0, "^module ");
        launch("library class, checked", lossy, {"@", "--quiet", "-l", testModules, "--set", "out.keepEvery=often"}, 2,
               R"(module "out" \(LossySink\): setting "keepEvery": expected integer, got the string "often")");
        launch("library class that declares nothing", QByteArray(lossy).replace("LossySink", "PlainSink"),
               {"@", "--quiet", "-l", testModules, "--set", "out.anything=1"}, 0, "^module ");
        // Drops asked for (a live source's output) are no failure.
        launch("drops asked for", remux, {"@", "--quiet", "--set", "out.path=@DIR@/dropping.mkv", "--set", "out.overflow=drop",
                                          "--set", "out.bufLenV=2", "--set", "out.bufLenA=2"}, 0, "^module ");
        // Caught before anything starts, by --check too; and every error of
        // the file is reported, not just the first.
        launch("unknown container", unwritable, {"@", "--quiet", "--set", "out.path=@DIR@/out.nosuchext"}, 3,
               R"(pipeline\.json: module "out" \(OutputFile\): cannot choose a container for .*out\.nosuchext \(set "format"\))",
               {"out.nosuchext:absent"});
        QTest::newRow("every error, --check") << QString::fromUtf8(VEXA_LAUNCH)
            << QByteArray(remux).replace(R"("path": "@DIR@/fresh.mp4")", R"("path": "@DIR@/fresh.mp4", "format": "nosuchformat")")
                   .replace(R"("path": "@DIR@/clip.mp4")", R"("path": "@DIR@/clip.mp4", "loop": "no")")
            << QStringList{"@", "--check"} << 3
            << QStringList{R"(module "in" \(InputFile\): setting "loop": expected bool)",
                           R"(module "out" \(OutputFile\): unknown container format "nosuchformat")"}
            << QStringList{"valid"} << QStringList();

        inspect("list", {}, 0,
                {"Module classes \\(" VEXA_EXAMPLE_CLASSES "\\)",
                 "InputFile\\s+VexaInputFile\\s+settings: path, loop, realtime, copyTimestamps, streams  \\[sends: audio, video, events; accepts: none\\]",
                 "InputNet\\s+VexaInputNet", "OutputFile\\s+VexaOutputFile", "OutputNet\\s+VexaOutputNet",
                 "PacketStats\\s+VexaPacketStats"},
                {"VexaObject\\b\\s*\\n"});
        // Loading the library the tool already knows registers nothing twice.
        inspect("list with library", {"-l", VEXA_EXAMPLE_MODULES}, 0, {"Module classes \\(" VEXA_EXAMPLE_CLASSES "\\)"});
        inspect("one class", {"InputFile"}, 0,
                {"Class VexaInputFile \\(create as \"InputFile\"\\), inherits VexaObject < QObject",
                 "Interface:\\n\\s+sends\\s+audio, video, events\\n\\s+accepts\\s+none\\n\\s+platform\\s+unused",
                 "Settings:\\n\\s+path\\s+input file path \\(string\\)\\s+media file to read",
                 "\\n\\s+loop\\s+bool = false\\s+restart at the end",
                 "\\n\\s+bufLenV\\s+integer = 20\\s+video queue bound.*\\(every module\\)",
                 "Events:\\n\\s+eos", "VexaInputFile\\(QObject\\*\\)",
                 "Declared by VexaInputFile:\\n  Invokable methods:\\n\\s+QVariant stats\\(\\)",
                 "Declared by VexaObject:\\n  Signals:\\n\\s+void newEvent\\(QString type, QVariant msg\\)",
                 "void newPacketV\\(Packet pkt\\)", "void onNewPacketV\\(Packet\\)"},
                {"Declared by QObject", "onStart", "onNewInfoAPriv"});
        inspect("enum setting", {"OutputFile"}, 0,
                {"Interface:\\n\\s+sends\\s+events\\n\\s+accepts\\s+audio, video",
                 "\\n\\s+overflow\\s+one of wait, drop = wait\\s+wait: lossless",
                 "\\n\\s+memSize\\s+integer = 2097152\\s+payload ring bytes"});
        inspect("full class name, with QObject", {"VexaOutputFile", "--all"}, 0,
                {"Class VexaOutputFile", "Declared by QObject:", "void deleteLater\\(\\)", "void onStart\\(\\)  \\[private\\]"});
        inspect("unknown class", {"NoSuchModule"}, 1, {"vexa-inspect: unknown module class \"NoSuchModule\""});
        inspect("base class is not a module", {"VexaObject"}, 1, {"unknown module class \"VexaObject\""});
        inspect("class that declares nothing", {"-l", VEXA_TEST_MODULES, "PlainSink"}, 0,
                {"Interface \\(not declared: taken as everything\\):\\n\\s+sends\\s+audio, video, events\\n.*\\n\\s+platform\\s+may use",
                 "Settings \\(none declared: keys are not checked\\):\\n\\s+bufLenA"});
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
        QFETCH(QStringList, files);

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
        for (const QString &check : files) {
            const QString path = dir.filePath(check.section(':', 0, 0));
            const QString want = check.section(':', 1);
            if (want == QLatin1String("absent")) {
                QVERIFY2(!QFileInfo::exists(path), qPrintable(path));
            } else if (want == QLatin1String("unchanged")) {
                QFile f(path);
                QVERIFY(f.open(QIODevice::ReadOnly));
                QCOMPARE(f.readAll(), notMedia);
            } else {
                MediaProbe::Streams streams;
                QString error;
                QVERIFY2(MediaProbe::probe(path, &streams, &error), qPrintable(path + ": " + error));
                QCOMPARE(streams.keys(), QStringList({"audio", "video"}));
            }
        }
    }

private:
    QString writePipeline(const QByteArray &text) { return VexaTest::writeFile(dir.filePath("pipeline.json"), text); }
    static QByteArray remuxPipeline(const QString &in, const QString &out, const QString &outExtra = QString(),
                                    const QString &inExtra = QString())
    {
        return VexaTest::pipeline("InputFile", QStringLiteral(R"("path": "%1")").arg(in) + inExtra, "OutputFile",
                                  QStringLiteral(R"("path": "%1")").arg(out) + outExtra);
    }

    QTemporaryDir dir;
    const QString clip = dir.filePath("clip.mp4");
    const QByteArray notMedia = "not a media file\n";
};

QTEST_GUILESS_MAIN(tst_Tools)
#include "tst_tools.moc"
