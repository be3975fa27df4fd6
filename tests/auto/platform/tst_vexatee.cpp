#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <cstring>
#include <memory>

#include "hi_mpi_vpss.h"
#include "hivpss.h"
#include "platformtest.h"
#include "vexatee.h"
#include "vexateechn.h"

using PlatformTest::boundSource;
using PlatformTest::calls;

class tst_VexaTee : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void teeIds(); // first: relies on no tee existing yet
    void fiveChannelsWithSource();
    void sourcelessTeeCascades();
    void ipcOneChannelPerGroup();
    void shareFirst();
    void groupFilters();
    void teeWideSettings();
    void destructionReleasesGroups();
    void slotMayCallBack();
    void concurrentTees();
};

static hi_vpss_grp_attr grpAttr(int grp)
{
    hi_vpss_grp_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    hi_mpi_vpss_get_grp_attr(grp, &attr);
    return attr;
}

static QString addr(VexaTeeChn *chn)
{
    const vx_mpp_chn c = chn->getChn();
    return QString("{%1,%2,%3}").arg(c.mod_id).arg(c.dev_id).arg(c.chn_id);
}

void tst_VexaTee::init()
{
    QVERIFY(PlatformTest::boot());
}

void tst_VexaTee::teeIds()
{
    auto *first = new VexaTee();
    auto *second = new VexaTee();
    QCOMPARE(first->getId(), 0);
    QCOMPARE(second->getId(), 1);
    QCOMPARE(first->getSource().mod_id, 87);
    delete first;
    VexaTee third;
    QCOMPARE(third.getId(), 0);
    delete second;
}

// Channels 0-3 of the first group, then channel 0 of a second group; the
// source feeds both groups.
void tst_VexaTee::fiveChannelsWithSource()
{
    VexaTee tee;
    tee.setSource(16, 0, 1);
    QSignalSpy groups(&tee, &VexaTee::newVpss);
    std::vector<std::unique_ptr<VexaTeeChn>> chns;
    for (int i = 0; i < 5; ++i)
        chns.emplace_back(tee.newChn(false, false));

    QStringList got;
    for (auto &chn : chns)
        got << addr(chn.get());
    QCOMPARE(got, QStringList({"{7,4,0}", "{7,4,1}", "{7,4,2}", "{7,4,3}", "{7,5,0}"}));
    QCOMPARE(groups.count(), 2);
    QCOMPARE(tee.vpssList.size(), 2);
    for (int chn = 0; chn < 4; ++chn)
        QVERIFY(vx_model_vpss_chn_enabled(4, chn));
    QVERIFY(vx_model_vpss_chn_enabled(5, 0));
    QCOMPARE(boundSource(7, 4, 0), QString("{16,0,1}"));
    QCOMPARE(boundSource(7, 5, 0), QString("{16,0,1}"));
}

void tst_VexaTee::sourcelessTeeCascades()
{
    VexaTee tee;
    std::vector<std::unique_ptr<VexaTeeChn>> chns;
    for (int i = 0; i < 5; ++i)
        chns.emplace_back(tee.newChn(true, false));
    QCOMPARE(boundSource(7, 4, 0), QString("none")); // left for the caller
    QCOMPARE(boundSource(7, 5, 0), QString("{7,4,0}"));
}

void tst_VexaTee::ipcOneChannelPerGroup()
{
    VexaTee tee;
    tee.setSource(16, 0, 0);
    std::unique_ptr<VexaTeeChn> a(tee.newChnIPC());
    std::unique_ptr<VexaTeeChn> b(tee.newChnIPC());
    QCOMPARE(addr(a.get()), QString("{7,4,0}"));
    QCOMPARE(addr(b.get()), QString("{7,5,0}"));
    QVERIFY(!vx_model_vpss_chn_enabled(4, 1));
    QCOMPARE(boundSource(7, 5, 0), QString("{16,0,0}"));

    // A group whose channel 0 was given back serves the next request.
    a.reset();
    QVERIFY(!vx_model_vpss_chn_enabled(4, 0));
    std::unique_ptr<VexaTeeChn> c(tee.newChnIPC());
    QCOMPARE(addr(c.get()), QString("{7,4,0}"));
    QVERIFY(vx_model_vpss_chn_enabled(4, 0));
    QCOMPARE(tee.vpssList.size(), 2);
}

