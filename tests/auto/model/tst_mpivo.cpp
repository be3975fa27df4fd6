#include <QtTest>

#include <functional>
#include <poll.h>

#include "hi_mpi_sys.h"
#include "hi_mpi_tde.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_vdec.h"
#include "hi_mpi_vo.h"
#include "hi_mpi_vpss.h"
#include "mediaprobe.h"
#include "vx_mpi.h"
#include "vx_mpi_model.h"

// Display and 2D engine of the platform model: a mosaic of two sources on
// a VO screen read back from its file with ffmpeg, TDE operations checked
// on the pixels they leave in media memory, the decoder's event descriptor,
// and the errors of the new calls.

static const hi_u32 kScreenW = 320, kScreenH = 240;

// A kScreenW x kScreenH user timing at 25 pictures per second on device 0,
// layer 0 covering it with the library's low- or normal-latency settings.
static void startDisplay(hi_u32 bg, bool lowLatency = true)
{
    hi_vo_pub_attr pub = {};
    pub.bg_color = bg;
    pub.intf_type = HI_VO_INTF_BT1120;
    pub.intf_sync = HI_VO_OUT_USER;
    pub.sync_info.hact = kScreenW;
    pub.sync_info.vact = kScreenH;
    QCOMPARE(hi_mpi_vo_set_pub_attr(0, &pub), 0);
    QCOMPARE(hi_mpi_vo_enable(0), 0);
    hi_vo_video_layer_attr layer = {};
    layer.display_rect = {0, 0, kScreenW, kScreenH};
    layer.img_size = {kScreenW, kScreenH};
    layer.display_frame_rate = 25;
    layer.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    if (lowLatency)
        QCOMPARE(vx_mpi_vo_set_low_Latency(layer, 0), 0);
    else
        vx_mpi_vo_set_normal_Latency(layer, 0);
    QCOMPARE(hi_mpi_vo_set_video_layer_attr(0, &layer), 0);
    QCOMPARE(hi_mpi_vo_enable_video_layer(0), 0);
}

static void startVoChn(hi_vo_chn chn, const hi_rect &rect)
{
    hi_vo_chn_attr attr = {};
    attr.rect = rect;
    QCOMPARE(hi_mpi_vo_set_chn_attr(0, chn, &attr), 0);
    QCOMPARE(hi_mpi_vo_enable_chn(0, chn), 0);
}

// A VB frame of one flat colour (luma @p y, chroma pairs @p v, @p u) sent
// to VPSS group @p grp, or to VO channel 0 when @p grp is -1.
static void sendFlat(hi_vpss_grp grp, hi_u32 w, hi_u32 h, unsigned char y, unsigned char v = 128, unsigned char u = 128)
{
    const hi_u32 stride = (w + 31) / 32 * 32, size = stride * h * 3 / 2;
    const hi_vb_blk blk = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, size, nullptr);
    QVERIFY(blk != HI_VB_INVALID_HANDLE);
    hi_video_frame_info info = {};
    hi_video_frame &f = info.video_frame;
    f.width = w;
    f.height = h;
    f.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    f.field = HI_VIDEO_FIELD_FRAME;
    f.stride[0] = f.stride[1] = stride;
    f.phys_addr[0] = hi_mpi_vb_handle_to_phys_addr(blk);
    f.phys_addr[1] = f.phys_addr[0] + stride * h;
    auto *data = static_cast<unsigned char *>(hi_mpi_sys_mmap(f.phys_addr[0], size));
    QVERIFY(data);
    memset(data, y, stride * h);
    for (hi_u32 i = 0; i < stride * h / 2; i += 2) {
        data[stride * h + i] = v;
        data[stride * h + i + 1] = u;
    }
    info.pool_id = hi_mpi_vb_handle_to_pool_id(blk);
    if (grp < 0)
        QCOMPARE(hi_mpi_vo_send_frame(0, 0, &info, 0), 0);
    else
        QCOMPARE(hi_mpi_vpss_send_frame(grp, &info, 5000), 0);
    QCOMPARE(hi_mpi_vb_release_blk(blk), 0);
}

