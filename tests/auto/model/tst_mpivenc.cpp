#include <QtTest>

#include <sys/select.h>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_venc.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vpss.h"
#include "mediaprobe.h"
#include "modeltest.h"
#include "vexatest.h"
#include "vx_mpi.h"
#include "vx_mpi_model.h"

// Encoder channels of the platform model, driven as a board program drives
// them (the model's controls only pick the sensor's source), with what they
// produce read back by ffprobe and ffmpeg.

static const hi_u32 kW = 320, kH = 240, kFps = 25;
// The CBR target: below what the test pattern needs at the smallest QP the
// library's helper allows (16), so that the encoder has to hold the rate
// rather than run out of picture to spend it on (it does not pad).
static const hi_u32 kCbrKbps = 16;

// One encoder channel of the pipeline and what came out of it.
struct Output {
    QString file;
    int pictures = 0;
    qint64 bytes = 0;
    QString badPack;       // the first pack that was not one NAL unit of its type
    hi_u64 firstPts = 0, lastPts = 0;
};

static hi_venc_chn_attr encoderAttr(hi_payload_type type, hi_u32 w, hi_u32 h, hi_venc_rc_mode mode, hi_u32 gop)
{
    hi_venc_chn_attr attr = {};
    attr.venc_attr.type = type;
    attr.venc_attr.max_pic_width = attr.venc_attr.pic_width = w;
    attr.venc_attr.max_pic_height = attr.venc_attr.pic_height = h;
    attr.venc_attr.buf_size = w * h * 2;
    attr.venc_attr.profile = type == HI_PT_H264 ? 1 : 0;
    attr.venc_attr.is_by_frame = HI_TRUE;
    attr.rc_attr.rc_mode = mode;
    if (mode == HI_VENC_RC_MODE_MJPEG_FIXQP)
        attr.rc_attr.mjpeg_fixqp = {kFps, kFps, 80};
    else if (mode == HI_VENC_RC_MODE_H265_FIXQP || mode == HI_VENC_RC_MODE_H264_FIXQP)
        attr.rc_attr.h265_fixqp = {gop, kFps, kFps, 28, 30, 32};
    else
        attr.rc_attr.h264_cbr = {gop, 1, kFps, kFps, kCbrKbps};
    attr.gop_attr.gop_mode = HI_VENC_GOP_MODE_NORMAL_P;
    return attr;
}

// The NAL unit type a pack starts with, after its start code; -1 without one.
static int nalType(const hi_venc_pack &pack, bool hevc)
{
    const hi_u8 *p = pack.addr + pack.offset;
    const hi_u32 len = pack.len - pack.offset;
    const hi_u32 at = len > 4 && p[2] == 0 && p[3] == 1 ? 4 : len > 3 && p[2] == 1 ? 3 : 0;
    if (!at || p[0] || p[1])
        return -1;
    return hevc ? (p[at] >> 1) & 0x3f : p[at] & 0x1f;
}

// Takes one stream as the SDK samples do (query, packs, get, write, release).
static bool takeStream(hi_venc_chn chn, bool hevc, QFile &file, Output &out)
{
    hi_venc_chn_status status = {};
    if (hi_mpi_venc_query_status(chn, &status) != 0 || status.cur_packs == 0)
        return false;
    QVector<hi_venc_pack> packs(static_cast<int>(status.cur_packs));
    hi_venc_stream stream = {};
    stream.pack = packs.data();
    stream.pack_cnt = status.cur_packs;
    if (hi_mpi_venc_get_stream(chn, &stream, 0) != 0)
        return false;
    for (hi_u32 i = 0; i < stream.pack_cnt; ++i) {
        const hi_venc_pack &pack = packs[static_cast<int>(i)];
        const int type = nalType(pack, hevc);
        const int coded = hevc ? int(pack.data_type.h265_type) : int(pack.data_type.h264_type);
        // Slices are typed by picture kind; everything else by its own NAL type.
        const bool same = type == coded || (hevc && type == 20 && coded == HI_VENC_H265_NALU_IDR_SLICE)
            || (hevc && type == 0 && coded == HI_VENC_H265_NALU_P_SLICE);
        if ((!same || (pack.is_frame_end == HI_TRUE) != (i + 1 == stream.pack_cnt)) && out.badPack.isEmpty())
            out.badPack = QString("seq %1 pack %2: nal %3 typed %4").arg(stream.seq).arg(i).arg(type).arg(coded);
        file.write(reinterpret_cast<const char *>(pack.addr + pack.offset), pack.len - pack.offset);
        out.bytes += pack.len - pack.offset;
    }
    if (out.pictures++ == 0)
        out.firstPts = packs[0].pts;
    out.lastPts = packs[0].pts;
    return hi_mpi_venc_release_stream(chn, &stream) == 0;
}

