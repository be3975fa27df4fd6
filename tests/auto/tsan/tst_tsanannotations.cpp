// Checks the annotations of Qt's synchronisation (tests/tsan) from the
// outside: one thread writes a plain value, hands it over through a Qt
// primitive, and another reads it. Each hand-over must stay silent (any
// report makes this process exit with 66 and the test fail); a write with no
// hand-over at all, run in a child process, must be reported.

#include <QtTest>

#include <thread>

#include "vexatest.h"

namespace {

// A plain value handed from one thread to another; never atomic.
struct Cargo {
    int value = 0;
};

} // namespace

Q_DECLARE_METATYPE(Cargo)

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

int raceChild()
{
    static int shared = 0;  // written by two threads with nothing between them
    std::thread a([] { shared = 1; });
    std::thread b([] { shared = 2; });
    a.join();
    b.join();
    return shared == 0 ? 1 : 0;
}

} // namespace

class tst_TsanAnnotations : public QObject
{
    Q_OBJECT

private slots:
    void lockHandOvers_data()
    {
        QTest::addColumn<QString>("primitive");
        for (const char *p : {"QMutex", "QRecursiveMutex", "QReadWriteLock", "QSemaphore", "QWaitCondition"})
            QTest::newRow(p) << QString::fromLatin1(p);
    }

    void lockHandOvers()
    {
        QFETCH(QString, primitive);
        Cargo cargo;
        QMutex mutex;
        QRecursiveMutex recursive;
        QReadWriteLock rw(QReadWriteLock::Recursive);
        QSemaphore sem;
        QWaitCondition cond;
        bool ready = false;  // guarded by mutex
        int readBack = -1;

        std::thread writer([&] {
            if (primitive == QLatin1String("QMutex")) {
                QMutexLocker locker(&mutex);
                cargo.value = 1;
                ready = true;
            } else if (primitive == QLatin1String("QRecursiveMutex")) {
                QMutexLocker outer(&recursive);
                QMutexLocker inner(&recursive);
                cargo.value = 1;
            } else if (primitive == QLatin1String("QReadWriteLock")) {
                QWriteLocker outer(&rw);
                QWriteLocker inner(&rw);
                cargo.value = 1;
            } else if (primitive == QLatin1String("QSemaphore")) {
                cargo.value = 1;
                sem.release();
            } else {
                QMutexLocker locker(&mutex);
                cargo.value = 1;
                ready = true;
                cond.wakeAll();
            }
        });

        if (primitive == QLatin1String("QMutex")) {
            for (bool done = false; !done;) {
                QMutexLocker locker(&mutex);
                done = ready;
                if (done)
                    readBack = cargo.value;
            }
        } else if (primitive == QLatin1String("QRecursiveMutex")) {
            writer.join();
            QMutexLocker locker(&recursive);
            readBack = cargo.value;
        } else if (primitive == QLatin1String("QReadWriteLock")) {
            writer.join();
            QReadLocker outer(&rw);
            QReadLocker inner(&rw);
            readBack = cargo.value;
        } else if (primitive == QLatin1String("QSemaphore")) {
            sem.acquire();
            readBack = cargo.value;
        } else {
            QMutexLocker locker(&mutex);
            while (!ready)
                cond.wait(&mutex);
            readBack = cargo.value;
        }
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

        // The value is written here, in this thread, before the hand-over.
        if (way == QLatin1String("queued call")) {
            cargo.value = 7;
            QMetaObject::invokeMethod(receiver, "take", Qt::QueuedConnection, Q_ARG(int, 7));
            QTRY_COMPARE(receiver->seen.loadAcquire(), 1);
        } else if (way == QLatin1String("queued functor")) {
            cargo.value = 7;
            QMetaObject::invokeMethod(receiver, [receiver] { receiver->take(7); }, Qt::QueuedConnection);
            QTRY_COMPARE(receiver->seen.loadAcquire(), 1);
        } else if (way == QLatin1String("queued signal")) {
            cargo.value = 7;
            emit sender.handOver(7);
            QTRY_COMPARE(receiver->seen.loadAcquire(), 1);
        } else if (way == QLatin1String("queued signal, own type")) {
            // The copy of the argument is made here, during the emission.
            cargo.value = 7;
            emit sender.handOverCopy(cargo);
            QTRY_COMPARE(receiver->seen.loadAcquire(), 1);
        } else if (way == QLatin1String("blocking call")) {
            cargo.value = 7;
            int result = 0;
            QVERIFY(QMetaObject::invokeMethod(receiver, "read", Qt::BlockingQueuedConnection,
                                              Q_RETURN_ARG(int, result)));
            QCOMPARE(result, 7);
        } else {
            // Written there, read here once the blocking call returns.
            QVERIFY(QMetaObject::invokeMethod(receiver, "write", Qt::BlockingQueuedConnection, Q_ARG(int, 9)));
            QCOMPARE(cargo.value, 9);
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

    void plainRaceIsReported()
    {
        // The report must reach the child's stderr, whatever this run logs to.
        QStringList options;
        for (const QString &o : qEnvironmentVariable("TSAN_OPTIONS").split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
            if (!o.startsWith(QLatin1String("log_path=")) && !o.startsWith(QLatin1String("exitcode=")))
                options << o;
        }
        options << QStringLiteral("exitcode=66");
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TSAN_OPTIONS"), options.join(QLatin1Char(':')));
        QProcess child;
        child.setProcessEnvironment(env);
        QVERIFY(VexaTest::runSelf(child, {QStringLiteral("--race")}));
        const QByteArray err = child.readAllStandardError();
        QVERIFY2(err.contains("WARNING: ThreadSanitizer: data race"), err.constData());
        QCOMPARE(child.exitCode(), 66);
    }
};

int main(int argc, char **argv)
{
    if (argc > 1 && qstrcmp(argv[1], "--race") == 0)
        return raceChild();
    QCoreApplication app(argc, argv);
    tst_TsanAnnotations tc;
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_tsanannotations.moc"
