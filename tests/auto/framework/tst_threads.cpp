// The worker-thread registry: threads shared by name and counted, generated
// "oneself_N" names, and the last release stopping the thread. Only
// generatedNames() asks for empty names, so it sees a fresh registry.

#include <algorithm>
#include <thread>

#include <QCoreApplication>
#include <QPointer>
#include <QSemaphore>
#include <QtTest>

#include <Vexa>

// Uses of a named thread; -1 when the registry holds nothing under the name.
static int uses(const QString &name)
{
    QMutexLocker locker(&Vexa::lockThread);
    if (!Vexa::threadMap.contains(name) && !Vexa::threadCount.contains(name))
        return -1;
    return Vexa::threadCount.value(name, 0);
}

class tst_Threads : public QObject
{
    Q_OBJECT

private slots:
    void generatedNames()
    {
        QString a, b, c;
        QPointer<QThread> ta = Vexa::newThread(a);
        QPointer<QThread> tb = Vexa::newThread(b);
        QCOMPARE(a, QStringLiteral("oneself_0"));
        QCOMPARE(b, QStringLiteral("oneself_1"));
        QVERIFY(ta != tb);
        QCOMPARE(ta->objectName(), a);
        QVERIFY(ta->isRunning());

        Vexa::delThread(a);
        QTRY_VERIFY(ta.isNull());
        QPointer<QThread> tc = Vexa::newThread(c);
        QCOMPARE(c, QStringLiteral("oneself_0"));
        QVERIFY(tc->isRunning());
        Vexa::delThread(b);
        Vexa::delThread(c);
        QTRY_VERIFY(tb.isNull() && tc.isNull());
    }

    // The thread lives while it has users; the last release asks a busy
    // thread to stop and deletes it only once it has finished (deleting a
    // running QThread would abort the process). Unknown names are ignored.
    void sharedAndReleased()
    {
        QString name = QStringLiteral("thr_enc");
        QPointer<QThread> t = Vexa::newThread(name);
        QCOMPARE(Vexa::newThread(name), t.data());
        QCOMPARE(name, QStringLiteral("thr_enc"));
        QCOMPARE(t->objectName(), name);
        QCOMPARE(uses(name), 2);

        QSemaphore busy;
        QAtomicInt interrupted;
        auto *job = new QObject;
        job->moveToThread(t);
        QMetaObject::invokeMethod(job, [&] {
            busy.release();
            // Runs until delThread asks the thread to stop (at most ~10 s).
            for (int i = 0; i < 10000 && !QThread::currentThread()->isInterruptionRequested(); ++i)
                QThread::msleep(1);
            QThread::msleep(50);
            interrupted.storeRelease(QThread::currentThread()->isInterruptionRequested());
        });
        job->deleteLater();
        busy.acquire();

        Vexa::delThread(name);
        Vexa::delThread(QStringLiteral("THR_ENC"));
        Vexa::delThread(QStringLiteral("thr_never"));
        QCOMPARE(uses(QStringLiteral("thr_never")), -1);
        QCOMPARE(uses(name), 1);
        QVERIFY(t->isRunning());

        Vexa::delThread(name);
        QCOMPARE(uses(name), -1);
        QTRY_VERIFY_WITH_TIMEOUT(t.isNull(), 20000);
        QCOMPARE(interrupted.loadAcquire(), 1);

        Vexa::delThread(name); // already released: ignored
        QCOMPARE(uses(name), -1);
    }

    // Only the first request of a name chooses the priority.
    void priorityFromFirstRequest()
    {
        QString name = QStringLiteral("thr_prio");
        QPointer<QThread> t = Vexa::newThread(name, QThread::LowPriority);
        QCOMPARE(Vexa::newThread(name, QThread::HighPriority), t.data());
        QCOMPARE(t->priority(), QThread::LowPriority);
        Vexa::delThread(name);
        Vexa::delThread(name);
        QTRY_VERIFY(t.isNull());
    }

    // Threads asked for and released from threads without an event loop (a
    // std::thread, a capture callback) are still freed once they finished.
    void releasedFromPlainThreads()
    {
        QVector<QPointer<QThread>> threads;
        std::thread([&] {
            for (int i = 0; i < 20; ++i) {
                QString name = QStringLiteral("thr_plain_%1").arg(i);
                threads << Vexa::newThread(name);
                Vexa::delThread(name);
            }
        }).join();
        QTRY_VERIFY(std::all_of(threads.begin(), threads.end(), [](const QPointer<QThread> &t) { return t.isNull(); }));
    }
};

QTEST_GUILESS_MAIN(tst_Threads)
#include "tst_threads.moc"
