// Receivers linked, started, unlinked and destroyed while a source sends as
// fast as it can from its own thread. After unLinkV returns no delivery from
// the source runs in the receiver or starts; destroy() deletes a receiver
// only once every delivery to it has returned (the sanitizer build catches a
// hook running in freed memory); each receiver's thread, busy with its
// queued calls, is let go by its last user from another thread without the
// release touching a finished thread; a receiver linked throughout gets
// every packet; the process's threads come back to where they were, and its
// memory grows no more than plain Qt's for as many threads.
// Its own process: the thread count is the whole process's.

#include <memory>
#include <mutex>
#include <thread>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <QPointer>
#include <QtTest>

#include <Vexa>
#include <VexaObject>

#include "vexatest.h"

class VexaStressSink : public VexaObject
{
    Q_OBJECT

public:
    Q_INVOKABLE explicit VexaStressSink(QObject *parent = nullptr) : VexaObject(parent) {}

    QAtomicInt inside;              // deliveries running in the hook now
    QAtomicInteger<qint64> received; // hook calls
    bool queue = true;              // hand packets to the bounded queue, as a worker module does

protected:
    void onNewPacketV(Packet p) override
    {
        inside.ref();
        received.ref();
        if (queue)
            bufferPacketV(p);
        inside.deref();
    }
};

namespace {

int processThreads()
{
    return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

// Resident memory in kB, from /proc/self/status.
qint64 residentKb()
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : f.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

// Resident memory says something about the library only in a plain native
// build: the sanitizers keep freed memory aside, and an emulator keeps state
// of its own for every thread it ever ran.
bool memoryIsTelling()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(VEXA_TEST_EMULATOR)
    return false;
#else
    return true;
#endif
}

// Receiver cycles: VEXA_STRESS_CYCLES, else 10,000 scaled to what the build
// carries (each cycle starts and ends a thread, and the sanitizers' runtimes
// hold a bounded number of thread records).
int cycles()
{
    const int fromEnv = qEnvironmentVariableIntValue("VEXA_STRESS_CYCLES");
    return fromEnv > 0 ? fromEnv : qMax(1000, int(10000 * VexaTest::stressScale()));
}

// Serves the application thread's events (the finished threads' deferred
// deletes) until @p count reaches @p target. However long a run takes: the
// test's time-out and QtTest's watchdog bound it.
void waitWhileServing(const QAtomicInt &count, int target)
{
    while (count.loadAcquire() < target)
        QTest::qWait(20);
}

// What Qt alone costs for the same thread churn: a thread started, an object
// moved into it and given queued calls, and the thread let go by a queued
// quit, from two threads at once; the thread objects deleted by the
// application thread once finished. The quit waits until its post has
// returned, as the library's does: plain Qt has the same race between a
// post's wake-up and the end of a thread that the post let finish.
void plainQtChurn(int n)
{
    QAtomicInt done;
    const auto churn = [&done](int count) {
        for (int i = 0; i < count; ++i) {
            auto *thread = new QThread;
            thread->moveToThread(QCoreApplication::instance()->thread());
            QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
            thread->start();
            auto *obj = new QObject;
            obj->moveToThread(thread);
            for (int call = 0; call < 4; ++call)
                QMetaObject::invokeMethod(obj, [] {}, Qt::QueuedConnection);
            auto gate = std::make_shared<std::mutex>();
            std::unique_lock<std::mutex> posting(*gate);
            QMetaObject::invokeMethod(obj, [obj, thread, gate] {
                std::lock_guard<std::mutex> posted(*gate);
                delete obj;
                thread->quit();
            }, Qt::QueuedConnection);
        }
        done.ref();
    };
    std::thread a(churn, n / 2);
    std::thread b(churn, n - n / 2);
    waitWhileServing(done, 2);
    a.join();
    b.join();
}

} // namespace