void tst_VexaTee::shareFirst()
{
    VexaTee tee;
    tee.setSource(16, 0, 0);
    std::unique_ptr<VexaTeeChn> shared(tee.newChn(false, true));
    QCOMPARE(addr(shared.get()), QString("{7,4,0}"));
    QVERIFY(!vx_model_vpss_chn_enabled(4, 0));
    QCOMPARE(boundSource(7, 4, 0), QString("{16,0,0}"));

    std::unique_ptr<VexaTeeChn> own(tee.newChn(false, false));
    std::unique_ptr<VexaTeeChn> again(tee.newChn(false, true));
    QCOMPARE(addr(own.get()), QString("{7,4,0}"));
    QCOMPARE(addr(again.get()), QString("{7,4,0}"));
    QCOMPARE(tee.vpssList.size(), 1);
}

// Noise reduction and de-interlacing reach groups made by newChn, the
// processing level every group.
void tst_VexaTee::groupFilters()
{
    VexaTee tee;
    tee.wantNR = true;
    tee.wantDIE = true;
    tee.procParam = 3;
    std::unique_ptr<VexaTeeChn> plain(tee.newChn(false, false));
    for (int i = 0; i < 3; ++i)
        delete tee.newChn(false, false); // fill group 4, then free its channels again
    std::unique_ptr<VexaTeeChn> ipc(tee.newChnIPC());

    const hi_vpss_grp_attr first = grpAttr(4);
    QCOMPARE(first.nr_en, HI_TRUE);
    QCOMPARE(first.dei_mode, HI_VPSS_DEI_MODE_AUTO);
    QCOMPARE(first.dci_en, HI_TRUE);

    const int ipcGrp = ipc->getChn().dev_id;
    QCOMPARE(ipcGrp, 5);
    const hi_vpss_grp_attr second = grpAttr(ipcGrp);
    QCOMPARE(second.nr_en, HI_FALSE);
    QCOMPARE(second.dei_mode, HI_VPSS_DEI_MODE_OFF);
    hi_vpss_grp_param param;
    hi_mpi_vpss_get_grp_param(ipcGrp, &param);
    QCOMPARE(param.contrast, 3u);
}

void tst_VexaTee::teeWideSettings()
{
    VexaTee tee;
    std::unique_ptr<VexaTeeChn> a(tee.newChnIPC());
    std::unique_ptr<VexaTeeChn> b(tee.newChnIPC());

    tee.setMax(2560, 1440);
    for (int grp : {4, 5}) {
        QCOMPARE(grpAttr(grp).max_width, 2560u);
        QCOMPARE(grpAttr(grp).max_height, 1440u);
    }
    QCOMPARE(tee.maxWidth, 1920); // the tee's own fields stay

    tee.procParam = 7;
    tee.updateParam();
    for (int grp : {4, 5}) {
        hi_vpss_grp_param param;
        hi_mpi_vpss_get_grp_param(grp, &param);
        QCOMPARE(param.contrast, 7u);
    }
}

void tst_VexaTee::destructionReleasesGroups()
{
    auto *tee = new VexaTee();
    const int id = tee->getId();
    std::unique_ptr<VexaTeeChn> a(tee->newChnIPC());
    std::unique_ptr<VexaTeeChn> b(tee->newChnIPC());
    a.reset();
    b.reset();
    delete tee;
    QVERIFY(!vx_model_vpss_grp_exists(4));
    QVERIFY(!vx_model_vpss_grp_exists(5));
    VexaTee next;
    QCOMPARE(next.getId(), id);
}

// newVpss reaches its slots outside the tee lock, so a slot may configure
// the tee right away.
void tst_VexaTee::slotMayCallBack()
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
void tst_VexaTee::concurrentTees()
{
    QVector<QVector<int>> groups(2);
    VexaTee *tees[2] = {nullptr, nullptr};
    std::vector<std::unique_ptr<VexaTeeChn>> chns[2];
    auto work = [&](int n) {
        tees[n] = VexaHi::newTee(16, 0, n);
        for (int i = 0; i < 12; ++i) {
            chns[n].emplace_back(tees[n]->newChn(false, false));
            groups[n] << chns[n].back()->getChn().dev_id;
        }
    };
    std::unique_ptr<QThread> t0(QThread::create(work, 0));
    std::unique_ptr<QThread> t1(QThread::create(work, 1));
    t0->start();
    t1->start();
    QVERIFY(t0->wait(60000));
    QVERIFY(t1->wait(60000));

    QSet<int> first(groups[0].begin(), groups[0].end());
    QSet<int> second(groups[1].begin(), groups[1].end());
    QCOMPARE(first.size(), 3);
    QCOMPARE(second.size(), 3);
    QVERIFY(!first.intersects(second));
    QVERIFY(!first.contains(-1) && !second.contains(-1));
    for (int n : {0, 1}) {
        chns[n].clear();
        VexaHi::delTee(tees[n]);
    }
}

QTEST_GUILESS_MAIN(tst_VexaTee)
#include "tst_vexatee.moc"
