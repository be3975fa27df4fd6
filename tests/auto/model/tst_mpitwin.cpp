#include <QtTest>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vpss.h"
#include "mediaprobe.h"
#include "modeltest.h"
#include "vx_mpi_model.h"

// Frames through the platform model, checked by what is in them: the test
// pattern's frame number and colours after capture and after VPSS.

static const hi_u32 kW = 192, kH = 128;
static const hi_s32 kWait = 5000; // a bound on a call that must succeed

using namespace ModelTest;

class tst_MpiTwin : public QObject
{
    Q_OBJECT

    hi_u32 blkSize = 0;

    // VB with one common pool of @p count blocks that hold a kW x kH frame.
    void boot(hi_u32 count = 24)
    {
        blkSize = 256 * kH * 2;
        QCOMPARE(ModelTest::boot(blkSize, count), 0);
    }

    // Device 0 -> pipe 0 -> channel 0 at kW x kH, started.
    void startVi(bool mirror, bool flip, hi_pixel_format format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420, hi_u32 depth = 2)
    {
        ViAttrs a = viAttrs(kW, kH, format);
        a.chn.mirror_en = mirror ? HI_TRUE : HI_FALSE;
        a.chn.flip_en = flip ? HI_TRUE : HI_FALSE;
        a.chn.depth = depth;
        QCOMPARE(ModelTest::startVi(a), 0);
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
        hi_vi_dev_attr dev = {};
        dev.in_size = {kW, kH};
        QCOMPARE(hi_mpi_vi_set_dev_attr(0, &dev), 0);
        // Sources that are unknown or cannot be opened: refused when the device is enabled.
        for (const char *bad : {"sensor", "pattern@0", "pattern@x", "file:", "file:/no/such/file.mkv@25",
                                "camera:/dev/no-such-camera"}) {
            vx_model_vi_source(0, bad);
            QVERIFY2(hi_mpi_vi_enable_dev(0) == HI_ERR_VI_NOT_SUPPORT, bad);
        }
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
        hi_video_frame_info in = frameIn(blk, kW, kH);
        hi_video_frame &f = in.video_frame;
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

    // A media file as the sensor: its pictures scaled to the channel,
    // one per sensor period from its start again at its end, as ffmpeg
    // decodes and scales them.
    void fileSource()
    {
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg makes the file");
        QTemporaryDir dir;
        const QString file = dir.filePath("in.mkv"), ref = dir.filePath("ref.nv21");
        const int pictures = 5;
        QString error;
        QVERIFY2(MediaProbe::ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-frames:v",
                                     QString::number(pictures), "-c:v", "ffv1", file},
                                    &error),
                 qPrintable(error));
        QVERIFY(MediaProbe::ffmpeg({"-i", file, "-vf", QString("scale=%1:%2").arg(kW).arg(kH), "-f", "rawvideo",
                                    "-pix_fmt", "nv21", ref}));
        QFile refFile(ref);
        QVERIFY(refFile.open(QIODevice::ReadOnly));
        const QByteArray expected = refFile.readAll();
        const int bytes = int(kW * kH * 3 / 2);
        QCOMPARE(expected.size(), bytes * pictures);

