// The network modules against an independent peer, all on 127.0.0.1 and on
// ports chosen free at run time. VexaInputNet receives what `ffmpeg`
// publishes (TCP, SRT, HTTP, RTP, UDP, RTSP over TCP and UDP) and the recording is
// compared packet by packet with the source; VexaOutputNet publishes what
// vexa-launch reads and `ffmpeg` receives it (TCP, SRT, RTSP/TCP, RTMP,
// UDP). Then: the publisher goes away and comes back (reconnection), a
// recorder comes and goes three times while the stream goes on, a slow
// receiver (drop or hold back), bad input with its message and exit code,
// and Ctrl-C with the module's timer thread running.

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <csignal>

#include "mediaprobe.h"
#include "netpeer.h"
#include "testmodules.h"
#include "vexatest.h"

using NetPeer::scaled;

// Peers that listen give up after two minutes without a connection (the
// "listen_timeout" in their URLs), so that none outlives a test that crashed.

namespace {

QString arg(QString text, int port)
{
    return text.replace(QLatin1String("@PORT@"), QString::number(port));
}

// One stream's packets in a framemd5 file, as "size hash": the stream as
// FFmpeg's own muxer for hashes sees it.
QStringList hashes(const QString &path, const QString &stream)
{
    QStringList out;
    for (const QStringList &row : VexaTest::frameMd5(path))
        if (row.size() >= 6 && row[0] == stream)
            out << row[4] + QLatin1Char(' ') + row[5];
    return out;
}

} // namespace

class tst_Network : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        registerTestModules();
        if (!MediaProbe::toolsAvailable())
            return;
        QString error;
        QVERIFY2(MediaProbe::makeClip(dir.filePath("clip.mp4"), 2.0, &error), qPrintable(error));
        QVERIFY(MediaProbe::rewrap(dir.filePath("clip.mp4"), dir.filePath("clip.ts")));
        // RTP carries no decode times: the RTSP source has no B-frames.
        QVERIFY2(MediaProbe::ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-f", "lavfi", "-i",
                                     "sine=frequency=440:sample_rate=48000", "-t", "2", "-c:v", "libx264", "-preset",
                                     "ultrafast", "-g", "12", "-bf", "0", "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a",
                                     "64k", "-shortest", dir.filePath("live.mp4")}, &error), qPrintable(error));
        // Large frames (lossless noise, some 100 kB each): a few of them fill
        // the socket buffers, however slowly the build runs.
        QVERIFY2(MediaProbe::ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25", "-t", "1", "-c:v", "libx264",
                                     "-preset", "ultrafast", "-qp", "0", "-f", "mpegts", dir.filePath("dense.ts")}, &error),
                 qPrintable(error));
    }

    void init()
    {
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg and ffprobe are needed");
    }

    // ffmpeg publishes, vexa-launch receives with InputNet and records with
    // OutputFile. "@PORT@" stands for the port; "lossless" rows compare
    // every packet's size and data hash with the source's.
    void receive_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("inSettings");
        QTest::addColumn<QStringList>("publisher");
        QTest::addColumn<bool>("inputListens");
        QTest::addColumn<bool>("udp");
        QTest::addColumn<bool>("lossless");
        QTest::addColumn<QString>("container");    // of the recording

        const QStringList ts{"-re", "-i", "@DIR@/clip.ts", "-c", "copy", "-f", "mpegts"};
        QTest::newRow("tcp") << "tcp://127.0.0.1:@PORT@" << QString()
                             << (ts + QStringList{"tcp://127.0.0.1:@PORT@?listen=1&listen_timeout=120000"}) << false << false << true << "ts";
        QTest::newRow("srt") << "srt://127.0.0.1:@PORT@" << QString()
                             << (ts + QStringList{"srt://127.0.0.1:@PORT@?mode=listener&pkt_size=1316&linger=5&listen_timeout=120000000"}) << false << true << true << "ts";
        QTest::newRow("http") << "http://127.0.0.1:@PORT@/live.ts" << QString()
                              << (ts + QStringList{"-listen", "1", "http://127.0.0.1:@PORT@/live.ts"}) << false << false << true << "ts";
        QTest::newRow("rtp") << "rtp://127.0.0.1:@PORT@" << QString()
                             << QStringList{"-re", "-i", "@DIR@/clip.ts", "-c", "copy", "-f", "rtp_mpegts", "rtp://127.0.0.1:@PORT@"}
                             << true << true << false << "ts";
        // FFmpeg's UDP input ends its receiving thread with pthread_cancel()
        // inside a blocking recv(); ThreadSanitizer's runtime ends the
        // process for a thread that finishes inside an intercepted call, so
        // this row runs in the other builds only.
#if !defined(__SANITIZE_THREAD__)
        QTest::newRow("udp") << "udp://127.0.0.1:@PORT@" << QString()
                             << (ts + QStringList{"udp://127.0.0.1:@PORT@?pkt_size=1316"}) << true << true << false << "ts";
