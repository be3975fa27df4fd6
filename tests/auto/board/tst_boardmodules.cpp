#include <QtTest>

#include <QJsonDocument>
#include <QJsonObject>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "hi_mpi_vb.h"
#include "hi_mpi_vo.h"
#include "vexa.h"
#include "vexaobject.h"
#include "vexaboard.h"
#include "vexaboardmodules.h"
#include "vexaoverlay.h"
#include "vexaexamplemodules.h"
#include "vexatest.h"
#include "vx_mpi_model.h"

// The board modules on the platform model. Sizes and durations are small:
// VEXA_BOARD_SECONDS sets the camera's run (default 3 s; the ARM emulator
// runs it longer, so that its slow encoders still give the published
// streams' receivers a group of pictures), VEXA_STRESS_SCALE the number of
// changes to a running camera (50 at full scale).

namespace {

// A fresh platform model with one pool of 48 pictures of 320x240 (4:2:0).
bool bootTwin()
{
    hi_vb_cfg cfg = {};
    cfg.max_pool_cnt = 1;
    cfg.common_pool[0].blk_size = 320 * 240 * 3 / 2;
    cfg.common_pool[0].blk_cnt = 48;
    vx_model_reset();
    return vx_model_boot(&cfg) == 0;
}

int cameraSeconds()
{
    const int s = qEnvironmentVariableIntValue("VEXA_BOARD_SECONDS");
    return s > 0 ? s : 3;
}

// ffprobe's entries of one stream (or of the format with "format") as a map.
QVariantMap probe(const QString &path, const QString &entries, bool countFrames = false)
{
    QProcess p;
    QStringList args{"-v", "error"};
    if (countFrames)
        args << "-count_frames";
    args << "-show_entries" << entries << "-select_streams" << "v:0" << "-of" << "json" << path;
    p.start("ffprobe", args);
    p.waitForFinished(60000);
    const QJsonObject o = QJsonDocument::fromJson(p.readAllStandardOutput()).object();
    QVariantMap out = o.value("streams").toArray().first().toObject().toVariantMap();
    const QVariantMap format = o.value("format").toObject().toVariantMap();
    for (auto it = format.begin(); it != format.end(); ++it)
        out.insert("format_" + it.key(), it.value());
    return out;
}

// Whether ffmpeg decodes @p path without a single error line.
bool decodesCleanly(const QString &path)
{
    QProcess p;
    p.start("ffmpeg", {"-v", "error", "-i", path, "-f", "null", "-"});
    const bool ended = p.waitForFinished(120000);
    // The decoder's complaints count; the null muxer's about two pictures
    // that its time base rounds to one tick (a capture's uneven pace under
    // emulation) do not.
    QByteArrayList errors;
    for (const QByteArray &line : p.readAllStandardError().trimmed().split('\n')) {
        if (!line.isEmpty() && !line.startsWith("[null @"))
            errors << line;
    }
    if (!errors.isEmpty())
        qWarning("%s: %s", qPrintable(path), errors.join('\n').left(2000).constData());
    return ended && p.exitCode() == 0 && errors.isEmpty();
}

// A UDP port of 127.0.0.1 that nobody uses now (SRT runs over UDP).
quint16 freeUdpPort()
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(a);
    quint16 port = 0;
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof(a)) == 0
        && getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    if (fd >= 0)
        close(fd);
    return port;
}

QString writeFile(const QString &path, const QByteArray &text)
{
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    f.write(text);
    return path;
}

// VPSS groups that exist.
int vpssGroups()
{
    int n = 0;
    for (int g = 0; g < 256; ++g)
        n += vx_model_vpss_grp_exists(g) ? 1 : 0;
    return n;
}