// Group @p grp with channel 0 at 192x144, bound to VO channel @p chn.
static void startVpssToVo(hi_vpss_grp grp, hi_vo_chn chn)
{
    hi_vpss_grp_attr attr = {};
    attr.max_width = kScreenW;
    attr.max_height = kScreenH;
    attr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    attr.frame_rate = {-1, -1};
    QCOMPARE(hi_mpi_vpss_create_grp(grp, &attr), 0);
    hi_vpss_chn_attr chnAttr = {};
    QCOMPARE(hi_mpi_vpss_get_chn_attr(grp, 0, &chnAttr), 0);
    chnAttr.width = 192;
    chnAttr.height = 144;
    chnAttr.chn_mode = HI_VPSS_CHN_MODE_USER;
    chnAttr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    QCOMPARE(hi_mpi_vpss_set_chn_attr(grp, 0, &chnAttr), 0);
    QCOMPARE(hi_mpi_vpss_enable_chn(grp, 0), 0);
    QCOMPARE(hi_mpi_vpss_start_grp(grp), 0);
    const hi_mpp_chn src = {HI_ID_VPSS, grp, 0}, dst = {HI_ID_VO, 0, chn};
    QCOMPARE(hi_mpi_sys_bind(&src, &dst), 0);
}

static hi_u32 voBufUsed(hi_vo_chn chn)
{
    hi_vo_chn_status status = {};
    return hi_mpi_vo_query_chn_status(0, chn, &status) == 0 ? status.chn_buf_used : 0;
}

// A w x h ARGB8888 surface in media memory.
struct Surface {
    hi_tde_surface s = {};
    quint32 *px = nullptr;
    Surface(hi_u32 w, hi_u32 h)
    {
        void *virt = nullptr;
        if (hi_mpi_sys_mmz_alloc(&s.phys_addr, &virt, "tde", nullptr, w * h * 4) != 0)
            return;
        px = static_cast<quint32 *>(virt);
        s.color_format = HI_TDE_COLOR_FORMAT_ARGB8888;
        s.width = w;
        s.height = h;
        s.stride = w * 4;
        s.alpha_max_is_255 = HI_TRUE;
    }
    quint32 &at(int x, int y) { return px[y * s.width + x]; }
    void fill(quint32 argb) { std::fill(px, px + s.width * s.height, argb); }
};

// True when every channel of @p a and @p b differs by at most one.
static bool near(quint32 a, quint32 b)
{
    for (int shift = 0; shift < 32; shift += 8) {
        if (qAbs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)) > 1)
            return false;
    }
    return true;
}

class tst_MpiVo : public QObject
{
    Q_OBJECT

    void boot()
    {
        hi_vb_cfg cfg = {};
        cfg.max_pool_cnt = 1;
        cfg.common_pool[0].blk_size = kScreenW * kScreenH * 3 / 2;
        cfg.common_pool[0].blk_cnt = 24;
        QCOMPARE(vx_model_boot(&cfg), 0);
    }

private slots:
    void cleanup() { vx_model_reset(); }

