// The factory (class lookup with or without the "Vexa" prefix, generated and
// suffixed names, the registry, the fatal ends of a bad class name) and the
// links between objects: packets run directly in the sender's thread,
// descriptions and events arrive queued in the receiver's thread, a new
// receiver learns the current description, an unlinked one is told.
// Every factory case uses classes of its own, so creation counts never mix.

#include <cstdio>

#include <QCoreApplication>
#include <QPointer>
#include <QProcess>
#include <QtTest>

#include "vexanames.h"
#include "vexaprobe.h"
#include "vexatest.h"

#define TEST_CLASS(Name, Base, Ctor) \
    class Name : public Base { Q_OBJECT public: Ctor explicit Name(QObject *parent = nullptr) : Base(parent) {} };

TEST_CLASS(VexaFacA, VexaObject, Q_INVOKABLE)
TEST_CLASS(VexaFacB, VexaObject, Q_INVOKABLE)
TEST_CLASS(VexaFacC, VexaObject, Q_INVOKABLE)
TEST_CLASS(VexaFacD, VexaObject, Q_INVOKABLE)
TEST_CLASS(VexaFacE, VexaObject, Q_INVOKABLE)
TEST_CLASS(VexaFacF, VexaObject, Q_INVOKABLE)
TEST_CLASS(VexaVexaMux, VexaObject, Q_INVOKABLE)
TEST_CLASS(VexaFacNoCtor, VexaObject, ) // a module the meta-object system cannot construct
TEST_CLASS(VexaFacPlain, QObject, Q_INVOKABLE) // constructible, but no module

// Registered as a module library does: the class name, mapped to the pointer type.
#define REGISTER(Name) qRegisterMetaType<Name *>(#Name)
static void registerClasses()
{
    REGISTER(VexaFacA), REGISTER(VexaFacB), REGISTER(VexaFacC), REGISTER(VexaFacD), REGISTER(VexaFacE);
    REGISTER(VexaFacF), REGISTER(VexaVexaMux), REGISTER(VexaFacNoCtor), REGISTER(VexaFacPlain);
    registerProbe();
}

static const char childFlag[] = "--create-child";

// A probe with a worker thread of its own name, released by destroy().
static VexaProbe *make(const QString &name, const QString &threadName = QString())
{
    return makeProbe(name, threadName.isEmpty() ? name + QStringLiteral("_thread") : threadName);
}

