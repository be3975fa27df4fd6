// Checks the annotations of Qt's synchronisation (instruments/tsan) from the
// outside: one thread writes a plain value, hands it over through a Qt
// primitive, and another reads it. Each hand-over must stay silent (any
// report makes this process exit with 66 and the test fail). What must be
// reported is run in child processes: a write with no hand-over at all, a
// copy of a registered type racing with a write outside any emission, and a
// signal handler of a program's own that allocates.

#include <QtTest>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

#include "vexatest.h"

namespace {

// A plain value handed from one thread to another; never atomic.
struct Cargo {
    int value = 0;
};

// The primitives a lock hand-over may use, and the value it hands over.
struct Sync {
    QMutex mutex;
    QRecursiveMutex recursive;
    QReadWriteLock rw{QReadWriteLock::Recursive};
    QSemaphore sem;
    QWaitCondition cond;
    bool ready = false; // guarded by mutex
    Cargo cargo;
};

} // namespace

Q_DECLARE_METATYPE(Cargo)
using Write = std::function<void(Sync &)>;
using Read = std::function<int(Sync &, std::thread &writer)>;
Q_DECLARE_METATYPE(Write)
Q_DECLARE_METATYPE(Read)

namespace {

class Receiver : public QObject
{
    Q_OBJECT

public:
    Cargo *cargo = nullptr;
    QAtomicInt seen{0};

public slots:
    void take(int expected)
    {
        if (cargo->value == expected)
            seen.storeRelease(1);
    }
    void takeCopy(Cargo copy)
    {
        if (copy.value == 7)
            seen.storeRelease(1);
    }
    int read() { return cargo->value; }
    void write(int v) { cargo->value = v; }
};

class Sender : public QObject
{
    Q_OBJECT

signals:
    void handOver(int expected);
    void handOverCopy(Cargo copy);
};

// The children: each makes one report the sanitizer must not miss.
int raceChild(const char *kind)
{
    static int shared = 0;  // written by two threads with nothing between them
    static Cargo cargo;
    if (qstrcmp(kind, "--race") == 0) {
        std::thread a([] { shared = 1; });
        std::thread b([] { shared = 2; });
        a.join();
        b.join();
    } else if (qstrcmp(kind, "--copy") == 0) {
        // A QVariant's copy runs the registered copy constructor, watched
        // outside an emission's argument copies.
        qRegisterMetaType<Cargo>("Cargo");
        std::thread a([] { cargo.value = 1; });
        std::thread b([] { shared = QVariant::fromValue(cargo).value<Cargo>().value; });
        a.join();
        b.join();
    } else if (qstrcmp(kind, "--handler") == 0) {
        // Only the library's own handler is let through. (Run with
        // ignore_noninstrumented_modules=0: with it on, as the suite runs,
        // the runtime checks no handler.)
        std::signal(SIGUSR1, [](int) {
            void *volatile block = std::malloc(64);
            std::free(block);
            shared = 1;
        });
        std::raise(SIGUSR1);
    }
    return shared == 0 ? 1 : 0;
}

} // namespace

class tst_TsanAnnotations : public QObject
{
    Q_OBJECT

private slots:
    // The writer sets the value to 1 under the primitive; the reader takes
    // it through the same primitive (after joining the writer where the
    // primitive alone does not wait for it).
    void lockHandOvers_data()
    {
        QTest::addColumn<Write>("write");
        QTest::addColumn<Read>("read");
        QTest::newRow("QMutex") << Write([](Sync &s) { QMutexLocker l(&s.mutex); s.cargo.value = 1; s.ready = true; })
                                << Read([](Sync &s, std::thread &) {
                                       for (;;) {
                                           QMutexLocker l(&s.mutex);
                                           if (s.ready)
                                               return s.cargo.value;
                                       }
                                   });
        QTest::newRow("QRecursiveMutex")
            << Write([](Sync &s) { QMutexLocker outer(&s.recursive), inner(&s.recursive); s.cargo.value = 1; })
            << Read([](Sync &s, std::thread &w) { w.join(); QMutexLocker l(&s.recursive); return s.cargo.value; });
        QTest::newRow("QReadWriteLock")
            << Write([](Sync &s) { QWriteLocker outer(&s.rw), inner(&s.rw); s.cargo.value = 1; })
            << Read([](Sync &s, std::thread &w) { w.join(); QReadLocker outer(&s.rw), inner(&s.rw); return s.cargo.value; });
        QTest::newRow("QSemaphore") << Write([](Sync &s) { s.cargo.value = 1; s.sem.release(); })
                                    << Read([](Sync &s, std::thread &) { s.sem.acquire(); return s.cargo.value; });
        QTest::newRow("QWaitCondition")
            << Write([](Sync &s) { QMutexLocker l(&s.mutex); s.cargo.value = 1; s.ready = true; s.cond.wakeAll(); })
            << Read([](Sync &s, std::thread &) {
                   QMutexLocker l(&s.mutex);
                   while (!s.ready)
                       s.cond.wait(&s.mutex);
                   return s.cargo.value;
               });
    }

