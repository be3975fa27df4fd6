#include <QtTest>

#include <cstring>

#include "hi_mpi_tde.h"
#include "hi_mpi_venc.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vo.h"
#include "platformtest.h"
#include "vx_mpi.h"

using PlatformTest::calls;

class tst_VxMpi : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void rcParam_data();
    void rcParam();
    void rcParamWriteFailure();
    void vuiDisable_data();
    void vuiDisable();

    void startChn();
    void maxStream();

    void vdecStream_data();
    void vdecStream();

    void voLatency();
    void btParam_data();
    void btParam();
    void tdeBlit();
    void viFrameDepth();
};

// Every byte of a record set to 0x01, so untouched fields stand out.
template <typename Record>
static Record marked()
{
    Record r;
    std::memset(&r, 0x01, sizeof(r));
    return r;
}

void tst_VxMpi::init()
{
    QVERIFY(PlatformTest::boot());
}

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

void tst_VxMpi::rcParam_data()
{
    QTest::addColumn<QVariantMap>("settings");
    QTest::addColumn<bool>("touched");      // the record is read and written
    QTest::addColumn<QList<int>>("limits"); // expected max, min, max I, min I; -1 = unchanged; empty = no change
    QTest::addColumn<bool>("saveBitrate");

    const int keep = -1;
    QTest::newRow("h265 vbr") << QVariantMap{{"codec", "h265"}, {"rcmode", "vbr"}, {"minqp", 20}, {"maxqp", 45}}
                              << true << QList<int>{45, 20, 45, 20} << false;
    QTest::newRow("h264 vbr without limits") << QVariantMap{{"codec", "h264"}, {"rcmode", "vbr"}} << true
                                             << QList<int>{0, 0, 0, 0} << false;
    QTest::newRow("h264 cbr floors at 16") << QVariantMap{{"codec", "h264"}, {"rcmode", "cbr"}, {"minqp", 30}}
                                           << true << QList<int>{keep, 16, keep, 16} << false;
    QTest::newRow("h265 cbr") << QVariantMap{{"codec", "h265"}, {"rcmode", "cbr"}} << true
                              << QList<int>{keep, 16, keep, 16} << false;
    QTest::newRow("h264 avbr") << QVariantMap{{"codec", "h264"}, {"rcmode", "avbr"}, {"maxqp", 40}} << true
                               << QList<int>{keep, 16, keep, 16} << true;
    QTest::newRow("h265 avbr") << QVariantMap{{"codec", "h265"}, {"rcmode", "avbr"}} << true
                               << QList<int>{keep, 16, keep, 16} << false;
    QTest::newRow("unknown mode") << QVariantMap{{"codec", "h264"}, {"rcmode", ""}} << true << QList<int>() << false;
    QTest::newRow("codec case matters") << QVariantMap{{"codec", "H264"}, {"rcmode", "vbr"}} << false << QList<int>()
                                        << false;
    QTest::newRow("no codec") << QVariantMap{{"rcmode", "cbr"}} << false << QList<int>() << false;
}