        boot();
        vx_model_vi_source(0, qPrintable("file:" + file + "@50"));
        startVi(false, false, HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420, 8);
        hi_u64 lastPts = 0;
        hi_u32 lastN = 0;
        bool looped = false;
        for (int i = 0; i < 3 * pictures && !looped; ++i) {
            hi_video_frame_info info = {};
            QCOMPARE(hi_mpi_vi_get_chn_frame(0, 0, &info, kWait), 0);
            const hi_video_frame &f = info.video_frame;
            const hi_u32 n = f.time_ref / 2;
            QCOMPARE(f.width, kW);
            QVERIFY(f.pts > lastPts && (i == 0 || n > lastN));
            const double db = psnr(packed(f), expected.mid(int(n % pictures) * bytes, bytes));
            QVERIFY2(db >= 35, qPrintable(QString("frame %1: %2 dB").arg(n).arg(db)));
            looped = n >= hi_u32(pictures);
            lastPts = f.pts;
            lastN = n;
            QCOMPARE(hi_mpi_vi_release_chn_frame(0, 0, &info), 0);
        }
        QVERIFY(looped);
        stopVi();
        QCOMPARE(vx_model_vb_free_blocks(0), 24);
    }

    // Fixed rotation: a quarter turn swaps the channel's width and height;
    // the pattern's markers and red quarter land where the turn puts them.
    void rotation_data()
    {
        QTest::addColumn<int>("angle");
        QTest::addColumn<int>("turns"); // clockwise quarter turns
        QTest::newRow("0") << int(HI_ROTATION_0) << 0;
        QTest::newRow("90") << int(HI_ROTATION_90) << 1;
        QTest::newRow("180") << int(HI_ROTATION_180) << 2;
        QTest::newRow("270") << int(HI_ROTATION_270) << 3;
    }
    void rotation()
    {
        QFETCH(int, angle);
        QFETCH(int, turns);
        boot();
        vx_model_vi_source(0, "pattern@100");
        startVpss(1, 96, 64, false);
        hi_rotation_attr rot = {};
        rot.enable = HI_TRUE;
        rot.rotation_type = HI_ROTATION_ANG_FIXED;
        rot.rotation_fixed = hi_rotation(angle);
        QCOMPARE(hi_mpi_vpss_set_chn_rotation(1, 0, &rot), 0);
        const hi_mpp_chn vi = {HI_ID_VI, 0, 0}, g1 = {HI_ID_VPSS, 1, 0};
        QCOMPARE(hi_mpi_sys_bind(&vi, &g1), 0);
        startVi(false, false);
        hi_video_frame_info info = {};
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 0, &info, kWait), 0);
        const hi_video_frame &f = info.video_frame;
        QCOMPARE(f.width, turns % 2 ? 64u : 96u);
        QCOMPARE(f.height, turns % 2 ? 96u : 64u);
        // Where a point (x, y) of the unturned picture lies after the turn.
        const auto turned = [turns](double x, double y) {
            for (int i = 0; i < turns; ++i)
                std::tie(x, y) = std::make_pair(1 - y, x);
            return std::make_pair(x, y);
        };
        const auto white = turned(1 / 36.0, 1 / 16.0), black = turned(35 / 36.0, 1 / 16.0), red = turned(0.5, 7 / 8.0);
        QVERIFY(lumaAt(f, white.first, white.second) > 200);
        QVERIFY(lumaAt(f, black.first, black.second) < 40);
        QVERIFY(qAbs(chromaAt(f, red.first, red.second) - 200) <= 4);
        QCOMPARE(hi_mpi_vpss_get_chn_rotation(1, 0, &rot), 0);
        QCOMPARE(int(rot.rotation_fixed), angle);
        QCOMPARE(hi_mpi_vpss_release_chn_frame(1, 0, &info), 0);
        stopVi();
        QCOMPARE(hi_mpi_vpss_stop_grp(1), 0);
        QCOMPARE(hi_mpi_vpss_destroy_grp(1), 0);
        QCOMPARE(vx_model_vb_free_blocks(0), 24);
    }

    // A sensor frame scaled by VPSS against ffmpeg's scale of the same
    // frame: the same picture within 35 dB.
    void scalesLikeFfmpeg_data()
    {
        QTest::addColumn<int>("w");
        QTest::addColumn<int>("h");
        QTest::newRow("half") << 96 << 64;
        QTest::newRow("uneven") << 136 << 88;
        QTest::newRow("squeezed") << 64 << 112;
    }
    void scalesLikeFfmpeg()
    {
        QFETCH(int, w);
        QFETCH(int, h);
        if (!MediaProbe::toolsAvailable())
            QSKIP("ffmpeg is the judge");
        boot();
        vx_model_vi_source(0, "pattern@100");
        startVpss(1, hi_u32(w), hi_u32(h), false);
        startVi(false, false);
        hi_video_frame_info in = {}, out = {};
        QCOMPARE(hi_mpi_vi_get_chn_frame(0, 0, &in, kWait), 0);
        QCOMPARE(hi_mpi_vpss_send_frame(1, &in, kWait), 0);
        QCOMPARE(hi_mpi_vpss_get_chn_frame(1, 0, &out, kWait), 0);
        QTemporaryDir dir;
        QFile src(dir.filePath("in.nv21")), ref(dir.filePath("ref.nv21"));
        QVERIFY(src.open(QIODevice::WriteOnly));
        src.write(packed(in.video_frame));
        src.close();
        QString error;
        QVERIFY2(MediaProbe::ffmpeg({"-f", "rawvideo", "-pix_fmt", "nv21", "-s", QString("%1x%2").arg(kW).arg(kH), "-i",
                                     src.fileName(), "-vf", QString("scale=%1:%2").arg(w).arg(h), "-f", "rawvideo",
                                     "-pix_fmt", "nv21", ref.fileName()},
                                    &error),
                 qPrintable(error));
        QVERIFY(ref.open(QIODevice::ReadOnly));
        const double db = psnr(packed(out.video_frame), ref.readAll());
        QVERIFY2(db >= 35, qPrintable(QString::number(db)));
        QCOMPARE(hi_mpi_vpss_release_chn_frame(1, 0, &out), 0);
        QCOMPARE(hi_mpi_vi_release_chn_frame(0, 0, &in), 0);
    }
};

QTEST_GUILESS_MAIN(tst_MpiTwin)
#include "tst_mpitwin.moc"
