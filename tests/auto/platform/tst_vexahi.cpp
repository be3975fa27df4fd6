#include <QPointer>
#include <QtTest>

#include <cstring>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "platformtest.h"
#include "vexahi.h"
#include "vexatee.h"
#include "vexateechn.h"

using PlatformTest::boundSource;
using PlatformTest::calls;

class tst_VexaHi : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void bind_data();
    void bind();
    void bindFailure();
    void bindFromTee();

    void pts_data();
    void pts();

    void makeFrame_data();
    void makeFrame();
    void makeFrameFailure_data();
    void makeFrameFailure();

    void mmzAllocFree_data();
    void mmzAllocFree();
    void mmzFailedAllocIsRecorded();
    void mmzFreeUnknown();
    void mmzClear();

    void teeRegistry();
};

void tst_VexaHi::init()
{
    QVERIFY(PlatformTest::boot());
}

void tst_VexaHi::cleanup()
{
    VexaHi::absPTS = false;
    VexaHi::setPTSOffset(0);
    VexaHi::mmzMap.clear();
}

// Binding keeps one source per destination without the caller unbinding.
void tst_VexaHi::bind_data()
{
    QTest::addColumn<QString>("before"); // source already bound to {7,4,0}, or empty
    QTest::addColumn<int>("srcMod");
    QTest::addColumn<int>("srcChn");
    QTest::addColumn<QStringList>("expectedCalls");
    QTest::addColumn<QString>("after");

    const QString lookup = "hi_mpi_sys_get_bind_by_dst({7,4,0})";
    QTest::newRow("new") << QString() << 16 << 0
                         << QStringList{lookup, "hi_mpi_sys_bind({16,0,0},{7,4,0})"} << "{16,0,0}";
    QTest::newRow("same source is kept") << "16,0" << 16 << 0 << QStringList{lookup} << "{16,0,0}";
    QTest::newRow("other source is replaced")
        << "16,1" << 16 << 0
        << QStringList{lookup, "hi_mpi_sys_unbind({16,0,1},{7,4,0})", "hi_mpi_sys_bind({16,0,0},{7,4,0})"}
        << "{16,0,0}";
    QTest::newRow("87 clears") << "16,1" << 87 << 0
                               << QStringList{lookup, "hi_mpi_sys_unbind({16,0,1},{7,4,0})"} << "none";
    QTest::newRow("87 on unbound") << QString() << 87 << 0 << QStringList{lookup} << "none";
}

void tst_VexaHi::bind()
{
    QFETCH(QString, before);
    QFETCH(int, srcMod);
    QFETCH(int, srcChn);
    QFETCH(QStringList, expectedCalls);
    QFETCH(QString, after);

    const hi_mpp_chn dst = {HI_ID_VPSS, 4, 0};
    if (!before.isEmpty()) {
        const QStringList parts = before.split(',');
        const hi_mpp_chn old = {static_cast<hi_mod_id>(parts[0].toInt()), 0, parts[1].toInt()};
        QCOMPARE(hi_mpi_sys_bind(&old, &dst), 0);
        vx_model_clear_calls();
    }

    QVERIFY(VexaHi::bind(srcMod, 0, srcChn, 7, 4, 0));
    QCOMPARE(calls(), expectedCalls);
    QCOMPARE(boundSource(7, 4, 0), after);
}

void tst_VexaHi::bindFailure()
{
    vx_model_fail("hi_mpi_sys_bind", HI_ERR_SYS_ILLEGAL_PARAM);
    QTest::ignoreMessage(QtDebugMsg, "HI_MPI_SYS_Bind failed with 0xa0028007 16 1 2 15 3 4");
    QVERIFY(!VexaHi::bind(16, 1, 2, 15, 3, 4));
    QCOMPARE(boundSource(15, 3, 4), QString("none"));
}

void tst_VexaHi::bindFromTee()
{
    VexaTee *tee = VexaHi::newTee(16, 0, 0);
    VexaTeeChn *first = tee->newChn(false, false);
    VexaTeeChn *second = tee->newChn(false, false);
    const int grp = first->getChn().dev_id;

    QVERIFY(VexaHi::bindFromTee(second, 8, 0, 2));
    QCOMPARE(boundSource(8, 0, 2), QString("{7,%1,1}").arg(grp));

    QTest::ignoreMessage(QtDebugMsg, "VexaHi::bindFromTee: no tee channel");
    QVERIFY(!VexaHi::bindFromTee(nullptr, 8, 0, 2));

    delete first;
    delete second;
    VexaHi::delTee(tee);
}