    // Two VPSS groups bound to two VO channels: the screen file shows each
    // source scaled into its channel's rectangle and the background
    // colour where no channel is.
    void mosaicOfTwoSources()
    {
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg and ffprobe are needed to read the screen back");
        QTemporaryDir dir;
        const QString screen = dir.filePath("screen.mkv"), raw = dir.filePath("screen.yuv");
        boot();
        const int freeAtStart = vx_model_vb_free_blocks(0);
        vx_model_vo_screen(0, screen.toUtf8().constData());
        startDisplay(0x0000ff);
        startVoChn(0, {0, 0, 160, 240});
        startVoChn(1, {160, 0, 160, 120});
        startVpssToVo(0, 0);
        startVpssToVo(1, 1);
        for (int i = 0; i < 4; ++i) {
            sendFlat(0, kScreenW, kScreenH, 60);
            sendFlat(1, 256, 128, 200);
        }
        // Both channels on the screen, then a few more screens written.
        QTRY_VERIFY_WITH_TIMEOUT(voBufUsed(0) >= 1 && voBufUsed(1) >= 1, 20000);
        const unsigned long long shown = vx_model_vo_screens(0);
        QTRY_VERIFY_WITH_TIMEOUT(vx_model_vo_screens(0) >= shown + 3, 20000);
        QCOMPARE(hi_mpi_vo_disable_chn(0, 0), 0);
        QCOMPARE(hi_mpi_vo_disable_chn(0, 1), 0);
        QCOMPARE(hi_mpi_vo_disable_video_layer(0), 0);
        QCOMPARE(hi_mpi_vo_disable(0), 0);

        MediaProbe::Streams streams;
        QString error;
        QVERIFY2(MediaProbe::probe(screen, &streams, &error), qPrintable(error));
        QVERIFY(streams.value("video").size() >= 3);
        QVERIFY2(MediaProbe::ffmpeg({"-i", screen, "-f", "rawvideo", "-pix_fmt", "yuv420p", raw}, &error), qPrintable(error));
        QFile file(raw);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray all = file.readAll();
        const int frameBytes = int(kScreenW * kScreenH * 3 / 2);
        QCOMPARE(all.size() % frameBytes, 0);
        const uchar *last = reinterpret_cast<const uchar *>(all.constData()) + all.size() - frameBytes;
        auto luma = [last](int x, int y) { return int(last[y * int(kScreenW) + x]); };
        const struct {
            int x, y, want;
        } probes[] = {{20, 20, 60}, {140, 220, 60}, {180, 20, 200}, {300, 100, 200}, {240, 200, 16 + 16 * 255 / 256}};
        for (const auto &p : probes)
            QVERIFY2(qAbs(luma(p.x, p.y) - p.want) <= 3,
                     qPrintable(QString("(%1,%2) is %3, not %4").arg(p.x).arg(p.y).arg(luma(p.x, p.y)).arg(p.want)));
        // The background's blue in the U plane, neutral under the sources.
        const uchar *u = last + kScreenW * kScreenH;
        QCOMPARE(QList<int>({u[100 * kScreenW / 2 + 120], u[10 * kScreenW / 2 + 10]}), QList<int>({128 + 112 * 255 / 256, 128}));

        for (hi_vpss_grp g = 0; g < 2; ++g) {
            const hi_mpp_chn src = {HI_ID_VPSS, g, 0}, dst = {HI_ID_VO, 0, g};
            QCOMPARE(hi_mpi_sys_unbind(&src, &dst), 0);
            QCOMPARE(hi_mpi_vpss_stop_grp(g), 0);
            QCOMPARE(hi_mpi_vpss_destroy_grp(g), 0);
        }
        QCOMPARE(vx_model_vb_free_blocks(0), freeAtStart);
    }

