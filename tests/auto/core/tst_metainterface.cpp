// The published meta-interface of VexaObject (callers look methods up by
// index and by signature string, so a reordered or renamed declaration must
// fail here) and invoke(), the call-by-name entry point.

#include <QCoreApplication>
#include <QMetaEnum>
#include <QRegularExpression>
#include <QtTest>

#include "vexaprobe.h"

class tst_MetaInterface : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Vexa::init(false);
        registerProbe();
    }

    // Each own method, by index from methodOffset(): kind, access, return
    // type, normalized signature and parameter names.
    void methodTable_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QByteArray>("returnType");
        QTest::addColumn<QByteArray>("signature");
        QTest::addColumn<QByteArray>("parameterNames");

        const char *const rows[][3] = {
            {"void", "newEvent(QString,QVariant)", "type,msg"},
            {"void", "newPacketA(Packet)", "pkt"},
            {"void", "newPacketV(Packet)", "pkt"},
            {"void", "newInfoA(StreamInfo)", "info"},
            {"void", "newInfoV(StreamInfo)", "info"},
            {"bool", "setData(QString)", "json"},
            {"bool", "setData(QVariantMap)", "data"},
            {"QVariantMap", "getData()", ""},
            {"QVariantMap", "getUserData()", ""},
            {"bool", "start()", ""},
            {"bool", "start(QVariantMap)", "data"},
            {"bool", "start(QString)", "json"},
            {"bool", "stop(bool)", "block"},
            {"bool", "stop()", ""},
            {"QString", "name()", ""},
            {"QString", "getState()", ""},
            {"void", "onNewPacketA(Packet)", ""},
            {"void", "onNewPacketV(Packet)", ""},
            {"void", "onUnLinkA(StreamInfo)", ""},
            {"void", "onUnLinkV(StreamInfo)", ""},
            {"void", "onUnLinkAPriv(StreamInfo)", "info"},
            {"void", "onUnLinkVPriv(StreamInfo)", "info"},
            {"void", "onNewEvent(QString,QVariant)", "type,info"},
            {"void", "onNewInfoAPriv(StreamInfo)", "info"},
            {"void", "onNewInfoVPriv(StreamInfo)", "info"},
            {"void", "onSetDataPriv(QVariantMap)", "data"},
            {"QVariantMap", "doGetData()", ""},
            {"void", "onNewInfoA(StreamInfo)", ""},
            {"void", "onNewInfoV(StreamInfo)", ""},
            {"void", "onSetData(QVariantMap)", ""},
            {"void", "onStart()", ""},
            {"void", "onStop()", ""},
        };
        int index = 0;
        for (const auto &row : rows) {
            QTest::addRow("%d %s", index, row[1]) << index << QByteArray(row[0]) << QByteArray(row[1]) << QByteArray(row[2]);
            ++index;
        }
    }
    void methodTable()
    {
        QFETCH(int, index);
        QFETCH(QByteArray, returnType);
        QFETCH(QByteArray, signature);
        QFETCH(QByteArray, parameterNames);

        const QMetaObject &mo = VexaObject::staticMetaObject;
        const QMetaMethod m = mo.method(mo.methodOffset() + index);
        QCOMPARE(m.methodSignature(), signature);
        QCOMPARE(m.methodType(), index < 5 ? QMetaMethod::Signal : QMetaMethod::Slot);
        QCOMPARE(m.access(), index < 23 ? QMetaMethod::Public : QMetaMethod::Private);
        QCOMPARE(QByteArray(m.typeName()), returnType);
        QCOMPARE(m.parameterNames().join(','), parameterNames);
    }

    // The class as a whole: 32 methods of which 5 signals, the State
    // enumerator and nothing else.
    void classMetaData()
    {
        const QMetaObject &mo = VexaObject::staticMetaObject;
        QCOMPARE(mo.className(), "VexaObject");
        QCOMPARE(mo.superClass(), &QObject::staticMetaObject);
        QCOMPARE(mo.methodCount() - mo.methodOffset(), 32);
        int signalCount = 0;
        for (int i = mo.methodOffset(); i < mo.methodCount(); ++i)
            signalCount += mo.method(i).methodType() == QMetaMethod::Signal;
        QCOMPARE(signalCount, 5);
        QCOMPARE(mo.indexOfSignal("newPacketV(Packet)") - mo.methodOffset(), 2);
        QCOMPARE(mo.indexOfSlot("stop()") - mo.methodOffset(), 13);
        QCOMPARE(mo.classInfoCount() - mo.classInfoOffset(), 0);
        QCOMPARE(mo.propertyCount() - mo.propertyOffset(), 0);
        QCOMPARE(mo.constructorCount(), 0);

        QCOMPARE(mo.enumeratorCount() - mo.enumeratorOffset(), 1);
        const QMetaEnum state = mo.enumerator(mo.indexOfEnumerator("State"));
        QVERIFY(state.isValid());
        QVERIFY(!state.isFlag());
        QCOMPARE(state.keyCount(), 4);
        const char *const keys[] = {"created", "started", "stoped", "destroyed"};
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(state.key(i), keys[i]);
            QCOMPARE(state.value(i), i);
        }
    }

    // Nothing is called on an object that is not running.
    void invokeNeedsStartedObject()
    {
        auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("meta_idle")));
        QVERIFY(!p->invoke(QStringLiteral("ping"), 5).isValid());
        QVERIFY(!p->invoke(QStringLiteral("getState")).isValid());
        QVERIFY(p->start());
        QVERIFY(p->stop(true));
        QVERIFY(!p->invoke(QStringLiteral("ping"), 5).isValid());
        QVERIFY(retire({p}));
    }

    // The argument decides the signature looked up: one QVariant parameter,
    // or none for an invalid argument; the result must be a QVariant.
    void invokeLookup_data()
    {
        QTest::addColumn<QString>("method");
        QTest::addColumn<QVariant>("arg");
        QTest::addColumn<QVariant>("expected");
        QTest::addColumn<QString>("warning");

        QTest::newRow("one argument") << "ping" << QVariant(5) << QVariant(5) << QString();
        QTest::newRow("invalid argument picks ping()") << "ping" << QVariant() << QVariant("no argument") << QString();
        QTest::newRow("unknown name") << "nosuch" << QVariant(1) << QVariant() << "No such method VexaProbe::nosuch\\(QVariant\\)";
        QTest::newRow("parameter not QVariant") << "twice" << QVariant(3) << QVariant() << "No such method VexaProbe::twice\\(QVariant\\)";
        QTest::newRow("result not QVariant") << "count" << QVariant(3) << QVariant() << QString();
        QTest::newRow("base slot, result not QVariant") << "getState" << QVariant() << QVariant() << QString();
    }
    void invokeLookup()
    {
        QFETCH(QString, method);
        QFETCH(QVariant, arg);
        QFETCH(QVariant, expected);
        QFETCH(QString, warning);

        auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("meta_lookup")));
        p->threadName = QStringLiteral("meta_lookup_thread");
        QVERIFY(p->start());
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(warning));
        QVariant result = p->invoke(method, arg);
        if (result.type() == QVariant::List)
            result = result.toList().value(0); // ping(QVariant) answers {argument, thread}
        QCOMPARE(result, expected);
        QCOMPARE(result.isValid(), expected.isValid());
        QVERIFY(retire({p}));
    }

    // invoke() runs the operation in the object's thread and waits for it,
    // unless the name is listed for direct calls.
    void invokeThreads()
    {
        auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("meta_threads")));
        p->threadName = QStringLiteral("meta_threads_thread");
        p->directInvokeNames << QStringLiteral("where");
        QVERIFY(p->start());
        const QVariantList pinged = p->invoke(QStringLiteral("ping"), 7).toList();
        QCOMPARE(pinged.value(0), QVariant(7));
        QCOMPARE(pinged.value(1).value<void *>(), static_cast<void *>(p->thread()));
        QVERIFY(p->thread() != QThread::currentThread());
        QCOMPARE(p->invoke(QStringLiteral("where")).value<void *>(), static_cast<void *>(QThread::currentThread()));
        QVERIFY(retire({p}));
    }
};

QTEST_GUILESS_MAIN(tst_MetaInterface)
#include "tst_metainterface.moc"
