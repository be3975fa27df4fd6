// Without an application object every hop is a direct call in the caller:
// nothing is moved to another thread, descriptions, unlink notices and
// events arrive at once, destroy() deletes the object, and a released
// registry thread ends and is freed.

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
        QPointer<VexaProbe> p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("noapp_life")));
        p->trail = &trail;
        p->setData(QVariantMap{{"k", 1}, {"bufLenV", 3}});
        QVERIFY(p->start());
        QCOMPARE(p->hooks(), (QStringList{"setData:k", "start"})); // already ran, in order
        QCOMPARE(p->bufLenV, 3);

        p->setData(QVariantMap{{"k", 2}});
        QCOMPARE(p->hooks().last(), QStringLiteral("setData:k"));
        QCOMPARE(p->getData(), (QVariantMap{{"k", 2}, {"bufLenV", 3}}));
        QCOMPARE(p->invoke(QStringLiteral("where")).value<void *>(), static_cast<void *>(caller));
        QCOMPARE(p->thread(), caller);
        for (const VexaProbe::Entry &e : p->entries())
            QCOMPARE(e.thread, caller);

        QVERIFY(p->stop(true));
        QCOMPARE(p->hooks().last(), QStringLiteral("stop"));
        QVERIFY(p->start());
        p->destroy();
        QVERIFY(p.isNull()); // deleted once onStop ran: no event loop would run a deferred delete
        QCOMPARE(trail.get(), (QStringList{"setData:k", "start", "setData:k", "stop", "start", "stop", "dtor in own thread"}));
        QVERIFY(!Vexa::find(QStringLiteral("noapp_life")));
        QVERIFY(Vexa::threadMap.isEmpty());
    }

    // Descriptions sent, replayed by a link or parked until start, unlink
    // notices and events all reach the receiver before the call returns.
    void hopsAreDirect()
    {
        auto *src = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("noapp_src")));
        auto *dst = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("noapp_dst")));
        src->outInfoV = makeInfo(7, {{"w", 640}});
        src->linkV(dst);
        src->linkE(dst);
        QCOMPARE(dst->hooks(), QStringList()); // parked: dst is not started
        QVERIFY(src->start() && dst->start());
        QCOMPARE(dst->hooks(), (QStringList{"start", "infoV:7:noapp_src:w"}));

        src->sendInfoV(makeInfo(8, {{"w", 320}}));
        QCOMPARE(dst->hooks().last(), QStringLiteral("infoV:8:noapp_src:w"));
        QVERIFY(dst->invokeInfoV(makeInfo(9)));
        QCOMPARE(dst->hooks().last(), QStringLiteral("infoV:9:-:"));
        src->sendEvent(QStringLiteral("eos"), 1);
        QCOMPARE(dst->hooks().last(), QStringLiteral("event:eos=1"));
        src->unLinkV(dst);
        QCOMPARE(dst->hooks().last(), QStringLiteral("unlinkV:7"));

        QPointer<VexaProbe> gone = dst;
        dst->destroy();
        src->destroy();
        QVERIFY(gone.isNull());
    }

    // A released registry thread ends and its object is freed, though no
    // event loop delivers posted calls.
    void releasedThreadEnds()
    {
        QString name = QStringLiteral("noapp_worker");
        QPointer<QThread> t = Vexa::newThread(name);
        QVERIFY(t->isRunning());
        Vexa::delThread(name);
        QVERIFY(!Vexa::threadMap.contains(name));
        QTRY_VERIFY_WITH_TIMEOUT(t.isNull(), 10000);
    }
};

QTEST_APPLESS_MAIN(tst_VexaObjectNoApp)
#include "tst_vexaobject_noapp.moc"
