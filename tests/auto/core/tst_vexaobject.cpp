// Lifecycle of a module object with an application object: what runs in
// which thread and in which order, settings before and after start, start and
// stop results, destruction and worker-thread sharing.

#include <thread>

#include <QCoreApplication>
#include <QPointer>
#include <QtTest>

#include "vexaprobe.h"

namespace {

VexaProbe *make(const QString &name)
{
    return qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), name));
}

int threadUses(const QString &name)
{
    QMutexLocker locker(&Vexa::lockThread);
    return Vexa::threadCount.value(name, 0);
}

} // namespace

class tst_VexaObject : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Vexa::init(false);
        registerProbe();
    }

    // Settings and descriptions given before start are parked (the later
    // value of a key wins, the last description only) and reach the module
    // in its own thread in this order: settings, onStart, description.
    void parkedUntilStart()
    {
        VexaProbe *p = make(QStringLiteral("obj_parked"));
        p->setData(QVariantMap{{"x", 1}, {"y", 1}});
        QVERIFY(p->setData(QStringLiteral("{\"y\":2,\"z\":3}")));
        p->invokeInfoV(makeInfo(1, {{"w", 1}}));
        p->invokeInfoV(makeInfo(2, {{"h", 2}}));
        QCoreApplication::processEvents(); // both arrive while not started
        QVERIFY(p->hooks().isEmpty());
        QCOMPARE(p->getState(), QStringLiteral("created"));
        QVERIFY(p->getData().isEmpty());
        QVERIFY(p->getUserData().isEmpty());

        QVERIFY(p->start());
        QCOMPARE(p->getState(), QStringLiteral("started"));
        const QVariantMap expected{{"x", 1}, {"y", 2}, {"z", 3}};
        QCOMPARE(p->getData(), expected); // waits for the object's thread
        QCOMPARE(p->getUserData(), expected);
        QCOMPARE(p->hooks(), (QStringList{"setData:x,y,z", "start", "infoV:2:-:h"}));
        QVERIFY(p->thread() != thread());
        for (const VexaProbe::Entry &e : p->entries())
            QCOMPARE(e.thread, p->thread());
        QVERIFY(retire({p}));
    }

    // The first start settles the queue bounds and the payload ring from
    // "bufLenA", "bufLenV" and "memSize"; those keys are in the settings but
    // never reach onSetData nor the user data.
    void firstStartBufferKeys_data()
    {
        QTest::addColumn<QVariantMap>("given");
        QTest::addColumn<int>("bufLenA");
        QTest::addColumn<int>("bufLenV");
        QTest::addColumn<bool>("ring");
        QTest::addColumn<QStringList>("hooks");
        QTest::addColumn<QStringList>("userKeys");

        QTest::newRow("nothing given") << QVariantMap() << 20 << 20 << false << QStringList{"start"} << QStringList();
        QTest::newRow("bufLenA given") << QVariantMap{{"bufLenA", 5}} << 5 << 20 << false << QStringList{"start"}
                                       << QStringList();
        QTest::newRow("bounds, ring and a module key")
            << QVariantMap{{"bufLenA", 0}, {"bufLenV", -1}, {"memSize", 64}, {"mode", "fast"}} << 0 << -1 << true
            << QStringList{"setData:mode", "start"} << QStringList{"mode"};
    }
    void firstStartBufferKeys()
    {
        QFETCH(QVariantMap, given);
        QFETCH(int, bufLenA);
        QFETCH(int, bufLenV);
        QFETCH(bool, ring);
        QFETCH(QStringList, hooks);
        QFETCH(QStringList, userKeys);

        VexaProbe *p = make(QStringLiteral("obj_first_start"));
        QVERIFY(p->start(given));
        QCOMPARE(p->getData(), given);
        QCOMPARE(p->getUserData().keys(), userKeys);
        QCOMPARE(p->hooks(), hooks);
        QCOMPARE(p->bufLenA, bufLenA);
        QCOMPARE(p->bufLenV, bufLenV);
        QCOMPARE(p->bufferData(nullptr, 64, 0) != nullptr, ring);
        QVERIFY(retire({p}));
    }

    // Only settings that change something reach onSetData, in the object's
    // thread; a queue bound changed while running is applied.
    void changeOnlySettings()
    {
        VexaProbe *p = make(QStringLiteral("obj_changes"));
        QVERIFY(p->start());
        p->setData(QVariantMap{{"k", 1}});
        p->setData(QVariantMap{{"k", 1}});
        p->setData(QStringLiteral("{\"k\":2,\"bufLenV\":7}"));
        p->setData(QStringLiteral("not json"));
        QCOMPARE(p->getData(), (QVariantMap{{"k", 2}, {"bufLenV", 7}}));
        QCOMPARE(p->hooks(), (QStringList{"start", "setData:k", "setData:bufLenV,k"}));
        QCOMPARE(p->bufLenV, 7);
        QCOMPARE(p->getUserData(), (QVariantMap{{"k", 2}, {"bufLenV", 7}}));
        QVERIFY(retire({p}));
    }

    // start and stop report whether they changed the state; stop(true)
    // returns only after onStop ran; a restart parks and applies settings
    // again and reuses the object's thread.
    void startStopCycle()
    {
        VexaProbe *p = make(QStringLiteral("obj_cycle"));
        QVERIFY(!p->stop());
        QVERIFY(p->start());
        QVERIFY(!p->start());
        p->getData();
        QThread *worker = p->thread();

        QSemaphore hold;
        p->holdStop = &hold;
        std::thread releaser([&hold] {
            QThread::msleep(100); // onStop is still waiting when stop(true) would return early
            hold.release();
        });
        QVERIFY(p->stop(true));
        QCOMPARE(p->hooks(), (QStringList{"start", "stop"}));
        releaser.join();
        p->holdStop = nullptr;
        QCOMPARE(p->getState(), QStringLiteral("stoped"));
        QVERIFY(!p->stop(true));

        p->setData(QVariantMap{{"again", true}});
        QVERIFY(p->getData().isEmpty()); // parked, not applied
        QVERIFY(p->start());
        QCOMPARE(p->getData(), (QVariantMap{{"again", true}}));
        QCOMPARE(p->hooks(), (QStringList{"start", "stop", "setData:again", "start"}));
        QCOMPARE(p->thread(), worker);
        QVERIFY(retire({p}));
    }

    // destroy() of a started object unregisters it at once; onStop runs and
    // then the object is deleted in its own thread. The payload ring is still
    // there for onStop (the sanitizer build catches a read of freed memory).
    void destroyStarted()
    {
        Trail trail;
        QSemaphore hold;
        VexaProbe *p = make(QStringLiteral("obj_destroy"));
        p->trail = &trail;
        p->holdStop = &hold;
        QVERIFY(p->start(QVariantMap{{"memSize", 64}}));
        QPointer<QThread> worker = p->thread();

        p->destroy();
        // onStop holds the object's thread, so the object still exists here.
        QCOMPARE(p->getState(), QStringLiteral("destroyed"));
        QVERIFY(!Vexa::find(QStringLiteral("obj_destroy")));
        hold.release();
        QTRY_COMPARE(trail.get(), (QStringList{"start", "ring intact", "stop", "dtor in own thread"}));

        Vexa::delThread(QStringLiteral("obj_destroy"));
        QTRY_VERIFY(worker.isNull());
    }

    // Objects naming the same thread share it; destroying one releases one
    // use and the other keeps running there. Destroying the last one stops
    // the thread, but only after its onStop and its deletion have run, even
    // when the thread is busy at that moment.
    void sharedThread()
    {
        Trail trail;
        VexaProbe *a = make(QStringLiteral("obj_shareA"));
        VexaProbe *b = make(QStringLiteral("obj_shareB"));
        a->threadName = b->threadName = QStringLiteral("obj_shared");
        b->trail = &trail;
        QVERIFY(a->start());
        QVERIFY(b->start());
        QCOMPARE(a->thread(), b->thread());
        QCOMPARE(a->thread()->objectName(), QStringLiteral("obj_shared"));
        QCOMPARE(threadUses(QStringLiteral("obj_shared")), 2);

        a->destroy();
        QCOMPARE(threadUses(QStringLiteral("obj_shared")), 1);
        QPointer<QThread> worker = b->thread();
        QCOMPARE(b->invoke(QStringLiteral("where")).value<void *>(), static_cast<void *>(worker.data()));

        QSemaphore busy, gate;
        QMetaObject::invokeMethod(b, [&] {
            busy.release();
            gate.acquire();
        });
        busy.acquire();
        b->destroy();
        gate.release();
        QVERIFY(!Vexa::threadMap.contains(QStringLiteral("obj_shared")));
        QTRY_VERIFY(worker.isNull());
        QCOMPARE(trail.get(), (QStringList{"start", "stop", "dtor in own thread"}));
    }

    // The thread name "main" keeps the object in the application thread.
    void mainThread()
    {
        Trail trail;
        VexaProbe *p = make(QStringLiteral("obj_main"));
        p->threadName = QStringLiteral("main");
        p->trail = &trail;
        QVERIFY(p->start(QVariantMap{{"m", 1}}));
        QCOMPARE(p->thread(), thread());
        QTRY_COMPARE(p->hooks(), (QStringList{"setData:m", "start"}));
        QCOMPARE(p->entries().at(1).thread, thread());
        QCOMPARE(p->getData(), (QVariantMap{{"m", 1}}));
        p->destroy();
        QVERIFY(!Vexa::threadMap.contains(QStringLiteral("main")));
        QTRY_COMPARE(trail.get(), (QStringList{"setData:m", "start", "stop", "dtor in own thread"}));
    }
};

QTEST_GUILESS_MAIN(tst_VexaObject)
#include "tst_vexaobject.moc"