    void lockHandOvers()
    {
        QFETCH(Write, write);
        QFETCH(Read, read);
        Sync sync;
        std::thread writer([&] { write(sync); });
        const int readBack = read(sync, writer);
        if (writer.joinable())
            writer.join();
        QCOMPARE(readBack, 1);
    }

    void eventHandOvers_data()
    {
        QTest::addColumn<QString>("way");
        for (const char *w : {"queued call", "queued functor", "queued signal", "queued signal, own type",
                              "blocking call", "blocking write"})
            QTest::newRow(w) << QString::fromLatin1(w);
    }

    void eventHandOvers()
    {
        QFETCH(QString, way);
        Cargo cargo;
        QThread thread;
        thread.start();
        auto *receiver = new Receiver;
        receiver->cargo = &cargo;
        receiver->moveToThread(&thread);
        Sender sender;
        connect(&sender, &Sender::handOver, receiver, &Receiver::take, Qt::QueuedConnection);
        qRegisterMetaType<Cargo>();
        connect(&sender, &Sender::handOverCopy, receiver, &Receiver::takeCopy, Qt::QueuedConnection);

        if (way == QLatin1String("blocking write")) {
            // Written there, read here once the blocking call returns.
            QVERIFY(QMetaObject::invokeMethod(receiver, "write", Qt::BlockingQueuedConnection, Q_ARG(int, 9)));
            QCOMPARE(cargo.value, 9);
        } else {
            cargo.value = 7; // written here, in this thread, before the hand-over
            if (way == QLatin1String("queued call")) {
                QMetaObject::invokeMethod(receiver, "take", Qt::QueuedConnection, Q_ARG(int, 7));
            } else if (way == QLatin1String("queued functor")) {
                QMetaObject::invokeMethod(receiver, [receiver] { receiver->take(7); }, Qt::QueuedConnection);
            } else if (way == QLatin1String("queued signal")) {
                emit sender.handOver(7);
            } else if (way == QLatin1String("queued signal, own type")) {
                emit sender.handOverCopy(cargo); // the copy is made here, during the emission
            } else {
                int result = 0;
                QVERIFY(QMetaObject::invokeMethod(receiver, "read", Qt::BlockingQueuedConnection, Q_RETURN_ARG(int, result)));
                receiver->seen.storeRelease(result == 7);
            }
            QTRY_COMPARE(receiver->seen.loadAcquire(), 1);
        }

        receiver->deleteLater();
        thread.quit();
        QVERIFY(thread.wait(30000));
    }

    void threadEnd()
    {
        Cargo cargo;
        QScopedPointer<QThread> thread(QThread::create([&cargo] { cargo.value = 5; }));
        thread->start();
        QVERIFY(thread->wait(30000));
        QCOMPARE(cargo.value, 5);
    }

    void reported_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("report");
        QTest::addColumn<bool>("libraryChecks");  // ignore_noninstrumented_modules=0
        QTest::newRow("plain race") << "--race" << QByteArray("WARNING: ThreadSanitizer: data race") << false;
        QTest::newRow("copy of a registered type") << "--copy" << QByteArray("WARNING: ThreadSanitizer: data race") << false;
        QTest::newRow("a program's own signal handler")
            << "--handler" << QByteArray("WARNING: ThreadSanitizer: signal-unsafe call inside of a signal") << true;
    }
    void reported()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, report);
        QFETCH(bool, libraryChecks);
        // The report must reach the child's stderr, whatever this run logs to;
        // the suppressions stay.
        QStringList options;
        for (const QString &o : qEnvironmentVariable("TSAN_OPTIONS").split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
            if (!o.startsWith(QLatin1String("log_path=")) && !o.startsWith(QLatin1String("exitcode="))
                && !(libraryChecks && o.startsWith(QLatin1String("ignore_noninstrumented_modules="))))
                options << o;
        }
        options << QStringLiteral("exitcode=66");
        if (libraryChecks)
            options << QStringLiteral("ignore_noninstrumented_modules=0");
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TSAN_OPTIONS"), options.join(QLatin1Char(':')));
        QProcess child;
        child.setProcessEnvironment(env);
        QVERIFY(VexaTest::runSelf(child, {kind}));
        const QByteArray err = child.readAllStandardError();
        QVERIFY2(err.contains(report), err.constData());
        QCOMPARE(child.exitCode(), 66);
    }
};

int main(int argc, char **argv)
{
    if (argc > 1 && argv[1][0] == '-' && argv[1][1] == '-')
        return raceChild(argv[1]);
    QCoreApplication app(argc, argv);
    tst_TsanAnnotations tc;
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_tsanannotations.moc"
