// The RTSP server module as its viewers see it: vexa-launch serves a clip
// read in a loop at its own pace, and ffprobe and ffmpeg play it over TCP
// and UDP on 127.0.0.1, on ports chosen free at run time. They judge the
// codec, the picture size, the timestamps, that each viewer starts at a
// keyframe, that a viewer leaving changes nothing for another, the viewer
// bound, and bad settings with their message and exit code.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaType>
#include <QTemporaryDir>
#include <QtTest>

#include "mediaprobe.h"
#include "netpeer.h"
#include "vexaexamplemodules.h"
#include "vexatest.h"

using NetPeer::scaled;

namespace {

// The clips' group of pictures: two seconds, so that a viewer joins in the
// middle of one.
const char *const gop = "50";
// RTP video times count 90 kHz ticks; a frame at 25 per second is 3600.
const qint64 frameTicks = 3600;
// Where the looped clip starts again its times may be off by rounding.
const qint64 slackTicks = 180;

// What one viewer received: ffprobe's streams by kind and the video packets.
struct Viewed {
    bool ok = false;
    QString errors;
    QMap<QString, QJsonObject> streams;
    QList<QJsonObject> video;
};

// Established TCP connections to @p port on this machine.
int connections(int port)
{
    return NetPeer::sockets(port, false, "01");
}

QStringList probeArgs(const QString &transport, int packets, const QString &url)
{
    return {"-v", "error", "-rtsp_transport", transport, "-timeout", QString::number(scaled(10000) * 1000),
            "-show_streams", "-show_packets", "-read_intervals", QStringLiteral("%+#%1").arg(packets), "-of", "json", url};
}

Viewed viewed(QProcess &p)
{
    Viewed v;
    v.ok = p.waitForFinished(scaled(60000)) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    v.errors = QString::fromLocal8Bit(p.readAllStandardError());
    const QJsonObject doc = QJsonDocument::fromJson(p.readAllStandardOutput()).object();
    QMap<int, QString> kinds;
    for (const QJsonValue &s : doc.value("streams").toArray()) {
        const QJsonObject o = s.toObject();
        kinds.insert(o.value("index").toInt(), o.value("codec_type").toString());
        v.streams.insert(o.value("codec_type").toString(), o);
    }
    for (const QJsonValue &pk : doc.value("packets").toArray()) {
        if (kinds.value(pk.toObject().value("stream_index").toInt()) == QLatin1String("video"))
            v.video << pk.toObject();
    }
    return v;
}

// Why the video packets of @p v do not start at a keyframe with times a
// whole number of frames apart (exactly one apart when @p lossless), or
// an empty string. The first packet may come before the times are known.
// Times made from arrival instead of the source's would bunch up where a
// late viewer gets the group of pictures kept for it.
QString videoProblem(const Viewed &v, bool lossless)
{
    if (v.video.size() < 10)
        return QStringLiteral("only %1 video packets").arg(v.video.size());
    if (!v.video.first().value("flags").toString().startsWith(QLatin1Char('K')))
        return QStringLiteral("the first video packet is no keyframe");
    qint64 last = -1;
    for (const QJsonObject &p : v.video) {
        if (!p.contains("pts"))
            continue;
        const qint64 pts = p.value("pts").toVariant().toLongLong();
        const qint64 step = pts - last;
        const qint64 frames = (step + frameTicks / 2) / frameTicks;
        if (last >= 0 && (frames < 1 || qAbs(step - frames * frameTicks) > slackTicks || (lossless && frames != 1)))
            return QStringLiteral("video time %1 follows %2").arg(pts).arg(last);
        last = pts;
    }
    return QString();
}

} // namespace