class tst_MpiVenc : public QObject
{
    Q_OBJECT

    bool ran = false;
    Output outputs[2];
    int freeAtStart = -1, freeAtEnd = -2;

    void bootAndCapture()
    {
        QCOMPARE(ModelTest::boot(kW * kH * 3 / 2, 32), 0);
        freeAtStart = vx_model_vb_free_blocks(0);
        vx_model_vi_source(0, "pattern@25");
        QCOMPARE(ModelTest::startVi(ModelTest::viAttrs(kW, kH), false), 0);

        hi_vpss_grp_attr grp = {};
        grp.max_width = kW;
        grp.max_height = kH;
        grp.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
        grp.frame_rate = {-1, -1};
        QCOMPARE(hi_mpi_vpss_create_grp(0, &grp), 0);
        for (hi_vpss_chn c = 0; c < 2; ++c) {
            hi_vpss_chn_attr attr = {};
            QCOMPARE(hi_mpi_vpss_get_chn_attr(0, c, &attr), 0);
            attr.width = c ? kW / 2 : kW;
            attr.height = c ? kH / 2 : kH;
            attr.mirror_en = c ? HI_TRUE : HI_FALSE;
            attr.chn_mode = HI_VPSS_CHN_MODE_USER;
            QCOMPARE(hi_mpi_vpss_set_chn_attr(0, c, &attr), 0);
            QCOMPARE(hi_mpi_vpss_enable_chn(0, c), 0);
        }
    }

    // VI -> VPSS (full size, half size mirrored) -> H.264 CBR and H.265
    // FIXQP, streams fetched for about two seconds.
    void runPipeline()
    {
        ran = true;
        bootAndCapture();
        hi_venc_chn_attr h264 = encoderAttr(HI_PT_H264, kW, kH, HI_VENC_RC_MODE_H264_CBR, kFps);
        hi_venc_chn_attr h265 = encoderAttr(HI_PT_H265, kW / 2, kH / 2, HI_VENC_RC_MODE_H265_FIXQP, 10);
        QCOMPARE(hi_mpi_venc_create_chn(0, &h264), 0);
        QCOMPARE(hi_mpi_venc_create_chn(1, &h265), 0);
        QCOMPARE(hi_mpi_venc_create_chn(1, &h265), HI_ERR_VENC_EXIST);
        vx_mpi_venc_set_rc_param(0, {{"codec", "h264"}, {"rcmode", "cbr"}});
        vx_mpi_venc_vui_disable(1, {{"codec", "h265"}});
        QCOMPARE(vx_mpi_venc_set_max_stream(0, 8), 0);
        const hi_mpp_chn vi = {HI_ID_VI, 0, 0};
        const hi_mpp_chn vpss[2] = {{HI_ID_VPSS, 0, 0}, {HI_ID_VPSS, 0, 1}};
        const hi_mpp_chn venc[2] = {{HI_ID_VENC, 0, 0}, {HI_ID_VENC, 0, 1}};
        QCOMPARE(hi_mpi_sys_bind(&vi, &vpss[0]), 0);
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(hi_mpi_sys_bind(&vpss[i], &venc[i]), 0);
            QCOMPARE(vx_mpi_venc_start_chn(i), 0);
        }
        QCOMPARE(hi_mpi_vpss_start_grp(0), 0);
        QCOMPARE(hi_mpi_vi_start_pipe(0), 0);

