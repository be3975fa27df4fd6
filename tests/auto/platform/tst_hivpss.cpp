#include <QtTest>

#include <cstring>

#include "hi_mpi_vpss.h"
#include "hivpss.h"
#include "platformtest.h"

using PlatformTest::calls;

class tst_HiVpss : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void createAndDestroy();
    void requestID_data();
    void requestID();
    void noFreeGroup();
    void initFailure_data();
    void initFailure();

    void enableChn_data();
    void enableChn();
    void enableChnFailure_data();
    void enableChnFailure();
    void newChnFillsGroup();
    void badChannel();

    void resizeRebuildsGroup();
    void setMax_data();
    void setMax();
    void resizeRefused();

    void setFramerate_data();
    void setFramerate();
    void channelSetters();
    void channelSetterFailure();
    void groupSettings();
};

static hi_vpss_grp_attr grpAttr(int grp)
{
    hi_vpss_grp_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    hi_mpi_vpss_get_grp_attr(grp, &attr);
    return attr;
}

static hi_vpss_chn_attr chnAttr(int grp, int chn)
{
    hi_vpss_chn_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    hi_mpi_vpss_get_chn_attr(grp, chn, &attr);
    return attr;
}

// Occupies group @p grp as another user of the VPSS would.
static void occupy(int grp)
{
    hi_vpss_grp_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.max_width = 720;
    attr.max_height = 576;
    attr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    attr.frame_rate = {-1, -1};
    QCOMPARE(hi_mpi_vpss_create_grp(grp, &attr), 0);
}

void tst_HiVpss::init()
{
    QVERIFY(PlatformTest::boot());
}

void tst_HiVpss::createAndDestroy()
{
    auto *vpss = new HiVpss();
    const int grp = vpss->getId();
    QCOMPARE(grp, 4);
    QVERIFY(vx_model_vpss_grp_started(grp));
    const hi_vpss_grp_attr attr = grpAttr(grp);
    QCOMPARE(attr.max_width, 1920u);
    QCOMPARE(attr.max_height, 1080u);
    QCOMPARE(attr.max_dei_width, 1920u);
    QCOMPARE(attr.max_dei_height, 1080u);
    QCOMPARE(int(attr.pixel_format), 28);
    QCOMPARE(attr.frame_rate.src_frame_rate, -1);
    QCOMPARE(attr.frame_rate.dst_frame_rate, -1);

    vpss->enableChn(2, false);
    vx_model_clear_calls();
    delete vpss;
    QCOMPARE(calls(), QStringList({"hi_mpi_vpss_disable_chn(4,0)", "hi_mpi_vpss_disable_chn(4,1)",
                                   "hi_mpi_vpss_disable_chn(4,2)", "hi_mpi_vpss_disable_chn(4,3)",
                                   "hi_mpi_vpss_stop_grp(4)", "hi_mpi_vpss_destroy_grp(4)"}));
    QVERIFY(!vx_model_vpss_grp_exists(grp));
}

void tst_HiVpss::requestID_data()
{
    QTest::addColumn<QList<int>>("taken");
    QTest::addColumn<int>("expected");

    QTest::newRow("all free") << QList<int>() << 4;
    QTest::newRow("0-3 are never used") << QList<int>{0, 1, 2, 3} << 4;
    QTest::newRow("first gap") << QList<int>{4, 5, 7} << 6;
}

void tst_HiVpss::requestID()
{
    QFETCH(QList<int>, taken);
    QFETCH(int, expected);

    for (int grp : taken)
        occupy(grp);
    vx_model_clear_calls();
    QCOMPARE(HiVpss::requestID(), expected);
    QCOMPARE(calls().first(), QString("hi_mpi_vpss_get_grp_attr(4)"));
}

void tst_HiVpss::noFreeGroup()
{
    for (int grp = 4; grp < 256; ++grp)
        occupy(grp);
    QCOMPARE(HiVpss::requestID(), -1);

    QTest::ignoreMessage(QtDebugMsg, "HI_MPI_VPSS_CreateGrp failed with -1 0xa0078001");
    auto *vpss = new HiVpss();
    QCOMPARE(vpss->getId(), -1);
    vx_model_clear_calls();
    delete vpss;
    QVERIFY(calls().isEmpty());
}