void tst_VxMpi::rcParam()
{
    QFETCH(QVariantMap, settings);
    QFETCH(bool, touched);
    QFETCH(QList<int>, limits);
    QFETCH(bool, saveBitrate);

    hi_venc_rc_param expected = marked<hi_venc_rc_param>();
    QCOMPARE(hi_mpi_venc_set_rc_param(3, &expected), 0);
    vx_model_clear_calls();

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

void tst_VxMpi::rcParamWriteFailure()
{
    vx_model_fail("hi_mpi_venc_set_rc_param", HI_ERR_VENC_ILLEGAL_PARAM);
    QTest::ignoreMessage(QtDebugMsg, "hi_mpi_venc_set_rc_param [5] faild with 0xa0088007");
    vx_mpi_venc_set_rc_param(5, QVariantMap{{"codec", "h264"}, {"rcmode", "cbr"}});
}

void tst_VxMpi::vuiDisable_data()
{
    QTest::addColumn<QString>("codec");
    QTest::addColumn<int>("h264Flag");
    QTest::addColumn<int>("h265Flag");

    QTest::newRow("h264") << "h264" << 0 << 1;
    QTest::newRow("h265") << "h265" << 1 << 0;
    QTest::newRow("other") << "mjpeg" << 1 << 1;
}

void tst_VxMpi::vuiDisable()
{
    QFETCH(QString, codec);
    QFETCH(int, h264Flag);
    QFETCH(int, h265Flag);

    hi_venc_h264_vui v264 = marked<hi_venc_h264_vui>();
    hi_venc_h265_vui v265 = marked<hi_venc_h265_vui>();
    hi_mpi_venc_set_h264_vui(1, &v264);
    hi_mpi_venc_set_h265_vui(1, &v265);

    vx_mpi_venc_vui_disable(1, QVariantMap{{"codec", codec}});
    hi_mpi_venc_get_h264_vui(1, &v264);
    hi_mpi_venc_get_h265_vui(1, &v265);
    const unsigned char *b264 = reinterpret_cast<const unsigned char *>(&v264);
    const unsigned char *b265 = reinterpret_cast<const unsigned char *>(&v265);
    QCOMPARE(int(b264[20]), h264Flag);
    QCOMPARE(int(b265[24]), h265Flag);
    QCOMPARE(int(v264.vui_video_signal.video_format), 1); // the rest of the signal record stays
    QCOMPARE(int(v265.vui_video_signal.colour_primaries), 1);
}

void tst_VxMpi::startChn()
{
    hi_s32 count = 0;
    QCOMPARE(vx_mpi_venc_start_chn(2), 0);
    QVERIFY(vx_model_venc_started(2, &count));
    QCOMPARE(count, -1);
    QCOMPARE(vx_mpi_venc_start_chn_ex(4, 10), 0);
    QVERIFY(vx_model_venc_started(4, &count));
    QCOMPARE(count, 10);
    QCOMPARE(vx_mpi_venc_start_chn_ex(5, 0), HI_ERR_VENC_ILLEGAL_PARAM);
}

void tst_VxMpi::maxStream()
{
    hi_venc_chn_param param = marked<hi_venc_chn_param>();
    QCOMPARE(hi_mpi_venc_set_chn_param(1, &param), 0);
    QCOMPARE(vx_mpi_venc_set_max_stream(1, 6), 0);
    hi_venc_chn_param got;
    hi_mpi_venc_get_chn_param(1, &got);
    param.max_stream_cnt = 6;
    QVERIFY(std::memcmp(&got, &param, sizeof(got)) == 0);

    // A failed read still writes; the write's status is returned.
    vx_model_fail("hi_mpi_venc_get_chn_param", HI_ERR_VENC_NOT_PERM);
    QCOMPARE(vx_mpi_venc_set_max_stream(1, 2), 0);
    QCOMPARE(vx_mpi_venc_set_max_stream(1, 0), HI_ERR_VENC_ILLEGAL_PARAM);
}

void tst_VxMpi::vdecStream_data()
{
    QTest::addColumn<qint64>("pts");
    QTest::addColumn<qint64>("altPts");
    QTest::addColumn<quint64>("expected");

    QTest::newRow("no alternative") << qint64(1000) << qint64(-1) << quint64(1000);
    QTest::newRow("alternative") << qint64(1000) << qint64(2000) << quint64(2000);
    QTest::newRow("same alternative") << qint64(1000) << qint64(1000) << quint64(1000);
    QTest::newRow("64-bit") << (qint64(1) << 40) << qint64(-1) << (quint64(1) << 40);
}

void tst_VxMpi::vdecStream()
{
    QFETCH(qint64, pts);
    QFETCH(qint64, altPts);
    QFETCH(quint64, expected);

    char payload[16] = {};
    VexaObject::Packet pkt;
    pkt.data = payload;
    pkt.len = sizeof(payload);
    pkt.pts = pts;
    pkt.altPts = altPts;
    const hi_vdec_stream s = vx_vdec_stream_init(pkt);
    QCOMPARE(s.pts, expected);
    QCOMPARE(static_cast<void *>(s.addr), static_cast<void *>(payload));
    QCOMPARE(s.len, 16u);
    QCOMPARE(s.end_of_frame, HI_TRUE);
    QCOMPARE(s.end_of_stream, HI_FALSE);
    QCOMPARE(s.need_display, HI_TRUE);
    QCOMPARE(s.private_data, 0ull);
}

void tst_VxMpi::voLatency()
{
    hi_vo_video_layer_attr attr = marked<hi_vo_video_layer_attr>();
    QCOMPARE(vx_mpi_vo_set_low_Latency(attr, 1), 0);
    hi_u32 vtth = 0;
    hi_mpi_vo_get_vtth(1, &vtth);
    QCOMPARE(vtth, 2u);
    QCOMPARE(attr.display_buf_len, 3u);
    QCOMPARE(attr.partition_mode, HI_VO_PARTITION_MODE_SINGLE);
    QCOMPARE(attr.display_frame_rate, 0x01010101u);

    QCOMPARE(vx_mpi_vo_set_low_Latency(attr, 9), HI_ERR_VO_INVALID_DEV_ID);

    vx_model_clear_calls();
    vx_mpi_vo_set_normal_Latency(attr, 1);
    QVERIFY(calls().isEmpty());
    QCOMPARE(attr.display_buf_len, 4u);
    QCOMPARE(attr.partition_mode, HI_VO_PARTITION_MODE_SINGLE);
}

void tst_VxMpi::btParam_data()
{
    QTest::addColumn<bool>("first");
    QTest::addColumn<bool>("second");

    QTest::newRow("off off") << false << false;
    QTest::newRow("on off") << true << false;
    QTest::newRow("off on") << false << true;
}

void tst_VxMpi::btParam()
{
    QFETCH(bool, first);
    QFETCH(bool, second);

    const hi_vo_bt_param before = {HI_TRUE, HI_TRUE, HI_VO_CLK_EDGE_DUAL};
    QCOMPARE(hi_mpi_vo_set_bt_param(0, &before), 0);
    QCOMPARE(vx_mpi_vo_bt_set_param(0, first, second), 0);
    hi_vo_bt_param got;
    hi_mpi_vo_get_bt_param(0, &got);
    QCOMPARE(int(got.yc_inverted_en), int(first));
    QCOMPARE(int(got.clk_edge), int(second));
    QCOMPARE(got.bit_inverted_en, HI_TRUE);
}

// The source is composed over the destination in place: the destination
// surface and rectangle serve as background too.
void tst_VxMpi::tdeBlit()
{
    QCOMPARE(hi_tde_open(), 0);
    const hi_s32 job = hi_tde_begin_job();
    ot_tde_surface src = {};
    src.phys_addr = 0x1000;
    src.width = 64;
    ot_tde_surface dst = {};
    dst.phys_addr = 0x2000;
    dst.width = 1920;
    const ot_tde_rect srcRect = {0, 0, 64, 32};
    const ot_tde_rect dstRect = {100, 50, 64, 32};
    ot_tde_opt opt = {};
    opt.alpha_blending_cmd = OT_TDE_ALPHA_BLENDING_BLEND;

    QCOMPARE(vx_tde_bit_blit(job, src, dst, srcRect, dstRect, opt), 0);
    vx_model_blit blit;
    QVERIFY(vx_model_last_blit(&blit));
    QCOMPARE(blit.handle, job);
    QCOMPARE(blit.fg.phys_addr, 0x1000u);
    QCOMPARE(blit.bg.phys_addr, 0x2000u);
    QVERIFY(blit.bgIsDst);
    QVERIFY(blit.bgRectIsDstRect);
    QCOMPARE(blit.fgRect.height, 32u);
    QCOMPARE(blit.dstRect.pos_x, 100);
    QCOMPARE(blit.opt.alpha_blending_cmd, OT_TDE_ALPHA_BLENDING_BLEND);

    QCOMPARE(vx_tde_bit_blit(job + 1, src, dst, srcRect, dstRect, opt), HI_ERR_TDE_INVALID_HANDLE);
    QCOMPARE(hi_tde_end_job(job, HI_TRUE, HI_TRUE, 100), 0);
    hi_tde_close();
}

void tst_VxMpi::viFrameDepth()
{
    QCOMPARE(vx_mpi_vi_set_frame_depth(1, 2, 4), 0);
    QCOMPARE(vx_mpi_vi_set_frame_depth(1, 2, 9), HI_ERR_VI_ILLEGAL_PARAM);
    QCOMPARE(calls(), QStringList({"hi_mpi_vi_set_frame_depth(1,2,4)", "hi_mpi_vi_set_frame_depth(1,2,9)"}));
}

QTEST_GUILESS_MAIN(tst_VxMpi)
#include "tst_vx_mpi.moc"