// The pictures of a screen file as packed RGB, one QByteArray per picture.
QList<QByteArray> screenPictures(const QString &path, int width, int height)
{
    QProcess p;
    p.start("ffmpeg", {"-v", "error", "-i", path, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
    p.waitForFinished(120000);
    const QByteArray all = p.readAllStandardOutput();
    QList<QByteArray> out;
    const int size = width * height * 3;
    for (int at = 0; at + size <= all.size(); at += size)
        out << all.mid(at, size);
    return out;
}

// The colour at (x, y) of a packed RGB picture, as one of "red", "green",
// "blue", "white", "black" or "other" (lossless screens of 4:2:0 pictures
// are near, not at, the colours they show).
QString colourAt(const QByteArray &picture, int width, int x, int y)
{
    const auto *p = reinterpret_cast<const uchar *>(picture.constData()) + (y * width + x) * 3;
    const auto high = [](int v) { return v > 160; };
    const auto low = [](int v) { return v < 90; };
    if (high(p[0]) && low(p[1]) && low(p[2]))
        return "red";
    if (low(p[0]) && high(p[1]) && low(p[2]))
        return "green";
    if (low(p[0]) && low(p[1]) && high(p[2]))
        return "blue";
    if (high(p[0]) && high(p[1]) && high(p[2]))
        return "white";
    if (low(p[0]) && low(p[1]) && low(p[2]))
        return "black";
    return "other";
}

// Whether some picture of @p pictures shows @p expected at the probes.
bool anyPictureShows(const QList<QByteArray> &pictures, int width, const QList<QPoint> &probes, const QStringList &expected,
                     QString *seen)
{
    for (const QByteArray &picture : pictures) {
        QStringList found;
        for (const QPoint &p : probes)
            found << colourAt(picture, width, p.x(), p.y());
        if (found == expected)
            return true;
        *seen = found.join(' ');
    }
    return false;
}

} // namespace

class tst_BoardModules : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;

    QString launch(const QStringList &args, int *code, int timeoutMs = 180000)
    {
        QProcess proc;
        proc.setWorkingDirectory(dir.path());
        if (!VexaTest::run(proc, VEXA_LAUNCH, args, timeoutMs))
            return QStringLiteral("vexa-launch did not end");
        *code = proc.exitCode();
        return QString::fromUtf8(proc.readAllStandardError() + proc.readAllStandardOutput());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        if (QStandardPaths::findExecutable("ffprobe").isEmpty())
            QSKIP("ffmpeg and ffprobe are needed");
        vexaRegisterBoardModules();
        vexaRegisterExampleModules();
        Vexa::init(false);
    }

    // camera.json at a small size: the recording, both published streams
    // as ffmpeg receives them, and the snapshots.
    void camera()
    {
        const int seconds = cameraSeconds();
        const quint16 mainPort = freeUdpPort(), subPort = freeUdpPort();
        QProcess launcher;
        launcher.setWorkingDirectory(dir.path());
        launcher.setProcessChannelMode(QProcess::MergedChannels);
        QVERIFY(VexaTest::start(launcher, VEXA_LAUNCH, {
            VEXA_EXAMPLE_PIPELINES "/camera.json", "-v", "info", "--interval", "60000", "-d", QString::number(seconds),
            "--set", "cam.width=320", "--set", "cam.height=240", "--set", "main.bitrate=300",
            "--set", "sub.width=160", "--set", "sub.height=90", "--set", "sub.bitrate=100", "--set", "snap.snapshot=1",
            "--set", QString("publish.url=\"srt://127.0.0.1:%1\"").arg(mainPort),
            "--set", QString("substream.url=\"srt://127.0.0.1:%1\"").arg(subPort)}));
        QByteArray log;
        QTRY_VERIFY_WITH_TIMEOUT((log += launcher.readAll()).contains("running 7 modules")
                                     || launcher.state() == QProcess::NotRunning, 60000);
        QProcess receivers[2];
        const quint16 ports[2] = {mainPort, subPort};
        const char *files[2] = {"published-main.ts", "published-sub.ts"};
        for (int i = 0; i < 2; ++i)
            receivers[i].start("ffmpeg", {"-v", "error", "-y", "-i", QString("srt://127.0.0.1:%1?connect_timeout=10000").arg(ports[i]),
                                          "-c", "copy", dir.filePath(files[i])});
        QVERIFY(launcher.waitForFinished(seconds * 1000 + 120000));
        log += launcher.readAll();
        QVERIFY2(launcher.exitCode() == 0, log.constData());
        for (QProcess &r : receivers)
            QVERIFY(r.waitForFinished(30000));

        struct Expect { QString file; QString codec; int width, height, kbps; };
        const Expect expected[] = {{"camera.mp4", "hevc", 320, 240, 300}, {files[0], "hevc", 320, 240, 300},
                                   {files[1], "h264", 160, 90, 100}};
        for (const Expect &e : expected) {
            const QString path = dir.filePath(e.file);
            const QVariantMap s = probe(path, "stream=codec_name,width,height,nb_read_frames:format=duration,size", true);
            QVERIFY2(s.value("codec_name").toString() == e.codec, qPrintable(e.file + ": " + s.value("codec_name").toString()));
            QCOMPARE(s.value("width").toInt(), e.width);
            QCOMPARE(s.value("height").toInt(), e.height);
            const int frames = s.value("nb_read_frames").toInt();
            QVERIFY2(frames > 0 && frames <= 30 * (seconds + 1), qPrintable(QString("%1: %2 frames").arg(e.file).arg(frames)));
            // CBR holds its rate as a ceiling over the stream (plus a second of slack for short runs).
            const double duration = s.value("format_duration").toDouble();
            const double kbps = s.value("format_size").toDouble() * 8 / 1000 / qMax(1.0, duration);
            QVERIFY2(kbps <= e.kbps * 1.5 + 8 * 30 / qMax(1.0, duration), qPrintable(QString("%1: %2 kb/s").arg(e.file).arg(kbps)));
            // A receiver that connects mid-stream may begin before an IDR picture.
            if (e.file.endsWith(".mp4"))
                QVERIFY2(decodesCleanly(path), qPrintable(e.file));
        }
        // A snapshot at the start and one a second: JPEG pictures of the capture's size.
        QVERIFY(QFile::exists(dir.filePath("snapshot-1.jpg")));
        for (int i = 1; QFile::exists(dir.filePath(QString("snapshot-%1.jpg").arg(i))); ++i) {
            const QVariantMap s = probe(dir.filePath(QString("snapshot-%1.jpg").arg(i)), "stream=codec_name,width,height");
            QCOMPARE(s.value("codec_name").toString(), QString("mjpeg"));
            QCOMPARE(s.value("width").toInt(), 320);
            QCOMPARE(s.value("height").toInt(), 240);
        }
    }

    // transcode.json against ffmpeg with the same scaling and codec.
    void transcode()
    {
        QProcess ff;
        ff.start("ffmpeg", {"-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25", "-t", "2",
                            "-c:v", "libx264", "-bf", "0", "-g", "25", dir.filePath("input.ts")});
        QVERIFY(ff.waitForFinished(60000) && ff.exitCode() == 0);
        ff.start("ffmpeg", {"-v", "error", "-y", "-i", dir.filePath("input.ts"), "-vf", "scale=160:120", "-c:v", "libx264",
                            dir.filePath("reference.mp4")});
        QVERIFY(ff.waitForFinished(60000) && ff.exitCode() == 0);

        int code = -1;
        const QString log = launch({VEXA_EXAMPLE_PIPELINES "/transcode.json", "-q", "--set", "enc.width=160",
                                    "--set", "enc.height=120"}, &code);
        QVERIFY2(code == 0, qPrintable(log));
        const QString entries = "stream=codec_name,width,height,nb_read_frames:format=duration";
        const QVariantMap ours = probe(dir.filePath("transcode.mp4"), entries, true);
        const QVariantMap theirs = probe(dir.filePath("reference.mp4"), entries, true);
        for (const char *key : {"codec_name", "width", "height"})
            QCOMPARE(ours.value(key).toString(), theirs.value(key).toString());
        // On a loaded host the platform model's bound channels can lose
        // pictures (up to the input's next IDR picture): the count is checked
        // as a bound, and a difference is reported.
        const int frames = ours.value("nb_read_frames").toInt(), reference = theirs.value("nb_read_frames").toInt();
        QVERIFY2(frames > 0 && frames <= reference, qPrintable(QString("%1 frames, ffmpeg %2").arg(frames).arg(reference)));
        if (frames != reference)
            qWarning("transcode: %d frames, ffmpeg %d", frames, reference);
        QVERIFY(decodesCleanly(dir.filePath("transcode.mp4")));
    }

    // Set-ups refused before anything starts, with the tool's status for a bad pipeline.
    void refused_data()
    {
        QTest::addColumn<QByteArray>("modules");
        QTest::addColumn<QByteArray>("links");
        QTest::addColumn<QString>("message");
        const QByteArray cam = R"({"class": "Capture", "name": "cam", "settings": {"width": 640, "height": 360}})";
        const QByteArray camToEnc = R"({"from": "cam", "to": "enc", "kind": "V"})";
        QTest::newRow("odd size") << cam + R"(, {"class": "Encoder", "name": "enc", "settings": {"width": 641, "height": 360}})"
                                  << camToEnc << "module \"enc\" \\(Encoder\\): the encoder cannot do 641x360 in h264";
        QTest::newRow("too large for h264") << cam + R"(, {"class": "Encoder", "name": "enc", "settings": {"width": 8192, "height": 4320}})"
                                            << camToEnc << "cannot do 8192x4320 in h264";
        QTest::newRow("unknown codec") << cam + R"(, {"class": "Encoder", "name": "enc", "settings": {"codec": "vp9"}})"
                                       << camToEnc << "setting \"codec\": .*vp9";
        QTest::newRow("h265 high profile") << cam + R"(, {"class": "Encoder", "name": "enc", "settings": {"codec": "h265", "profile": "high"}})"
                                           << camToEnc << "cannot do the high profile in h265";
        QTest::newRow("mjpeg avbr") << cam + R"(, {"class": "Encoder", "name": "enc", "settings": {"codec": "mjpeg", "rcmode": "avbr"}})"
                                    << camToEnc << "cannot do codec \"mjpeg\" with rate control \"avbr\"";
        QTest::newRow("no tee") << QByteArray(R"({"class": "InputFile", "name": "in", "settings": {"path": "input.ts"}},
                                               {"class": "Encoder", "name": "enc"})")
                                << QByteArray(R"({"from": "in", "to": "enc", "kind": "V"})")
                                << "Encoder takes pictures from a tee, and InputFile offers no tee";
        QTest::newRow("tee into a file") << cam + R"(, {"class": "OutputFile", "name": "out", "settings": {"path": "x.mp4"}})"
                                         << QByteArray(R"({"from": "cam", "to": "out", "kind": "V"})")
                                         << "Capture offers pictures through a tee, which OutputFile cannot take";
        QTest::newRow("display inputs") << cam + R"(, {"class": "Capture", "name": "cam2", "settings": {"device": 1}},
                                                  {"class": "Display", "name": "screen", "settings": {"channels": 1}})"
                                        << QByteArray(R"({"from": "cam", "to": "screen", "kind": "V"}, {"from": "cam2", "to": "screen", "kind": "V"})")
                                        << "module \"screen\" \\(Display\\): the display has 1 channel and 2 inputs";
        QTest::newRow("display timing") << cam + R"(, {"class": "Display", "name": "screen", "settings": {"output": "user", "width": 63}})"
                                        << QByteArray(R"({"from": "cam", "to": "screen", "kind": "V"})")
                                        << "the display cannot show a 63x1080 screen";
        QTest::newRow("capture size") << QByteArray(R"({"class": "Capture", "name": "cam", "settings": {"width": 10}},
                                                     {"class": "Encoder", "name": "enc"})")
                                      << camToEnc << "the capture cannot take 10x1080 pictures";
    }

    void refused()
    {
        QFETCH(QByteArray, modules);
        QFETCH(QByteArray, links);
        QFETCH(QString, message);
        const QString path = writeFile(dir.filePath("refused.json"),
                                       "{\"modules\": [" + modules + "], \"links\": [" + links + "]}");
        int code = -1;
        const QString log = launch({path, "--check"}, &code, 60000);
        QCOMPARE(code, 3);
        QVERIFY2(QRegularExpression(message).match(log).hasMatch(), qPrintable(log));
    }

    // A second encoder added and removed, and a recording started and
    // stopped, again and again while the camera streams: the main stream
    // goes on, and every block, channel and group comes back.
    void changeRunningCamera()
    {
        QVERIFY(bootTwin());
        vx_model_vi_source(0, "pattern@30");
        const int freeAtStart = vx_model_vb_free_blocks(0);
        auto groups = [] {
            int n = 0;
            for (int g = 0; g < 256; ++g)
                n += vx_model_vpss_grp_exists(g) ? 1 : 0;
            return n;
        };
        auto packets = [](VexaObject *o) { return o->invoke("stats").toMap().value("packetsV").toLongLong(); };

        VexaObject *cam = Vexa::create("Capture", "dyn_cam");
        VexaObject *main = Vexa::create("Encoder", "dyn_main");
        cam->setData(QVariantMap{{"width", 320}, {"height", 240}});
        main->setData(QVariantMap{{"codec", "h264"}, {"bitrate", 200}});
        Vexa::linkV(cam, main);
        main->start();
        cam->start();
        QTRY_VERIFY_WITH_TIMEOUT(packets(main) > 0, 60000);
        const int groupsRunning = groups();
        QCOMPARE(VexaBoard::channelsInUse(VexaBoard::Encoder), 1);

        const int changes = qMax(3, int(50 * VexaTest::stressScale()));
        for (int i = 0; i < changes; ++i) {
            VexaObject *second = Vexa::create("Encoder", QString("dyn_second_%1").arg(i));
            second->setData(QVariantMap{{"codec", i % 10 == 1 ? "h265" : "h264"}, {"width", 160}, {"height", 120}, {"bitrate", 100}});
            second->start();
            Vexa::linkV(cam, second);
            VexaObject *rec = Vexa::create("OutputFile", QString("dyn_rec_%1").arg(i));
            rec->setData(QVariantMap{{"path", dir.filePath(QString("rec-%1.mp4").arg(i))}});
            rec->start();
            Vexa::linkV(main, rec);
            // A recording starts at an IDR picture: asked for, not waited for.
            QMetaObject::invokeMethod(main, "onNewEvent", Qt::QueuedConnection, Q_ARG(QString, "keyframe"), Q_ARG(QVariant, QVariant()));
            // The first recording is waited for and read back; the others
            // are cut short (a file without audio waits for a few dozen
            // packets before it writes its header).
            QTRY_VERIFY_WITH_TIMEOUT(packets(second) > 0 && (i > 0 || packets(rec) > 0), 60000);
            QCOMPARE(VexaBoard::channelsInUse(VexaBoard::Encoder), 2);
            Vexa::unLinkV(main, rec);
            rec->destroy();
            Vexa::unLinkV(cam, second);
            second->destroy();
            QTRY_COMPARE(VexaBoard::channelsInUse(VexaBoard::Encoder), 1);
            QCOMPARE(groups(), groupsRunning);
        }
        // The main stream kept going, and its first recording is a file of
        // it (joined mid-stream: it may begin before the IDR picture asked for).
        const qint64 before = packets(main);
        QTRY_VERIFY_WITH_TIMEOUT(packets(main) > before, 60000);
        const QVariantMap rec = probe(dir.filePath("rec-0.mp4"), "stream=codec_name,width,height,nb_read_frames", true);
        QCOMPARE(rec.value("codec_name").toString(), QString("h264"));
        QCOMPARE(rec.value("width").toInt(), 320);
        QVERIFY(rec.value("nb_read_frames").toInt() > 0);

        cam->destroy();
        main->destroy();
        QTRY_COMPARE(VexaBoard::channelsInUse(VexaBoard::Encoder), 0);
        QTRY_COMPARE(groups(), 0);
        QTRY_COMPARE(vx_model_vb_free_blocks(0), freeAtStart);
    }
    // Two captures on a display of four channels: each shows in its own
    // quarter, the other two quarters keep the background; a capture that
    // stops leaves its cell to a new one; stopping gives back every VO
    // channel, VPSS group and video buffer.
    void displayMosaic()
    {
        const int w = 256, h = 192;
        QVERIFY(bootTwin());
        vx_model_vi_source(0, "pattern@30");
        vx_model_vi_source(1, "pattern@30");
        const QString screen = dir.filePath("mosaic.mkv");
        vx_model_vo_screen(0, qPrintable(screen));
        const int freeAtStart = vx_model_vb_free_blocks(0);

        VexaObject *display = Vexa::create("Display", "mosaic_display");
        display->setData(QVariantMap{{"output", "user"}, {"width", w}, {"height", h}, {"background", 0x0000ff},
                                     {"latency", "low"}});
        VexaObject *cams[2];
        for (int i = 0; i < 2; ++i) {
            cams[i] = Vexa::create("Capture", QString("mosaic_cam%1").arg(i));
            cams[i]->setData(QVariantMap{{"device", i}, {"width", 320}, {"height", 240}});
            Vexa::linkV(cams[i], display);
        }
        display->start();
        for (VexaObject *cam : cams)
            cam->start();
        QTRY_COMPARE_WITH_TIMEOUT(display->invoke("stats").toMap().value("inputs").toInt(), 2, 60000);
        const auto onScreen = [](int chn) {
            hi_vo_chn_status status = {};
            return hi_mpi_vo_query_chn_status(0, chn, &status) == 0 && status.chn_buf_used > 0;
        };
        QTRY_VERIFY_WITH_TIMEOUT(onScreen(0) && onScreen(1), 60000);
        const unsigned long long shown = vx_model_vo_screens(0);
        QTRY_VERIFY_WITH_TIMEOUT(vx_model_vo_screens(0) > shown + 20, 60000);

        // A source that stops gives its cell to the next one.
        VexaObject *stopped = cams[0];
        stopped->stop(true);
        QTRY_COMPARE(display->invoke("stats").toMap().value("inputs").toInt(), 1);
        cams[0] = Vexa::create("Capture", "mosaic_cam2");
        cams[0]->setData(QVariantMap{{"device", 0}, {"width", 320}, {"height", 240}});
        Vexa::linkV(cams[0], display);
        cams[0]->start();
        QTRY_COMPARE_WITH_TIMEOUT(display->invoke("stats").toMap().value("inputs").toInt(), 2, 60000);
        QTRY_VERIFY_WITH_TIMEOUT(onScreen(0), 60000);

        for (VexaObject *cam : {stopped, cams[0], cams[1]})
            cam->destroy();
        QTRY_COMPARE(display->invoke("stats").toMap().value("inputs").toInt(), 0);
        display->destroy();
        hi_vo_chn_status status = {};
        for (int chn = 0; chn < 4; ++chn)
            QTRY_COMPARE(hi_mpi_vo_query_chn_status(0, chn, &status), HI_ERR_VO_NOT_ENABLE);
        QTRY_COMPARE(vx_model_vb_free_blocks(0), freeAtStart);
        QTRY_COMPARE(vpssGroups(), 0);

        // The pattern's bottom quarter is red; the centre of an empty quarter is the background.
        const QList<QByteArray> pictures = screenPictures(screen, w, h);
        QVERIFY2(pictures.size() > 10, qPrintable(QString("%1 pictures").arg(pictures.size())));
        const QList<QPoint> probes{{w / 4, h / 2 - 4}, {w * 3 / 4, h / 2 - 4}, {w / 4, h * 3 / 4}, {w * 3 / 4, h * 3 / 4}};
        QString seen;
        QVERIFY2(anyPictureShows(pictures, w, probes, {"red", "red", "blue", "blue"}, &seen), qPrintable(seen));
    }

    // The recorder's layout on files: four decoded inputs of four colours,
    // each in its quarter of the screen the platform model writes, the
    // first with the overlay's clock.
    void recorderOnFiles()
    {
        const char *colours[] = {"red", "green", "blue", "white"};
        const char *lavfi[] = {"red", "lime", "blue", "white"};
        QByteArray modules, links;
        for (int i = 0; i < 4; ++i) {
            QProcess ff;
            ff.start("ffmpeg", {"-v", "error", "-y", "-f", "lavfi", "-i", QString("color=c=%1:size=160x120:rate=25").arg(lavfi[i]),
                                "-t", "2", "-c:v", "libx264", "-bf", "0", "-g", "25", dir.filePath(QString("%1.ts").arg(colours[i]))});
            QVERIFY(ff.waitForFinished(60000) && ff.exitCode() == 0);
            modules += QString(R"({"class": "InputFile", "name": "in%1", "settings": {"path": "%2.ts", "realtime": true}},
                                 {"class": "Decoder", "name": "dec%1"},)").arg(i).arg(colours[i]).toUtf8();
            links += QString(R"({"from": "in%1", "to": "dec%1", "kind": "V"},)").arg(i).toUtf8();
            if (i > 0)
                links += QString(R"({"from": "dec%1", "to": "screen", "kind": "V"},)").arg(i).toUtf8();
        }
        // The first input with the clock, as in recorder.json.
        modules += R"({"class": "Overlay", "name": "clock", "settings": {"clock": "hh:mm:ss", "x": 8, "y": 8}},)";
        links += R"({"from": "dec0", "to": "clock", "kind": "V"}, {"from": "clock", "to": "screen", "kind": "V"},)";
        links.chop(1);
        const QString path = writeFile(dir.filePath("recorder-files.json"),
            "{\"board\": \"" VEXA_EXAMPLE_PIPELINES "/../boards/twin-1080p.json\", \"modules\": [" + modules
            + R"({"class": "Display", "name": "screen", "settings": {"output": "user", "width": 320, "height": 240,
                                                                 "layout": "clock,dec1,dec2,dec3"}}], "links": [)"
            + links + "]}");
        QProcess proc;
        proc.setWorkingDirectory(dir.path());
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("VEXA_TWIN_VO0", dir.filePath("recorder.mkv"));
        proc.setProcessEnvironment(env);
        QVERIFY(VexaTest::run(proc, VEXA_LAUNCH, {path, "-q", "-y"}, 180000));
        QVERIFY2(proc.exitCode() == 0, proc.readAllStandardError().constData());

        const QVariantMap s = probe(dir.filePath("recorder.mkv"), "stream=codec_name,width,height");
        QCOMPARE(s.value("width").toInt(), 320);
        QCOMPARE(s.value("height").toInt(), 240);
        const QList<QByteArray> pictures = screenPictures(dir.filePath("recorder.mkv"), 320, 240);
        // Each colour in its quarter, the clock's paper at the first one's corner.
        const QList<QPoint> probes{{80, 60}, {240, 60}, {80, 180}, {240, 180}, {9, 9}};
        QString seen;
        QVERIFY2(anyPictureShows(pictures, 320, probes, {"red", "green", "blue", "white", "black"}, &seen), qPrintable(seen));

        // The recorder itself passes the checks before start.
        int code = -1;
        const QString log = launch({VEXA_EXAMPLE_PIPELINES "/recorder.json", "--check"}, &code, 60000);
        QVERIFY2(code == 0, qPrintable(log));
    }

    // A capture's pictures with the overlay's clock, shown whole on a
    // display: the box (dark paper, light dots) covers the pattern's red
    // quarter where it is drawn; stopping gives everything back.
    void overlayClock()
    {
        const int w = 320, h = 240;
        QVERIFY(bootTwin());
        vx_model_vi_source(0, "pattern@30");
        const QString screen = dir.filePath("clock.mkv");
        vx_model_vo_screen(0, qPrintable(screen));
        const int freeAtStart = vx_model_vb_free_blocks(0);

        VexaObject *display = Vexa::create("Display", "clock_display");
        display->setData(QVariantMap{{"output", "user"}, {"width", w}, {"height", h}, {"channels", 1}});
        VexaObject *clock = Vexa::create("Overlay", "clock_overlay");
        clock->setData(QVariantMap{{"x", 8}, {"y", 200}, {"scale", 2}, {"clock", "hh:mm:ss"}});
        VexaObject *cam = Vexa::create("Capture", "clock_cam");
        cam->setData(QVariantMap{{"width", w}, {"height", h}});
        Vexa::linkV(cam, clock);
        Vexa::linkV(clock, display);
        display->start();
        clock->start();
        cam->start();
        QTRY_VERIFY_WITH_TIMEOUT(clock->invoke("stats").toMap().value("pictures").toLongLong() > 10, 60000);
        const unsigned long long shown = vx_model_vo_screens(0);
        QTRY_VERIFY_WITH_TIMEOUT(vx_model_vo_screens(0) > shown + 10, 60000);

        cam->destroy();
        clock->destroy();
        display->destroy();
        QTRY_COMPARE(vx_model_vb_free_blocks(0), freeAtStart);
        QTRY_COMPARE(vpssGroups(), 0);

        // The box at (8, 200): paper with dots of ink.
        const QSize box = VexaOverlay::boxSize("hh:mm:ss", 2);
        bool drawn = false;
        for (const QByteArray &picture : screenPictures(screen, w, h)) {
            int paper = 0, ink = 0;
            for (int y = 200; y < 200 + box.height(); ++y) {
                for (int x = 8; x < 8 + box.width(); ++x) {
                    const QString c = colourAt(picture, w, x, y);
                    paper += c == "black";
                    ink += c == "white";
                }
            }
            // Outside the box the pattern's red quarter is untouched.
            drawn = drawn || (paper > box.width() * 4 && ink > 40 && colourAt(picture, w, 130, 230) == "red");
        }
        QVERIFY(drawn);
    }
};

QTEST_MAIN(tst_BoardModules)
#include "tst_boardmodules.moc"
