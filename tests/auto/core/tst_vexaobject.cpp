// A module object with an application object: the published meta-interface
// (callers look methods up by index and by signature string, so a reordered
// or renamed declaration must fail here) and invoke(); the lifecycle (what
// runs in which thread and in which order, settings before and after start,
// destruction and worker-thread sharing); the bounded packet queues, the
// payload ring and the rule that decides whether an incoming stream
// description is a change. Objects made by startInMain() run in the
// application thread, so their queued calls run at processEvents().

#include <cstring>
#include <thread>

#include <QCoreApplication>
#include <QMetaEnum>
#include <QPointer>
#include <QRegularExpression>
#include <QtTest>

#include "vexaprobe.h"

using Packet = VexaObject::Packet;
using StreamInfo = VexaObject::StreamInfo;

namespace {

int threadUses(const QString &name)
{
    QMutexLocker locker(&Vexa::lockThread);
    return Vexa::threadCount.value(name, 0);
}


// A started object living in the application thread.
VexaProbe *startInMain(const QString &name, const QVariantMap &settings = {})
{
    VexaProbe *p = makeProbe(name, QStringLiteral("main"));
    p->start(settings);
    QCoreApplication::processEvents();
    return p;
}

Packet packet(qint64 pts)
{
    Packet p;
    p.pts = pts;
    return p;
}

// The pts of @p packets, compared with the run first..last.
bool ptsRun(const QList<Packet> &packets, qint64 first, qint64 last)
{
    QList<qint64> got, want;
    for (const Packet &p : packets)
        got << p.pts;
    for (qint64 i = first; i <= last; ++i)
        want << i;
    return got == want;
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
    void cleanup()
    {
        Vexa::debug = false;
        // Objects destroyed in this thread: first the calls queued for them
        // (destroy() queues the release of the payload ring), then the deletes.
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // Each own method, by index from methodOffset(): kind (5 signals first),
    // access, return type, normalized signature and parameter names.
    void methodTable_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QByteArray>("returnType");
        QTest::addColumn<QByteArray>("signature");
        QTest::addColumn<QByteArray>("parameterNames");

        const char *const rows[][3] = {
            {"void", "newEvent(QString,QVariant)", "type,msg"},
            {"void", "newPacketA(Packet)", "pkt"},
            {"void", "newPacketV(Packet)", "pkt"},
            {"void", "newInfoA(StreamInfo)", "info"},
            {"void", "newInfoV(StreamInfo)", "info"},
            {"bool", "setData(QString)", "json"},
            {"bool", "setData(QVariantMap)", "data"},
            {"QVariantMap", "getData()", ""},
            {"QVariantMap", "getUserData()", ""},
            {"bool", "start()", ""},
            {"bool", "start(QVariantMap)", "data"},
            {"bool", "start(QString)", "json"},
            {"bool", "stop(bool)", "block"},
            {"bool", "stop()", ""},
            {"QString", "name()", ""},
            {"QString", "getState()", ""},
            {"void", "onNewPacketA(Packet)", ""},
            {"void", "onNewPacketV(Packet)", ""},
            {"void", "onUnLinkA(StreamInfo)", ""},
            {"void", "onUnLinkV(StreamInfo)", ""},
            {"void", "onUnLinkAPriv(StreamInfo)", "info"},
            {"void", "onUnLinkVPriv(StreamInfo)", "info"},
            {"void", "onNewEvent(QString,QVariant)", "type,info"},
            {"void", "onNewInfoAPriv(StreamInfo)", "info"},
            {"void", "onNewInfoVPriv(StreamInfo)", "info"},
            {"void", "onSetDataPriv(QVariantMap)", "data"},
            {"QVariantMap", "doGetData()", ""},
            {"void", "onNewInfoA(StreamInfo)", ""},
            {"void", "onNewInfoV(StreamInfo)", ""},
            {"void", "onSetData(QVariantMap)", ""},
            {"void", "onStart()", ""},
            {"void", "onStop()", ""},
        };
        int index = 0;
        for (const auto &row : rows) {
            QTest::addRow("%d %s", index, row[1]) << index << QByteArray(row[0]) << QByteArray(row[1]) << QByteArray(row[2]);
            ++index;
        }
    }
    void methodTable()
    {
        QFETCH(int, index);
        QFETCH(QByteArray, returnType);
        QFETCH(QByteArray, signature);
        QFETCH(QByteArray, parameterNames);

        const QMetaObject &mo = VexaObject::staticMetaObject;
        const QMetaMethod m = mo.method(mo.methodOffset() + index);
        QCOMPARE(m.methodSignature(), signature);
        QCOMPARE(m.methodType(), index < 5 ? QMetaMethod::Signal : QMetaMethod::Slot);
        QCOMPARE(m.access(), index < 23 ? QMetaMethod::Public : QMetaMethod::Private);
        QCOMPARE(QByteArray(m.typeName()), returnType);
        QCOMPARE(m.parameterNames().join(','), parameterNames);
    }

    // The class as a whole: the 32 methods above, the State enumerator and
    // nothing else.
    void classMetaData()
    {
        const QMetaObject &mo = VexaObject::staticMetaObject;
        QCOMPARE(mo.className(), "VexaObject");
        QCOMPARE(mo.superClass(), &QObject::staticMetaObject);
        QCOMPARE(mo.methodCount() - mo.methodOffset(), 32);
        QCOMPARE(mo.propertyCount() - mo.propertyOffset() + mo.classInfoCount() - mo.classInfoOffset(), 0);
        QCOMPARE(mo.constructorCount(), 0);
        QCOMPARE(mo.enumeratorCount() - mo.enumeratorOffset(), 1);
        const QMetaEnum state = mo.enumerator(mo.indexOfEnumerator("State"));
        QVERIFY(!state.isFlag());
        QCOMPARE(state.keyCount(), 4);
        const char *const keys[] = {"created", "started", "stoped", "destroyed"};
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(state.key(i), keys[i]);
            QCOMPARE(state.value(i), i);
        }
    }