#endif
        // RTSP with B-frames: the first keyframe comes without timestamps and
        // the next two without decode times; the recording (Matroska, which
        // needs them) must still hold every video packet.
        const QStringList rtsp{"-re", "-i", "@DIR@/clip.mp4", "-c", "copy", "-f", "rtsp", "-rtsp_transport"};
        QTest::newRow("rtsp over tcp") << "rtsp://127.0.0.1:@PORT@/live" << R"(, "listen": true, "transport": "tcp")"
                                       << (rtsp + QStringList{"tcp", "rtsp://127.0.0.1:@PORT@/live"}) << true << false << false << "mkv";
        QTest::newRow("rtsp over udp") << "rtsp://127.0.0.1:@PORT@/live" << R"(, "listen": true, "transport": "udp")"
                                       << (rtsp + QStringList{"udp", "rtsp://127.0.0.1:@PORT@/live"}) << true << false << false << "mkv";
    }
    void receive()
    {
        QFETCH(QString, url);
        QFETCH(QString, inSettings);
        QFETCH(QStringList, publisher);
        QFETCH(bool, inputListens);
        QFETCH(bool, udp);
        QFETCH(bool, lossless);
        QFETCH(QString, container);
        const int port = NetPeer::freePort(udp);
        QVERIFY(port > 0);
        const QString out = dir.filePath(QStringLiteral("received-%1.%2").arg(QTest::currentDataTag(), container).replace(' ', '-'));
        publisher.replaceInStrings("@DIR@", dir.path()).replaceInStrings("@PORT@", QString::number(port));
        // The end of the stream (or a second without data) ends the run.
        const QString in = QStringLiteral(R"("url": "%1", "reconnect": false, "openTimeout": %2, "readTimeout": %3%4)")
                               .arg(arg(url, port)).arg(scaled(20000) / 1000).arg(scaled(1500) / 1000.0).arg(inSettings);

        NetPeer::Ffmpeg peer;
        QProcess launch;
        if (!inputListens) {
            peer.start(publisher);
            QVERIFY2(NetPeer::waitBound(port, udp), qPrintable(peer.errors()));
        }
        QVERIFY(VexaTest::start(launch, VEXA_LAUNCH, {write(VexaTest::pipeline("InputNet", in, "OutputFile", path(out))), "--quiet"}));
        if (inputListens) {
            QVERIFY2(NetPeer::waitBound(port, udp), launch.readAllStandardError().constData());
            peer.start(publisher);
        }
        QVERIFY2(launch.waitForFinished(scaled(60000)), "vexa-launch did not end");
        const QByteArray err = launch.readAllStandardError();
        QCOMPARE(launch.exitStatus(), QProcess::NormalExit);
        QVERIFY2(launch.exitCode() == 0, err.constData());
        QVERIFY2(peer.wait(20000), qPrintable(peer.errors()));

        MediaProbe::Streams want, got;
        QString error;
        QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
        QVERIFY2(!got.value("video").isEmpty() && !got.value("audio").isEmpty(), err.constData());
        if (lossless) {
            QVERIFY(MediaProbe::probe(dir.filePath("clip.ts"), &want, &error));
            error = MediaProbe::sameData(want, got);
            QVERIFY2(error.isEmpty(), qPrintable(error));
        } else if (container == QLatin1String("mkv")) {
            QVERIFY(MediaProbe::probe(dir.filePath("clip.mp4"), &want, &error));
            QCOMPARE(got.value("video").size(), want.value("video").size());
            QVERIFY(got.value("video").first().key);
        }
    }

    // vexa-launch reads a file at its own pace and publishes it with
    // OutputNet; ffmpeg receives. TCP and SRT are compared with the source
    // packet by packet; RTSP with what the same receiver gets when ffmpeg
    // itself publishes the same file (RTP packs H.264 its own way).
    void publish_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("source");
        QTest::addColumn<QStringList>("receiver");   // ffmpeg input arguments
        QTest::addColumn<bool>("udp");
        QTest::addColumn<QString>("compare");        // "source", "ffmpeg" or "count"
        QTest::addColumn<QString>("outSettings");
        QTest::addColumn<int>("receiverLateMs");     // the receiver starts this long after vexa-launch
        const QString wait = R"("overflow": "wait")";

        QTest::newRow("tcp") << "tcp://127.0.0.1:@PORT@" << "clip.ts"
                             << QStringList{"-i", "tcp://127.0.0.1:@PORT@?listen=1&listen_timeout=120000"} << false << "source" << wait << 0;
        QTest::newRow("srt") << "srt://127.0.0.1:@PORT@" << "clip.ts"
                             << QStringList{"-i", "srt://127.0.0.1:@PORT@?mode=listener&listen_timeout=120000000"} << true << "source" << wait << 0;
        QTest::newRow("rtsp over tcp") << "rtsp://127.0.0.1:@PORT@/live" << "live.mp4"
                                       << QStringList{"-rtsp_flags", "listen", "-rtsp_transport", "tcp", "-i", "rtsp://127.0.0.1:@PORT@/live"}
                                       << false << "ffmpeg" << wait << 0;
        QTest::newRow("rtmp") << "rtmp://127.0.0.1:@PORT@/live/s" << "clip.mp4"
                              << QStringList{"-listen", "1", "-i", "rtmp://127.0.0.1:@PORT@/live/s"} << false << "count" << wait << 0;
        QTest::newRow("udp") << "udp://127.0.0.1:@PORT@" << "clip.ts"
                             << QStringList{"-timeout", QString::number(scaled(3000) * 1000), "-i", "udp://127.0.0.1:@PORT@"}
                             << true << "count" << wait << 0;
        // The whole file comes at once while the output still connects (SRT
        // retries until the receiver is there): held, not dropped, it all
        // arrives, from the first keyframe on.
        QTest::newRow("srt, receiver late, drop mode") << "srt://127.0.0.1:@PORT@" << "clip.ts"
                             << QStringList{"-i", "srt://127.0.0.1:@PORT@?mode=listener&listen_timeout=120000000"} << true
                             << "source" << R"("overflow": "drop", "openTimeout": 20)" << 4000;
    }
    void publish()
    {
        QFETCH(QString, url);
        QFETCH(QString, source);
        QFETCH(QStringList, receiver);
        QFETCH(bool, udp);
        QFETCH(QString, compare);
        QFETCH(QString, outSettings);
        QFETCH(int, receiverLateMs);
        const QString tag = QString::fromLatin1(QTest::currentDataTag()).replace(' ', '-');
        const QString src = dir.filePath(source);

        // One receive: the receiver listens, the publisher (ours or ffmpeg)
        // connects; the receiver writes each packet's hash.
        const auto receive = [&](bool ours, const QString &hashFile) -> QString {
            const int port = NetPeer::freePort(udp);
            NetPeer::Ffmpeg rx;
            const auto startReceiver = [&]() -> bool {
                rx.start(QStringList(receiver).replaceInStrings("@PORT@", QString::number(port))
                         + QStringList{"-c", "copy", "-f", "framemd5", hashFile});
                return NetPeer::waitBound(port, udp);
            };
            if ((!ours || receiverLateMs == 0) && !startReceiver())
                return QStringLiteral("receiver did not listen: ") + rx.errors();
            if (ours) {
                QProcess launch;
                const QByteArray pipeline = VexaTest::pipeline(
                    "InputFile", path(src) + (receiverLateMs > 0 ? QString() : QStringLiteral(R"(, "realtime": true)")),
                    "OutputNet", QStringLiteral(R"("url": "%1", %2)").arg(arg(url, port), outSettings));
                if (!VexaTest::start(launch, VEXA_LAUNCH, {write(pipeline), "--quiet"}))
                    return QStringLiteral("vexa-launch did not start");
                if (receiverLateMs > 0) {
                    QTest::qWait(receiverLateMs);
                    if (!startReceiver())
                        return QStringLiteral("receiver did not listen: ") + rx.errors();
                }
                if (!launch.waitForFinished(scaled(60000)))
                    return QStringLiteral("vexa-launch did not end");
                if (launch.exitStatus() != QProcess::NormalExit || launch.exitCode() != 0)
                    return QStringLiteral("vexa-launch: ") + QString::fromUtf8(launch.readAllStandardError());
            } else {
                NetPeer::Ffmpeg tx;
                tx.start({"-re", "-i", src, "-c", "copy", "-f", udp ? "mpegts" : url.startsWith("rtsp") ? "rtsp" : "flv",
                          "-rtsp_transport", "tcp", arg(url, port)});
                tx.wait(30000);
            }
            if (!rx.wait(30000))
                return QStringLiteral("receiver did not end: ") + rx.errors();
            return QString();
        };

        const QString got = dir.filePath("published-" + tag + ".framemd5");
        QString error = receive(true, got);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QString want = dir.filePath(compare + "-" + tag + ".framemd5");
        if (compare == QLatin1String("source")) {
            QVERIFY(MediaProbe::ffmpeg({"-i", src, "-c", "copy", "-f", "framemd5", want}));
        } else if (compare == QLatin1String("ffmpeg")) {
            error = receive(false, want);
            QVERIFY2(error.isEmpty(), qPrintable(error));
        }
        // Stream by stream: the receiver's demuxer may interleave them otherwise.
        for (const QString stream : {"0", "1"}) {
            if (compare == QLatin1String("count")) { // UDP and RTMP: received at all, both kinds
                QVERIFY2(hashes(got, stream).size() > 10, qPrintable(stream));
                continue;
            }
            QVERIFY(!hashes(want, stream).isEmpty());
            QCOMPARE(hashes(got, stream), hashes(want, stream));
        }
    }

    // The publisher goes away mid-stream and comes back on the same port:
    // "disconnected" then "connected", the module keeps running, and the
    // recording is one readable file with both publishers' packets whose
    // timestamps never go back. Over TCP the module connects to the
    // publisher; over RTSP it listens and the publisher comes to it (its
    // first keyframe without timestamps, each time).
    void reconnect_data()
    {
        QTest::addColumn<QString>("scheme");
        QTest::newRow("tcp") << "tcp";
        QTest::newRow("rtsp, publisher restarts") << "rtsp";
    }
    void reconnect()
    {
        QFETCH(QString, scheme);
        const bool rtsp = scheme == QLatin1String("rtsp");
        const int port = NetPeer::freePort();
        const QString url = rtsp ? QStringLiteral("rtsp://127.0.0.1:%1/live").arg(port) : QStringLiteral("tcp://127.0.0.1:%1").arg(port);
        const QString out = dir.filePath(rtsp ? "reconnected.mkv" : "reconnected.ts");
        const QStringList publisher = rtsp ? QStringList{"-re", "-i", dir.filePath("clip.mp4"), "-c", "copy", "-f", "rtsp",
                                                         "-rtsp_transport", "tcp", url}
                                           : tcpServer(port, false);

        NetPeer::Ffmpeg first;
        if (!rtsp) {
            first.start(publisher);
            QVERIFY(NetPeer::waitBound(port, false));
        }
        VexaObject *in = Vexa::create("InputNet");
        VexaObject *rec = Vexa::create("OutputFile");
        auto *events = static_cast<VexaTestSink *>(Vexa::create("TestSink"));
        Vexa::linkA(in, rec);
        Vexa::linkV(in, rec);
        Vexa::linkE(in, events);
        QVERIFY(events->start());
        QVERIFY(rec->start(QVariantMap{{"path", out}}));
        QVERIFY(in->start(QVariantMap{{"url", url}, {"reconnectDelay", 0.1}, {"reconnectMaxDelay", 0.4}, {"listen", rtsp},
                                      {"readTimeout", scaled(1000) / 1000.0}, {"openTimeout", scaled(30)}}));
        if (rtsp) {
            QVERIFY(NetPeer::waitBound(port, false));
            first.start(publisher);
        }

        const auto types = [events] {
            QStringList t;
            for (const auto &e : events->events())
                t << e.first;
            return t;
        };
        QTRY_COMPARE_WITH_TIMEOUT(types().value(1), QStringLiteral("disconnected"), scaled(30000));
        QVERIFY(first.wait(10000));
        // A few refused attempts before the publisher is back.
        QTest::qWait(300);
        NetPeer::Ffmpeg second;
        if (rtsp)
            QVERIFY(NetPeer::waitBound(port, false));
        second.start(publisher);
        QTRY_COMPARE_WITH_TIMEOUT(types().value(2), QStringLiteral("connected"), scaled(30000));
        QCOMPARE(in->getState(), QStringLiteral("started"));
        QTRY_COMPARE_WITH_TIMEOUT(types().value(3), QStringLiteral("disconnected"), scaled(30000));
        QVERIFY(second.wait(10000));
        QCOMPARE(types().mid(0, 4), (QStringList{"connected", "disconnected", "connected", "disconnected"}));
        QVERIFY(!types().contains("error"));
        QCOMPARE(in->invoke("stats").toMap().value("reconnects").toInt(), 1);
        QVERIFY(in->stop(true));
        QVERIFY(rec->stop(true));
        in->destroy();
        rec->destroy();
        events->destroy();

        MediaProbe::Streams want, got;
        QString error;
        QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
        QVERIFY(MediaProbe::probe(dir.filePath(rtsp ? "clip.mp4" : "clip.ts"), &want, &error));
        if (rtsp) {
            // RTP packs H.264 its own way: every video packet of both runs, from a keyframe.
            QCOMPARE(got.value("video").size(), 2 * want.value("video").size());
            QVERIFY(got.value("video").first().key);
        } else {
            error = MediaProbe::sameData(want, got, 2);
            QVERIFY2(error.isEmpty(), qPrintable(error));
        }
        // (Matroska keeps no decode times; ffprobe infers some.)
        for (const QString kind : {"audio", "video"}) {
            const QList<MediaProbe::Packet> &b = got[kind];
            for (int i = 0, last = -1; i < b.size(); ++i) {
                if (!b[i].hasDts)
                    continue;
                QVERIFY2(last < 0 || b[i].dtsUs > b[last].dtsUs, qPrintable(QStringLiteral("%1 packet %2: decode time %3 after %4")
                                                                .arg(kind).arg(i).arg(b[i].dtsUs).arg(b[qMax(0, last)].dtsUs)));
                last = i;
            }
        }
    }

    // A real media server in the middle: nginx with its RTMP module, started
    // here on a free port. vexa-launch publishes to it and ffmpeg plays back
    // from it, or ffmpeg publishes and vexa-launch records from it; the
    // packets that come out are the source's.
    void mediaServer_data()
    {
        QTest::addColumn<bool>("ourPublisher");
        QTest::newRow("vexa-launch publishes, ffmpeg plays") << true;
        QTest::newRow("ffmpeg publishes, vexa-launch records") << false;
    }
    void mediaServer()
    {
        QFETCH(bool, ourPublisher);
        if (!NetPeer::NginxRtmp::available())
            QSKIP("nginx with libnginx-mod-rtmp is needed");
        QTemporaryDir prefix;
        QVERIFY(prefix.isValid());
        NetPeer::NginxRtmp server;
        server.proc.setWorkingDirectory(prefix.path());
        QVERIFY2(server.start(prefix.path()), qPrintable(server.errors()));
        const QString url = QStringLiteral("rtmp://127.0.0.1:%1/live/s").arg(server.port);
        const QString src = dir.filePath("clip.mp4");
        const QString tag = ourPublisher ? "ours" : "ffmpeg";
        const QString got = dir.filePath("server-" + tag + ".framemd5");
        const QString recording = dir.filePath("server-" + tag + ".mkv");

        // The player is there before the stream, so it gets all of it; the
        // end of the stream is a read that times out.
        NetPeer::Ffmpeg player;
        QProcess launch;
        if (ourPublisher) {
            player.start({"-rw_timeout", QString::number(scaled(3000) * 1000), "-i", url, "-c", "copy", "-f", "framemd5", got});
        } else {
            const QString in = QStringLiteral("\"url\": \"%1\", \"reconnect\": false, \"readTimeout\": %2, \"openTimeout\": %3")
                                   .arg(url).arg(scaled(3000) / 1000.0).arg(scaled(20));
            QVERIFY(VexaTest::start(launch, VEXA_LAUNCH, {write(VexaTest::pipeline("InputNet", in, "OutputFile", path(recording))),
                                                          "--quiet", "-y"}));
        }
        // The server logs the play request once the player is subscribed.
        QVERIFY2(QTest::qWaitFor([&] { return server.errors().contains(QLatin1String("play: name='s'")); }, scaled(20000)),
                 qPrintable(server.errors()));
        if (ourPublisher) {
            const QByteArray pipeline = VexaTest::pipeline("InputFile", path(src) + R"(, "realtime": true)", "OutputNet",
                                                           QStringLiteral("\"url\": \"%1\", \"overflow\": \"wait\"").arg(url));
            QVERIFY(VexaTest::run(launch, VEXA_LAUNCH, {write(pipeline), "--quiet"}, scaled(60000)));
            QVERIFY2(launch.exitCode() == 0, launch.readAllStandardError().constData());
            QVERIFY2(player.wait(30000), qPrintable(player.errors()));
            for (const QString stream : {"0", "1"}) {
                const QString want = dir.filePath("server-source.framemd5");
                QVERIFY(MediaProbe::ffmpeg({"-i", src, "-c", "copy", "-f", "framemd5", want}));
                QVERIFY(!hashes(want, stream).isEmpty());
                QCOMPARE(hashes(got, stream), hashes(want, stream));
            }
        } else {
            NetPeer::Ffmpeg publisher;
            publisher.start({"-re", "-i", src, "-c", "copy", "-f", "flv", url});
            QVERIFY2(publisher.wait(30000), qPrintable(publisher.errors()));
            QVERIFY2(launch.waitForFinished(scaled(60000)), "vexa-launch did not end");
            QVERIFY2(launch.exitCode() == 0, launch.readAllStandardError().constData());
            MediaProbe::Streams want, rec;
            QString error;
            QVERIFY2(MediaProbe::probe(recording, &rec, &error), qPrintable(error));
            QVERIFY(MediaProbe::probe(src, &want, &error));
            error = MediaProbe::sameData(want, rec);
            QVERIFY2(error.isEmpty(), qPrintable(error));
        }
    }

    // A receiver that holds the input's send back for longer than the read
    // time-out (an output in "wait" mode behind a slow disk) is not the
    // source going quiet: the stream goes on to its real end.
    void receiverHoldsBack()
    {
        const int port = NetPeer::freePort();
        NetPeer::Ffmpeg publisher;
        publisher.start(tcpServer(port, false));
        QVERIFY(NetPeer::waitBound(port, false));
        VexaObject *in = Vexa::create("InputNet");
        auto *events = static_cast<VexaTestSink *>(Vexa::create("TestSink"));
        Vexa::linkE(in, events);
        QAtomicInt held;
        QObject::connect(in, &VexaObject::newPacketV, in, [&held] {
            if (held.testAndSetRelaxed(0, 1))
                QThread::msleep(scaled(1500));
        }, Qt::DirectConnection);
        QVERIFY(events->start());
        QVERIFY(in->start(QVariantMap{{"url", QStringLiteral("tcp://127.0.0.1:%1").arg(port)},
                                      {"reconnect", false}, {"readTimeout", scaled(500) / 1000.0}}));
        QTRY_VERIFY_WITH_TIMEOUT(events->events().size() >= 3, scaled(30000));
        const auto e = events->events();
        QCOMPARE(e.value(1).first, QStringLiteral("disconnected"));
        QCOMPARE(e.value(1).second.toString(), QStringLiteral("end of stream"));
        QCOMPARE(e.value(2).first, QStringLiteral("eos"));
        QVERIFY(publisher.wait(10000));
        in->destroy();
        events->destroy();
    }

    // A recorder is created, linked, started, stopped, unlinked and destroyed
    // three times while the network input keeps receiving: each recording
    // is a finished file, and the stream is never interrupted.
    void recordWhileStreaming()
    {
        const int port = NetPeer::freePort();
        const QString url = QStringLiteral("tcp://127.0.0.1:%1").arg(port);
        NetPeer::Ffmpeg publisher;
        publisher.start(tcpServer(port, true));
        QVERIFY(NetPeer::waitBound(port, false));
        VexaObject *in = Vexa::create("InputNet");
        auto *watcher = static_cast<VexaTestSink *>(Vexa::create("TestSink"));
        Vexa::linkV(in, watcher);
        Vexa::linkE(in, watcher);
        QVERIFY(watcher->start());
        QVERIFY(in->start(QVariantMap{{"url", url}}));
        QTRY_VERIFY_WITH_TIMEOUT(watcher->packets() > 0, scaled(20000));

        for (int round = 0; round < 3; ++round) {
            const QString path = dir.filePath(QStringLiteral("recording-%1.mkv").arg(round));
            VexaObject *rec = Vexa::create("OutputFile");
            QVERIFY(rec->start(QVariantMap{{"path", path}}));
            Vexa::linkA(in, rec);
            Vexa::linkV(in, rec);
            QTRY_VERIFY_WITH_TIMEOUT(rec->invoke("stats").toMap().value("packetsV").toLongLong() >= 12, scaled(20000));
            QVERIFY(rec->stop(true));
            Vexa::unLinkA(in, rec);
            Vexa::unLinkV(in, rec);
            rec->destroy();
            const int seen = watcher->packets();
            QTRY_VERIFY_WITH_TIMEOUT(watcher->packets() > seen, scaled(10000));

            MediaProbe::Streams got;
            QString error;
            QVERIFY2(MediaProbe::probe(path, &got, &error), qPrintable(error));
            QVERIFY2(got.value("video").size() >= 12, qPrintable(path));
            // The recording starts on a keyframe when the recorder is linked
            // before the stream reaches one; here it is readable either way.
        }
        for (const auto &e : watcher->events())
            QVERIFY2(e.first != QLatin1String("disconnected") && e.first != QLatin1String("error"), qPrintable(e.first));
        QCOMPARE(in->invoke("stats").toMap().value("disconnects").toInt(), 0);
        QVERIFY(in->stop(true));
        in->destroy();
        watcher->destroy();
    }

    // Bad input: a clear message, exit code 4, and no wait past the timeout.
    void badInput_data()
    {
        QTest::addColumn<QString>("module");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("peer");          // "silent", "garbage", "refused" or none
        QTest::addColumn<QString>("message");

        QTest::newRow("unreachable: nothing comes") << "InputNet" << "tcp://127.0.0.1:@PORT@" << "silent"
                                                    << "in: cannot open tcp://127\\.0\\.0\\.1:\\d+: no stream within 1 s";
        QTest::newRow("refused port") << "InputNet" << "tcp://127.0.0.1:@PORT@" << "refused"
                                      << "in: cannot open tcp://127\\.0\\.0\\.1:\\d+: Connection refused";
        QTest::newRow("refused RTSP port") << "InputNet" << "rtsp://127.0.0.1:@PORT@/live" << "refused"
                                           << "in: cannot open rtsp://127\\.0\\.0\\.1:\\d+/live: Connection refused";
        QTest::newRow("unsupported scheme") << "InputNet" << "gopher://127.0.0.1:@PORT@/" << ""
                                            << "in: unsupported URL scheme in gopher://.* \\(use rtsp, rtp, udp, srt, tcp, http, https or rtmp\\)";
        QTest::newRow("garbage on the socket") << "InputNet" << "tcp://127.0.0.1:@PORT@" << "garbage"
                                               << "in: cannot open tcp://127\\.0\\.0\\.1:\\d+: Invalid data found";
        QTest::newRow("garbage over HTTP") << "InputNet" << "http://127.0.0.1:@PORT@/live.ts" << "garbage"
                                           << "in: cannot open http://127\\.0\\.0\\.1:\\d+/live\\.ts: ";
        QTest::newRow("output: refused port") << "OutputNet" << "tcp://127.0.0.1:@PORT@" << "refused"
                                              << "out: cannot open tcp://127\\.0\\.0\\.1:\\d+: Connection refused";
        QTest::newRow("output: unsupported scheme") << "OutputNet" << "file:///tmp/x.ts" << ""
                                                    << "out: unsupported URL scheme in file:///tmp/x\\.ts \\(use udp, srt, tcp, rtsp or rtmp\\)";
        QTest::newRow("output: RTSP refused") << "OutputNet" << "rtsp://127.0.0.1:@PORT@/live" << "refused"
                                              << "out: cannot start the stream to rtsp://127\\.0\\.0\\.1:\\d+/live: ";
    }
    void badInput()
    {
        QFETCH(QString, module);
        QFETCH(QString, url);
        QFETCH(QString, peer);
        QFETCH(QString, message);
        std::unique_ptr<NetPeer::SocketPeer> socketPeer;
        int port = NetPeer::freePort();
        if (peer == QLatin1String("silent") || peer == QLatin1String("garbage")) {
            socketPeer.reset(new NetPeer::SocketPeer(peer == QLatin1String("silent") ? NetPeer::SocketPeer::Silent
                                                                                     : NetPeer::SocketPeer::Garbage));
            port = socketPeer->port;
        }
        QVERIFY(port > 0);
        const QString net = QStringLiteral(R"("url": "%1", "openTimeout": 1)").arg(arg(url, port));
        const QByteArray pipeline = module == QLatin1String("InputNet")
            ? VexaTest::pipeline("InputNet", net, "PacketStats", QString())
            // paced: the failure comes while the source still sends
            : VexaTest::pipeline("InputFile", path(dir.filePath("clip.ts")) + R"(, "realtime": true)", "OutputNet", net);
        QProcess launch;
        QVERIFY2(VexaTest::run(launch, VEXA_LAUNCH, {write(pipeline), "--quiet"}, scaled(30000)), "no end in time");
        const QString err = QString::fromUtf8(launch.readAllStandardError());
        QCOMPARE(launch.exitStatus(), QProcess::NormalExit);
        QVERIFY2(launch.exitCode() == 4, qPrintable(err));
        QVERIFY2(QRegularExpression(QStringLiteral("vexa-launch: error: ") + message).match(err).hasMatch(), qPrintable(err));
    }

    // A file served over HTTP (known length, no range requests) is read
    // once, with reconnect on as by default: the recording holds the file's
    // packets once, the file was fetched once, and the run ends with 0. An
    // MP4 whose index is at its end, too large to be read without seeking,
    // opens but yields no packet: an error (4), not a retry for ever.
    void httpFile_data()
    {
        QTest::addColumn<bool>("indexFirst");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("index first: read once") << true << 0;
        QTest::newRow("index at the end: error") << false << 4;
    }
    void httpFile()
    {
        QFETCH(bool, indexFirst);
        QFETCH(int, exitCode);
        const QString src = dir.filePath(indexFirst ? "served-faststart.mp4" : "served-index-last.mp4");
        QString error;
        QVERIFY2(MediaProbe::ffmpeg({"-f", "lavfi", "-i", "testsrc=size=320x240:rate=25", "-t", "6", "-c:v", "libx264", "-preset",
                                     "ultrafast", "-pix_fmt", "yuv420p", "-movflags", indexFirst ? "+faststart" : "-faststart", src},
                                    &error), qPrintable(error));
        QFile file(src);
        QVERIFY(file.open(QIODevice::ReadOnly));
        NetPeer::HttpFilePeer server(file.readAll());
        QVERIFY(server.port > 0);
        const QString out = dir.filePath(QStringLiteral("http-%1.mkv").arg(indexFirst));
        const QByteArray pipeline = VexaTest::pipeline(
            "InputNet", QStringLiteral("\"url\": \"http://127.0.0.1:%1/clip.mp4\", \"reconnectDelay\": 0.1").arg(server.port),
            "OutputFile", path(out));
        QProcess launch;
        QVERIFY2(VexaTest::run(launch, VEXA_LAUNCH, {write(pipeline), "--quiet", "-y"}, scaled(30000)), "no end in time");
        const QByteArray err = launch.readAllStandardError();
        QCOMPARE(launch.exitStatus(), QProcess::NormalExit);
        QVERIFY2(launch.exitCode() == exitCode, err.constData());
        QCOMPARE(server.requests.load(), 1);
        if (exitCode != 0) {
            QVERIFY2(err.contains("vexa-launch: error: in: cannot read http://127.0.0.1:"), err.constData());
            return;
        }
        MediaProbe::Streams want, got;
        QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
        QVERIFY(MediaProbe::probe(src, &want, &error));
        QCOMPARE(got.value("video").size(), want.value("video").size());
    }

    // A receiver that never reads: by default the output drops the oldest
    // packets and says how many (the run still succeeds, the drops were
    // asked for); told to hold the sender back, it does so until it is
    // stopped, then gives up within its write timeout with a message.
    void slowReceiver_data()
    {
        QTest::addColumn<QString>("overflow");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("reads");
        QTest::newRow("drop") << "drop" << 0 << "\\[out\\] sent \\d+ audio and \\d+ video packets, dropped [1-9]\\d*" << true;
        // The sender stalls once the socket buffers (some megabytes on
        // loopback) are full: the source's large frames fill them within
        // the run, even in a sanitizer or emulated build.
        QTest::newRow("wait, receiver stalled") << "wait" << 4 << "error: out: tcp://127\\.0\\.0\\.1:\\d+ took no data for 1 s"
                                                << false;
    }
    void slowReceiver()
    {
        QFETCH(QString, overflow);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        QFETCH(bool, reads);
        NetPeer::SocketPeer sink(reads ? NetPeer::SocketPeer::Slow : NetPeer::SocketPeer::Silent);
        QVERIFY(sink.port > 0);
        const QByteArray pipeline = VexaTest::pipeline(
            "InputFile", path(dir.filePath("dense.ts")) + R"(, "loop": true)", "OutputNet",
            QStringLiteral("\"url\": \"tcp://127.0.0.1:%1\", \"overflow\": \"%2\", \"writeTimeout\": 1").arg(sink.port).arg(overflow));
        QProcess launch;
        QVERIFY2(VexaTest::run(launch, VEXA_LAUNCH, {write(pipeline), "-d", QString::number(scaled(1500) / 1000.0)},
                               scaled(30000)), "no end in time");
        const QString all = QString::fromUtf8(launch.readAllStandardError() + launch.readAllStandardOutput());
        QCOMPARE(launch.exitStatus(), QProcess::NormalExit);
        QVERIFY2(launch.exitCode() == exitCode, qPrintable(all));
        QVERIFY2(QRegularExpression(message).match(all).hasMatch(), qPrintable(all));
    }

    // A signal while a listening module still waits for its peer ends the
    // run at once with the signal's status, not as a module error.
    void signalWhileWaiting_data()
    {
        QTest::addColumn<QString>("module");
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("signal");
        QTest::newRow("input, tcp, SIGTERM") << "InputNet" << "tcp://127.0.0.1:@PORT@" << int(SIGTERM);
        QTest::newRow("input, rtsp, Ctrl-C") << "InputNet" << "rtsp://127.0.0.1:@PORT@/live" << int(SIGINT);
        QTest::newRow("output, tcp, SIGTERM") << "OutputNet" << "tcp://127.0.0.1:@PORT@" << int(SIGTERM);
    }
    void signalWhileWaiting()
    {
        QFETCH(QString, module);
        QFETCH(QString, url);
        QFETCH(int, signal);
        const int port = NetPeer::freePort();
        const QString net = QStringLiteral(R"("url": "%1", "listen": true, "openTimeout": 60)").arg(arg(url, port));
        const QByteArray pipeline = module == QLatin1String("InputNet")
            ? VexaTest::pipeline("InputNet", net, "PacketStats", QString())
            : VexaTest::pipeline("InputFile", path(dir.filePath("clip.ts")) + R"(, "realtime": true, "loop": true)", "OutputNet", net);
        QProcess launch;
        QVERIFY(VexaTest::start(launch, VEXA_LAUNCH, {write(pipeline), "--quiet"}));
        QVERIFY2(NetPeer::waitBound(port, false), launch.readAllStandardError().constData());
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(::kill(pid_t(launch.processId()), signal), 0);
        QVERIFY(launch.waitForFinished(scaled(20000)));
        const QByteArray err = launch.readAllStandardError();
        QCOMPARE(launch.exitStatus(), QProcess::NormalExit);
        QVERIFY2(launch.exitCode() == 128 + signal, err.constData());
        QVERIFY2(!err.contains("error"), err.constData());
        QVERIFY2(clock.elapsed() < scaled(10000), qPrintable(QString::number(clock.elapsed())));
    }

    // A listening output outlives its viewers: the first leaves, the output
    // listens again and the next one gets the stream from a keyframe; the
    // run goes on until it is ended (SIGTERM: 143, not a module error).
    void viewersComeAndGo()
    {
        const int port = NetPeer::freePort();
        const QString url = QStringLiteral("tcp://127.0.0.1:%1").arg(port);
        const QByteArray pipeline = VexaTest::pipeline(
            "InputFile", path(dir.filePath("clip.ts")) + R"(, "realtime": true, "loop": true)", "OutputNet",
            QStringLiteral(R"("url": "%1", "listen": true, "openTimeout": 60)").arg(url));
        QProcess launch;
        QVERIFY(VexaTest::start(launch, VEXA_LAUNCH, {write(pipeline), "--quiet", "-d", QString::number(scaled(60))}));
        for (int viewer = 0; viewer < 2; ++viewer) {
            QVERIFY2(NetPeer::waitBound(port, false), launch.readAllStandardError().constData());
            const QString got = dir.filePath(QStringLiteral("viewer-%1.ts").arg(viewer));
            NetPeer::Ffmpeg rx;
            rx.start({"-i", url, "-c", "copy", "-t", "1", got});
            QVERIFY2(rx.wait(20000), qPrintable(rx.errors()));
            MediaProbe::Streams streams;
            QString error;
            QVERIFY2(MediaProbe::probe(got, &streams, &error), qPrintable(error));
            QVERIFY2(streams.value("video").size() >= 12, qPrintable(got));
            QVERIFY(streams.value("video").first().key);
            QVERIFY(!streams.value("audio").isEmpty());
        }
        // Ended once it has seen the last viewer go and listens again.
        QVERIFY2(NetPeer::waitBound(port, false), launch.readAllStandardError().constData());
        QCOMPARE(::kill(pid_t(launch.processId()), SIGTERM), 0);
        QVERIFY2(launch.waitForFinished(scaled(30000)), "vexa-launch did not end");
        const QByteArray err = launch.readAllStandardError();
        QCOMPARE(launch.exitStatus(), QProcess::NormalExit);
        QVERIFY2(launch.exitCode() == 143, err.constData());
    }

    // Ctrl-C while VexaInputNet (created by vexa-launch from the pipeline
    // file) receives: the run ends in order with 130, the timer thread is
    // stopped before the process ends, the recording is complete.
    void interrupt()
    {
        const int port = NetPeer::freePort();
        NetPeer::Ffmpeg publisher;
        publisher.start(tcpServer(port, true));
        QVERIFY(NetPeer::waitBound(port, false));
        const QString out = dir.filePath("interrupted.mkv");
        const QByteArray pipeline = VexaTest::pipeline(
            "InputNet", QStringLiteral("\"url\": \"tcp://127.0.0.1:%1\", \"debugLevel\": 1").arg(port), "OutputFile", path(out));
        QProcess launch;
        QVERIFY(VexaTest::start(launch, VEXA_LAUNCH, {write(pipeline), "-l", VEXA_EXAMPLE_MODULES, "--interval", "200"}));
        QByteArray err;
        const QRegularExpression flowing(QStringLiteral("out [1-9]\\d* pkt/s"));
        QVERIFY2(VexaTest::waitForMatches(launch, flowing, 1, scaled(30000), &err), err.constData());
        const qint64 pid = launch.processId();
        QVERIFY(pid > 0);
        QCOMPARE(::kill(pid_t(pid), SIGINT), 0);
        QVERIFY(launch.waitForFinished(scaled(30000)));
        err += launch.readAllStandardError();
        QCOMPARE(launch.exitStatus(), QProcess::NormalExit);
        QVERIFY2(launch.exitCode() == 130 && err.contains("interrupted"), err.constData());
        QVERIFY2(err.contains("timer thread stopped"), err.constData());
        QVERIFY2(!err.contains("QThread: Destroyed"), err.constData());
        MediaProbe::Streams got;
        QString error;
        QVERIFY2(MediaProbe::probe(out, &got, &error), qPrintable(error));
        QVERIFY(!got.value("video").isEmpty());
    }

private:
    QString write(const QByteArray &pipeline)
    {
        return VexaTest::writeFile(dir.filePath(QStringLiteral("pipeline-%1.json").arg(++pipelines)), pipeline);
    }
    static QString path(const QString &file) { return QStringLiteral(R"("path": "%1")").arg(file); }
    // ffmpeg serving clip.ts over TCP on @p port, once or looped for 30 s.
    QStringList tcpServer(int port, bool looped) const
    {
        const QStringList loop{"-stream_loop", "-1"}, limit{"-t", QString::number(scaled(30))};
        return QStringList{"-re"} + (looped ? loop : QStringList()) + QStringList{"-i", dir.filePath("clip.ts")}
            + (looped ? limit : QStringList())
            + QStringList{"-c", "copy", "-f", "mpegts", QStringLiteral("tcp://127.0.0.1:%1?listen=1&listen_timeout=120000").arg(port)};
    }

    QTemporaryDir dir;
    int pipelines = 0;
};

QTEST_GUILESS_MAIN(tst_Network)
#include "tst_network.moc"
