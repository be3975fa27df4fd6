// The platform glue against the platform model: VexaHi's binding, PTS
// clock, blank frames, media memory and tee registry, and the vx_ helpers;
// the VPSS tee classes: HiVpss groups and their failures, VexaTee outputs,
// groups and threads, VexaTeeChn crop and rotation.

#include <QPointer>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "hi_mpi_tde.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_venc.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vo.h"
#include "hivpss.h"
#include "platformtest.h"
#include "vexahi.h"
#include "vexatee.h"
#include "vexateechn.h"
#include "vx_mpi.h"

using namespace PlatformTest;

// QP limits (max, min, max I, min I) of the codec's part of the record for
// one rate-control mode.
static hi_u32 *qpLimits(hi_venc_rc_param &rc, const QString &codec, const QString &mode)
{
    const bool h264 = codec == "h264";
    if (mode == "vbr")
        return h264 ? &rc.h264_vbr_param.max_qp : &rc.h265_vbr_param.max_qp;
    if (mode == "cbr")
        return h264 ? &rc.h264_cbr_param.max_qp : &rc.h265_cbr_param.max_qp;
    return h264 ? &rc.h264_avbr_param.max_qp : &rc.h265_avbr_param.max_qp;
}

using Chns = std::vector<std::unique_ptr<VexaTeeChn>>;
using VpssCall = std::function<bool(HiVpss &)>;
Q_DECLARE_METATYPE(VpssCall)
using ChnCall = std::function<bool(VexaTeeChn &)>;
Q_DECLARE_METATYPE(ChnCall)

static Chns newChns(VexaTee &tee, int count, bool userMode = false)
{
    Chns out;
    for (int i = 0; i < count; ++i)
        out.emplace_back(tee.newChn(userMode, false));
    return out;
}

// Where each output is, as "group.channel".
static QString where(const Chns &chns)
{
    QStringList out;
    for (const auto &chn : chns)
        out << QString("%1.%2").arg(chn->getChn().dev_id).arg(chn->getChn().chn_id);
    return out.join(' ');
}

// The channels of groups 4 and 5 the platform has enabled, as "group.channel".
static QString enabled()
{
    QStringList out;
    for (int i = 0; i < 8; ++i) {
        if (vx_model_vpss_chn_enabled(4 + i / 4, i % 4))
            out << QString("%1.%2").arg(4 + i / 4).arg(i % 4);
    }
    return out.join(' ');
}

// The group crop in one line: "on|off abs|ratio x,y WxH".
static QString cropState(int grp)
{
    auto c = filled<hi_vpss_crop_info>();
    hi_mpi_vpss_get_grp_crop(grp, &c);
    return QString("%1 %2 %3,%4 %5x%6")
        .arg(c.enable ? "on" : "off").arg(c.crop_mode == HI_COORD_RATIO ? "ratio" : "abs").arg(c.crop_rect.x)
        .arg(c.crop_rect.y).arg(c.crop_rect.width).arg(c.crop_rect.height);
}