    // Only a started object answers. The argument decides the signature
    // looked up: one QVariant parameter, or none for an invalid argument; the
    // result must be a QVariant. The call runs in the object's thread, the
    // caller waiting, unless the name is listed for direct calls.
    void invoke_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<QString>("method");
        QTest::addColumn<QVariant>("arg");
        QTest::addColumn<QVariant>("expected");
        QTest::addColumn<QString>("warning");

        QTest::newRow("one argument") << "started" << "ping" << QVariant(5) << QVariant(5) << QString();
        QTest::newRow("not started") << "created" << "ping" << QVariant(5) << QVariant() << QString();
        QTest::newRow("stopped") << "stoped" << "ping" << QVariant(5) << QVariant() << QString();
        QTest::newRow("invalid argument picks ping()") << "started" << "ping" << QVariant() << QVariant("no argument") << QString();
        QTest::newRow("unknown name") << "started" << "nosuch" << QVariant(1) << QVariant()
                                      << "No such method VexaProbe::nosuch\\(QVariant\\)";
        QTest::newRow("parameter not QVariant") << "started" << "twice" << QVariant(3) << QVariant()
                                                << "No such method VexaProbe::twice\\(QVariant\\)";
        QTest::newRow("result not QVariant") << "started" << "count" << QVariant(3) << QVariant() << QString();
        QTest::newRow("base slot, result not QVariant") << "started" << "getState" << QVariant() << QVariant() << QString();
        QTest::newRow("blocking call") << "started" << "where" << QVariant() << QVariant("object thread") << QString();
        QTest::newRow("direct call") << "started" << "whereDirect" << QVariant() << QVariant("caller thread") << QString();
    }
    void invoke()
    {
        QFETCH(QString, state);
        QFETCH(QString, method);
        QFETCH(QVariant, arg);
        QFETCH(QVariant, expected);
        QFETCH(QString, warning);

        VexaProbe *p = makeProbe(QStringLiteral("meta_invoke"), QStringLiteral("meta_invoke_thread"));
        p->directInvokeNames << QStringLiteral("whereDirect");
        if (state != QLatin1String("created"))
            QVERIFY(p->start());
        if (state == QLatin1String("stoped"))
            QVERIFY(p->stop(true));
        QCOMPARE(p->getState(), state);
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(warning));
        QVariant result = p->invoke(method, arg);
        if (result.userType() == QMetaType::VoidStar) {
            const void *t = result.value<void *>();
            result = t == p->thread() ? "object thread" : t == QThread::currentThread() ? "caller thread" : "other";
        }
        QCOMPARE(result, expected);
        QCOMPARE(result.isValid(), expected.isValid());
        QVERIFY(retire({p}));
    }

    // Settings and descriptions given before start are parked (the later
    // value of a key wins, the last description only) and reach the module
    // in its own thread in this order: settings, onStart, description.
    void parkedUntilStart()
    {
        VexaProbe *p = makeProbe(QStringLiteral("obj_parked"));
        p->setData(QVariantMap{{"x", 1}, {"y", 1}});
        QVERIFY(p->setData(QStringLiteral("{\"y\":2,\"z\":3}")));
        p->invokeInfoV(makeInfo(1, {{"w", 1}}));
        p->invokeInfoV(makeInfo(2, {{"h", 2}}));
        QCoreApplication::processEvents(); // both arrive while not started
        QVERIFY(p->hooks().isEmpty());
        QVERIFY(p->getData().isEmpty());
        QVERIFY(p->getUserData().isEmpty());

        QVERIFY(p->start());
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
    // "bufLenA", "bufLenV" and "memSize" (queueBounds checks the bounds);
    // those keys are in the settings but never reach onSetData nor the user
    // data.
    void firstStartBufferKeys()
    {
        const QVariantMap given{{"bufLenA", 0}, {"bufLenV", -1}, {"memSize", 64}, {"mode", "fast"}};
        VexaProbe *p = makeProbe(QStringLiteral("obj_first_start"));
        QVERIFY(p->start(given));
        QCOMPARE(p->getData(), given);
        QCOMPARE(p->getUserData(), (QVariantMap{{"mode", "fast"}}));
        QCOMPARE(p->hooks(), (QStringList{"setData:mode", "start"}));
        QVERIFY(p->bufferData(nullptr, 64, 0));
        QVERIFY(retire({p}));
    }

    // Only settings that change something reach onSetData, in the object's
    // thread; a queue bound changed while running is applied.
    void changeOnlySettings()
    {
        VexaProbe *p = makeProbe(QStringLiteral("obj_changes"));
        QVERIFY(p->start());
        p->setData(QVariantMap{{"k", 1}});
        p->setData(QVariantMap{{"k", 1}});
        p->setData(QStringLiteral("{\"k\":2,\"bufLenV\":7}"));
        p->setData(QStringLiteral("not json"));
        QCOMPARE(p->getData(), (QVariantMap{{"k", 2}, {"bufLenV", 7}}));
        QCOMPARE(p->getUserData(), p->getData());
        QCOMPARE(p->hooks(), (QStringList{"start", "setData:k", "setData:bufLenV,k"}));
        QCOMPARE(p->bufLenV, 7);
        QVERIFY(retire({p}));
    }

    // start and stop report whether they changed the state; stop(true)
    // returns only after onStop ran; a restart parks and applies settings
    // again and reuses the object's thread.
    void startStopCycle()
    {
        VexaProbe *p = makeProbe(QStringLiteral("obj_cycle"));
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
        QVERIFY(!p->stop(true));

        p->setData(QVariantMap{{"again", true}}); // parked until the restart
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
        VexaProbe *p = makeProbe(QStringLiteral("obj_destroy"));
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
        VexaProbe *a = makeProbe(QStringLiteral("obj_shareA"), QStringLiteral("obj_shared"));
        VexaProbe *b = makeProbe(QStringLiteral("obj_shareB"), QStringLiteral("obj_shared"));
        b->trail = &trail;
        QVERIFY(a->start());
        QVERIFY(b->start());
        QCOMPARE(a->thread(), b->thread());
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

    // destroy() gives back exactly the thread uses the object's starts took:
    // none for a never-started or "main" object, every one for restarts, the
    // thread named after the object when threadName was empty; network
    // inputs ("InputRtsp...") keep theirs.
    void threadUsesGivenBack()
    {
        VexaProbe *user = makeProbe(QStringLiteral("uses_user"), QStringLiteral("uses_shared"));
        VexaProbe *idle = makeProbe(QStringLiteral("uses_idle"), QStringLiteral("uses_shared"));
        QVERIFY(user->start());
        idle->destroy();
        QCOMPARE(threadUses(QStringLiteral("uses_shared")), 1);
        QVERIFY(user->invoke(QStringLiteral("ping"), 1).isValid()); // its thread still answers

        VexaProbe *inMain = startInMain(QStringLiteral("uses_main"));
        VexaProbe *restarted = makeProbe(QStringLiteral("uses_restart"), QStringLiteral("uses_shared"));
        QVERIFY(restarted->start() && restarted->stop(true) && restarted->start());
        QCOMPARE(threadUses(QStringLiteral("uses_shared")), 3);
        inMain->destroy();
        restarted->destroy();
        QCOMPARE(threadUses(QStringLiteral("uses_shared")), 1);

        VexaProbe *own = makeProbe(QStringLiteral("uses_own"));
        QVERIFY(own->start());
        QPointer<QThread> ownThread = own->thread();
        QCOMPARE(ownThread->objectName(), QStringLiteral("uses_own"));
        own->destroy();
        QVERIFY(!Vexa::threadMap.contains(QStringLiteral("uses_own")));
        QTRY_VERIFY(ownThread.isNull());

        VexaProbe *rtsp = makeProbe(QStringLiteral("InputRtsp_uses"));
        QVERIFY(rtsp->start());
        rtsp->destroy();
        QCOMPARE(threadUses(QStringLiteral("InputRtsp_uses")), 1);
        Vexa::delThread(QStringLiteral("InputRtsp_uses"));
        QVERIFY(retire({user}));
    }

    // stop(true), getData() and invoke() called from the object's own thread
    // run directly instead of waiting for that thread's event loop.
    void ownThreadCallsRunDirectly_data()
    {
        QTest::addColumn<QString>("threadName");
        QTest::newRow("worker thread") << QString();
        QTest::newRow("main") << QStringLiteral("main");
    }
    void ownThreadCallsRunDirectly()
    {
        QFETCH(QString, threadName);
        VexaProbe *p = makeProbe(QStringLiteral("own_calls"), threadName);
        QVERIFY(p->start(QVariantMap{{"k", 1}}));
        QVariantList results;
        QAtomicInt done;
        QMetaObject::invokeMethod(p, [&] {
            results << p->getData().value(QStringLiteral("k")) << p->invoke(QStringLiteral("ping"), 5)
                    << p->stop(true) << p->hooks().last();
            done.storeRelease(1);
        }, Qt::QueuedConnection);
        QTRY_VERIFY(done.loadAcquire());
        QCOMPARE(results, (QVariantList{1, 5, true, QStringLiteral("stop")}));
        QVERIFY(retire({p}));
    }

    // The state changes in one thread (stop, start) while others ask the
    // object through getData() and invoke(), which read it.
    void stateReadWhileChanging()
    {
        VexaProbe *p = makeProbe(QStringLiteral("state_race"));
        QVERIFY(p->start());
        QAtomicInt done;
        std::thread toggler([&] {
            for (int i = 0; i < 200; ++i) {
                p->stop(true);
                p->start();
            }
            done.storeRelease(1);
        });
        while (!done.loadAcquire()) {
            p->invoke(QStringLiteral("ping"), 1);
            p->getData();
        }
        toggler.join();
        QCOMPARE(p->getState(), QStringLiteral("started"));
        QVERIFY(retire({p}));
    }

    // The bound counts the new packet and a full queue drops its oldest one.
    void queueBounds_data()
    {
        QTest::addColumn<bool>("audio");
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<int>("calls");
        QTest::addColumn<int>("firstFalse"); // 1-based; 0: every call returns true
        QTest::addColumn<int>("kept");

        QTest::newRow("audio, default bound 20") << true << QVariantMap() << 25 << 20 << 19;
        QTest::newRow("video, default bound 20") << false << QVariantMap() << 25 << 20 << 19;
        QTest::newRow("video, bound 3") << false << QVariantMap{{"bufLenV", 3}} << 6 << 3 << 2;
        QTest::newRow("audio, unbounded") << true << QVariantMap{{"bufLenA", -1}} << 25 << 0 << 25;
        QTest::newRow("video, unbounded") << false << QVariantMap{{"bufLenV", -1}} << 25 << 0 << 25;
        QTest::newRow("audio, bound 1") << true << QVariantMap{{"bufLenA", 1}} << 5 << 1 << 0;
        QTest::newRow("video, bound 0") << false << QVariantMap{{"bufLenV", 0}} << 5 << 1 << 0;
    }
    void queueBounds()
    {
        QFETCH(bool, audio);
        QFETCH(QVariantMap, settings);
        QFETCH(int, calls);
        QFETCH(int, firstFalse);
        QFETCH(int, kept);

        VexaProbe *p = startInMain(QStringLiteral("flow_bounds"), settings);
        for (int i = 1; i <= calls; ++i) {
            const bool ok = audio ? p->bufferPacketA(packet(i)) : p->bufferPacketV(packet(i));
            QVERIFY2(ok == (firstFalse == 0 || i < firstFalse), qPrintable(QStringLiteral("call %1").arg(i)));
        }
        QVERIFY(ptsRun(audio ? p->packetsA : p->packetsV, calls - kept + 1, calls));
        p->destroy();
    }

    // A bound lowered at a restart leaves a longer queue as it is: one in,
    // one out per call.
    void loweredBoundKeepsLength()
    {
        VexaProbe *p = startInMain(QStringLiteral("flow_lowered"));
        for (int i = 1; i <= 25; ++i)
            p->bufferPacketV(packet(i));
        QVERIFY(p->stop());
        p->setData(QVariantMap{{"bufLenV", 5}});
        QVERIFY(p->start());
        QCoreApplication::processEvents();
        QCOMPARE(p->bufLenV, 5);
        for (int i = 26; i <= 28; ++i)
            QVERIFY(!p->bufferPacketV(packet(i)));
        QVERIFY(ptsRun(p->packetsV, 10, 28));
        p->destroy();
    }

    // With the debug switch set, a full queue reports itself; the video line
    // reads the "path" setting, which inserts a null one when missing.
    void fullQueueDebugLine_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("audio");
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<QString>("line");

        const QVariantMap bound{{"bufLenA", 2}, {"bufLenV", 2}};
        QVariantMap withPath = bound;
        withPath.insert(QStringLiteral("path"), QStringLiteral("/dev/v0"));
        const QString name = QStringLiteral("flow_debug");
        QTest::newRow("audio") << name << true << bound << "[flow_debug] bufA full 2";
        QTest::newRow("video without path") << name << false << bound << "[flow_debug] bufV full 2 \"\"";
        QTest::newRow("video with path") << name << false << withPath << "[flow_debug] bufV full 2 \"/dev/v0\"";
        // Names are printed verbatim, whatever placeholders they hold.
        QTest::newRow("audio, odd name") << "flow_%1%2%s" << true << bound << "[flow_%1%2%s] bufA full 2";
        QTest::newRow("video, odd name") << "flow_%1%2%s" << false << withPath << "[flow_%1%2%s] bufV full 2 \"/dev/v0\"";
    }
    void fullQueueDebugLine()
    {
        QFETCH(QString, name);
        QFETCH(bool, audio);
        QFETCH(QVariantMap, settings);
        QFETCH(QString, line);

        VexaProbe *p = startInMain(name, settings);
        Vexa::debug = true;
        QTest::ignoreMessage(QtDebugMsg, qPrintable(line));
        for (int i = 0; i < 2; ++i)
            audio ? p->bufferPacketA(packet(i)) : p->bufferPacketV(packet(i));
        QVariantMap expected = settings;
        if (!audio && !settings.contains(QStringLiteral("path")))
            expected.insert(QStringLiteral("path"), QVariant()); // a null entry, not an empty string
        const QVariantMap after = p->getData();
        QCOMPARE(after, expected);
        QCOMPARE(after.value(QStringLiteral("path")).isNull(), !settings.contains(QStringLiteral("path")));
        p->destroy();
    }

    // The ring is created once; a block never wraps but restarts at the base
    // when it would reach the end; headroom bytes are left untouched.
    void payloadRing()
    {
        VexaProbe *p = makeProbe(QStringLiteral("flow_ring"));
        QVERIFY(!p->bufferData(nullptr, 1, 0));
        p->memInit(0);
        QVERIFY(!p->bufferData(nullptr, 1, 0));
        p->memInit(100);
        p->memInit(200); // ignored: the ring keeps its size
        QVERIFY(!p->bufferData(nullptr, 101, 0));
        QVERIFY(!p->bufferData(nullptr, 91, 10));

        char *base = p->bufferData(nullptr, 0, 0);
        QVERIFY(base);
        std::memset(base, '.', 100);
        char src[100];
        std::memset(src, 's', sizeof src);

        const auto at = [](char *ptr) { return static_cast<void *>(ptr); };
        char *a = p->bufferData(src, 30, 10);
        QCOMPARE(at(a), at(base + 10));
        QCOMPARE(QByteArray(base, 10), QByteArray(10, '.'));
        QCOMPARE(QByteArray(a, 30), QByteArray(30, 's'));
        QCOMPARE(a[30], '.');
        QCOMPARE(at(p->bufferData(src, 40, 10)), at(base + 50)); // ends at 90
        char *c = p->bufferData(nullptr, 10, 0);         // would end exactly at 100
        QCOMPARE(at(c), at(base));
        QCOMPARE(QByteArray(c, 10), QByteArray(10, '.')); // nothing copied
        QCOMPARE(at(p->bufferData(src, 100, 0)), at(base)); // the whole ring: only from the base
        QCOMPARE(at(p->bufferData(nullptr, 1, 0)), at(base));
        p->destroy();
    }

    // A description is accepted when its sender differs, or when its type or
    // one of the parameters it carries changed; dropping a parameter alone
    // is no change.
    void descriptionChangeRule_data()
    {
        QTest::addColumn<bool>("otherSender");
        QTest::addColumn<int>("type");
        QTest::addColumn<QVariantMap>("params");
        QTest::addColumn<bool>("accepted");

        const QVariantMap same{{"w", 1}, {"h", 2}};
        QTest::newRow("equal, same sender") << false << 1 << same << false;
        QTest::newRow("equal, other sender") << true << 1 << same << true;
        QTest::newRow("lacks a key") << false << 1 << QVariantMap{{"w", 1}} << false;
        QTest::newRow("no params") << false << 1 << QVariantMap() << false;
        QTest::newRow("type changed") << false << 2 << same << true;
        QTest::newRow("value changed") << false << 1 << QVariantMap{{"w", 1}, {"h", 3}} << true;
        QTest::newRow("key added") << false << 1 << QVariantMap{{"w", 1}, {"h", 2}, {"fps", 25}} << true;
    }
    void descriptionChangeRule()
    {
        QFETCH(bool, otherSender);
        QFETCH(int, type);
        QFETCH(QVariantMap, params);
        QFETCH(bool, accepted);

        VexaProbe *x = startInMain(QStringLiteral("flow_x"));
        VexaProbe *y = startInMain(QStringLiteral("flow_y"));
        VexaProbe *r = startInMain(QStringLiteral("flow_r"));
        for (bool audio : {true, false}) {
            auto deliver = [&](const StreamInfo &i) { audio ? r->invokeInfoA(i) : r->invokeInfoV(i); };
            const int before = r->hooks().size();
            deliver(makeInfo(1, {{"w", 1}, {"h", 2}}, x));
            QCoreApplication::processEvents();
            QCOMPARE(r->hooks().size(), before + 1);
            deliver(makeInfo(type, params, otherSender ? y : x));
            QCoreApplication::processEvents();
            QCOMPARE(r->hooks().size(), before + 1 + int(accepted));
        }
        const QVariantList current = r->currentInV().toList();
        QCOMPARE(current.value(0).toInt(), accepted ? type : 1);
        for (VexaProbe *p : {x, y, r})
            p->destroy();
    }
};

QTEST_GUILESS_MAIN(tst_VexaObject)
#include "tst_vexaobject.moc"
