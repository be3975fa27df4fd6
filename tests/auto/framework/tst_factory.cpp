// The factory: class lookup with or without the "Vexa" prefix, generated and
// suffixed names, the registry, and the fatal ends of a bad class name.
// Every case uses classes of its own, so creation counts never mix.

#include <cstdio>

#include <QCoreApplication>
#include <QPointer>
#include <QProcess>
#include <QtTest>

#include <Vexa>
#include <VexaObject>

#include "vexatest.h"

#define TEST_CLASS(Name, Base, Ctor)                                                                                   \
    class Name : public Base                                                                                           \
    {                                                                                                                  \
        Q_OBJECT                                                                                                       \
    public:                                                                                                            \
        Ctor explicit Name(QObject *parent = nullptr)                                                                  \
            : Base(parent)                                                                                             \
        {                                                                                                              \
        }                                                                                                              \
    };

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
}

static const char childFlag[] = "--create-child";

class tst_Factory : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { registerClasses(); }

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
            QCOMPARE(obj->getState(), QStringLiteral("created"));
            QCOMPARE(Vexa::find(expected.at(i)), obj);
            made << obj;
        }
        QString cls = classes.last();
        if (!cls.startsWith(QLatin1String("Vexa")))
            cls.prepend(QLatin1String("Vexa"));
        QCOMPARE(made.last()->metaObject()->className(), qPrintable(cls));
        for (VexaObject *obj : made)
            obj->destroy();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // A lookup never inserts; removing an entry leaves the object alive and
    // frees its name, while the class count keeps growing.
    void registry()
    {
        const int size = Vexa::objectMap.size();
        const int count = Vexa::classCount.value(QStringLiteral("VexaFacA"));
        QVERIFY(!Vexa::find(QStringLiteral("fac_nobody")));
        QCOMPARE(Vexa::objectMap.size(), size);
        QCOMPARE(Vexa::create(QStringLiteral("FacA"), QStringLiteral("fac_nobody"))->name(), QStringLiteral("fac_nobody"));

        QPointer<VexaObject> obj = Vexa::find(QStringLiteral("fac_nobody"));
        Vexa::delObject(obj);
        QVERIFY(!Vexa::find(QStringLiteral("fac_nobody")));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(obj);
        QCOMPARE(obj->name(), QStringLiteral("fac_nobody"));
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
        QTest::newRow("unknown, prefixed") << "VexaNoSuchModule" << "Can not find class name VexaNoSuchModule";
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
    tst_Factory test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_factory.moc"