class tst_RtspServer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        vexaRegisterExampleModules();
        if (!QMetaType::type("VexaRtspServer"))
            QSKIP("the RtspServer module is not built here (the RTSP server library was not found)");
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg and ffprobe are needed");
        const QStringList source{"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-f", "lavfi", "-i",
                                 "sine=frequency=440:sample_rate=48000", "-t", "4", "-pix_fmt", "yuv420p",
                                 "-g", gop, "-bf", "0", "-c:a", "aac", "-b:a", "64k", "-shortest"};
        QString error;
        QVERIFY2(MediaProbe::ffmpeg(source + QStringList{"-c:v", "libx264", "-preset", "ultrafast", dir.filePath("h264.mp4")}, &error),
                 qPrintable(error));
        QVERIFY2(MediaProbe::ffmpeg(source + QStringList{"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=error",
                                                         dir.filePath("h265.mp4")}, &error), qPrintable(error));
        // Pictures only: the clip starts again one frame after its last, so
        // that a long viewer sees its times rise without a seam.
        QVERIFY2(MediaProbe::ffmpeg({"-i", dir.filePath("h264.mp4"), "-map", "0:v", "-c", "copy", dir.filePath("pictures.mp4")}, &error),
                 qPrintable(error));
        // H.264 in MPEG-TS: Annex B packets, no parameter sets in the description.
        QVERIFY(MediaProbe::rewrap(dir.filePath("h264.mp4"), dir.filePath("h264.ts")));
        QVERIFY2(MediaProbe::ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-t", "1", "-c:v", "mpeg4",
                                     dir.filePath("mpeg4.mp4")}, &error), qPrintable(error));
    }

    // One viewer per codec, container and transport; it joins after the
    // server has started, so in the middle of a group of pictures.
    void serve_data()
    {
        QTest::addColumn<QString>("clip");
        QTest::addColumn<QString>("transport");
        QTest::addColumn<QString>("codec");
        QTest::newRow("h264 tcp") << "h264.mp4" << "tcp" << "h264";
        QTest::newRow("h264 udp") << "h264.mp4" << "udp" << "h264";
        QTest::newRow("h264 from mpeg-ts tcp") << "h264.ts" << "tcp" << "h264";
        QTest::newRow("h265 tcp") << "h265.mp4" << "tcp" << "hevc";
        QTest::newRow("h265 udp") << "h265.mp4" << "udp" << "hevc";
    }
    void serve()
    {
        QFETCH(QString, clip);
        QFETCH(QString, transport);
        QFETCH(QString, codec);
        QProcess server;
        const QString url = start(server, clip);
        QVERIFY2(!url.isEmpty(), server.readAllStandardError().constData());
        QProcess viewer;
        viewer.start(QStringLiteral("ffprobe"), probeArgs(transport, 100, url));
        const Viewed v = viewed(viewer);
        QVERIFY2(v.ok, qPrintable(v.errors));
        QCOMPARE(v.streams.value("video").value("codec_name").toString(), codec);
        QCOMPARE(v.streams.value("video").value("width").toInt(), 160);
        QCOMPARE(v.streams.value("video").value("height").toInt(), 120);
        QCOMPARE(v.streams.value("audio").value("codec_name").toString(), QStringLiteral("aac"));
        QCOMPARE(v.streams.value("audio").value("sample_rate").toString(), QStringLiteral("48000"));
        const QString problem = videoProblem(v, transport == QLatin1String("tcp"));
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
        QCOMPARE(stop(server), 143);
    }

    // Viewer A reads for a few seconds; meanwhile B joins late, decodes 20
    // pictures and leaves with TEARDOWN, and C is killed. A's stream goes
    // on without a gap, and B's first picture decodes (it started at a
    // keyframe).
    void viewersComeAndGo()
    {
        QProcess server;
        const QString url = start(server, "pictures.mp4");
        QVERIFY2(!url.isEmpty(), server.readAllStandardError().constData());
        const int port = QUrl(url).port();
        QProcess a;
        a.start(QStringLiteral("ffprobe"), probeArgs("tcp", 150, url));
        QVERIFY(QTest::qWaitFor([&] { return connections(port) >= 1; }, scaled(20000)));
        NetPeer::Ffmpeg b, c;
        c.start({"-rtsp_transport", "tcp", "-i", url, "-f", "null", "-"});
        QVERIFY(QTest::qWaitFor([&] { return connections(port) >= 2; }, scaled(20000)));
        const QString frames = dir.filePath("late.framemd5");
        b.start({"-rtsp_transport", "udp", "-i", url, "-frames:v", "20", "-f", "framemd5", frames});
        QVERIFY2(b.wait(30000), qPrintable(b.errors()));
        const QString bErrors = b.errors();
        QVERIFY2(b.proc.exitCode() == 0 && bErrors.isEmpty(), qPrintable(bErrors));
        QCOMPARE(VexaTest::frameMd5(frames).size(), 20);
        c.stop();
        const Viewed v = viewed(a);
        QVERIFY2(v.ok, qPrintable(v.errors));
        const QString problem = videoProblem(v, true);
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
        QCOMPARE(stop(server), 143);
    }

    // With "maxViewers": 1 a second viewer is refused, the first goes on.
    void viewerBound()
    {
        QProcess server;
        const QString url = start(server, "h264.mp4", R"(, "maxViewers": 1)");
        QVERIFY2(!url.isEmpty(), server.readAllStandardError().constData());
        QProcess a, b;
        a.start(QStringLiteral("ffprobe"), probeArgs("tcp", 150, url));
        QVERIFY(QTest::qWaitFor([&] { return connections(QUrl(url).port()) >= 1; }, scaled(20000)));
        b.start(QStringLiteral("ffprobe"), probeArgs("udp", 20, url));
        const Viewed refused = viewed(b);
        QVERIFY(!refused.ok);
        QVERIFY2(refused.errors.contains(QLatin1String("503")), qPrintable(refused.errors));
        const Viewed v = viewed(a);
        QVERIFY2(v.ok, qPrintable(v.errors));
        QCOMPARE(stop(server), 143);
    }

    // Settings the server cannot start with: vexa-launch reports the
    // module's error and ends with exit code 4.
    void badInput_data()
    {
        QTest::addColumn<QString>("clip");
        QTest::addColumn<QString>("settings");      // "@PORT@": a port in use
        QTest::addColumn<QString>("message");
        QTest::newRow("port in use") << "h264.mp4" << R"("url": "rtsp://127.0.0.1:@PORT@/live")"
                                     << "error: out: cannot listen on 127.0.0.1:@PORT@: .*Address already in use";
        QTest::newRow("not rtsp") << "h264.mp4" << R"("url": "http://127.0.0.1:8554/live")"
                                  << "error: out: bad \"url\" \"http://127.0.0.1:8554/live\": expected rtsp://address:port/path";
        QTest::newRow("no path") << "h264.mp4" << R"("url": "rtsp://127.0.0.1:8554")" << "the path is missing";
        QTest::newRow("host name") << "h264.mp4" << R"("url": "rtsp://example.com:8554/live")"
                                   << "must be an IP address of this machine";
        QTest::newRow("negative bound") << "h264.mp4" << R"("maxViewers": -1)" << "error: out: bad \"maxViewers\" -1: 0 or more";
        QTest::newRow("unsupported codec") << "mpeg4.mp4" << R"("url": "rtsp://127.0.0.1:@FREE@/live")"
                                           << "error: out: cannot serve mpeg4 video over RTSP \\(H.264 and H.265 are served\\)";
    }
    void badInput()
    {
        QFETCH(QString, clip);
        QFETCH(QString, settings);
        QFETCH(QString, message);
        NetPeer::SocketPeer busy(NetPeer::SocketPeer::Silent);
        QVERIFY(busy.port > 0);
        const QString free = QString::number(NetPeer::freePort());
        settings.replace("@PORT@", QString::number(busy.port)).replace("@FREE@", free);
        message.replace("@PORT@", QString::number(busy.port));
        const QByteArray pipeline = VexaTest::pipeline(
            "InputFile", QStringLiteral(R"("path": "%1", "realtime": true)").arg(dir.filePath(clip)), "RtspServer", settings);
        QProcess launch;
        QVERIFY(VexaTest::run(launch, VEXA_LAUNCH, {VexaTest::writeFile(dir.filePath("bad.json"), pipeline), "-q"}, scaled(30000)));
        const QString err = QString::fromUtf8(launch.readAllStandardError());
        QCOMPARE(launch.exitCode(), 4);
        QVERIFY2(err.contains(QRegularExpression(message)), qPrintable(err));
    }

    // The shipped pipeline passes vexa-launch's checks.
    void examplePipeline()
    {
        QProcess launch;
        QVERIFY(VexaTest::run(launch, VEXA_LAUNCH, {VEXA_EXAMPLE_PIPELINES "/serve-rtsp.json", "--check"}));
        QVERIFY2(launch.exitCode() == 0, launch.readAllStandardError().constData());
    }

