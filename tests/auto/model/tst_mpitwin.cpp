#include <QtTest>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vpss.h"
#include "vx_mpi_model.h"

// Frames through the platform model, checked by what is in them: the test
// pattern's frame number and colours after capture and after VPSS.

static const hi_u32 kW = 192, kH = 128;
static const hi_s32 kWait = 5000; // a bound on a call that must succeed

// Reads the frame number from the pattern's strip, -1 when no strip is
// there; @p mirrored and @p flipped say how the picture was turned.
static int frameNumber(const hi_video_frame &f, bool mirrored = false, bool flipped = false)
{
    const auto *y = static_cast<const unsigned char *>(hi_mpi_sys_mmap(f.phys_addr[0], f.stride[0] * f.height));
    if (!y)
        return -1;
    const hi_u32 row = flipped ? f.height - 1 - f.height / 16 : f.height / 16;
    int bits[18];
    for (hi_u32 i = 0; i < 18; ++i) {
        const hi_u32 x = (2 * i + 1) * f.width / 36;
        bits[i] = y[row * f.stride[0] + (mirrored ? f.width - 1 - x : x)] > 128;
    }
    if (!bits[0] || bits[17])
        return -1;
    int n = 0;
    for (int i = 1; i <= 16; ++i)
        n = n * 2 + bits[i];
    return n;
}

// The first chroma byte of the red bottom quarter (top quarter when flipped).
static int redChroma(const hi_video_frame &f, bool flipped = false)
{
    const auto *c = static_cast<const unsigned char *>(hi_mpi_sys_mmap(f.phys_addr[1], f.stride[1] * f.height / 2));
    const hi_u32 row = (flipped ? f.height / 8 : f.height * 7 / 8) / 2;
    return c ? c[row * f.stride[1] + f.width / 2] : -1;
}

class tst_MpiTwin : public QObject
{
    Q_OBJECT

    hi_u32 blkSize = 0;

    // VB with one common pool of @p count blocks that hold a kW x kH frame.
    void boot(hi_u32 count = 24)
    {
        hi_vb_cfg cfg = {};
        cfg.max_pool_cnt = 1;
        blkSize = 256 * kH * 2;
        cfg.common_pool[0].blk_size = blkSize;
        cfg.common_pool[0].blk_cnt = count;
        QCOMPARE(vx_model_boot(&cfg), 0);
    }

    // Device 0 -> pipe 0 -> channel 0 at kW x kH, started.
    void startVi(bool mirror, bool flip, hi_pixel_format format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420, hi_u32 depth = 2)
    {
        hi_vi_dev_attr dev = {};
        dev.intf_mode = HI_VI_INTF_MODE_MIPI;
        dev.in_size = {kW, kH};
        hi_vi_pipe_attr pipe = {};
        pipe.size = {kW, kH};
        pipe.pixel_format = format;
        pipe.frame_rate_ctrl = {-1, -1};
        hi_vi_chn_attr chn = {};
        chn.size = {kW, kH};
        chn.pixel_format = format;
        chn.mirror_en = mirror ? HI_TRUE : HI_FALSE;
        chn.flip_en = flip ? HI_TRUE : HI_FALSE;
        chn.depth = depth;
        chn.frame_rate_ctrl = {-1, -1};
        QCOMPARE(hi_mpi_vi_set_dev_attr(0, &dev), 0);
        QCOMPARE(hi_mpi_vi_enable_dev(0), 0);
        QCOMPARE(hi_mpi_vi_bind(0, 0), 0);
        QCOMPARE(hi_mpi_vi_create_pipe(0, &pipe), 0);
        QCOMPARE(hi_mpi_vi_set_chn_attr(0, 0, &chn), 0);
        QCOMPARE(hi_mpi_vi_enable_chn(0, 0), 0);
        QCOMPARE(hi_mpi_vi_start_pipe(0), 0);
    }

    void stopVi()
    {
        QCOMPARE(hi_mpi_vi_disable_chn(0, 0), 0);
        QCOMPARE(hi_mpi_vi_stop_pipe(0), 0);
        QCOMPARE(hi_mpi_vi_destroy_pipe(0), 0);
        QCOMPARE(hi_mpi_vi_unbind(0, 0), 0);
        QCOMPARE(hi_mpi_vi_disable_dev(0), 0);
    }

