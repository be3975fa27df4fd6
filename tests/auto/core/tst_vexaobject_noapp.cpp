// Without an application object every hop is a direct call in the caller:
// nothing is moved to another thread and no worker thread is created.

#include <QtTest>

#include "vexaprobe.h"

class tst_VexaObjectNoApp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Vexa::init(false);
        registerProbe();
    }

    void lifecycleRunsInTheCaller()
    {
        QThread *caller = QThread::currentThread();
        Trail trail;
        auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("noapp_life")));
        p->trail = &trail;
        p->setData(QVariantMap{{"k", 1}, {"bufLenV", 3}});
        QVERIFY(p->start());
        QCOMPARE(p->hooks(), (QStringList{"setData:k", "start"})); // already ran, in order
        QCOMPARE(p->bufLenV, 3);

        p->setData(QVariantMap{{"k", 2}});
        QCOMPARE(p->hooks().last(), QStringLiteral("setData:k"));
        QCOMPARE(p->getData(), (QVariantMap{{"k", 2}, {"bufLenV", 3}}));
        QCOMPARE(p->invoke(QStringLiteral("where")).value<void *>(), static_cast<void *>(caller));

        QVERIFY(p->stop(true));
        QCOMPARE(p->hooks().last(), QStringLiteral("stop"));
        QVERIFY(p->start());
        p->destroy();
        QCOMPARE(trail.get(), (QStringList{"setData:k", "start", "setData:k", "stop", "start", "stop"}));
        QVERIFY(!Vexa::find(QStringLiteral("noapp_life")));

        QCOMPARE(p->thread(), caller);
        for (const VexaProbe::Entry &e : p->entries())
            QCOMPARE(e.thread, caller);
        QVERIFY(Vexa::threadMap.isEmpty());
        delete p; // no event loop will ever run the deferred delete
    }
};

QTEST_APPLESS_MAIN(tst_VexaObjectNoApp)
#include "tst_vexaobject_noapp.moc"