        QTemporaryDir dir;
        dir.setAutoRemove(false);
        QFile files[2];
        int fds[2];
        for (int i = 0; i < 2; ++i) {
            outputs[i].file = dir.filePath(i ? "out.h265" : "out.h264");
            files[i].setFileName(outputs[i].file);
            QVERIFY(files[i].open(QIODevice::WriteOnly));
            fds[i] = hi_mpi_venc_get_fd(i);
            QVERIFY(fds[i] >= 0);
        }
        // Fetch until channel 0 has about two seconds' worth of pictures.
        QElapsedTimer timer;
        timer.start();
        while (outputs[0].pictures < int(2 * kFps) && timer.elapsed() < 60000) {
            fd_set set;
            FD_ZERO(&set);
            FD_SET(fds[0], &set);
            FD_SET(fds[1], &set);
            timeval tv = {0, 500000};
            QVERIFY(select(std::max(fds[0], fds[1]) + 1, &set, nullptr, nullptr, &tv) >= 0);
            for (int i = 0; i < 2; ++i) {
                if (FD_ISSET(fds[i], &set))
                    QVERIFY(takeStream(i, i == 1, files[i], outputs[i]));
            }
        }

        // Teardown in the samples' order; the streams left over are still fetched.
        QCOMPARE(hi_mpi_vi_stop_pipe(0), 0);
        QCOMPARE(hi_mpi_vpss_stop_grp(0), 0);
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(hi_mpi_venc_stop_chn(i), 0);
            while (takeStream(i, i == 1, files[i], outputs[i])) {
            }
            QCOMPARE(hi_mpi_sys_unbind(&vpss[i], &venc[i]), 0);
            QCOMPARE(hi_mpi_venc_destroy_chn(i), 0);
        }
        QCOMPARE(hi_mpi_sys_unbind(&vi, &vpss[0]), 0);
        for (hi_vpss_chn c = 0; c < 2; ++c)
            QCOMPARE(hi_mpi_vpss_disable_chn(0, c), 0);
        QCOMPARE(hi_mpi_vpss_destroy_grp(0), 0);
        QCOMPARE(hi_mpi_vi_disable_chn(0, 0), 0);
        QCOMPARE(hi_mpi_vi_destroy_pipe(0), 0);
        QCOMPARE(hi_mpi_vi_unbind(0, 0), 0);
        QCOMPARE(hi_mpi_vi_disable_dev(0), 0);
        freeAtEnd = vx_model_vb_free_blocks(0);
    }