    // Group @p grp of kW x kH with channel 0 (and 1 when @p w1 is nonzero).
    void startVpss(hi_vpss_grp grp, hi_u32 w0, hi_u32 h0, bool mirror0, hi_u32 w1 = 0, hi_u32 h1 = 0)
    {
        hi_vpss_grp_attr attr = {};
        attr.max_width = kW;
        attr.max_height = kH;
        attr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
        attr.frame_rate = {-1, -1};
        QCOMPARE(hi_mpi_vpss_create_grp(grp, &attr), 0);
        for (hi_vpss_chn c = 0; c < (w1 ? 2 : 1); ++c) {
            hi_vpss_chn_attr chn = {};
            QCOMPARE(hi_mpi_vpss_get_chn_attr(grp, c, &chn), 0);
            chn.width = c ? w1 : w0;
            chn.height = c ? h1 : h0;
            chn.mirror_en = c == 0 && mirror0 ? HI_TRUE : HI_FALSE;
            chn.chn_mode = HI_VPSS_CHN_MODE_USER;
            chn.depth = 2;
            QCOMPARE(hi_mpi_vpss_set_chn_attr(grp, c, &chn), 0);
            QCOMPARE(hi_mpi_vpss_enable_chn(grp, c), 0);
        }
        QCOMPARE(hi_mpi_vpss_start_grp(grp), 0);
    }

private slots:
    void init() { vx_model_reset(); }
    void cleanupTestCase() { vx_model_reset(); }

    // Created pools: blocks with holders, exhaustion, and a pool that cannot
    // go while a block is held.
    void pools()
    {
        boot();
        const hi_vb_pool_cfg cfg = {4096, 2, HI_VB_REMAP_MODE_NONE, {}};
        const hi_vb_pool pool = hi_mpi_vb_create_pool(&cfg);
        QVERIFY(pool != HI_VB_INVALID_POOL_ID);
        const hi_vb_blk a = hi_mpi_vb_get_blk(pool, 4096, nullptr);
        const hi_vb_blk b = hi_mpi_vb_get_blk(pool, 100, nullptr);
        QVERIFY(a != HI_VB_INVALID_HANDLE && b != HI_VB_INVALID_HANDLE);
        QCOMPARE(hi_mpi_vb_get_blk(pool, 100, nullptr), HI_VB_INVALID_HANDLE); // exhausted
        QCOMPARE(hi_mpi_vb_phys_addr_to_handle(hi_mpi_vb_handle_to_phys_addr(b) + 10), b);
        QCOMPARE(hi_mpi_vb_inquire_user_cnt(a), 1);
        QCOMPARE(hi_mpi_vb_destroy_pool(pool), HI_ERR_VB_BUSY);
        QCOMPARE(hi_mpi_vb_release_blk(a), 0);
        QCOMPARE(hi_mpi_vb_release_blk(b), 0);
        QCOMPARE(vx_model_vb_free_blocks(pool), 2);
        QCOMPARE(hi_mpi_vb_destroy_pool(pool), 0);
        QCOMPARE(vx_model_vb_free_blocks(pool), -1);
        QCOMPARE(hi_mpi_vb_destroy_pool(0), HI_ERR_VB_ILLEGAL_PARAM); // common pools go with vb_exit
    }

