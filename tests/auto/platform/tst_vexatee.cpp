// The VPSS tee classes against the platform model: HiVpss groups and their
// failures, VexaTee outputs, groups and threads, VexaTeeChn crop and rotation.

#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <functional>
#include <memory>
#include <vector>

#include "hivpss.h"
#include "platformtest.h"
#include "vexahi.h"
#include "vexatee.h"
#include "vexateechn.h"

using namespace PlatformTest;

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

class tst_VexaTee : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(boot()); }

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

QTEST_GUILESS_MAIN(tst_VexaTee)
#include "tst_vexatee.moc"