void tst_HiVpss::initFailure_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("message");

    QTest::newRow("create") << "hi_mpi_vpss_create_grp" << "HI_MPI_VPSS_CreateGrp failed with 4 0xa0078014";
    QTest::newRow("start") << "hi_mpi_vpss_start_grp" << "HI_MPI_VPSS_StartGrp failed with 4 0xa0078014";
}

void tst_HiVpss::initFailure()
{
    QFETCH(QString, fault);
    QFETCH(QString, message);

    vx_model_fail(fault.toLatin1().constData(), HI_ERR_VPSS_NO_MEM);
    QTest::ignoreMessage(QtDebugMsg, message.toLatin1().constData());
    HiVpss vpss;
    QCOMPARE(vpss.getId(), 4); // the id stays stored
}

void tst_HiVpss::enableChn_data()
{
    QTest::addColumn<bool>("userMode");
    QTest::addColumn<int>("mode");

    QTest::newRow("user") << true << int(HI_VPSS_CHN_MODE_USER);
    QTest::newRow("auto") << false << int(HI_VPSS_CHN_MODE_AUTO);
}

void tst_HiVpss::enableChn()
{
    QFETCH(bool, userMode);
    QFETCH(int, mode);

    HiVpss vpss;
    QVERIFY(vpss.enableChn(1, userMode));
    QVERIFY(vx_model_vpss_chn_enabled(4, 1));
    const hi_vpss_chn_attr attr = chnAttr(4, 1);
    QCOMPARE(int(attr.chn_mode), mode);
    QCOMPARE(attr.width, 1920u);
    QCOMPARE(attr.height, 1080u);
    QCOMPARE(int(attr.pixel_format), 28);
    QCOMPARE(attr.frame_rate.src_frame_rate, -1);
    QCOMPARE(attr.aspect_ratio.mode, HI_ASPECT_RATIO_NONE);
    QVERIFY(vpss.chns[1].enabled);
    QCOMPARE(vpss.chns[1].userMode, userMode);
}

void tst_HiVpss::enableChnFailure_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("message");

    QTest::newRow("read") << "hi_mpi_vpss_get_chn_attr" << "hi_mpi_vpss_get_chn_attr failed with 4 0xa0078018";
    QTest::newRow("write") << "hi_mpi_vpss_set_chn_attr"
                           << "hi_mpi_vpss_set_chn_attr enable failed with 4 0xa0078018";
    QTest::newRow("enable") << "hi_mpi_vpss_enable_chn" << "HI_MPI_VPSS_EnableChn failed with 4 0xa0078018";
}

void tst_HiVpss::enableChnFailure()
{
    QFETCH(QString, fault);
    QFETCH(QString, message);

    HiVpss vpss;
    vx_model_fail(fault.toLatin1().constData(), HI_ERR_VPSS_NOT_READY);
    QTest::ignoreMessage(QtDebugMsg, message.toLatin1().constData());
    QVERIFY(!vpss.enableChn(0, false));
    QVERIFY(!vpss.chns[0].enabled);
    QCOMPARE(vpss.chns[0].width, -1);
}

void tst_HiVpss::newChnFillsGroup()
{
    HiVpss vpss;
    vpss.enableChn(1, false);
    QCOMPARE(vpss.newChn(true), 0);
    QCOMPARE(vpss.newChn(true), 2);
    QCOMPARE(vpss.newChn(true), 3);
    QCOMPARE(vpss.newChn(true), -1);
    QCOMPARE(int(chnAttr(4, 3).chn_mode), int(HI_VPSS_CHN_MODE_USER));
    vpss.disableChn(2);
    QVERIFY(!vx_model_vpss_chn_enabled(4, 2));
    QCOMPARE(vpss.newChn(false), 2);
}

void tst_HiVpss::badChannel()
{
    HiVpss vpss;
    QTest::ignoreMessage(QtDebugMsg, "HiVpss::enableChn: no channel 4 in group 4");
    QVERIFY(!vpss.enableChn(4, false));
    QTest::ignoreMessage(QtDebugMsg, "HiVpss::resizeChn: no channel -1 in group 4");
    QVERIFY(!vpss.resizeChn(-1, 640, 480, false));
}

