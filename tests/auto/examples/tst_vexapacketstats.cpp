// VexaPacketStats: counts per kind from several sending threads, reported as
// "stats" events and once more at stop.

#include <QThread>
#include <QtTest>

#include "testmodules.h"
#include "vexa.h"
#include "vexaexamplemodules.h"

class tst_VexaPacketStats : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void countsFromTwoThreads();
};

void tst_VexaPacketStats::initTestCase()
{
    Vexa::init(false);
    vexaRegisterExampleModules();
    qRegisterMetaType<VexaTestSource *>("VexaTestSource");
    qRegisterMetaType<VexaTestSink *>("VexaTestSink");
}

void tst_VexaPacketStats::countsFromTwoThreads()
{
    VexaObject *audio = Vexa::create("TestSource");
    VexaObject *video = Vexa::create("TestSource");
    VexaObject *stats = Vexa::create("PacketStats");
    auto *events = static_cast<VexaTestSink *>(Vexa::create("TestSink"));
    stats->setData(QVariantMap{{"interval", 0}});
    Vexa::linkA(audio, stats);
    Vexa::linkV(video, stats);
    Vexa::linkE(stats, events);
    QVERIFY(events->start());
    QVERIFY(stats->start());
    QVERIFY(audio->start());
    QVERIFY(video->start());

    QByteArray data(1000, 'p');
    auto feed = [&data](VexaObject *src, bool isVideo, int n, int len) {
        return QThread::create([=, &data] {
            for (int i = 0; i < n; ++i) {
                VexaObject::Packet p;
                p.data = data.data();
                p.len = len;
                isVideo ? src->sendPacketV(p) : src->sendPacketA(p);
            }
        });
    };
    QThread *a = feed(audio, false, 3000, 10);
    QThread *v = feed(video, true, 2000, 1000);
    a->start();
    v->start();
    QVERIFY(a->wait(60000));
    QVERIFY(v->wait(60000));
    delete a;
    delete v;

    const QVariantMap now = stats->invoke("stats").toMap();
    QCOMPARE(now.value("packetsA").toLongLong(), qint64(3000));
    QCOMPARE(now.value("bytesA").toLongLong(), qint64(30000));
    QCOMPARE(now.value("packetsV").toLongLong(), qint64(2000));
    QCOMPARE(now.value("bytesV").toLongLong(), qint64(2000000));

    // With "interval" 0 the only report comes at stop.
    QVERIFY(!events->hasEvent("stats"));
    QVERIFY(stats->stop(true));
    QTRY_VERIFY(events->hasEvent("stats"));
    QCOMPARE(events->events().size(), 1);
    QCOMPARE(events->events().first().second.toMap(), now);

    for (VexaObject *o : {audio, video, stats, static_cast<VexaObject *>(events)})
        o->destroy();
}

QTEST_GUILESS_MAIN(tst_VexaPacketStats)
#include "tst_vexapacketstats.moc"