class tst_DynamicPipeline : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Vexa::init(false);
        qRegisterMetaType<VexaStressSink *>("VexaStressSink");
    }

    void receiversComeAndGoWhileSending()
    {
        auto *source = qobject_cast<VexaStressSink *>(Vexa::create(QStringLiteral("StressSink"), QStringLiteral("dyn_source")));
        auto *keeper = qobject_cast<VexaStressSink *>(Vexa::create(QStringLiteral("StressSink"), QStringLiteral("dyn_keeper")));
        keeper->queue = false;
        source->linkV(keeper);
        QVERIFY(source->start() && keeper->start());

        QAtomicInt stop, sending;
        QAtomicInteger<qint64> sent;
        QMetaObject::invokeMethod(source, [&] {
            sending.storeRelease(1);
            VexaObject::Packet p;
            while (!stop.loadAcquire()) {
                ++p.pts;
                source->sendPacketV(p);
                sent.storeRelease(p.pts);
            }
            sending.storeRelease(2);
        });
        QTRY_COMPARE(sending.loadAcquire(), 1);

        // Warm up once, so that the baseline counts the threads and memory a
        // running pipeline needs anyway.
        QMutex factory; // create() and the registry are not locked
        QAtomicInt failures;
        const auto churn = [&](int n, QString *why) {
            for (int i = 0; i < n; ++i) {
                VexaStressSink *r;
                {
                    QMutexLocker locker(&factory);
                    r = qobject_cast<VexaStressSink *>(Vexa::create(QStringLiteral("StressSink")));
                }
                r->start(QVariantMap{{"bufLenV", 20}});
                source->linkV(r);
                for (int spin = 0; spin < 20 && r->received.loadAcquire() == 0; ++spin)
                    std::this_thread::yield();
                source->unLinkV(r);
                const qint64 atUnlink = r->received.loadAcquire();
                if (r->inside.loadAcquire() != 0) {
                    *why = QStringLiteral("a delivery still ran after unLinkV returned");
                    failures.ref();
                }
                for (int spin = 0; spin < 3; ++spin)
                    std::this_thread::yield();
                if (r->received.loadAcquire() != atUnlink) {
                    *why = QStringLiteral("a delivery started after unLinkV returned");
                    failures.ref();
                }
                QMutexLocker locker(&factory);
                r->destroy();
            }
        };
        const auto run = [&](int n) {
            QString why1, why2;
            QAtomicInt done;
            std::thread a([&] { churn(n / 2, &why1); done.ref(); });
            std::thread b([&] { churn(n - n / 2, &why2); done.ref(); });
            waitWhileServing(done, 2);
            a.join();
            b.join();
            QVERIFY2(failures.loadAcquire() == 0, qPrintable(why1 + why2));
        };

        // The control: Qt's own cost of the same number of threads, measured
        // in this run, is what the library's churn may grow by, and a little.
        const int n = cycles();
        plainQtChurn(200);
        run(200);
        QTRY_VERIFY_WITH_TIMEOUT(Vexa::threadMap.size() == 2, 30000);
        QTest::qWait(100);
        const int threadsBefore = processThreads();
        qint64 memoryBefore = residentKb();
        if (memoryIsTelling()) {
            plainQtChurn(n);
            QTRY_VERIFY_WITH_TIMEOUT(processThreads() <= threadsBefore, 30000);
            QTest::qWait(100);
        }
        const qint64 control = residentKb() - memoryBefore;
        memoryBefore = residentKb();

        run(n);

        // Every receiver's thread ends once released; the process is back
        // where it was, its memory too.
        QTRY_VERIFY_WITH_TIMEOUT(Vexa::threadMap.size() == 2, 30000);
        QTRY_VERIFY_WITH_TIMEOUT(processThreads() <= threadsBefore, 30000);
        const qint64 grown = residentKb() - memoryBefore;
        qInfo("%d cycles: resident memory grew by %lld kB, %lld kB with plain Qt", n, grown, control);
        if (memoryIsTelling())
            QVERIFY2(grown <= qMax<qint64>(control, 0) * 5 / 4 + 2048,
                     qPrintable(QStringLiteral("resident memory grew by %1 kB, plain Qt by %2 kB").arg(grown).arg(control)));

        stop.storeRelease(1);
        QTRY_COMPARE(sending.loadAcquire(), 2);
        QCOMPARE(keeper->received.loadAcquire(), sent.loadAcquire());
        QVERIFY(Vexa::objectMap.size() == 2);
        for (VexaObject *o : {static_cast<VexaObject *>(source), static_cast<VexaObject *>(keeper)})
            o->destroy();
        QTRY_VERIFY_WITH_TIMEOUT(Vexa::threadMap.isEmpty(), 30000);
    }
};

QTEST_GUILESS_MAIN(tst_DynamicPipeline)
#include "tst_dynamicpipeline.moc"
