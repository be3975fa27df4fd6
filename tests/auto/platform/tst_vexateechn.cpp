#include <QtTest>

#include <cstring>
#include <memory>

#include "hi_mpi_vpss.h"
#include "hivpss.h"
#include "platformtest.h"
#include "vexatee.h"
#include "vexateechn.h"

class tst_VexaTeeChn : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void crop_data();
    void crop();
    void cropRefused();
    void rotate_data();
    void rotate();
    void enableLeavesRecord();
    void settersReachChannel();
    void destructionDisables();
    void outlivesItsGroup();

private:
    VexaTee *tee = nullptr;
    VexaTeeChn *chn = nullptr;
};

static hi_vpss_chn_attr chnAttr(int grp, int chn)
{
    hi_vpss_chn_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    hi_mpi_vpss_get_chn_attr(grp, chn, &attr);
    return attr;
}

// Every test starts with channel 0 of group 4, fed from VI {16,0,0}.
void tst_VexaTeeChn::init()
{
    QVERIFY(PlatformTest::boot());
    tee = VexaHi::newTee(16, 0, 0);
    chn = tee->newChn(false, false);
    QCOMPARE(chn->getChn().dev_id, 4);
    QCOMPARE(chn->getChn().chn_id, 0);
}

void tst_VexaTeeChn::cleanup()
{
    delete chn;
    chn = nullptr;
    VexaHi::delTee(tee);
    tee = nullptr;
}

void tst_VexaTeeChn::crop_data()
{
    QTest::addColumn<QList<double>>("args");
    QTest::addColumn<bool>("pixels");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QList<int>>("rect");

    QTest::newRow("ratio") << QList<double>{0.25, 0.25, 0.5, 0.5} << false << true << int(HI_COORD_RATIO)
                           << QList<int>{250, 250, 500, 500};
    QTest::newRow("pixels") << QList<double>{16.7, 8, 640, 360} << true << true << int(HI_COORD_ABS)
                            << QList<int>{16, 8, 640, 360};
    QTest::newRow("zero width turns off") << QList<double>{0.1, 0.1, 0, 0.5} << false << false << int(HI_COORD_ABS)
                                          << QList<int>{0, 0, 64, 64};
    QTest::newRow("zero height turns off") << QList<double>{10, 10, 640, 0} << true << false << int(HI_COORD_ABS)
                                           << QList<int>{0, 0, 64, 64};
}

void tst_VexaTeeChn::crop()
{
    QFETCH(QList<double>, args);
    QFETCH(bool, pixels);
    QFETCH(bool, enabled);
    QFETCH(int, mode);
    QFETCH(QList<int>, rect);

    QVERIFY(chn->crop(0.1, 0.1, 0.8, 0.8, false)); // some crop to replace
    QVERIFY(chn->crop(args[0], args[1], args[2], args[3], pixels));
    hi_vpss_crop_info info;
    QCOMPARE(hi_mpi_vpss_get_grp_crop(4, &info), 0);
    QCOMPARE(info.enable == HI_TRUE, enabled);
    QCOMPARE(int(info.crop_mode), mode);
    QCOMPARE(QList<int>({info.crop_rect.x, info.crop_rect.y, int(info.crop_rect.width), int(info.crop_rect.height)}),
             rect);
}

void tst_VexaTeeChn::cropRefused()
{
    QTest::ignoreMessage(QtDebugMsg, "HI_MPI_VPSS_SetGrpCrop failed with 0xa0078007");
    QVERIFY(chn->crop(0.8, 0, 0.5, 0.5, false)); // past the right edge
    hi_vpss_crop_info info;
    hi_mpi_vpss_get_grp_crop(4, &info);
    QCOMPARE(info.enable, HI_FALSE);
}

void tst_VexaTeeChn::rotate_data()
{
    QTest::addColumn<int>("degrees");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<int>("code");

    QTest::newRow("90") << 90 << true << int(HI_ROTATION_90);
    QTest::newRow("180") << 180 << true << int(HI_ROTATION_180);
    QTest::newRow("270") << 270 << true << int(HI_ROTATION_270);
    QTest::newRow("0 turns off") << 0 << false << int(HI_ROTATION_0);
}