private:
    // Starts vexa-launch serving @p clip in a loop on a free port; the URL
    // once the stream is served, else empty.
    QString start(QProcess &launch, const QString &clip, const QString &more = QString())
    {
        const int port = NetPeer::freePort();
        const QString url = QStringLiteral("rtsp://127.0.0.1:%1/live").arg(port);
        const QByteArray pipeline = VexaTest::pipeline(
            "InputFile", QStringLiteral(R"("path": "%1", "loop": true, "realtime": true)").arg(dir.filePath(clip)),
            "RtspServer", QStringLiteral(R"("url": "%1"%2)").arg(url, more));
        const QString file = VexaTest::writeFile(dir.filePath(QStringLiteral("serve-%1.json").arg(port)), pipeline);
        if (!VexaTest::start(launch, VEXA_LAUNCH, {file, "-q", "--duration", "120"}) || !NetPeer::waitBound(port, false))
            return QString();
        // The path is served once the streams are described: until then a
        // viewer is answered "404 Not Found".
        const bool served = QTest::qWaitFor([&] {
            QProcess probe;
            probe.start(QStringLiteral("ffprobe"), {"-v", "quiet", "-rtsp_transport", "tcp", "-show_entries", "stream=codec_type",
                                                    "-read_intervals", "%+#1", "-of", "csv", url});
            return probe.waitForFinished(scaled(20000)) && probe.exitStatus() == QProcess::NormalExit && probe.exitCode() == 0;
        }, scaled(30000));
        return served ? url : QString();
    }
    // Ends vexa-launch as a supervisor would; its exit code (143: stopped
    // in order, nothing lost that it was not told to drop, no error).
    int stop(QProcess &launch)
    {
        launch.terminate();
        if (!launch.waitForFinished(scaled(20000))) {
            launch.kill();
            launch.waitForFinished();
            return -1;
        }
        return launch.exitCode();
    }

    QTemporaryDir dir;
};

QTEST_GUILESS_MAIN(tst_RtspServer)
#include "tst_rtspserver.moc"