void tst_VexaHi::pts_data()
{
    QTest::addColumn<qint64>("offset");
    QTest::addColumn<bool>("absPTS");
    QTest::addColumn<bool>("withOffset");
    QTest::addColumn<quint64>("expected");

    QTest::newRow("raw clock") << qint64(500) << false << false << quint64(1000000);
    QTest::newRow("offset added") << qint64(500) << false << true << quint64(1000500);
    QTest::newRow("negative offset") << qint64(-1000) << false << true << quint64(999000);
    QTest::newRow("absPTS ignores offset") << qint64(500) << true << true << quint64(1000000);
    QTest::newRow("large offset") << (qint64(1) << 40) << false << true << quint64((quint64(1) << 40) + 1000000);
}

void tst_VexaHi::pts()
{
    QFETCH(qint64, offset);
    QFETCH(bool, absPTS);
    QFETCH(bool, withOffset);
    QFETCH(quint64, expected);

    vx_model_set_cur_pts(1000000);
    VexaHi::setPTSOffset(offset);
    VexaHi::absPTS = absPTS;
    QCOMPARE(VexaHi::getPTSOffset(), offset);

    quint64 pts = 0;
    VexaHi::getPTS(&pts, withOffset);
    QCOMPARE(pts, expected);
}

void tst_VexaHi::makeFrame_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("stride");

    QTest::newRow("1080p") << 1920 << 1080 << 1920;
    QTest::newRow("width rounded up") << 1918 << 1080 << 1920;
    QTest::newRow("small") << 100 << 50 << 112;
}

void tst_VexaHi::makeFrame()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, stride);
    const int luma = stride * height;

    unsigned int blk = 0xdeadbeef;
    const hi_video_frame_info info = VexaHi::makeFrame(width, height, &blk);
    QCOMPARE(calls("hi_mpi_vb_get_blk"), QStringList{QString("hi_mpi_vb_get_blk(-1,%1,null)").arg(luma * 3 / 2)});

    const hi_video_frame &f = info.video_frame;
    QCOMPARE(int(f.width), width);
    QCOMPARE(int(f.height), height);
    QCOMPARE(f.field, HI_VIDEO_FIELD_FRAME);
    QCOMPARE(int(f.pixel_format), 28);
    QCOMPARE(f.color_gamut, HI_COLOR_GAMUT_BT709);
    QCOMPARE(int(f.stride[0]), stride);
    QCOMPARE(int(f.stride[1]), stride);
    QCOMPARE(f.phys_addr[0], hi_mpi_vb_handle_to_phys_addr(blk));
    QCOMPARE(f.phys_addr[1], f.phys_addr[0] + luma);
    QCOMPARE(static_cast<char *>(f.virt_addr[1]), static_cast<char *>(f.virt_addr[0]) + luma);
    QCOMPARE(info.pool_id, hi_mpi_vb_handle_to_pool_id(blk));
    QCOMPARE(int(info.mod_id), 7);

    // The whole picture is mid-grey, and nothing past it was written.
    const unsigned char *p = static_cast<const unsigned char *>(f.virt_addr[0]);
    const int bytes = luma * 3 / 2;
    QVERIFY(std::all_of(p, p + bytes, [](unsigned char c) { return c == 0x80; }));
    const unsigned char *mapped = static_cast<const unsigned char *>(hi_mpi_sys_mmap(f.phys_addr[0], bytes + 1));
    QCOMPARE(int(mapped[bytes]), 0);
}

// Each failing step is named once and gives a zeroed record; from the
// moment the block is taken the caller holds its handle.
void tst_VexaHi::makeFrameFailure_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("handleGiven");

    QTest::newRow("no block") << "hi_mpi_vb_get_blk" << 640 << "HI_MPI_VB_GetBlock failed" << false;
    QTest::newRow("no pool") << "hi_mpi_vb_handle_to_pool_id" << 640 << "HI_MPI_VB_Handle2PoolId failed" << true;
    QTest::newRow("no address") << "hi_mpi_vb_handle_to_phys_addr" << 640 << "HI_MPI_VB_Handle2PhysAddr failed"
                                << true;
    QTest::newRow("no mapping") << "hi_mpi_sys_mmap" << 640 << "HI_MPI_SYS_Mmap failed" << true;
    QTest::newRow("too large for any pool") << QString() << 8192 << "HI_MPI_VB_GetBlock failed" << false;
    QTest::newRow("no size") << QString() << 0 << "VexaHi::makeFrame: bad frame size 0x480" << false;
}

void tst_VexaHi::makeFrameFailure()
{
    QFETCH(QString, fault);
    QFETCH(int, width);
    QFETCH(QString, message);
    QFETCH(bool, handleGiven);

    if (!fault.isEmpty())
        vx_model_fail(fault.toLatin1().constData(), -1);
    unsigned int blk = 0xdeadbeef;
    QTest::ignoreMessage(QtDebugMsg, message.toLatin1().constData());
    const hi_video_frame_info info = VexaHi::makeFrame(width, 480, &blk);

    hi_video_frame_info zero;
    std::memset(&zero, 0, sizeof(zero));
    QVERIFY(std::memcmp(&info, &zero, sizeof(zero)) == 0);
    QCOMPARE(blk != 0xdeadbeef, handleGiven);
}

