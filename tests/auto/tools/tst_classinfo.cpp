// VexaClassInfo: the settings and interface a class declares in its
// meta-object, as the tools read them, and the checks of setting values.

#include <QtTest>

#include "vexaclassinfo.h"
#include "vexaobject.h"

class VexaDeclaring : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:path", "input; file to read")
    Q_CLASSINFO("setting:loop", "bool=false; start again at the end")
    Q_CLASSINFO("setting:mode", "enum(fast|safe)=safe; how")
    Q_CLASSINFO("setting:gain", "number=1.5; volume factor")
    Q_CLASSINFO("setting:memSize", "int=4096; ring bytes")
    Q_CLASSINFO("setting:note", "free text of an older module")
    Q_CLASSINFO("sends", "audio events")
    Q_CLASSINFO("accepts", "none")
    Q_CLASSINFO("platform", "unused")
public:
    using VexaObject::VexaObject;
};

// Re-declares one setting and the interface; inherits the rest.
class VexaDerived : public VexaDeclaring
{
    Q_OBJECT
    Q_CLASSINFO("setting:mode", "enum(slow)=slow; only slow")
    Q_CLASSINFO("accepts", "video")
public:
    using VexaDeclaring::VexaDeclaring;
};

class VexaSilent : public VexaObject
{
    Q_OBJECT
public:
    using VexaObject::VexaObject;
};

class tst_ClassInfo : public QObject
{
    Q_OBJECT

private slots:
    void declarations()
    {
        const VexaClassInfo info(&VexaDeclaring::staticMetaObject);
        QVERIFY(info.declaresSettings());
        QVERIFY(info.declaresInterface());
        QCOMPARE(info.sends(), int(VexaClassInfo::Audio | VexaClassInfo::Events));
        QCOMPARE(info.accepts(), 0);
        QVERIFY(!info.usesPlatform());
        QStringList names;
        for (const VexaClassInfo::Setting &s : info.settings())
            names << s.name + QLatin1Char(':') + s.type + (s.base ? "*" : "");
        // Own settings in order (memSize re-declared), then the other base settings.
        QCOMPARE(names, QStringList({"path:input", "loop:bool", "mode:enum", "gain:number", "memSize:int", "note:any",
                                     "bufLenA:int*", "bufLenV:int*", "debugLevel:int*"}));
        QCOMPARE(info.setting("mode")->allowed, QStringList({"fast", "safe"}));
        QCOMPARE(info.setting("mode")->defaultValue, QVariant("safe"));
        QCOMPARE(info.setting("loop")->defaultValue, QVariant(false));
        QCOMPARE(info.setting("memSize")->defaultValue.toLongLong(), 4096);
        QCOMPARE(info.setting("note")->meaning, QStringLiteral("free text of an older module"));

        const VexaClassInfo derived(&VexaDerived::staticMetaObject);
        QCOMPARE(derived.setting("mode")->allowed, QStringList({"slow"}));
        QCOMPARE(derived.sends(), int(VexaClassInfo::Audio | VexaClassInfo::Events));
        QCOMPARE(derived.accepts(), int(VexaClassInfo::Video));
        // Not inherited: a subclass may well use the platform.
        QVERIFY(derived.usesPlatform());

        const VexaClassInfo silent(&VexaSilent::staticMetaObject);
        QVERIFY(!silent.declaresSettings());
        QVERIFY(!silent.declaresInterface());
        QCOMPARE(silent.sends(), int(VexaClassInfo::AllKinds));
        QVERIFY(silent.usesPlatform());
        QVERIFY(silent.check("anything", QVariantList()).isEmpty());
    }

    void check_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("problem"); // empty: accepted

        QTest::newRow("bool") << "loop" << QVariant(true) << QString();
        QTest::newRow("bool as text") << "loop" << QVariant("no") << "expected bool, got the string \"no\"";
        QTest::newRow("bool as number") << "loop" << QVariant(1) << "expected bool, got the number 1";
        QTest::newRow("enum word") << "mode" << QVariant("fast") << QString();
        QTest::newRow("enum typo") << "mode" << QVariant("fsat") << "expected one of fast, safe, got the string \"fsat\"";
        QTest::newRow("number from int") << "gain" << QVariant(2) << QString();
        QTest::newRow("number") << "gain" << QVariant(0.5) << QString();
        QTest::newRow("int from fraction") << "memSize" << QVariant(1.5) << "expected integer, got the number 1.5";
        QTest::newRow("base int") << "bufLenV" << QVariant(qint64(-1)) << QString();
        QTest::newRow("base int as text") << "debugLevel" << QVariant("2") << "expected integer, got the string \"2\"";
        QTest::newRow("path") << "path" << QVariant("a.mp4") << QString();
        QTest::newRow("path as object") << "path" << QVariant(QVariantMap()) << "expected input file path (string), got an object";
        QTest::newRow("free text takes anything") << "note" << QVariant(QVariantList{1}) << QString();
        QTest::newRow("unknown") << "loops" << QVariant(true)
                                 << "unknown setting (known: path, loop, mode, gain, memSize, note, bufLenA, bufLenV, debugLevel)";
    }
    void check()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QFETCH(QString, problem);
        QCOMPARE(VexaClassInfo(&VexaDeclaring::staticMetaObject).check(key, value), problem);
    }
};

QTEST_GUILESS_MAIN(tst_ClassInfo)
#include "tst_classinfo.moc"