// Growing past the group's maximum rebuilds the group: the resized channel
// gets its size, the other enabled channels come back at 1920x1080 with
// mirror, flip and rotation, and the group crop is restored.
void tst_HiVpss::resizeRebuildsGroup()
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
    const hi_vpss_grp_attr g = grpAttr(4);
    QCOMPARE(g.max_width, 3840u);
    QCOMPARE(g.max_height, 2160u);

    const hi_vpss_chn_attr c0 = chnAttr(4, 0);
    QCOMPARE(c0.width, 3840u);
    QCOMPARE(c0.height, 2160u);
    QCOMPARE(c0.aspect_ratio.mode, HI_ASPECT_RATIO_AUTO);
    QCOMPARE(vpss.chns[0].width, 3840);
    QVERIFY(vpss.chns[0].keepAspect);

    const hi_vpss_chn_attr c1 = chnAttr(4, 1);
    QCOMPARE(c1.width, 1920u);
    QCOMPARE(c1.height, 1080u);
    QCOMPARE(int(c1.chn_mode), int(HI_VPSS_CHN_MODE_USER));
    QCOMPARE(c1.mirror_en, HI_TRUE);
    QCOMPARE(c1.flip_en, HI_TRUE);
    QVERIFY(vx_model_vpss_chn_enabled(4, 1));
    QVERIFY(!vx_model_vpss_chn_enabled(4, 2));
    hi_rotation_attr rot;
    QCOMPARE(hi_mpi_vpss_get_chn_rotation(4, 1, &rot), 0);
    QCOMPARE(rot.enable, HI_TRUE);
    QCOMPARE(rot.rotation_fixed, HI_ROTATION_270);

    hi_vpss_crop_info restored;
    QCOMPARE(hi_mpi_vpss_get_grp_crop(4, &restored), 0);
    QCOMPARE(restored.enable, HI_TRUE);
    QCOMPARE(restored.crop_rect.width, 800u);
}

void tst_HiVpss::setMax_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("maxWidth");
    QTest::addColumn<int>("maxHeight");

    QTest::newRow("smaller: nothing") << 1280 << 720 << 1920 << 1080;
    QTest::newRow("wider") << 2560 << 720 << 2560 << 1080;
    QTest::newRow("taller") << 1280 << 1440 << 1920 << 1440;
    QTest::newRow("both") << 2560 << 1440 << 2560 << 1440;
}

void tst_HiVpss::setMax()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, maxWidth);
    QFETCH(int, maxHeight);

    HiVpss vpss;
    vx_model_clear_calls();
    vpss.setMax(width, height);
    QCOMPARE(vpss.maxWidth, maxWidth);
    QCOMPARE(vpss.maxHeight, maxHeight);
    QCOMPARE(int(grpAttr(4).max_width), maxWidth);
    QCOMPARE(int(grpAttr(4).max_height), maxHeight);
    const bool grew = maxWidth != 1920 || maxHeight != 1080;
    QCOMPARE(calls("hi_mpi_vpss_create_grp").size(), grew ? 1 : 0);
}

void tst_HiVpss::resizeRefused()
{
    HiVpss vpss;
    vpss.enableChn(0, false);
    QTest::ignoreMessage(QtDebugMsg, "hi_mpi_vpss_set_chn_attr resize failed with 4 0xa0078007");
    QVERIFY(!vpss.resizeChn(0, 16, 16, false));
    QCOMPARE(vpss.chns[0].width, 1920);
    QCOMPARE(chnAttr(4, 0).width, 1920u);

    vx_model_fail("hi_mpi_vpss_get_chn_attr", HI_ERR_VPSS_NOT_READY);
    QTest::ignoreMessage(QtDebugMsg, "reseiz chn HI_MPI_VPSS_GetChnMode failed with 4 0 0xa0078018");
    QVERIFY(!vpss.resizeChn(0, 640, 360, false));
}

void tst_HiVpss::setFramerate_data()
{
    QTest::addColumn<int>("dst");
    QTest::addColumn<int>("src");
    QTest::addColumn<int>("expectedSrc");
    QTest::addColumn<int>("expectedDst");

    QTest::newRow("off") << -1 << 25 << -1 << -1;
    QTest::newRow("default source") << 15 << -1 << 30 << 15;
    QTest::newRow("both given") << 25 << 50 << 50 << 25;
}