class tst_Platform : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(boot()); }

    void cleanup()
    {
        VexaHi::absPTS = false;
        VexaHi::setPTSOffset(0);
        VexaHi::mmzMap.clear();
    }

    // A destination keeps one source without the caller unbinding; module
    // 87 only clears it.
    void bind_data()
    {
        QTest::addColumn<QList<int>>("before"); // source already bound to {7,4,0}, or empty
        QTest::addColumn<QList<int>>("src");
        QTest::addColumn<QString>("message"); // a refused bind logs its status and six arguments
        QTest::addColumn<QStringList>("expectedCalls");
        QTest::addColumn<QString>("after");

        const QString lookup = "hi_mpi_sys_get_bind_by_dst({7,4,0})";
        const QString bind = "hi_mpi_sys_bind({16,0,0},{7,4,0})";
        const QString unbind = "hi_mpi_sys_unbind({16,0,1},{7,4,0})";
        const QList<int> vi0{16, 0, 0}, vi1{16, 0, 1}, none{87, 0, 0};
        QTest::newRow("new") << QList<int>() << vi0 << "" << QStringList{lookup, bind} << "{16,0,0}";
        QTest::newRow("same source is kept") << vi0 << vi0 << "" << QStringList{lookup} << "{16,0,0}";
        QTest::newRow("other source is replaced") << vi1 << vi0 << "" << QStringList{lookup, unbind, bind}
                                                  << "{16,0,0}";
        QTest::newRow("87 clears") << vi1 << none << "" << QStringList{lookup, unbind} << "none";
        QTest::newRow("refused") << QList<int>() << QList<int>{16, 1, 2}
                                 << "HI_MPI_SYS_Bind failed with 0xa0028007 16 1 2 7 4 0"
                                 << QStringList{lookup, "hi_mpi_sys_bind({16,1,2},{7,4,0})"} << "none";
    }

    void bind()
    {
        QFETCH(QList<int>, before);
        QFETCH(QList<int>, src);
        QFETCH(QString, message);
        QFETCH(QStringList, expectedCalls);
        QFETCH(QString, after);

        if (!before.isEmpty()) {
            const hi_mpp_chn old = {hi_mod_id(before[0]), before[1], before[2]}, dst = {HI_ID_VPSS, 4, 0};
            QCOMPARE(hi_mpi_sys_bind(&old, &dst), 0);
            vx_model_clear_calls();
        }
        inject(message.isEmpty() ? QString() : "hi_mpi_sys_bind", HI_ERR_SYS_ILLEGAL_PARAM, message);
        QCOMPARE(VexaHi::bind(src[0], src[1], src[2], 7, 4, 0), message.isEmpty());
        QCOMPARE(calls(), expectedCalls);
        QCOMPARE(boundSource(7, 4, 0), after);
    }

    // The offset is added on request, in 64 bits and with its sign, unless
    // absPTS asks for the raw clock.
    void pts()
    {
        vx_model_set_cur_pts(1000000);
        const auto read = [](qint64 offset, bool withOffset) {
            VexaHi::setPTSOffset(offset);
            quint64 pts = 0;
            VexaHi::getPTS(&pts, withOffset);
            return pts;
        };
        QCOMPARE(read(500, false), 1000000ull);
        QCOMPARE(read(500, true), 1000500ull);
        QCOMPARE(read(-1000, true), 999000ull);
        QCOMPARE(read(qint64(1) << 40, true), (1ull << 40) + 1000000);
        VexaHi::absPTS = true;
        QCOMPARE(read(500, true), 1000000ull);
        QCOMPARE(VexaHi::getPTSOffset(), qint64(500));
    }

    // A frame is a mid-grey semi-planar picture in one block. Each failing
    // step logs its own message and gives a zeroed record; from the moment
    // the block is taken the caller holds its handle.
    void makeFrame_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("stride");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("message"); // empty: the frame is made
        QTest::addColumn<bool>("handleGiven");

        QTest::newRow("1080p") << 1920 << 1920 << "" << "" << true;
        QTest::newRow("width rounded up") << 1918 << 1920 << "" << "" << true;
        QTest::newRow("small") << 100 << 112 << "" << "" << true;
        QTest::newRow("no block") << 640 << 0 << "hi_mpi_vb_get_blk" << "HI_MPI_VB_GetBlock failed" << false;
        QTest::newRow("no pool") << 640 << 0 << "hi_mpi_vb_handle_to_pool_id" << "HI_MPI_VB_Handle2PoolId failed"
                                 << true;
        QTest::newRow("no address") << 640 << 0 << "hi_mpi_vb_handle_to_phys_addr"
                                    << "HI_MPI_VB_Handle2PhysAddr failed" << true;
        QTest::newRow("no mapping") << 640 << 0 << "hi_mpi_sys_mmap" << "HI_MPI_SYS_Mmap failed" << true;
        QTest::newRow("too large for any pool") << 8192 << 0 << "" << "HI_MPI_VB_GetBlock failed" << false;
        QTest::newRow("no size") << 0 << 0 << "" << "VexaHi::makeFrame: bad frame size 0x1080" << false;
    }

    void makeFrame()
    {
        QFETCH(int, width);
        QFETCH(int, stride);
        QFETCH(QString, fault);
        QFETCH(QString, message);
        QFETCH(bool, handleGiven);

        inject(fault, -1, message);
        unsigned int blk = 0xdeadbeef;
        const hi_video_frame_info info = VexaHi::makeFrame(width, 1080, &blk);
        QCOMPARE(blk != 0xdeadbeef, handleGiven);
        if (!message.isEmpty()) {
            const auto zero = filled<hi_video_frame_info>();
            QVERIFY(std::memcmp(&info, &zero, sizeof(zero)) == 0);
            return;
        }

        const int luma = stride * 1080;
        const int bytes = luma * 3 / 2;
        QCOMPARE(calls("hi_mpi_vb_get_blk"), QStringList{QString("hi_mpi_vb_get_blk(-1,%1,null)").arg(bytes)});
        const hi_video_frame &f = info.video_frame; // width, height, field, format, gamut, strides, module
        QCOMPARE(QList<qint64>({f.width, f.height, f.field, f.pixel_format, f.color_gamut, f.stride[0], f.stride[1],
                                info.mod_id}),
                 QList<qint64>({width, 1080, 4, 28, 1, stride, stride, 7}));
        QCOMPARE(f.phys_addr[0], hi_mpi_vb_handle_to_phys_addr(blk));
        QCOMPARE(f.phys_addr[1], f.phys_addr[0] + luma);
        QCOMPARE(static_cast<char *>(f.virt_addr[1]), static_cast<char *>(f.virt_addr[0]) + luma);
        QCOMPARE(info.pool_id, hi_mpi_vb_handle_to_pool_id(blk));

        // The whole picture is mid-grey, and nothing past it was written.
        const unsigned char *p = static_cast<const unsigned char *>(f.virt_addr[0]);
        QVERIFY(std::all_of(p, p + bytes, [](unsigned char c) { return c == 0x80; }));
        QCOMPARE(int(static_cast<const unsigned char *>(hi_mpi_sys_mmap(f.phys_addr[0], bytes + 1))[bytes]), 0);
    }

    // Every block handed out is recorded under its physical address, even
    // from a failed allocation; mmzFree forgets an address whatever the
    // platform answers; mmzClear frees the rest in ascending order.
    void mmz()
    {
        unsigned int phys[2] = {};
        void *virt[2] = {};
        QCOMPARE(VexaHi::mmzAlloc(&phys[0], &virt[0], 8192, false, "osd", "anonymous"), 0);
        QCOMPARE(VexaHi::mmzAlloc(&phys[1], &virt[1], 4096, true, nullptr, nullptr), 0);
        QCOMPARE(calls(), QStringList({"hi_mpi_sys_mmz_alloc(osd,anonymous,8192)",
                                       "hi_mpi_sys_mmz_alloc_cached(null,null,4096)"}));
        QVERIFY(virt[0] && virt[1]);
        QCOMPARE(VexaHi::mmzMap.value(phys[0]), virt[0]);
        QCOMPARE(VexaHi::mmzMap.value(phys[1]), virt[1]);
        std::sort(phys, phys + 2);

        vx_model_fail("hi_mpi_sys_mmz_alloc", HI_ERR_SYS_NO_MEM);
        unsigned int stalePhys = 0x1234;
        void *staleVirt = &stalePhys;
        QCOMPARE(VexaHi::mmzAlloc(&stalePhys, &staleVirt, 4096, false, "osd", nullptr), HI_ERR_SYS_NO_MEM);
        QCOMPARE(VexaHi::mmzMap.value(0x1234), static_cast<void *>(&stalePhys));

        vx_model_clear_calls();
        QVERIFY(VexaHi::mmzFree(0x1234, nullptr) != 0);
        QCOMPARE(calls(), QStringList{"hi_mpi_sys_mmz_free(0x1234,null)"});
        QCOMPARE(VexaHi::mmzMap.keys(), QList<unsigned int>({phys[0], phys[1]}));

        vx_model_clear_calls();
        VexaHi::mmzClear();
        const QString free = "hi_mpi_sys_mmz_free(0x%1,virt)";
        QCOMPARE(calls(), QStringList({free.arg(phys[0], 0, 16), free.arg(phys[1], 0, 16)}));
        QVERIFY(VexaHi::mmzMap.isEmpty());
        QCOMPARE(vx_model_mmz_count(), 0);
    }

    // The registry owns its tees: an unknown id is never inserted, a tee it
    // does not hold is left alone.
    void teeRegistry()
    {
        VexaTee *a = VexaHi::newTee(16, 0, 1);
        QCOMPARE(VexaHi::getTee(VexaHi::newTee(vx_mpp_chn{16, 0, 2})->getId())->getSource().chn_id, 2);
        QCOMPARE(VexaHi::getTee(999), nullptr);
        QPointer<VexaTee> stray = new VexaTee();
        VexaHi::delTee(stray);
        QVERIFY(stray);
        delete stray;
        QPointer<VexaTee> gone = a;
        VexaHi::delTee(a);
        QVERIFY(!gone);
        QCOMPARE(VexaHi::teeMap.size(), 1);
        VexaHi::delTee(VexaHi::teeMap.first());
        QVERIFY(VexaHi::teeMap.isEmpty());
    }

    // Only the limits of the named codec and mode change, over a record
    // whose every byte is 0x01.
    void rcParam_data()
    {
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<bool>("touched");      // the record is read and written
        QTest::addColumn<QList<int>>("limits"); // max, min, max I, min I; -1 = unchanged; empty = no change
        QTest::addColumn<bool>("saveBitrate");
        QTest::addColumn<QString>("message"); // the write is made to fail

        const int keep = -1;
        const QList<int> floor{keep, 16, keep, 16};
        QTest::newRow("h265 vbr") << QVariantMap{{"codec", "h265"}, {"rcmode", "vbr"}, {"minqp", 20}, {"maxqp", 45}}
                                  << true << QList<int>{45, 20, 45, 20} << false << "";
        QTest::newRow("h264 vbr without limits") << QVariantMap{{"codec", "h264"}, {"rcmode", "vbr"}} << true
                                                 << QList<int>{0, 0, 0, 0} << false << "";
        QTest::newRow("h264 cbr floors at 16") << QVariantMap{{"codec", "h264"}, {"rcmode", "cbr"}, {"minqp", 30}}
                                               << true << floor << false << "";
        QTest::newRow("h265 cbr") << QVariantMap{{"codec", "h265"}, {"rcmode", "cbr"}} << true << floor << false << "";
        QTest::newRow("h264 avbr") << QVariantMap{{"codec", "h264"}, {"rcmode", "avbr"}, {"maxqp", 40}} << true
                                   << floor << true << "";
        QTest::newRow("h265 avbr") << QVariantMap{{"codec", "h265"}, {"rcmode", "avbr"}} << true << floor << false
                                   << "";
        QTest::newRow("unknown mode") << QVariantMap{{"codec", "h264"}, {"rcmode", ""}} << true << QList<int>() << false
                                      << "";
        QTest::newRow("codec case matters") << QVariantMap{{"codec", "H264"}, {"rcmode", "vbr"}} << false
                                            << QList<int>() << false << "";
        QTest::newRow("write refused") << QVariantMap{{"codec", "h264"}, {"rcmode", "cbr"}} << true << QList<int>()
                                       << false << "hi_mpi_venc_set_rc_param [3] faild with 0xa0088007";
    }

    void rcParam()
    {
        QFETCH(QVariantMap, settings);
        QFETCH(bool, touched);
        QFETCH(QList<int>, limits);
        QFETCH(bool, saveBitrate);
        QFETCH(QString, message);

        auto expected = filled<hi_venc_rc_param>(0x01);
        QCOMPARE(hi_mpi_venc_set_rc_param(3, &expected), 0);
        vx_model_clear_calls();
        inject(message.isEmpty() ? QString() : "hi_mpi_venc_set_rc_param", HI_ERR_VENC_ILLEGAL_PARAM, message);
        vx_mpi_venc_set_rc_param(3, settings);
        QCOMPARE(calls(), touched ? QStringList({"hi_mpi_venc_get_rc_param(3)", "hi_mpi_venc_set_rc_param(3)"})
                                  : QStringList());

        hi_u32 *qp = qpLimits(expected, settings["codec"].toString(), settings["rcmode"].toString());
        for (int i = 0; i < limits.size(); ++i) {
            if (limits[i] != -1)
                qp[i] = hi_u32(limits[i]);
        }
        if (saveBitrate)
            expected.h264_avbr_param.save_bitrate_en = HI_TRUE;
        hi_venc_rc_param got;
        QCOMPARE(hi_mpi_venc_get_rc_param(3, &got), 0);
        QVERIFY(std::memcmp(&got, &expected, sizeof(got)) == 0);
    }

    void vuiDisable_data()
    {
        QTest::addColumn<QString>("codec");
        QTest::addColumn<int>("h264Flag");
        QTest::addColumn<int>("h265Flag");

        QTest::newRow("h264") << "h264" << 0 << 1;
        QTest::newRow("h265") << "h265" << 1 << 0;
        QTest::newRow("other") << "mjpeg" << 1 << 1;
    }

    void vuiDisable()
    {
        QFETCH(QString, codec);
        QFETCH(int, h264Flag);
        QFETCH(int, h265Flag);

        auto v264 = filled<hi_venc_h264_vui>(0x01);
        auto v265 = filled<hi_venc_h265_vui>(0x01);
        hi_mpi_venc_set_h264_vui(1, &v264);
        hi_mpi_venc_set_h265_vui(1, &v265);
        vx_mpi_venc_vui_disable(1, QVariantMap{{"codec", codec}});
        hi_mpi_venc_get_h264_vui(1, &v264);
        hi_mpi_venc_get_h265_vui(1, &v265);
        QCOMPARE(int(v264.vui_video_signal.video_signal_type_present_flag), h264Flag);
        QCOMPARE(int(v265.vui_video_signal.video_signal_type_present_flag), h265Flag);
        QCOMPARE(int(v264.vui_video_signal.video_format), 1); // the rest of the signal record stays
        QCOMPARE(int(v265.vui_video_signal.colour_primaries), 1);
    }

    // Start counts (unbounded by default), the stream cap (written even when
    // its read fails) and the capture depth, with the platform's status
    // returned unchanged.
    void encoderAndCapture()
    {
        hi_s32 count = 0;
        QVERIFY(vx_mpi_venc_start_chn(2) == 0 && vx_model_venc_started(2, &count) && count == -1);
        QVERIFY(vx_mpi_venc_start_chn_ex(4, 10) == 0 && vx_model_venc_started(4, &count) && count == 10);
        QCOMPARE(vx_mpi_venc_start_chn_ex(5, 0), HI_ERR_VENC_ILLEGAL_PARAM);
        vx_model_fail("hi_mpi_venc_get_chn_param", HI_ERR_VENC_NOT_PERM);
        QCOMPARE(vx_mpi_venc_set_max_stream(1, 6), 0);
        hi_venc_chn_param param;
        hi_mpi_venc_get_chn_param(1, &param);
        QCOMPARE(param.max_stream_cnt, 6u);
        QCOMPARE(vx_mpi_venc_set_max_stream(1, 0), HI_ERR_VENC_ILLEGAL_PARAM);
        QCOMPARE(vx_mpi_vi_set_frame_depth(1, 2, 9), HI_ERR_VI_ILLEGAL_PARAM);
    }

    // The alternative PTS wins when set and different (a packet's own is
    // unset); the rest of the record describes one whole frame to display.
    void vdecStream()
    {
        char payload[16] = {};
        const auto stream = [&](qint64 pts, qint64 altPts) {
            VexaObject::Packet pkt;
            pkt.data = payload;
            pkt.len = sizeof(payload);
            pkt.pts = pts;
            pkt.altPts = altPts;
            return vx_vdec_stream_init(pkt);
        };
        QCOMPARE(stream(qint64(1) << 40, VexaObject::Packet().altPts).pts, 1ull << 40);
        QCOMPARE(stream(1000, 2000).pts, 2000ull);
        QCOMPARE(stream(1000, 1000).pts, 1000ull);
        const hi_vdec_stream s = stream(1000, -1);
        QCOMPARE(static_cast<void *>(s.addr), static_cast<void *>(payload));
        QCOMPARE(QList<quint64>({s.pts, s.len, s.end_of_frame, s.end_of_stream, s.need_display, s.private_data}),
                 QList<quint64>({1000, 16, 1, 0, 1, 0}));
    }

    // Low latency sets the device's threshold and two layer fields; normal
    // latency only the fields.
    void voLatency()
    {
        auto attr = filled<hi_vo_video_layer_attr>(0x01);
        QCOMPARE(vx_mpi_vo_set_low_Latency(attr, 1), 0);
        hi_u32 vtth = 0;
        hi_mpi_vo_get_vtth(1, &vtth);
        QCOMPARE(QList<quint64>({vtth, attr.display_buf_len, attr.partition_mode, attr.display_frame_rate}),
                 QList<quint64>({2, 3, HI_VO_PARTITION_MODE_SINGLE, 0x01010101u}));
        QCOMPARE(vx_mpi_vo_set_low_Latency(attr, 9), HI_ERR_VO_INVALID_DEV_ID);
        attr.partition_mode = HI_VO_PARTITION_MODE_MULTI;
        vx_model_clear_calls();
        vx_mpi_vo_set_normal_Latency(attr, 1);
        QVERIFY(calls().isEmpty());
        QCOMPARE(QList<quint64>({attr.display_buf_len, attr.partition_mode}), QList<quint64>({4, HI_VO_PARTITION_MODE_SINGLE}));
    }

    // The first and third fields follow the flags; the second stays.
    void btParam()
    {
        for (const auto &flags : {qMakePair(false, false), qMakePair(true, false), qMakePair(false, true)}) {
            const hi_vo_bt_param before = {HI_TRUE, HI_TRUE, HI_VO_CLK_EDGE_DUAL};
            QCOMPARE(hi_mpi_vo_set_bt_param(0, &before), 0);
            QCOMPARE(vx_mpi_vo_bt_set_param(0, flags.first, flags.second), 0);
            hi_vo_bt_param got;
            hi_mpi_vo_get_bt_param(0, &got);
            QCOMPARE(QList<int>({got.yc_inverted_en, got.bit_inverted_en, got.clk_edge}),
                     QList<int>({flags.first, 1, flags.second}));
        }
    }

    // The source is composed over the destination in place: the destination
    // surface and rectangle serve as background too.
    void tdeBlit()
    {
        QCOMPARE(hi_tde_open(), 0);
        const hi_s32 job = hi_tde_begin_job();
        ot_tde_surface src = {}, dst = {};
        src.phys_addr = 0x1000;
        dst.phys_addr = 0x2000;
        const ot_tde_rect srcRect = {0, 0, 64, 32};
        const ot_tde_rect dstRect = {100, 50, 64, 32};
        ot_tde_opt opt = {};
        opt.alpha_blending_cmd = OT_TDE_ALPHA_BLENDING_BLEND;

        QCOMPARE(vx_tde_bit_blit(job, src, dst, srcRect, dstRect, opt), 0);
        vx_model_blit blit;
        QVERIFY(vx_model_last_blit(&blit));
        QCOMPARE(QList<qint64>({blit.handle, blit.fg.phys_addr, blit.dst.phys_addr, blit.fgRect.height,
                                blit.dstRect.pos_x}),
                 QList<qint64>({job, 0x1000, 0x2000, 32, 100}));
        QVERIFY(blit.bgIsDst && blit.bgRectIsDstRect);
        QCOMPARE(blit.opt.alpha_blending_cmd, OT_TDE_ALPHA_BLENDING_BLEND);

        QCOMPARE(vx_tde_bit_blit(job + 1, src, dst, srcRect, dstRect, opt), HI_ERR_TDE_INVALID_HANDLE);
    }

    // The group is started at creation; destruction disables every channel
    // before the group is stopped and destroyed.
    void createAndDestroy()
    {
        auto vpss = std::make_unique<HiVpss>();
        QVERIFY(vx_model_vpss_grp_started(4));
        vx_model_clear_calls();
        vpss.reset();
        QCOMPARE(calls(), QStringList({"hi_mpi_vpss_disable_chn(4,0)", "hi_mpi_vpss_disable_chn(4,1)",
                                       "hi_mpi_vpss_disable_chn(4,2)", "hi_mpi_vpss_disable_chn(4,3)",
                                       "hi_mpi_vpss_stop_grp(4)", "hi_mpi_vpss_destroy_grp(4)"}));
        QVERIFY(!vx_model_vpss_grp_exists(4));
    }

    // Ids 0-3 are left to other users; the first gap is taken, -1 when none.
    void requestID()
    {
        QCOMPARE(HiVpss::requestID(), 4);
        HiVpss first;
        hi_vpss_grp_attr attr = grpAttr(4);
        for (int grp : {5, 7})
            QCOMPARE(hi_mpi_vpss_create_grp(grp, &attr), 0);
        QCOMPARE(HiVpss::requestID(), 6);
        for (int grp = 6; grp < 256; ++grp)
            hi_mpi_vpss_create_grp(grp, &attr);
        QCOMPARE(HiVpss::requestID(), -1);
    }

    // Channels are handed out lowest first, in the asked mode, at 1920x1080;
    // the channel setters reach the platform.
    void channels()
    {
        HiVpss vpss;
        QVERIFY(vpss.enableChn(1, false));
        QCOMPARE(channelState(4, 1), QString("on 1920x1080 auto aspect 0 mirror 0 flip 0 rotation -1"));
        QCOMPARE(QList<int>({chnAttr(4, 1).pixel_format, chnAttr(4, 1).frame_rate.src_frame_rate}),
                 QList<int>({28, -1}));
        QCOMPARE(QList<int>({vpss.newChn(true), vpss.newChn(true), vpss.newChn(true), vpss.newChn(true)}),
                 QList<int>({0, 2, 3, -1}));
        vpss.disableChn(2);
        QCOMPARE(vpss.newChn(false), 2);

        QCOMPARE(int(chnAttr(4, 3).chn_mode), int(HI_VPSS_CHN_MODE_USER));
        QVERIFY(vpss.setDepth(3, 4));
        QVERIFY(vpss.setPixelFormat(3, OT_PIXEL_FORMAT_YUV_SEMIPLANAR_420));
        QCOMPARE(QList<int>({int(chnAttr(4, 3).depth), chnAttr(4, 3).pixel_format}),
                 QList<int>({4, OT_PIXEL_FORMAT_YUV_SEMIPLANAR_420}));
    }

    // Growing past the group's maximum rebuilds the group: the resized channel
    // gets its size, the other enabled channels come back at 1920x1080 with
    // mirror, flip and rotation, and the group crop is restored.
    void resizeRebuildsGroup()
    {
        HiVpss vpss;
        QVERIFY(vpss.enableChn(0, false));
        QVERIFY(vpss.enableChn(1, true));
        QVERIFY(vpss.resizeChn(1, 1280, 720, true));
        vpss.setMirror(1, true);
        vpss.setFlip(1, true);
        vpss.chns[1].rotation = 270;
        hi_vpss_crop_info crop = {HI_TRUE, HI_COORD_RATIO, {100, 100, 800, 800}};
        QCOMPARE(hi_mpi_vpss_set_grp_crop(4, &crop), 0);
        vx_model_clear_calls();

        QVERIFY(vpss.resizeChn(0, 3840, 2160, true));
        QCOMPARE(calls("hi_mpi_vpss_destroy_grp"), QStringList{"hi_mpi_vpss_destroy_grp(4)"});
        QVERIFY(vx_model_vpss_grp_started(4));
        QCOMPARE(groupState(4), QString("max 3840x2160 rate -1/-1 nr 0 dei 0 dci 0 contrast 0"));
        QCOMPARE(channelState(4, 0), QString("on 3840x2160 auto aspect 1 mirror 0 flip 0 rotation -1"));
        QCOMPARE(channelState(4, 1), QString("on 1920x1080 user aspect 0 mirror 1 flip 1 rotation 3"));
        QVERIFY(!vx_model_vpss_chn_enabled(4, 2));
        QCOMPARE(cropState(4), QString("on ratio 100,100 800x800"));
    }

    // The maximum only grows, and a group is rebuilt only when it does;
    // frame-rate control is off with both rates -1; a processing level
    // turns dynamic contrast on.
    void groupSettings_data()
    {
        QTest::addColumn<VpssCall>("call");
        QTest::addColumn<QString>("state");

        const QString rest = " nr 0 dei 0 dci 0 contrast 0";
        auto max = [](int w, int h) { return VpssCall([=](HiVpss &v) { v.setMax(w, h); return true; }); };
        auto rate = [](int dst, int src) { // from rate control on
            return VpssCall([=](HiVpss &v) { return v.setFramerate(15, 30) && v.setFramerate(dst, src); });
        };
        auto level = [](int n) { return VpssCall([=](HiVpss &v) { v.setParam(5); v.setParam(n); return true; }); };
        QTest::newRow("max: smaller") << max(1280, 720) << "max 1920x1080 rate -1/-1" + rest;
        QTest::newRow("max: wider") << max(2560, 720) << "max 2560x1080 rate -1/-1" + rest;
        QTest::newRow("max: taller") << max(1280, 1440) << "max 1920x1440 rate -1/-1" + rest;
        QTest::newRow("rate: off") << rate(-1, 25) << "max 1920x1080 rate -1/-1" + rest;
        QTest::newRow("rate: default source") << rate(15, -1) << "max 1920x1080 rate 30/15" + rest;
        QTest::newRow("rate: both given") << rate(25, 50) << "max 1920x1080 rate 50/25" + rest;
        QTest::newRow("level 3") << level(3) << "max 1920x1080 rate -1/-1 nr 0 dei 0 dci 1 contrast 3";
        QTest::newRow("level 0") << level(0) << "max 1920x1080 rate -1/-1" + rest;
    }

    void groupSettings()
    {
        QFETCH(VpssCall, call);
        QFETCH(QString, state);

        HiVpss vpss;
        vx_model_clear_calls();
        QVERIFY(call(vpss));
        QCOMPARE(groupState(4), state);
        QCOMPARE(calls("hi_mpi_vpss_create_grp").size(), state.startsWith("max 1920x1080 ") ? 0 : 1);
    }

    // Each checked call logs its failure in exactly these words and gives
    // false; it leaves channel 0's record ("enabled WxH mirror flip") alone,
    // except that mirror and flip are recorded first so that a rebuild still
    // restores them.
    void failures_data()
    {
        QTest::addColumn<QString>("fault"); // fails with 0xa0078022; empty: refused by the platform
        QTest::addColumn<VpssCall>("call");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("record");

        const VpssCall second = [](HiVpss &) { return HiVpss().getId() != 5; }; // false: the id stays stored
        const VpssCall enable = [](HiVpss &v) { return v.enableChn(0, false); };
        const VpssCall resize = [](HiVpss &v) { return v.resizeChn(0, 640, 360, false); };
        const VpssCall rate = [](HiVpss &v) { return v.setFramerate(25, 30); };
        const QString readChn = "reseiz chn HI_MPI_VPSS_GetChnMode failed with 4 0 0xa0078022";
        const QString writeChn = "hi_mpi_vpss_set_chn_attr resize failed with 4 ";
        const QString off = "0 -1x-1 0 0", on = "1 1920x1080 0 0";
        QTest::newRow("create") << "hi_mpi_vpss_create_grp" << second
                                << "HI_MPI_VPSS_CreateGrp failed with 5 0xa0078022" << off;
        QTest::newRow("start") << "hi_mpi_vpss_start_grp" << second << "HI_MPI_VPSS_StartGrp failed with 5 0xa0078022"
                               << off;
        QTest::newRow("enable: read") << "hi_mpi_vpss_get_chn_attr" << enable
                                      << "hi_mpi_vpss_get_chn_attr failed with 4 0xa0078022" << off;
        QTest::newRow("enable: write") << "hi_mpi_vpss_set_chn_attr" << enable
                                       << "hi_mpi_vpss_set_chn_attr enable failed with 4 0xa0078022" << off;
        QTest::newRow("enable: enable") << "hi_mpi_vpss_enable_chn" << enable
                                        << "HI_MPI_VPSS_EnableChn failed with 4 0xa0078022" << off;
        QTest::newRow("enable: no channel 4") << "" << VpssCall([](HiVpss &v) { return v.enableChn(4, true); })
                                              << "HiVpss::enableChn: no channel 4 in group 4" << off;
        QTest::newRow("resize: no channel -1")
            << "" << VpssCall([](HiVpss &v) { return v.resizeChn(-1, 640, 360, false); })
            << "HiVpss::resizeChn: no channel -1 in group 4" << on;
        QTest::newRow("resize: read") << "hi_mpi_vpss_get_chn_attr" << resize << readChn << on;
        QTest::newRow("resize: write") << "hi_mpi_vpss_set_chn_attr" << resize << writeChn + "0xa0078022" << on;
        QTest::newRow("depth: too deep") << "" << VpssCall([](HiVpss &v) { return v.setDepth(0, 99); })
                                         << writeChn + "0xa0078007" << on;
        QTest::newRow("mirror: write") << "hi_mpi_vpss_set_chn_attr"
                                       << VpssCall([](HiVpss &v) { v.setMirror(0, true); return false; })
                                       << writeChn + "0xa0078022" << "1 1920x1080 1 0";
        QTest::newRow("flip: read") << "hi_mpi_vpss_get_chn_attr"
                                    << VpssCall([](HiVpss &v) { v.setFlip(0, true); return false; }) << readChn
                                    << "1 1920x1080 0 1";
        QTest::newRow("delay") << "" << VpssCall([](HiVpss &v) { return v.setDelay(-1); })
                               << "hi_mpi_vpss_set_grp_delay failed with 4 0xa0078007" << off;
        QTest::newRow("rate: read") << "hi_mpi_vpss_get_grp_attr" << rate
                                    << "hi_mpi_vpss_get_grp_attr failed with 4 25 0xa0078022" << off;
        QTest::newRow("rate: write") << "hi_mpi_vpss_set_grp_attr" << rate
                                     << "HI_MPI_VPSS_SetGrpFrameRate failed with 4 25 0xa0078022" << off;
    }

    void failures()
    {
        QFETCH(QString, fault);
        QFETCH(VpssCall, call);
        QFETCH(QString, message);
        QFETCH(QString, record);

        HiVpss vpss;
        if (record.startsWith('1')) // a failure never changes whether channel 0 is enabled
            QVERIFY(vpss.enableChn(0, false));
        inject(fault, HI_ERR_VPSS_BUSY, message);
        QVERIFY(!call(vpss));
        const HiVpss::Channel &c = vpss.chns[0];
        QCOMPARE(QString("%1 %2x%3 %4 %5").arg(c.enabled).arg(c.width).arg(c.height).arg(c.mirror).arg(c.flip), record);
    }

    // The first tee test: relies on no tee existing yet. A destroyed tee
    // gives back its id and its groups.
    void teeIds()
    {
        auto *first = new VexaTee();
        auto second = std::make_unique<VexaTee>();
        QCOMPARE(first->getId(), 0);
        QCOMPARE(second->getId(), 1);
        newChns(*first, 5); // groups 4 and 5; the outputs go again at once
        delete first;
        QVERIFY(!vx_model_vpss_grp_exists(4));
        QVERIFY(!vx_model_vpss_grp_exists(5));
        QCOMPARE(VexaTee().getId(), 0);
    }

    // Channels 0-3 of the first group, then channel 0 of a second group; the
    // source feeds both groups.
    void fiveChannelsWithSource()
    {
        VexaTee tee;
        tee.setSource(16, 0, 1);
        QSignalSpy groups(&tee, &VexaTee::newVpss);
        const Chns chns = newChns(tee, 5);
        QCOMPARE(where(chns), QString("4.0 4.1 4.2 4.3 5.0"));
        QCOMPARE(enabled(), QString("4.0 4.1 4.2 4.3 5.0"));
        QCOMPARE(groups.count(), 2);
        QCOMPARE(boundSource(7, 4, 0), QString("{16,0,1}"));
        QCOMPARE(boundSource(7, 5, 0), QString("{16,0,1}"));
    }

    void sourcelessTeeCascades()
    {
        VexaTee tee;
        const Chns chns = newChns(tee, 5, true);
        QCOMPARE(boundSource(7, 4, 0), QString("none")); // left for the caller
        QCOMPARE(boundSource(7, 5, 0), QString("{7,4,0}"));
    }

    // One IPC output per group; a group whose channel 0 was given back
    // serves the next request, and destroying an output disables only its
    // own channel.
    void ipcOneChannelPerGroup()
    {
        VexaTee tee;
        tee.setSource(16, 0, 0);
        Chns chns;
        chns.emplace_back(tee.newChnIPC());
        chns.emplace_back(tee.newChnIPC());
        QCOMPARE(enabled(), QString("4.0 5.0"));
        chns.erase(chns.begin());
        QCOMPARE(enabled(), QString("5.0"));
        chns.emplace_back(tee.newChnIPC());
        QCOMPARE(where(chns), QString("5.0 4.0"));
        QCOMPARE(enabled(), QString("4.0 5.0"));
    }

    // A shared output is channel 0 of the first group, never enabled by the tee.
    void shareFirst()
    {
        VexaTee tee;
        tee.setSource(16, 0, 0);
        Chns chns;
        chns.emplace_back(tee.newChn(false, true));
        chns.emplace_back(tee.newChn(false, true));
        QCOMPARE(where(chns), QString("4.0 4.0"));
        QCOMPARE(enabled(), QString());
        QCOMPARE(boundSource(7, 4, 0), QString("{16,0,0}"));
    }

    // Noise reduction and de-interlacing reach groups made by newChn only,
    // the processing level and a larger maximum every group.
    void teeWideSettings()
    {
        VexaTee tee;
        tee.wantNR = true;
        tee.wantDIE = true;
        tee.procParam = 3;
        const Chns plain = newChns(tee, 4);
        std::unique_ptr<VexaTeeChn> ipc(tee.newChnIPC());
        QCOMPARE(groupState(4), QString("max 1920x1080 rate -1/-1 nr 1 dei 2 dci 1 contrast 3"));
        QCOMPARE(groupState(5), QString("max 1920x1080 rate -1/-1 nr 0 dei 0 dci 1 contrast 3"));

        tee.setMax(2560, 1440);
        tee.procParam = 7;
        tee.updateParam();
        QCOMPARE(groupState(5), QString("max 2560x1440 rate -1/-1 nr 0 dei 0 dci 1 contrast 7"));
        QCOMPARE(groupState(4), QString("max 2560x1440 rate -1/-1 nr 1 dei 2 dci 1 contrast 7"));
        QCOMPARE(tee.maxWidth, 1920); // the tee's own fields stay
    }

    // newVpss reaches its slots outside the tee lock, so a slot may
    // configure the tee right away.
    void slotMayCallBack()
    {
        VexaTee tee;
        int calls = 0;
        connect(&tee, &VexaTee::newVpss, this, [&]() {
            ++calls;
            tee.updateParam();
            tee.setMax(1920, 1200);
        }, Qt::DirectConnection);
        std::unique_ptr<VexaTeeChn> chn(tee.newChn(false, false));
        QCOMPARE(calls, 1);
        QCOMPARE(grpAttr(4).max_height, 1200u);
    }

    // Tees built at the same time in two threads never share a group id.
    void concurrentTees()
    {
        VexaTee *tees[2] = {nullptr, nullptr};
        Chns chns[2];
        auto work = [&](int n) {
            tees[n] = VexaHi::newTee(16, 0, n);
            chns[n] = newChns(*tees[n], 12);
        };
        std::unique_ptr<QThread> t0(QThread::create(work, 0)), t1(QThread::create(work, 1));
        t0->start();
        t1->start();
        QVERIFY(t0->wait(60000));
        QVERIFY(t1->wait(60000));

        QSet<int> groups[2];
        for (int n : {0, 1}) {
            for (const auto &chn : chns[n])
                groups[n] << chn->getChn().dev_id;
            chns[n].clear();
            VexaHi::delTee(tees[n]);
        }
        QCOMPARE(groups[0].size(), 3);
        QCOMPARE(groups[1].size(), 3);
        QCOMPARE(groups[0] | groups[1], QSet<int>({4, 5, 6, 7, 8, 9}));
    }

    // Crop and rotation of an output that already has some of both. The
    // crop applies to the whole group: ratio coordinates are per-mille, a
    // zero width or height turns it off, a refused crop keeps the old one.
    // The rotation code is degrees / 90 and 0 turns rotation off; the
    // degrees are recorded even when refused, for a rebuild to retry.
    void cropAndRotate_data()
    {
        QTest::addColumn<ChnCall>("call");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("state"); // crop; rotation code (-1: off) and recorded degrees

        const auto crop = [](double x, double y, double w, double h, bool pixels) {
            return ChnCall([=](VexaTeeChn &c) { return c.crop(x, y, w, h, pixels); });
        };
        const auto rotate = [](int degrees) { return ChnCall([=](VexaTeeChn &c) { return c.rotateChn(degrees); }); };
        const QString before = "on ratio 100,100 800x800; ";
        QTest::newRow("crop ratio") << crop(0.25, 0.25, 0.5, 0.5, false) << "" << "on ratio 250,250 500x500; 2 180";
        QTest::newRow("crop pixels") << crop(16.7, 8, 640, 360, true) << "" << "on abs 16,8 640x360; 2 180";
        QTest::newRow("crop zero width") << crop(0.1, 0.1, 0, 0.5, false) << "" << "off abs 0,0 64x64; 2 180";
        QTest::newRow("crop zero height") << crop(10, 10, 640, 0, true) << "" << "off abs 0,0 64x64; 2 180";
        QTest::newRow("crop past the edge") << crop(0.8, 0, 0.5, 0.5, false)
                                            << "HI_MPI_VPSS_SetGrpCrop failed with 0xa0078007" << before + "2 180";
        QTest::newRow("rotate 90") << rotate(90) << "" << before + "1 90";
        QTest::newRow("rotate 270") << rotate(270) << "" << before + "3 270";
        QTest::newRow("rotate 0 turns off") << rotate(0) << "" << before + "-1 0";
        QTest::newRow("rotate refused") << rotate(-90) << "hi_mpi_vpss_set_chn_rotation 0xa0078007 4,0"
                                        << before + "2 -90";
    }

    void cropAndRotate()
    {
        QFETCH(ChnCall, call);
        QFETCH(QString, message);
        QFETCH(QString, state);

        VexaTee tee;
        std::unique_ptr<VexaTeeChn> chn(tee.newChn(false, false));
        QVERIFY(chn->crop(0.1, 0.1, 0.8, 0.8, false));
        QVERIFY(chn->rotateChn(180));
        inject(QString(), 0, message);
        QVERIFY(call(*chn)); // both report success whatever the platform says
        const QString rotation = channelState(4, 0).section(' ', -1);
        QCOMPARE(QString("%1; %2 %3").arg(cropState(4), rotation).arg(chn->vpss->chns[0].rotation), state);
    }
};

QTEST_GUILESS_MAIN(tst_Platform)
#include "tst_platform.moc"