    // The latency the library's helpers set is the queue a channel fills
    // before its first frame is shown: two frames at low latency, three at
    // normal latency. The screen is read back from a raw file.
    void latencyBuffering_data()
    {
        QTest::addColumn<bool>("low");
        QTest::addColumn<int>("frames");
        QTest::addColumn<bool>("shown");
        QTest::newRow("low, 1 frame") << true << 1 << false;
        QTest::newRow("low, 2 frames") << true << 2 << true;
        QTest::newRow("normal, 2 frames") << false << 2 << false;
        QTest::newRow("normal, 3 frames") << false << 3 << true;
    }
    void latencyBuffering()
    {
        QFETCH(bool, low);
        QFETCH(int, frames);
        QFETCH(bool, shown);
        QTemporaryDir dir;
        const QString raw = dir.filePath("screen.nv21");
        boot();
        vx_model_vo_screen(0, raw.toUtf8().constData());
        startDisplay(0, low);
        startVoChn(0, {0, 0, kScreenW, kScreenH});
        for (int i = 0; i < frames; ++i)
            sendFlat(-1, kScreenW, kScreenH, 200, 200, 90);
        // One screen more than the queue needs: the screen being composed
        // when the count is read may have looked at the queue before the
        // last frame came. Once shown, the last frame stays on the screen.
        const unsigned long long screens = vx_model_vo_screens(0);
        QTRY_VERIFY_WITH_TIMEOUT(vx_model_vo_screens(0) >= screens + 4, 20000);
        QCOMPARE(voBufUsed(0), hi_u32(shown ? 1 : frames));
        QCOMPARE(hi_mpi_vo_disable(0), 0);
        QFile file(raw);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray all = file.readAll();
        const int frameBytes = int(kScreenW * kScreenH * 3 / 2);
        QVERIFY(all.size() >= 3 * frameBytes && all.size() % frameBytes == 0);
        QCOMPARE(int(uchar(all[all.size() - frameBytes + int(kScreenW * kScreenH / 2)])), shown ? 200 : 16);
        // A frame of the channel's own size keeps its chroma (V, U pairs) on the screen.
        const int chroma = all.size() - frameBytes + int(kScreenW * kScreenH) + int(kScreenW * kScreenH / 4);
        QCOMPARE(QList<int>({uchar(all[chroma]), uchar(all[chroma + 1])}), shown ? QList<int>({200, 90}) : QList<int>({128, 128}));
    }