void tst_VexaTeeChn::rotate()
{
    QFETCH(int, degrees);
    QFETCH(bool, enabled);
    QFETCH(int, code);

    QVERIFY(chn->rotateChn(180));
    QVERIFY(chn->rotateChn(degrees));
    hi_rotation_attr rot;
    QCOMPARE(hi_mpi_vpss_get_chn_rotation(4, 0, &rot), 0);
    QCOMPARE(rot.enable == HI_TRUE, enabled);
    QCOMPARE(rot.rotation_type, HI_ROTATION_ANG_FIXED);
    QCOMPARE(int(rot.rotation_fixed), code);
    QCOMPARE(chn->vpss->chns[0].rotation, degrees);
}

void tst_VexaTeeChn::enableLeavesRecord()
{
    QVERIFY(chn->enableChn(false));
    QVERIFY(!vx_model_vpss_chn_enabled(4, 0));
    QVERIFY(chn->vpss->chns[0].enabled);
    QVERIFY(chn->enableChn(true));
    QVERIFY(vx_model_vpss_chn_enabled(4, 0));

    // A refused rotation is still recorded, for a rebuild to retry.
    QTest::ignoreMessage(QtDebugMsg, "hi_mpi_vpss_set_chn_rotation 0xa0078007 4,0");
    QVERIFY(chn->rotateChn(-90));
    QCOMPARE(chn->vpss->chns[0].rotation, -90);
}

void tst_VexaTeeChn::settersReachChannel()
{
    QVERIFY(chn->resizeChn(1280, 720, true));
    QVERIFY(chn->setPixelFormat(OT_PIXEL_FORMAT_YUV_SEMIPLANAR_420));
    chn->setMirror(true);
    chn->setFlip(true);
    QVERIFY(chn->setCompress(3));
    const hi_vpss_chn_attr attr = chnAttr(4, 0);
    QCOMPARE(attr.width, 1280u);
    QCOMPARE(attr.aspect_ratio.mode, HI_ASPECT_RATIO_AUTO);
    QCOMPARE(attr.pixel_format, OT_PIXEL_FORMAT_YUV_SEMIPLANAR_420);
    QCOMPARE(attr.mirror_en, HI_TRUE);
    QCOMPARE(attr.flip_en, HI_TRUE);
    QCOMPARE(attr.compress_mode, HI_COMPRESS_MODE_NONE);
}

void tst_VexaTeeChn::destructionDisables()
{
    std::unique_ptr<VexaTeeChn> second(tee->newChn(false, false));
    QVERIFY(vx_model_vpss_chn_enabled(4, 1));
    HiVpss *group = second->vpss;
    second.reset();
    QVERIFY(!vx_model_vpss_chn_enabled(4, 1));
    QVERIFY(!group->chns[1].enabled);
    QVERIFY(vx_model_vpss_chn_enabled(4, 0));
}

// Destroying the tee before its channels is a caller's mistake; the
// channels then refuse politely instead of touching freed groups.
void tst_VexaTeeChn::outlivesItsGroup()
{
    VexaHi::delTee(tee);
    tee = nullptr;
    QCOMPARE(chn->getChn().dev_id, -1);
    QTest::ignoreMessage(QtDebugMsg, "VexaTeeChn::resizeChn: channel 0 has no VPSS group");
    QVERIFY(!chn->resizeChn(640, 360, false));
    QTest::ignoreMessage(QtDebugMsg, "VexaTeeChn::setMirror: channel 0 has no VPSS group");
    chn->setMirror(true);
    vx_model_clear_calls();
    delete chn;
    chn = nullptr;
    QVERIFY(PlatformTest::calls().isEmpty());
}

QTEST_GUILESS_MAIN(tst_VexaTeeChn)
#include "tst_vexateechn.moc"