void tst_HiVpss::setFramerate()
{
    QFETCH(int, dst);
    QFETCH(int, src);
    QFETCH(int, expectedSrc);
    QFETCH(int, expectedDst);

    HiVpss vpss;
    QVERIFY(vpss.setFramerate(15, 30)); // start from rate control on
    QVERIFY(vpss.setFramerate(dst, src));
    const hi_vpss_grp_attr attr = grpAttr(4);
    QCOMPARE(attr.frame_rate.src_frame_rate, expectedSrc);
    QCOMPARE(attr.frame_rate.dst_frame_rate, expectedDst);
}

void tst_HiVpss::channelSetters()
{
    HiVpss vpss;
    vpss.enableChn(3, false);
    QVERIFY(vpss.setDepth(3, 4));
    QVERIFY(vpss.setPixelFormat(3, OT_PIXEL_FORMAT_YUV_SEMIPLANAR_420));
    vpss.setMirror(3, true);
    vpss.setFlip(3, true);
    hi_vpss_chn_attr attr = chnAttr(4, 3);
    QCOMPARE(attr.depth, 4u);
    QCOMPARE(attr.pixel_format, OT_PIXEL_FORMAT_YUV_SEMIPLANAR_420);
    QCOMPARE(attr.mirror_en, HI_TRUE);
    QCOMPARE(attr.flip_en, HI_TRUE);

    vpss.setMirror(3, false);
    QCOMPARE(chnAttr(4, 3).mirror_en, HI_FALSE);
    QVERIFY(!vpss.chns[3].mirror);
}

// The four channel setters share their two messages; mirror and flip are
// remembered for a rebuild even when the write fails.
void tst_HiVpss::channelSetterFailure()
{
    HiVpss vpss;
    vpss.enableChn(0, false);
    QTest::ignoreMessage(QtDebugMsg, "hi_mpi_vpss_set_chn_attr resize failed with 4 0xa0078007");
    QVERIFY(!vpss.setDepth(0, 99));

    vx_model_fail("hi_mpi_vpss_set_chn_attr", HI_ERR_VPSS_BUSY);
    QTest::ignoreMessage(QtDebugMsg, "hi_mpi_vpss_set_chn_attr resize failed with 4 0xa0078022");
    vpss.setMirror(0, true);
    QVERIFY(vpss.chns[0].mirror);
    QCOMPARE(chnAttr(4, 0).mirror_en, HI_FALSE);

    vx_model_fail("hi_mpi_vpss_get_chn_attr", HI_ERR_VPSS_BUSY);
    QTest::ignoreMessage(QtDebugMsg, "reseiz chn HI_MPI_VPSS_GetChnMode failed with 4 0 0xa0078022");
    vpss.setFlip(0, true);
    QVERIFY(vpss.chns[0].flip);
}

void tst_HiVpss::groupSettings()
{
    HiVpss vpss;
    vpss.setParam(5);
    hi_vpss_grp_param param;
    QCOMPARE(hi_mpi_vpss_get_grp_param(4, &param), 0);
    QCOMPARE(param.contrast, 5u);
    QCOMPARE(grpAttr(4).dci_en, HI_TRUE);
    vpss.setParam(0);
    QCOMPARE(grpAttr(4).dci_en, HI_FALSE);

    vpss.enableNR();
    vpss.enableDIE();
    QCOMPARE(grpAttr(4).nr_en, HI_TRUE);
    QCOMPARE(grpAttr(4).dei_mode, HI_VPSS_DEI_MODE_AUTO);

    QVERIFY(vpss.setDelay(40));
    hi_u32 delay = 0;
    hi_mpi_vpss_get_grp_delay(4, &delay);
    QCOMPARE(delay, 40u);
    QTest::ignoreMessage(QtDebugMsg, "hi_mpi_vpss_set_grp_delay failed with 4 0xa0078007");
    QVERIFY(!vpss.setDelay(-1));

    QTest::ignoreMessage(QtDebugMsg, "HI_MPI_VPSS_SetGrpFrameRate failed with 4 30 0xa0078007");
    QVERIFY(!vpss.setFramerate(30, 15));
    vx_model_fail("hi_mpi_vpss_get_grp_attr", HI_ERR_VPSS_BUSY);
    QTest::ignoreMessage(QtDebugMsg, "hi_mpi_vpss_get_grp_attr failed with 4 25 0xa0078022");
    QVERIFY(!vpss.setFramerate(25, 30));
}

QTEST_GUILESS_MAIN(tst_HiVpss)
#include "tst_hivpss.moc"
