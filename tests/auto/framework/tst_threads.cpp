// The worker-thread registry: threads shared by name and counted, generated
// "oneself_N" names, and the last release stopping the thread. Only
// generatedNames() asks for empty names, so it sees a fresh registry.

#include <QCoreApplication>
#include <QPointer>
#include <QSemaphore>
#include <QtTest>

#include <Vexa>

namespace {

int uses(const QString &name)
{
    QMutexLocker locker(&Vexa::lockThread);
    return Vexa::threadCount.value(name, 0);
}

bool registered(const QString &name)
{
    QMutexLocker locker(&Vexa::lockThread);
    return Vexa::threadMap.contains(name) || Vexa::threadCount.contains(name);
}

} // namespace

class tst_Threads : public QObject
{
    Q_OBJECT

private slots:
    void generatedNames()
    {
        QString a, b;
        QThread *ta = Vexa::newThread(a);
        QThread *tb = Vexa::newThread(b);
        QCOMPARE(a, QStringLiteral("oneself_0"));
        QCOMPARE(b, QStringLiteral("oneself_1"));
        QVERIFY(ta != tb);
        QCOMPARE(ta->objectName(), a);
        QVERIFY(ta->isRunning());

        QPointer<QThread> gone = ta;
        Vexa::delThread(a);
        QTRY_VERIFY(gone.isNull());
        QString c;
        QPointer<QThread> tc = Vexa::newThread(c);
        QCOMPARE(c, QStringLiteral("oneself_0"));
        QVERIFY(tc->isRunning());

        QPointer<QThread> tbGuard = tb;
        Vexa::delThread(b);
        Vexa::delThread(c);
        QTRY_VERIFY(tbGuard.isNull() && tc.isNull());
    }

    // The thread lives while it has users; the last release asks a busy
    // thread to stop and deletes it only once it has finished (deleting a
    // running QThread would abort the process).
    void sharedAndReleased()
    {
        QString name = QStringLiteral("thr_enc");
        QThread *t = Vexa::newThread(name);
        QCOMPARE(Vexa::newThread(name), t);
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
        Vexa::delThread(QStringLiteral("THR_ENC")); // unknown names are ignored
        Vexa::delThread(QStringLiteral("thr_never"));
        QVERIFY(!registered(QStringLiteral("thr_never")));
        QCOMPARE(uses(name), 1);
        QVERIFY(t->isRunning());

        QPointer<QThread> guard = t;
        Vexa::delThread(name);
        QVERIFY(!registered(name));
        QTRY_VERIFY_WITH_TIMEOUT(guard.isNull(), 20000);
        QCOMPARE(interrupted.loadAcquire(), 1);

        // The name starts over with a new thread and one use.
        QPointer<QThread> again = Vexa::newThread(name);
        QVERIFY(again->isRunning());
        QCOMPARE(uses(name), 1);
        Vexa::delThread(name);
        Vexa::delThread(name); // already released: ignored
        QVERIFY(!registered(name));
        QTRY_VERIFY(again.isNull());
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
};

QTEST_GUILESS_MAIN(tst_Threads)
#include "tst_threads.moc"