    // Each TDE operation, run when its job ends, on ARGB8888 surfaces:
    // the probed pixels, and one outside the destination left alone.
    void tdeOperations_data()
    {
        QTest::addColumn<int>("op");
        QTest::addColumn<quint32>("expected"); // at (12, 12) of the destination
        QTest::addColumn<quint32>("expected2"); // at (20, 12)
        // fill: rect (8,8) 16x8 with the raw value.
        QTest::newRow("fill") << 0 << 0xff112233u << 0xff112233u;
        // copy: source (x, y) -> destination (x + 8, y + 8).
        QTest::newRow("copy") << 1 << (0xff000000u | 4u | 4u << 8) << (0xff000000u | 12u | 4u << 8);
        // resize: the source's 8x4 at (0,0) doubled to 16x8 at (8,8).
        QTest::newRow("resize") << 2 << (0xff000000u | 2u | 2u << 8) << (0xff000000u | 6u | 2u << 8);
        // half-transparent red over blue.
        QTest::newRow("blend") << 3 << 0xff80007fu << 0xff80007fu;
        // keyed green foreground pixels (left) leave the blue background.
        QTest::newRow("key fg") << 4 << 0xff0000ffu << 0xffff0000u;
        // only where the background is the key (right) the foreground shows.
        QTest::newRow("key bg") << 5 << 0xff0000ffu << 0xffff0000u;
    }
    void tdeOperations()
    {
        QFETCH(int, op);
        QFETCH(quint32, expected);
        QFETCH(quint32, expected2);
        boot();
        Surface src(32, 32), dst(32, 32);
        QVERIFY(src.px && dst.px);
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 32; ++x)
                src.at(x, y) = 0xff000000u | quint32(x) | quint32(y) << 8;
        dst.fill(0xff0000ff);
        QCOMPARE(hi_tde_open(), 0);
        const hi_s32 job = hi_tde_begin_job();
        QVERIFY(job > 0);
        hi_tde_rect srcRect = {0, 0, 16, 8}, dstRect = {8, 8, 16, 8};
        ot_tde_opt opt = {};
        if (op == 0) {
            const hi_tde_none_src none = {&dst.s, &dstRect};
            QCOMPARE(hi_tde_quick_fill(job, &none, 0xff112233u), 0);
        } else if (op <= 2) {
            if (op == 2)
                srcRect = {0, 0, 8, 4};
            const hi_tde_single_src single = {&src.s, &dst.s, &srcRect, &dstRect};
            QCOMPARE((op == 1 ? hi_tde_quick_copy : hi_tde_quick_resize)(job, &single), 0);
        } else {
            if (op == 3) {
                src.fill(0x80ff0000u);
                opt.alpha_blending_cmd = OT_TDE_ALPHA_BLENDING_BLEND;
            } else {
                opt.colorkey_mode = op == 4 ? HI_TDE_COLORKEY_MODE_FG : HI_TDE_COLORKEY_MODE_BG;
                opt.colorkey_value.value[0] = 0x00ff00;
                for (int y = 0; y < 32; ++y)
                    for (int x = 0; x < 32; ++x) {
                        src.at(x, y) = op == 4 && x < 16 ? 0xff00ff00u : 0xffff0000u;
                        if (op == 5 && x >= 16)
                            dst.at(x, y) = 0xff00ff00u;
                    }
                srcRect = {8, 0, 16, 8};
            }
            // The library's composite blit: the destination is the background.
            QCOMPARE(vx_tde_bit_blit(job, src.s, dst.s, srcRect, dstRect, opt), 0);
        }
        QCOMPARE(dst.at(12, 12), 0xff0000ffu); // nothing is drawn before the job ends
        QCOMPARE(hi_tde_end_job(job, HI_FALSE, HI_TRUE, 100), 0);
        QVERIFY2(near(dst.at(12, 12), expected), qPrintable(QString::number(dst.at(12, 12), 16)));
        QVERIFY2(near(dst.at(20, 12), expected2), qPrintable(QString::number(dst.at(20, 12), 16)));
        QCOMPARE(dst.at(4, 4), 0xff0000ffu);
        QCOMPARE(hi_tde_end_job(job, HI_FALSE, HI_TRUE, 100), HI_ERR_TDE_INVALID_HANDLE);
        hi_tde_close();
    }

    // A fill and a half-transparent blit on semi-planar frames in VB blocks.
    void tdeOnFrames()
    {
        boot();
        const hi_u32 w = 64, h = 32, size = w * h * 3 / 2;
        const hi_vb_blk blk = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, size, nullptr);
        QVERIFY(blk != HI_VB_INVALID_HANDLE);
        hi_tde_surface frame = {};
        frame.phys_addr = hi_mpi_vb_handle_to_phys_addr(blk);
        frame.color_format = HI_TDE_COLOR_FORMAT_JPG_YCbCr420MBP;
        frame.width = w;
        frame.height = h;
        frame.stride = w;
        frame.cbcr_phys_addr = frame.phys_addr + w * h;
        frame.cbcr_stride = w;
        auto *y = static_cast<uchar *>(hi_mpi_sys_mmap(frame.phys_addr, size));
        QVERIFY(y);
        QCOMPARE(hi_tde_open(), 0);
        hi_s32 job = hi_tde_begin_job();
        hi_tde_rect left = {0, 0, 32, 32}, right = {32, 0, 32, 32};
        const hi_tde_none_src fillLeft = {&frame, &left}, fillRight = {&frame, &right};
        QCOMPARE(hi_tde_quick_fill(job, &fillLeft, 0x00c05a6e), 0);
        QCOMPARE(hi_tde_quick_fill(job, &fillRight, 0x00408080), 0);
        QCOMPARE(hi_tde_end_job(job, HI_TRUE, HI_TRUE, 100), 0);
        QCOMPARE(QList<int>({y[5 * w + 5], y[w * h + 4], y[w * h + 5], y[5 * w + 40]}), QList<int>({0xc0, 0x6e, 0x5a, 0x40}));
        // The left half over the right at a global alpha of a half.
        job = hi_tde_begin_job();
        ot_tde_opt opt = {};
        opt.alpha_blending_cmd = OT_TDE_ALPHA_BLENDING_BLEND;
        opt.blend_opt.global_alpha_en = HI_TRUE;
        opt.global_alpha = 128;
        QCOMPARE(vx_tde_bit_blit(job, frame, frame, left, right, opt), 0);
        QCOMPARE(hi_tde_end_job(job, HI_TRUE, HI_TRUE, 100), 0);
        QVERIFY(qAbs(int(y[5 * w + 40]) - (0xc0 + 0x40) / 2) <= 1);
        QCOMPARE(hi_mpi_vb_release_blk(blk), 0);
        hi_tde_close();
    }

    // The decoder's descriptor is readable exactly while a picture waits; a
    // channel bound to VO is held back by the display instead of losing frames.
    void vdecFdAndDisplay()
    {
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg is needed to make the stream");
        QTemporaryDir dir;
        const QString es = dir.filePath("in.h264");
        QVERIFY(MediaProbe::ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-frames:v", "8", "-pix_fmt",
                                    "yuv420p", "-c:v", "libx264", "-f", "h264", es}));
        QFile esFile(es);
        QVERIFY(esFile.open(QIODevice::ReadOnly));
        QByteArray bytes = esFile.readAll();
        boot();
        const int freeAtStart = vx_model_vb_free_blocks(0);
        startDisplay(0);
        startVoChn(0, {0, 0, kScreenW, kScreenH});
        hi_vdec_chn_attr attr = {};
        attr.type = HI_PT_H264;
        attr.pic_width = 160;
        attr.pic_height = 120;
        attr.stream_buf_size = 1 << 20;
        attr.frame_buf_cnt = 3;
        hi_vdec_stream stream = {};
        stream.addr = reinterpret_cast<hi_u8 *>(bytes.data());
        stream.len = hi_u32(bytes.size());
        stream.end_of_stream = HI_TRUE;
        const hi_mpp_chn vdec1 = {HI_ID_VDEC, 0, 1}, vo = {HI_ID_VO, 0, 0};
        for (hi_vdec_chn chn = 0; chn < 2; ++chn) {
            QCOMPARE(hi_mpi_vdec_create_chn(chn, &attr), 0);
            QCOMPARE(hi_mpi_vdec_start_recv_stream(chn), 0);
        }
        QCOMPARE(hi_mpi_sys_bind(&vdec1, &vo), 0);
        const int fd = hi_mpi_vdec_get_fd(0);
        QVERIFY(fd >= 0);
        QCOMPARE(hi_mpi_vdec_get_fd(0), fd);
        pollfd p = {fd, POLLIN, 0};
        QCOMPARE(poll(&p, 1, 0), 0);
        QCOMPARE(hi_mpi_vdec_send_stream(0, &stream, -1), 0);
        QCOMPARE(hi_mpi_vdec_send_stream(1, &stream, -1), 0);
        for (int i = 0; i < 8; ++i) {
            p.revents = 0;
            QCOMPARE(poll(&p, 1, 20000), 1);
            QVERIFY(p.revents & POLLIN);
            hi_video_frame_info info = {};
            QCOMPARE(hi_mpi_vdec_get_frame(0, &info, nullptr, 0), 0);
            QCOMPARE(hi_mpi_vdec_release_frame(0, &info), 0);
        }
        QCOMPARE(poll(&p, 1, 0), 0);
        // All eight pictures reach the display, none lost on the binding.
        QTRY_VERIFY_WITH_TIMEOUT(voBufUsed(0) == 1, 20000);
        hi_vdec_chn_status status = {};
        QTRY_VERIFY_WITH_TIMEOUT(hi_mpi_vdec_query_status(1, &status) == 0 && status.dec_stream_frames == 8, 20000);
        QCOMPARE(vx_model_bind_drops(&vo), 0ULL);
        QCOMPARE(hi_mpi_vdec_close_fd(0), 0);
        for (hi_vdec_chn chn = 0; chn < 2; ++chn) {
            QCOMPARE(hi_mpi_vdec_stop_recv_stream(chn), 0);
            QCOMPARE(hi_mpi_vdec_destroy_chn(chn), 0);
        }
        QCOMPARE(hi_mpi_sys_unbind(&vdec1, &vo), 0);
        QCOMPARE(hi_mpi_vo_disable_chn(0, 0), 0);
        QCOMPARE(vx_model_vb_free_blocks(0), freeAtStart);
    }

    // What the new calls give for wrong ids, missing records and wrong
    // states; every call is logged and can be made to fail.
    void errors()
    {
        boot();
        hi_vo_pub_attr pub = {};
        hi_vo_chn_attr chnAttr = {};
        chnAttr.rect = {0, 0, 64, 64};
        hi_video_frame_info frame = {};
        hi_vo_chn_status status = {};
        hi_tde_surface surface = {};
        hi_tde_rect rect = {0, 0, 8, 8}, empty = {0, 0, 0, 8};
        const hi_tde_single_src single = {&surface, &surface, &rect, &rect}, nullSrc = {nullptr, &surface, &rect, &rect};
        const hi_tde_none_src none = {&surface, &rect}, noneEmpty = {&surface, &empty};
        const hi_vdec_chn_pool commonPool = {0, HI_VB_INVALID_POOL_ID};
        hi_vdec_chn_attr vdecAttr = {};
        vdecAttr.type = HI_PT_H264;
        vdecAttr.pic_width = vdecAttr.pic_height = 64;
        vdecAttr.stream_buf_size = 4096;
        vdecAttr.frame_buf_cnt = 2;
        QCOMPARE(hi_mpi_vdec_create_chn(2, &vdecAttr), 0);
        const struct {
            const char *what;
            std::function<hi_s32()> call;
            hi_s32 expected;
        } rows[] = {
            {"pub attr dev", [&] { return hi_mpi_vo_set_pub_attr(4, &pub); }, HI_ERR_VO_INVALID_DEV_ID},
            {"pub attr null", [&] { return hi_mpi_vo_set_pub_attr(0, nullptr); }, HI_ERR_VO_NULL_PTR},
            {"pub attr sync", [&] { pub.intf_sync = hi_vo_intf_sync(2); return hi_mpi_vo_set_pub_attr(0, &pub); },
             HI_ERR_VO_ILLEGAL_PARAM},
            {"enable unset", [&] { return hi_mpi_vo_enable(1); }, HI_ERR_VO_NOT_CFG},
            {"layer unset", [&] { return hi_mpi_vo_enable_video_layer(1); }, HI_ERR_VO_NOT_CFG},
            {"layer id", [&] { return hi_mpi_vo_enable_video_layer(8); }, HI_ERR_VO_INVALID_LAYER_ID},
            {"chn id", [&] { return hi_mpi_vo_set_chn_attr(0, 64, &chnAttr); }, HI_ERR_VO_INVALID_CHN_ID},
            {"chn null", [&] { return hi_mpi_vo_set_chn_attr(0, 0, nullptr); }, HI_ERR_VO_NULL_PTR},
            {"chn rect", [&] { hi_vo_chn_attr a = chnAttr; a.rect.width = 0; return hi_mpi_vo_set_chn_attr(0, 0, &a); },
             HI_ERR_VO_ILLEGAL_PARAM},
            {"chn layer off", [&] { hi_mpi_vo_set_chn_attr(0, 0, &chnAttr); return hi_mpi_vo_enable_chn(0, 0); },
             HI_ERR_VO_NOT_ENABLE},
            {"send null", [&] { return hi_mpi_vo_send_frame(0, 0, nullptr, 0); }, HI_ERR_VO_NULL_PTR},
            {"send off", [&] { return hi_mpi_vo_send_frame(0, 0, &frame, 0); }, HI_ERR_VO_NOT_ENABLE},
            {"status off", [&] { return hi_mpi_vo_query_chn_status(0, 0, &status); }, HI_ERR_VO_NOT_ENABLE},
            {"unbind layer", [&] { return hi_mpi_vo_unbind_layer(0, 1); }, HI_ERR_VO_NOT_BINDED},
            {"tde closed", [&] { return hi_tde_quick_fill(1, &none, 0); }, HI_ERR_TDE_DEV_NOT_OPEN},
            {"tde open", [&] { return hi_tde_open(); }, HI_SUCCESS},
            {"tde handle", [&] { return hi_tde_quick_copy(99, &single); }, HI_ERR_TDE_INVALID_HANDLE},
            {"tde null", [&] { return hi_tde_quick_resize(hi_tde_begin_job(), &nullSrc); }, HI_ERR_TDE_NULL_PTR},
            {"tde empty rect", [&] { return hi_tde_quick_fill(hi_tde_begin_job(), &noneEmpty, 0); },
             HI_ERR_TDE_INVALID_PARA},
            {"tde not in memory",
             [&] {
                 const hi_s32 job = hi_tde_begin_job();
                 hi_tde_quick_fill(job, &none, 0);
                 return hi_tde_end_job(job, HI_TRUE, HI_TRUE, 10);
             },
             HI_ERR_TDE_INVALID_PARA},
            {"tde cancel", [&] { return hi_tde_cancel_job(hi_tde_begin_job()); }, HI_SUCCESS},
            {"vdec fd id", [&] { return hi_mpi_vdec_get_fd(64); }, HI_ERR_VDEC_INVALID_CHN_ID},
            {"vdec fd unmade", [&] { return hi_mpi_vdec_get_fd(3); }, HI_ERR_VDEC_UNEXIST},
            {"vdec attach null", [&] { return hi_mpi_vdec_attach_vb_pool(2, nullptr); }, HI_ERR_VDEC_NULL_PTR},
            {"vdec attach common", [&] { return hi_mpi_vdec_attach_vb_pool(2, &commonPool); }, HI_ERR_VDEC_ILLEGAL_PARAM},
            {"vdec detach none", [&] { return hi_mpi_vdec_detach_vb_pool(2); }, HI_ERR_VDEC_NOT_PERM},
        };
        for (const auto &row : rows) {
            const hi_s32 got = row.call();
            QVERIFY2(got == row.expected, qPrintable(QString("%1: %2, not %3").arg(row.what).arg(got, 0, 16).arg(row.expected, 0, 16)));
        }

        // A pool the user made takes the decoder's pictures.
        hi_vb_pool_cfg poolCfg = {};
        poolCfg.blk_size = 64 * 64 * 3 / 2;
        poolCfg.blk_cnt = 2;
        const hi_vdec_chn_pool own = {hi_mpi_vb_create_pool(&poolCfg), HI_VB_INVALID_POOL_ID};
        QCOMPARE(hi_mpi_vdec_attach_vb_pool(2, &own), 0);
        QCOMPARE(hi_mpi_vdec_detach_vb_pool(2), 0);

        vx_model_clear_calls();
        vx_model_fail("hi_mpi_vo_send_frame", HI_ERR_VO_BUSY);
        vx_model_fail("hi_tde_quick_fill", HI_ERR_TDE_NULL_PTR);
        vx_model_fail("hi_mpi_vdec_get_fd", HI_ERR_VDEC_NO_MEM);
        QCOMPARE(hi_mpi_vo_send_frame(1, 2, &frame, 3), HI_ERR_VO_BUSY);
        QCOMPARE(hi_tde_quick_fill(5, &none, 0xff), HI_ERR_TDE_NULL_PTR);
        QCOMPARE(hi_mpi_vdec_get_fd(2), HI_ERR_VDEC_NO_MEM);
        QCOMPARE(hi_mpi_vdec_get_fd(2) >= 0, true);
        QCOMPARE(QStringList({"hi_mpi_vo_send_frame(1,2,0x0,3)", "hi_tde_quick_fill(5,0xff)", "hi_mpi_vdec_get_fd(2)",
                              "hi_mpi_vdec_get_fd(2)"}),
                 [] {
                     QStringList out;
                     for (const std::string &call : vx_model_calls())
                         out << QString::fromStdString(call);
                     return out;
                 }());
        QCOMPARE(hi_mpi_vdec_destroy_chn(2), 0);
        hi_tde_close();
    }
};

QTEST_GUILESS_MAIN(tst_MpiVo)
#include "tst_mpivo.moc"