private slots:
    void initTestCase()
    {
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg and ffprobe are needed to read the streams back");
    }
    void cleanupTestCase()
    {
        for (const Output &o : outputs) {
            if (!o.file.isEmpty())
                QDir(QFileInfo(o.file).path()).removeRecursively();
        }
        vx_model_reset();
    }

    // What each encoder produced, as a reader we did not write sees it.
    void encodedStreams_data()
    {
        QTest::addColumn<int>("chn");
        QTest::addColumn<QString>("codec");
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("gop");
        QTest::addColumn<QString>("primaries"); // the VUI's colour description
        QTest::addColumn<bool>("mirrored");
        QTest::newRow("h264 cbr") << 0 << "h264" << int(kW) << int(kFps) << "bt709" << false;
        QTest::newRow("h265 fixqp, vui signal off") << 1 << "hevc" << int(kW / 2) << 10 << "unknown" << true;
    }
    void encodedStreams()
    {
        QFETCH(int, chn);
        QFETCH(QString, codec);
        QFETCH(int, width);
        QFETCH(int, gop);
        QFETCH(QString, primaries);
        QFETCH(bool, mirrored);
        if (!ran)
            runPipeline();
        QCOMPARE(freeAtEnd, freeAtStart);
        const Output &out = outputs[chn];
        QVERIFY2(out.badPack.isEmpty(), qPrintable(out.badPack));
        QVERIFY(out.pictures > 0);

        QProcess probe;
        probe.start("ffprobe", {"-v", "error", "-show_entries",
                                "stream=codec_name,width,height,color_primaries:frame=key_frame", "-of", "json",
                                out.file});
        QVERIFY(probe.waitForFinished(60000));
        const QJsonObject info = QJsonDocument::fromJson(probe.readAllStandardOutput()).object();
        const QJsonObject stream = info.value("streams").toArray().at(0).toObject();
        QCOMPARE(stream.value("codec_name").toString(), codec);
        QCOMPARE(stream.value("width").toInt(), width);
        QCOMPARE(stream.value("height").toInt(), width * 3 / 4);
        QCOMPARE(stream.value("color_primaries").toString("unknown"), primaries);
        const QJsonArray frames = info.value("frames").toArray();
        QCOMPARE(frames.size(), out.pictures);
        // Keyframes one GOP of encoded pictures apart.
        // As many pictures as the sensor's rate gives over their PTS span;
        // under sanitizers and emulation the encoders may lose some.
        const double expected = double(out.lastPts - out.firstPts) * kFps / 1e6 + 1;
        const double least = VexaTest::stressScale() < 1 ? 0.3 : 0.8;
        QVERIFY2(out.pictures <= expected + 1 && out.pictures >= least * expected,
                 qPrintable(QString("%1 pictures over %2 frame periods").arg(out.pictures).arg(expected)));
        QList<int> keys;
        for (int i = 0; i < frames.size(); ++i) {
            if (frames.at(i).toObject().value("key_frame").toInt())
                keys << i;
        }
        QCOMPARE(keys.value(0), 0);
        QVERIFY(keys.size() >= 2);
        for (int i = 1; i < keys.size(); ++i)
            QCOMPARE(keys[i] - keys[i - 1], gop);
        if (chn == 0) {
            // Bit rate over whole GOPs at the stream's own frame rate.
            const double kbps = out.bytes * 8.0 / 1000 / (double(out.pictures) / kFps);
            QVERIFY2(qAbs(kbps - kCbrKbps) <= 0.15 * kCbrKbps, qPrintable(QString::number(kbps)));
        }

        // The pattern's strip in the first picture: marker cells at the left
        // (or at the right when mirrored).
        QTemporaryFile raw;
        QVERIFY(raw.open());
        QVERIFY(MediaProbe::ffmpeg({"-i", out.file, "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "gray",
                                    raw.fileName()}));
        const QByteArray y = raw.readAll();
        QCOMPARE(y.size(), width * width * 3 / 4);
        const int row = width * 3 / 4 / 16, cell = width / 18;
        const auto luma = [&](int x) { return quint8(y.at(row * width + x)); };
        QCOMPARE(luma(cell / 2) > 128, !mirrored);
        QCOMPARE(luma(width - 1 - cell / 2) > 128, mirrored);
    }

    // Pictures the user sends: the receive count, an IDR on request, the
    // platform's errors for calls it refuses.
    void sentFrames_data()
    {
        QTest::addColumn<int>("payload");
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("allKey");   // every picture a key picture
        QTest::addColumn<int>("firstPack"); // of a key picture
        QTest::addColumn<bool>("copied");   // each picture copied into the encoder's layout
        QTest::newRow("h264") << int(HI_PT_H264) << int(HI_VENC_RC_MODE_H264_FIXQP) << false
                              << int(HI_VENC_H264_NALU_SPS) << false;
        QTest::newRow("mjpeg") << int(HI_PT_MJPEG) << int(HI_VENC_RC_MODE_MJPEG_FIXQP) << true
                               << int(HI_VENC_JPEG_PACK_PIC) << true;
    }
    void sentFrames()
    {
        QFETCH(int, payload);
        QFETCH(int, mode);
        QFETCH(bool, allKey);
        QFETCH(int, firstPack);
        QFETCH(bool, copied);
        vx_model_reset();
        QCOMPARE(vx_model_boot(), 0);
        const hi_u32 w = 64, h = 48;
        hi_venc_chn_attr attr = encoderAttr(hi_payload_type(payload), w, h, hi_venc_rc_mode(mode), 100);
        hi_venc_stream stream = {};
        hi_venc_pack packs[8];
        stream.pack = packs;
        stream.pack_cnt = 8;
        QCOMPARE(hi_mpi_venc_get_stream(2, &stream, 0), HI_ERR_VENC_UNEXIST);
        QCOMPARE(hi_mpi_venc_create_chn(2, nullptr), HI_ERR_VENC_NULL_PTR);
        QCOMPARE(hi_mpi_venc_create_chn(HI_VENC_MAX_CHN_NUM, &attr), HI_ERR_VENC_INVALID_CHN_ID);
        QCOMPARE(hi_mpi_venc_create_chn(2, &attr), 0);

        const hi_vb_blk blk = hi_mpi_vb_get_blk(0, w * h * 3 / 2, nullptr);
        QVERIFY(blk != HI_VB_INVALID_HANDLE);
        hi_video_frame_info frame = ModelTest::frameIn(blk, w, h);
        memset(hi_mpi_sys_mmap(frame.video_frame.phys_addr[0], w * h * 3 / 2), 128, w * h * 3 / 2);

        QCOMPARE(hi_mpi_venc_send_frame(2, &frame, 0), HI_ERR_VENC_NOT_PERM); // not receiving
        QCOMPARE(vx_mpi_venc_start_chn_ex(2, 3), 0);
        for (int i = 0; i < 3; ++i) {
            frame.video_frame.pts = 1000 * i;
            QCOMPARE(hi_mpi_venc_send_frame(2, &frame, 1000), 0);
        }
        QCOMPARE(hi_mpi_venc_send_frame(2, &frame, 0), HI_ERR_VENC_NOT_PERM); // three received
        QList<bool> keys;
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(hi_mpi_venc_get_stream(2, &stream, 5000), 0);
            QCOMPARE(packs[stream.pack_cnt - 1].pts, hi_u64(1000 * i));
            keys << (allKey || stream.h264_info.ref_type == HI_VENC_BASE_IDR_SLICE);
            QCOMPARE(int(packs[0].data_type.h264_type) == firstPack, keys.last());
            QCOMPARE(hi_mpi_venc_release_stream(2, &stream), 0);
            stream.pack_cnt = 8;
        }
        QCOMPARE(keys, QList<bool>({true, allKey, allKey}));
        QCOMPARE(vx_model_frame_copies(), copied ? 3ull : 0ull);
        QCOMPARE(hi_mpi_venc_release_stream(2, &stream), HI_ERR_VENC_ILLEGAL_PARAM); // released already

        // Empty: at once with 0, after the timeout with a positive wait.
        QCOMPARE(hi_mpi_venc_get_stream(2, &stream, 0), HI_ERR_VENC_BUF_EMPTY);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(hi_mpi_venc_get_stream(2, &stream, 100), HI_ERR_VENC_BUF_EMPTY);
        QVERIFY(timer.elapsed() >= 90);

        QCOMPARE(hi_mpi_venc_destroy_chn(2), HI_ERR_VENC_NOT_PERM); // still receiving
        QCOMPARE(hi_mpi_venc_stop_chn(2), 0);
        QCOMPARE(vx_mpi_venc_start_chn(2), 0);
        frame.video_frame.pts = 5000;
        QCOMPARE(hi_mpi_venc_send_frame(2, &frame, 1000), 0);
        QCOMPARE(hi_mpi_venc_get_stream(2, &stream, 5000), 0);
        QCOMPARE(hi_mpi_venc_release_stream(2, &stream), 0);
        stream.pack_cnt = 8;
        QCOMPARE(hi_mpi_venc_request_idr(2, HI_TRUE), 0);
        QCOMPARE(hi_mpi_venc_send_frame(2, &frame, 1000), 0);
        QCOMPARE(hi_mpi_venc_get_stream(2, &stream, 5000), 0);
        QVERIFY(allKey || stream.h264_info.ref_type == HI_VENC_BASE_IDR_SLICE);
        QCOMPARE(int(packs[0].data_type.h264_type), firstPack);
        QCOMPARE(hi_mpi_venc_release_stream(2, &stream), 0);

        // One stream at most: the pictures after it are discarded, not queued.
        QCOMPARE(hi_mpi_venc_stop_chn(2), 0);
        QCOMPARE(vx_mpi_venc_set_max_stream(2, 1), 0);
        QCOMPARE(vx_mpi_venc_start_chn(2), 0);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(hi_mpi_venc_send_frame(2, &frame, 1000), 0);
        hi_venc_chn_status status = {};
        QTRY_VERIFY(hi_mpi_venc_query_status(2, &status) == 0 && status.left_stream_frames + status.discard_pics == 3);
        QCOMPARE(status.left_stream_frames, 1u);
        QVERIFY(status.cur_packs > 0);
        QCOMPARE(hi_mpi_venc_stop_chn(2), 0);
        QCOMPARE(hi_mpi_venc_destroy_chn(2), 0);
        QCOMPARE(hi_mpi_vb_release_blk(blk), 0);
        QCOMPARE(vx_model_vb_free_blocks(0), 8);
    }

    // CBR at a realistic rate on a picture that can use it (ffmpeg's test
    // picture under moving noise), the frames sent one by one: the rate
    // after the first GOP (where the encoder's buffer starts full) holds.
    void cbrRate_data()
    {
        QTest::addColumn<int>("payload");
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("kbps");
        QTest::newRow("h264 2 Mb/s") << int(HI_PT_H264) << int(HI_VENC_RC_MODE_H264_CBR) << 2000;
        QTest::newRow("h265 1 Mb/s") << int(HI_PT_H265) << int(HI_VENC_RC_MODE_H265_CBR) << 1000;
    }
    void cbrRate()
    {
        QFETCH(int, payload);
        QFETCH(int, mode);
        QFETCH(int, kbps);
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg makes the pictures");
        const int frames = 3 * kFps, bytes = int(kW * kH * 3 / 2);
        QTemporaryDir dir;
        const QString raw = dir.filePath("in.nv21");
        QVERIFY(MediaProbe::ffmpeg({"-f", "lavfi", "-i", QString("testsrc2=size=%1x%2:rate=%3").arg(kW).arg(kH).arg(kFps),
                                    "-vf", "noise=alls=20:allf=t", "-frames:v", QString::number(frames), "-f",
                                    "rawvideo", "-pix_fmt", "nv21", raw}));
        QFile file(raw);
        QVERIFY(file.open(QIODevice::ReadOnly));
        vx_model_reset();
        QCOMPARE(ModelTest::boot(hi_u32(bytes), 2), 0);
        hi_venc_chn_attr attr = encoderAttr(hi_payload_type(payload), kW, kH, hi_venc_rc_mode(mode), kFps);
        attr.rc_attr.h264_cbr.bit_rate = hi_u32(kbps);
        QCOMPARE(hi_mpi_venc_create_chn(4, &attr), 0);
        QCOMPARE(vx_mpi_venc_start_chn(4), 0);
        const hi_vb_blk blk = hi_mpi_vb_get_blk(0, hi_u64(bytes), nullptr);
        hi_video_frame_info frame = ModelTest::frameIn(blk, kW, kH);
        hi_video_frame &f = frame.video_frame;
        char *block = static_cast<char *>(hi_mpi_sys_mmap(f.phys_addr[0], hi_u32(bytes)));
        qint64 after = 0; // bytes after the first GOP
        for (int i = 0; i < frames; ++i) {
            QCOMPARE(file.read(block, bytes), qint64(bytes));
            f.pts = hi_u64(i) * 1000000 / kFps;
            QCOMPARE(hi_mpi_venc_send_frame(4, &frame, 5000), 0);
            hi_venc_pack packs[16];
            hi_venc_stream stream = {};
            stream.pack = packs;
            stream.pack_cnt = 16;
            QCOMPARE(hi_mpi_venc_get_stream(4, &stream, 10000), 0);
            for (hi_u32 p = 0; p < stream.pack_cnt && i >= int(kFps); ++p)
                after += packs[p].len - packs[p].offset;
            QCOMPARE(hi_mpi_venc_release_stream(4, &stream), 0);
        }
        const double rate = after * 8.0 / 1000 / (double(frames - kFps) / kFps);
        QVERIFY2(qAbs(rate - kbps) <= 0.15 * kbps, qPrintable(QString("%1 kb/s").arg(rate)));
        QCOMPARE(hi_mpi_venc_stop_chn(4), 0);
        QCOMPARE(hi_mpi_venc_destroy_chn(4), 0);
        QCOMPARE(hi_mpi_vb_release_blk(blk), 0);
    }

    // A stream the user still holds keeps its bytes when its channel is
    // destroyed or reset, and is released once, by the same record.
    void heldStreamOutlivesChannel_data()
    {
        QTest::addColumn<bool>("destroy");
        QTest::newRow("destroy") << true;
        QTest::newRow("reset") << false;
    }
    void heldStreamOutlivesChannel()
    {
        QFETCH(bool, destroy);
        vx_model_reset();
        QCOMPARE(vx_model_boot(), 0);
        const hi_u32 w = 64, h = 48;
        hi_venc_chn_attr attr = encoderAttr(HI_PT_H264, w, h, HI_VENC_RC_MODE_H264_FIXQP, 10);
        QCOMPARE(hi_mpi_venc_create_chn(3, &attr), 0);
        const hi_vb_blk blk = hi_mpi_vb_get_blk(0, w * h * 3 / 2, nullptr);
        hi_video_frame_info frame = ModelTest::frameIn(blk, w, h);
        memset(hi_mpi_sys_mmap(frame.video_frame.phys_addr[0], w * h * 3 / 2), 90, w * h * 3 / 2);
        QCOMPARE(vx_mpi_venc_start_chn(3), 0);
        hi_venc_pack packs[2][8];
        hi_venc_stream held[2] = {};
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(hi_mpi_venc_send_frame(3, &frame, 1000), 0);
            held[i].pack = packs[i];
            held[i].pack_cnt = 8;
            QCOMPARE(hi_mpi_venc_get_stream(3, &held[i], 5000), 0);
        }
        const QByteArray before(reinterpret_cast<const char *>(packs[0][0].addr), int(packs[0][0].len));
        QCOMPARE(hi_mpi_venc_stop_chn(3), 0);
        QCOMPARE(destroy ? hi_mpi_venc_destroy_chn(3) : hi_mpi_venc_reset_chn(3), 0);
        if (!destroy) { // the channel goes on in a buffer of its own
            QCOMPARE(vx_mpi_venc_start_chn(3), 0);
            QCOMPARE(hi_mpi_venc_send_frame(3, &frame, 1000), 0);
            hi_venc_pack fresh[8];
            hi_venc_stream stream = {};
            stream.pack = fresh;
            stream.pack_cnt = 8;
            QCOMPARE(hi_mpi_venc_get_stream(3, &stream, 5000), 0);
            QCOMPARE(stream.seq, held[0].seq); // numbering starts again
            QCOMPARE(hi_mpi_venc_release_stream(3, &stream), 0);
            QCOMPARE(hi_mpi_venc_stop_chn(3), 0);
        }
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(packs[0][0].addr), int(packs[0][0].len)), before);
        for (int i = 0; i < 2; ++i)
            QCOMPARE(hi_mpi_venc_release_stream(3, &held[i]), 0);
        QCOMPARE(hi_mpi_venc_release_stream(3, &held[0]), destroy ? HI_ERR_VENC_UNEXIST : HI_ERR_VENC_ILLEGAL_PARAM);
        QCOMPARE(hi_mpi_sys_mmap(packs[0][0].phys_addr, 4), nullptr); // the retired buffer is gone
        QCOMPARE(hi_mpi_vb_release_blk(blk), 0);
    }
};

QTEST_GUILESS_MAIN(tst_MpiVenc)
#include "tst_mpivenc.moc"
