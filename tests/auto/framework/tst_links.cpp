// Links between objects: packets run directly in the sender's thread,
// descriptions and events arrive queued in the receiver's thread, a new
// receiver learns the current description, an unlinked one is told.

#include <QCoreApplication>
#include <QPointer>
#include <QtTest>

#include "vexaprobe.h"

namespace {

// A probe with a worker thread of its own name, released by destroy().
VexaProbe *make(const QString &name, const QString &threadName = QString())
{
    auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), name));
    p->threadName = threadName.isEmpty() ? name + QStringLiteral("_thread") : threadName;
    return p;
}

const char *const packetSignal = SIGNAL(newPacketV(Packet));
const char *const infoSignal = SIGNAL(newInfoV(StreamInfo));

} // namespace

class tst_Links : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Vexa::init(false);
        registerProbe();
    }
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    // A relay chain: both hops run in the first sender's thread and each hop
    // stamps itself as sender; the description reaches every receiver in
    // its own thread, and events too.
    void threadsOfDelivery()
    {
        VexaProbe *src = make(QStringLiteral("lnk_src"));
        VexaProbe *relay = make(QStringLiteral("lnk_relay"));
        VexaProbe *dst = make(QStringLiteral("lnk_dst"));
        relay->mode = VexaProbe::Relay;
        src->outInfoV = makeInfo(3, {{"fmt", "h264"}});
        for (VexaProbe *p : {src, relay, dst}) {
            QVERIFY(p->start());
            p->getData(); // onStart has run
        }

        QCOMPARE(src->linkV(relay)->linkV(dst), static_cast<VexaObject *>(dst));
        QCOMPARE(src->linkE(dst), static_cast<VexaObject *>(dst));
        QTRY_COMPARE(relay->hooks(), (QStringList{"start", "infoV:3:lnk_src:fmt"}));
        QCOMPARE(relay->entries().last().thread, relay->thread());

        QVERIFY(src->invoke(QStringLiteral("sendV"), 9).toBool());
        src->sendEvent(QStringLiteral("cut"), 1);
        relay->sendInfoV(makeInfo(4, {}, src)); // the sender is stamped over
        dst->getData();                         // everything queued before has run
        QCOMPARE(dst->hooks(), (QStringList{"start", "lnk_dst:packetV", "event:cut=1", "infoV:4:lnk_relay:"}));
        const QList<VexaProbe::Entry> e = dst->entries();
        QCOMPARE(e.at(1).thread, src->thread());
        QCOMPARE(e.at(2).thread, dst->thread());
        QCOMPARE(e.at(3).thread, dst->thread());
        QCOMPARE(dst->packetsSeen().at(0).pts, qint64(9));
        QCOMPARE(dst->packetsSeen().at(0).sender, static_cast<VexaObject *>(relay));
        QCOMPARE(relay->packetsSeen().at(0).sender, static_cast<VexaObject *>(src));

        QVERIFY(Vexa::unLinkE(src, dst));
        QVERIFY(!Vexa::unLinkE(src, dst));
        QVERIFY(retire({src, relay, dst}));
    }

    // Each packet reaches the receivers in the order the links were made.
    void fanOutOrder()
    {
        Trail trail;
        VexaProbe *src = make(QStringLiteral("lnk_fan"));
        QList<VexaProbe *> rx;
        for (const char *n : {"lnk_fan1", "lnk_fan2", "lnk_fan3"}) {
            rx << make(QLatin1String(n));
            rx.last()->trail = &trail;
            src->linkV(rx.last());
        }
        QVERIFY(src->start());
        src->sendPacketV(VexaObject::Packet());
        src->unLinkV(rx.at(1));
        src->linkV(rx.at(1));
        src->sendPacketV(VexaObject::Packet());
        QCOMPARE(trail.get(), (QStringList{"lnk_fan1:packetV", "lnk_fan2:packetV", "lnk_fan3:packetV",
                                           "lnk_fan1:packetV", "lnk_fan3:packetV", "lnk_fan2:packetV"}));
        for (VexaProbe *p : rx)
            p->trail = nullptr;
        QVERIFY(retire(rx << src));
    }

    // Nothing leaves an object before its first start, links made before.
    void silentUntilStart()
    {
        VexaProbe *src = make(QStringLiteral("lnk_quiet"));
        VexaProbe *dst = make(QStringLiteral("lnk_quiet_dst"));
        src->linkV(dst);
        src->sendPacketV(VexaObject::Packet());
        QVERIFY(dst->packetsSeen().isEmpty());
        QVERIFY(src->start());
        QVERIFY(src->stop(true));
        src->sendPacketV(VexaObject::Packet()); // stop does not block signals again
        QCOMPARE(dst->packetsSeen().size(), 1);
        QVERIFY(retire({src, dst}));
    }

    // Linking a linked pair again connects nothing more and sends no
    // description: the receiver, started later, gets the first one only.
    void duplicateLink()
    {
        VexaProbe *src = make(QStringLiteral("lnk_dup"));
        VexaProbe *dst = make(QStringLiteral("lnk_dup_dst"), QStringLiteral("main"));
        src->outInfoV = makeInfo(1);
        src->linkV(dst);
        QCoreApplication::processEvents(); // parked: dst is not started
        src->outInfoV = makeInfo(2);
        QCOMPARE(src->linkV(dst), static_cast<VexaObject *>(dst));
        QCOMPARE(src->linksOf(packetSignal), 1);
        QCOMPARE(src->linksOf(infoSignal), 1);
        QVERIFY(dst->start());
        QCoreApplication::processEvents();
        QCOMPARE(dst->hooks(), (QStringList{"start", "infoV:1:lnk_dup:"}));
        src->destroy();
        dst->destroy();
    }

    // Unlinking always notifies the receiver (even when nothing was linked);
    // only the departing current source clears the input type, nothing else.
    void unlinkNotification()
    {
        VexaProbe *a = make(QStringLiteral("lnk_una"));
        VexaProbe *b = make(QStringLiteral("lnk_unb"));
        VexaProbe *dst = make(QStringLiteral("lnk_un_dst"), QStringLiteral("main"));
        a->outInfoV = makeInfo(5, {{"w", 640}});
        QVERIFY(dst->start());
        QVERIFY(a->start());
        a->linkV(dst);
        QCoreApplication::processEvents();
        QCOMPARE(dst->hooks(), (QStringList{"start", "infoV:5:lnk_una:w"}));

        b->unLinkV(dst); // never linked
        QCoreApplication::processEvents();
        QCOMPARE(dst->hooks().last(), QStringLiteral("unlinkV:0"));
        QCOMPARE(dst->currentInV().toList().value(0).toInt(), 5);

        QCOMPARE(a->unLinkV(dst), static_cast<VexaObject *>(dst));
        a->sendPacketV(VexaObject::Packet());
        QCoreApplication::processEvents();
        QCOMPARE(dst->hooks().last(), QStringLiteral("unlinkV:5"));
        const QVariantList current = dst->currentInV().toList();
        QCOMPARE(current.value(0).toInt(), 0);
        QCOMPARE(current.value(1).value<void *>(), static_cast<void *>(a));
        QCOMPARE(current.value(2).toMap(), (QVariantMap{{"w", 640}}));
        QVERIFY(dst->packetsSeen().isEmpty());

        // The same description from the same source counts as new again.
        a->linkV(dst);
        QCoreApplication::processEvents();
        QCOMPARE(dst->hooks().last(), QStringLiteral("infoV:5:lnk_una:w"));
        QVERIFY(retire({a, b, dst}));
    }

    // An object pointer survives the trip through a QVariant; anything else
    // unwraps to null.
    void pointerVariants()
    {
        VexaProbe probe;
        const QVariant v = Vexa::o2v(&probe);
        QCOMPARE(v.userType(), int(QMetaType::VoidStar));
        QCOMPARE(Vexa::v2o(v), static_cast<VexaObject *>(&probe));
        QVERIFY(!Vexa::v2o(QVariant(QStringLiteral("lnk"))));
        QVERIFY(!Vexa::v2o(QVariant()));
    }
};

QTEST_GUILESS_MAIN(tst_Links)
#include "tst_links.moc"