void tst_VexaHi::mmzAllocFree_data()
{
    QTest::addColumn<bool>("cached");
    QTest::addColumn<QString>("call");

    QTest::newRow("uncached") << false << "hi_mpi_sys_mmz_alloc(osd,anonymous,4096)";
    QTest::newRow("cached") << true << "hi_mpi_sys_mmz_alloc_cached(osd,anonymous,4096)";
}

void tst_VexaHi::mmzAllocFree()
{
    QFETCH(bool, cached);
    QFETCH(QString, call);

    unsigned int phys = 0;
    void *virt = nullptr;
    QCOMPARE(VexaHi::mmzAlloc(&phys, &virt, 4096, cached, "osd", "anonymous"), 0);
    QCOMPARE(calls(), QStringList{call});
    QCOMPARE(VexaHi::mmzMap.value(phys), virt);
    QVERIFY(virt);

    QCOMPARE(VexaHi::mmzFree(phys, virt), 0);
    QVERIFY(VexaHi::mmzMap.isEmpty());
    QCOMPARE(vx_model_mmz_count(), 0);
}

void tst_VexaHi::mmzFailedAllocIsRecorded()
{
    vx_model_fail("hi_mpi_sys_mmz_alloc", HI_ERR_SYS_NO_MEM);
    unsigned int phys = 0x1234;
    int marker = 0;
    void *virt = &marker;
    QCOMPARE(VexaHi::mmzAlloc(&phys, &virt, 4096, false, "osd", nullptr), HI_ERR_SYS_NO_MEM);
    QCOMPARE(VexaHi::mmzMap.value(0x1234), static_cast<void *>(&marker));
}

void tst_VexaHi::mmzFreeUnknown()
{
    unsigned int phys = 0;
    void *virt = nullptr;
    QCOMPARE(VexaHi::mmzAlloc(&phys, &virt, 4096, false, nullptr, nullptr), 0);
    vx_model_clear_calls();

    QVERIFY(VexaHi::mmzFree(0x7fff0000, nullptr) != 0);
    QCOMPARE(calls(), QStringList{"hi_mpi_sys_mmz_free(0x7fff0000,null)"});
    QCOMPARE(VexaHi::mmzMap.size(), 1);
    QCOMPARE(VexaHi::mmzMap.value(phys), virt);
}

void tst_VexaHi::mmzClear()
{
    QList<unsigned int> allocated;
    for (unsigned int size : {8192u, 4096u, 100u}) {
        unsigned int phys = 0;
        void *virt = nullptr;
        QCOMPARE(VexaHi::mmzAlloc(&phys, &virt, size, false, nullptr, nullptr), 0);
        allocated << phys;
    }
    vx_model_clear_calls();

    VexaHi::mmzClear();
    std::sort(allocated.begin(), allocated.end());
    QStringList expected;
    for (unsigned int phys : allocated)
        expected << QString("hi_mpi_sys_mmz_free(0x%1,virt)").arg(phys, 0, 16);
    QCOMPARE(calls(), expected);
    QVERIFY(VexaHi::mmzMap.isEmpty());
    QCOMPARE(vx_model_mmz_count(), 0);
}

void tst_VexaHi::teeRegistry()
{
    VexaTee *a = VexaHi::newTee(16, 0, 1);
    VexaTee *b = VexaHi::newTee(vx_mpp_chn{16, 0, 2});
    QCOMPARE(b->getId(), a->getId() + 1);
    QCOMPARE(VexaHi::getTee(a->getId()), a);
    QCOMPARE(VexaHi::getTee(b->getId())->getSource().chn_id, 2);

    const int registered = VexaHi::teeMap.size();
    QCOMPARE(VexaHi::getTee(999), nullptr);
    QCOMPARE(VexaHi::teeMap.size(), registered);

    // A tee that is not registered is neither deleted nor changes anything.
    QPointer<VexaTee> stray = new VexaTee();
    VexaHi::delTee(stray);
    QVERIFY(stray);
    QCOMPARE(VexaHi::teeMap.size(), registered);
    delete stray;

    QPointer<VexaTee> gone = a;
    const int id = a->getId();
    VexaHi::delTee(a);
    QVERIFY(!gone);
    QCOMPARE(VexaHi::getTee(id), nullptr);
    VexaHi::delTee(b);
    QCOMPARE(VexaHi::teeMap.size(), registered - 2);
}

QTEST_GUILESS_MAIN(tst_VexaHi)
#include "tst_vexahi.moc"