    // The sensor's frames: laid out as the platform lays them out, counted,
    // turned as the channel says, in the chroma order of the format.
    void sensor_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<bool>("mirror");
        QTest::addColumn<bool>("flip");
        QTest::newRow("yvu") << int(HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420) << false << false;
        QTest::newRow("yuv mirrored") << int(HI_PIXEL_FORMAT_YUV_SEMIPLANAR_420) << true << false;
        QTest::newRow("yvu flipped") << int(HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420) << false << true;
    }
    void sensor()
    {
        QFETCH(int, format);
        QFETCH(bool, mirror);
        QFETCH(bool, flip);
        boot();
        vx_model_vi_source(0, "pattern@100");
        startVi(mirror, flip, static_cast<hi_pixel_format>(format));
        hi_video_frame_info a = {}, b = {};
        QCOMPARE(hi_mpi_vi_get_chn_frame(0, 0, &a, kWait), 0);
        QCOMPARE(hi_mpi_vi_get_chn_frame(0, 0, &b, kWait), 0);
        const hi_video_frame &f = b.video_frame;
        QCOMPARE(f.width, kW);
        QCOMPARE(f.height, kH);
        QCOMPARE(f.stride[0], 192u); // a multiple of 32
        QCOMPARE(f.phys_addr[1], f.phys_addr[0] + f.stride[0] * kH);
        QCOMPARE(int(b.mod_id), int(HI_ID_VI));
        QCOMPARE(b.pool_id, 0u);
        QCOMPARE(hi_mpi_vb_inquire_user_cnt(hi_mpi_vb_phys_addr_to_handle(f.phys_addr[0])), 1);
        const int na = frameNumber(a.video_frame, mirror, flip), nb = frameNumber(f, mirror, flip);
        QVERIFY(na >= 0);
        QVERIFY(nb > na);
        QCOMPARE(f.time_ref, hi_u32(nb) * 2);
        QVERIFY(f.pts > a.video_frame.pts);
        QCOMPARE(redChroma(f, flip), format == HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420 ? 200 : 90);
        QCOMPARE(hi_mpi_vi_release_chn_frame(0, 0, &a), 0);
        QCOMPARE(hi_mpi_vi_release_chn_frame(0, 0, &a), HI_ERR_VI_ILLEGAL_PARAM); // released twice
        stopVi(); // b is still held: destroying the pipe returns it
        QCOMPARE(vx_model_vb_free_blocks(0), 24);
    }

    // VI bound to a group with two channels of different sizes, one
    // mirrored, and that group's channel 0 cascaded into a second group.
    void vpssBound()
    {
        boot();
        vx_model_vi_source(0, "pattern@100");
        startVpss(1, 128, 96, true, 96, 64);
        startVpss(2, 64, 64, false);
        const hi_mpp_chn vi = {HI_ID_VI, 0, 0}, g1 = {HI_ID_VPSS, 1, 0}, g2 = {HI_ID_VPSS, 2, 0};
        QCOMPARE(hi_mpi_sys_bind(&vi, &g1), 0);
        QCOMPARE(hi_mpi_sys_bind(&g1, &g2), 0);
        startVi(false, false);
        struct { hi_vpss_grp grp; hi_vpss_chn chn; hi_u32 w, h; bool mirrored; } outs[] = {
            {1, 0, 128, 96, true}, {1, 1, 96, 64, false}, {2, 0, 64, 64, true}};
        for (const auto &o : outs) {
            hi_video_frame_info info = {};
            QCOMPARE(hi_mpi_vpss_get_chn_frame(o.grp, o.chn, &info, kWait), 0);
            QCOMPARE(info.video_frame.width, o.w);
            QCOMPARE(info.video_frame.height, o.h);
            QCOMPARE(int(info.mod_id), int(HI_ID_VPSS));
            QVERIFY2(frameNumber(info.video_frame, o.mirrored) >= 0, qPrintable(QString::number(o.w)));
            QVERIFY(qAbs(redChroma(info.video_frame) - 200) <= 2);
            QCOMPARE(hi_mpi_vpss_release_chn_frame(o.grp, o.chn, &info), 0);
        }
        // Taken down while frames move: every block comes back.
        stopVi();
        for (hi_vpss_grp grp : {1, 2}) {
            QCOMPARE(hi_mpi_vpss_stop_grp(grp), 0);
            QCOMPARE(hi_mpi_vpss_destroy_grp(grp), 0);
        }
        QCOMPARE(vx_model_vb_free_blocks(0), 24);
    }

    // A consumer that cannot keep up loses frames, and they are counted.
    void slowConsumer()
    {
        boot();
        vx_model_vi_source(0, "pattern@200");
        startVpss(1, 96, 64, false);
        QVERIFY(vx_model_vpss_pause(1, true));
        const hi_mpp_chn vi = {HI_ID_VI, 0, 0}, g1 = {HI_ID_VPSS, 1, 0};
        QCOMPARE(hi_mpi_sys_bind(&vi, &g1), 0);
        startVi(false, false);
        QTRY_VERIFY_WITH_TIMEOUT(vx_model_bind_drops(&g1) >= 2, kWait);
        QVERIFY(vx_model_vpss_pause(1, false));
        hi_video_frame_info info = {};
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 0, &info, kWait), 0);
        QCOMPARE(hi_mpi_vpss_release_chn_frame(1, 0, &info), 0);
    }

    // The errors of the frame calls, and fault injection on them.
    void errors()
    {
        boot(4);
        startVpss(1, 96, 64, false);
        hi_video_frame_info info = {};
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 0, &info, 0), HI_ERR_VPSS_BUF_EMPTY);
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 0, &info, 20), HI_ERR_VPSS_BUF_EMPTY); // after its timeout
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 0, nullptr, 0), HI_ERR_VPSS_NULL_PTR);
        QCOMPARE(hi_mpi_vpss_get_chn_frame(3, 0, &info, 0), HI_ERR_VPSS_UNEXIST);
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 2, &info, 0), HI_ERR_VPSS_NOT_PERM); // not enabled
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 4, &info, 0), HI_ERR_VPSS_INVALID_CHN_ID);
        QCOMPARE(hi_mpi_vpss_release_chn_frame(1, 0, &info), HI_ERR_VPSS_ILLEGAL_PARAM);
        info.video_frame.width = 96; // not in a VB block
        info.video_frame.height = 64;
        info.video_frame.stride[0] = info.video_frame.stride[1] = 96;
        info.video_frame.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
        QCOMPARE(hi_mpi_vpss_send_frame(1, &info, 0), HI_ERR_VPSS_ILLEGAL_PARAM);
        const hi_vb_blk blk = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 4096, nullptr);
        info.video_frame.phys_addr[0] = hi_mpi_vb_handle_to_phys_addr(blk); // chroma past the block's end
        info.video_frame.phys_addr[1] = info.video_frame.phys_addr[0] + blkSize - 96;
        QCOMPARE(hi_mpi_vpss_send_frame(1, &info, 0), HI_ERR_VPSS_ILLEGAL_PARAM);
        QCOMPARE(hi_mpi_vb_release_blk(blk), 0);
        QCOMPARE(hi_mpi_vi_get_chn_frame(0, 0, &info, 0), HI_ERR_VI_NOT_CFG);
        vx_model_vi_source(0, "camera");
        hi_vi_dev_attr dev = {};
        dev.in_size = {kW, kH};
        QCOMPARE(hi_mpi_vi_set_dev_attr(0, &dev), 0);
        QCOMPARE(hi_mpi_vi_enable_dev(0), HI_ERR_VI_NOT_SUPPORT);
        vx_model_clear_calls();
        vx_model_fail("hi_mpi_vpss_get_chn_frame", HI_ERR_VPSS_BUSY);
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 0, &info, -1), HI_ERR_VPSS_BUSY);
        QCOMPARE(vx_model_calls(), std::vector<std::string>({"hi_mpi_vpss_get_chn_frame(1,0,-1)"}));
    }

    // A frame sent by the user is scaled, and the sender's block is held
    // only while the group works on it.
    void sendFrame()
    {
        boot(4);
        startVpss(1, 96, 64, false);
        const hi_vb_blk blk = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, kW * kH * 3 / 2, nullptr);
        hi_video_frame_info in = {};
        hi_video_frame &f = in.video_frame;
        f.width = kW;
        f.height = kH;
        f.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
        f.stride[0] = f.stride[1] = kW;
        f.phys_addr[0] = hi_mpi_vb_handle_to_phys_addr(blk);
        f.phys_addr[1] = f.phys_addr[0] + kW * kH;
        auto *y = static_cast<unsigned char *>(hi_mpi_sys_mmap(f.phys_addr[0], kW * kH * 3 / 2));
        memset(y, 200, kW * kH);
        memset(y + kW * kH, 128, kW * kH / 2);
        f.pts = 1234;
        QCOMPARE(hi_mpi_vpss_send_frame(1, &in, kWait), 0);
        hi_video_frame_info out = {};
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 0, &out, kWait), 0);
        QCOMPARE(out.video_frame.pts, 1234ull);
        QCOMPARE(out.video_frame.width, 96u);
        const auto *o = static_cast<const unsigned char *>(hi_mpi_sys_mmap(out.video_frame.phys_addr[0], 96 * 64));
        QCOMPARE(int(o[96 * 32 + 48]), 200);
        QCOMPARE(hi_mpi_vb_release_blk(blk), 0);
        QCOMPARE(hi_mpi_vpss_release_chn_frame(1, 0, &out), 0);
        QCOMPARE(vx_model_vb_free_blocks(0), 4);
    }
};

QTEST_GUILESS_MAIN(tst_MpiTwin)
#include "tst_mpitwin.moc"