class tst_Framework : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Vexa::init(false);
        registerClasses();
    }
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    // The "Vexa" prefix is optional; generated names count creations per class
    // (explicit ones too) and lose every "Vexa"; a taken name gets "_N" on its
    // base; the object is registered under its final name.
    void names_data()
    {
        QTest::addColumn<QStringList>("classes");
        QTest::addColumn<QStringList>("given");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("generated names count up") << QStringList{"FacA", "FacA"} << QStringList{"", ""}
                                                  << QStringList{"FacA_1", "FacA_2"};
        QTest::newRow("prefix is optional, one count") << QStringList{"VexaFacB", "FacB"} << QStringList{"", ""}
                                                       << QStringList{"FacB_1", "FacB_2"};
        QTest::newRow("explicit creation counts too") << QStringList{"FacC", "FacC"} << QStringList{"fac_x", ""}
                                                      << QStringList{"fac_x", "FacC_2"};
        QTest::newRow("suffixes go on the base") << QStringList{"FacD", "FacD", "FacD"}
                                                 << QStringList{"fac_cam", "fac_cam", "fac_cam"}
                                                 << QStringList{"fac_cam", "fac_cam_1", "fac_cam_2"};
        QTest::newRow("generated name taken") << QStringList{"FacF", "FacE"} << QStringList{"FacE_1", ""}
                                              << QStringList{"FacE_1", "FacE_1_1"};
        QTest::newRow("every Vexa removed") << QStringList{"VexaVexaMux"} << QStringList{""} << QStringList{"Mux_1"};
        QTest::newRow("given name kept verbatim") << QStringList{"VexaVexaMux"} << QStringList{"VexaMux_9"}
                                                  << QStringList{"VexaMux_9"};
    }
    void names()
    {
        QFETCH(QStringList, classes);
        QFETCH(QStringList, given);
        QFETCH(QStringList, expected);

        QList<VexaObject *> made;
        for (int i = 0; i < classes.size(); ++i) {
            VexaObject *obj = Vexa::create(classes.at(i), given.at(i));
            QVERIFY(obj);
            QCOMPARE(obj->name(), expected.at(i));
            QCOMPARE(Vexa::find(expected.at(i)), obj);
            made << obj;
        }
        QCOMPARE(made.last()->metaObject()->className(), qPrintable(VexaNames::fullClassName(classes.last())));
        for (VexaObject *obj : made)
            obj->destroy();
    }

    // The prefix rule the factory and the tools share: one leading "Vexa" is
    // added for the lookup and taken off for display; case matters.
    void classNames_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("full");
        QTest::addColumn<QString>("shortened");

        QTest::newRow("short name") << "Encoder" << "VexaEncoder" << "Encoder";
        QTest::newRow("full name") << "VexaEncoder" << "VexaEncoder" << "Encoder";
        QTest::newRow("prefix twice") << "VexaVexaMux" << "VexaVexaMux" << "VexaMux";
        QTest::newRow("other case") << "vexaMux" << "VexavexaMux" << "vexaMux";
        QTest::newRow("prefix alone") << "Vexa" << "Vexa" << "";
        QTest::newRow("empty") << "" << "Vexa" << "";
    }
    void classNames()
    {
        QFETCH(QString, given);
        QFETCH(QString, full);
        QFETCH(QString, shortened);

        QCOMPARE(VexaNames::fullClassName(given), full);
        QCOMPARE(VexaNames::shortClassName(given), shortened);
    }

    // A lookup never inserts; removing an entry leaves the object alive and
    // frees its name, while the class count keeps growing.
    void registry()
    {
        const int size = Vexa::objectMap.size();
        const int count = Vexa::classCount.value(QStringLiteral("VexaFacA"));
        QVERIFY(!Vexa::find(QStringLiteral("fac_nobody")));
        QCOMPARE(Vexa::objectMap.size(), size);
        QPointer<VexaObject> obj = Vexa::create(QStringLiteral("FacA"), QStringLiteral("fac_nobody"));

        Vexa::delObject(obj);
        QVERIFY(!Vexa::find(QStringLiteral("fac_nobody")));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(obj);
        Vexa::delObject(obj); // not registered any more: ignored
        QCOMPARE(Vexa::objectMap.size(), size);

        VexaObject *again = Vexa::create(QStringLiteral("FacA"), QStringLiteral("fac_nobody"));
        QCOMPARE(again->name(), QStringLiteral("fac_nobody"));
        QCOMPARE(Vexa::classCount.value(QStringLiteral("VexaFacA")), count + 2);
        delete obj;
        again->destroy();
    }

    // A bad class name ends the process with a fatal message naming the
    // prefixed class.
    void fatalClass_data()
    {
        QTest::addColumn<QString>("className");
        QTest::addColumn<QString>("message");

        QTest::newRow("unknown") << "NoSuchModule" << "Can not find class name VexaNoSuchModule";
        QTest::newRow("no invokable constructor") << "FacNoCtor" << "Can not create class name VexaFacNoCtor";
        QTest::newRow("not a module") << "VexaFacPlain" << "Can not create class name VexaFacPlain";
    }
    void fatalClass()
    {
        QFETCH(QString, className);
        QFETCH(QString, message);

        QProcess child;
        QVERIFY(VexaTest::runSelf(child, {QLatin1String(childFlag), className}));
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        const QStringList lines = QString::fromLocal8Bit(child.readAllStandardError()).split(QLatin1Char('\n'));
        QVERIFY2(lines.contains(message), qPrintable(lines.join(QLatin1Char('|'))));
        QVERIFY(!child.readAllStandardOutput().contains("survived"));
    }

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

    // Nothing leaves an object before its first start; then each packet
    // reaches the receivers in the order the links were made.
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
        src->sendPacketV(VexaObject::Packet()); // not started: goes nowhere
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
        QCOMPARE(src->linksOf(SIGNAL(newPacketV(Packet))), 1);
        QCOMPARE(src->linksOf(SIGNAL(newInfoV(StreamInfo))), 1);
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

int main(int argc, char **argv)
{
    if (argc == 3 && qstrcmp(argv[1], childFlag) == 0) {
        registerClasses();
        Vexa::create(QString::fromLatin1(argv[2]));
        printf("survived\n");
        return 0;
    }
    QCoreApplication app(argc, argv);
    tst_Framework test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_framework.moc"
