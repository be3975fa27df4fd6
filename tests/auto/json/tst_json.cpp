// The JSON helper: exact text both ways, failure results, the one-level join
// and the file functions (which always report success).

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <vexajson.h>

class tst_Json : public QObject
{
    Q_OBJECT

private slots:
    // Compact text on one line, indented text ending in a line break, keys
    // sorted; both decode to the value encoded. No text for a value that is
    // neither a map nor a list.
    void text_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("compact");
        QTest::addColumn<QString>("indented"); // empty: not checked

        QTest::newRow("object") << QVariant(QVariantMap{{"k", 1}}) << "{\"k\":1}" << "{\n    \"k\": 1\n}\n";
        QTest::newRow("sorted keys") << QVariant(QVariantMap{{"b", true}, {"a", 2.5}}) << "{\"a\":2.5,\"b\":true}" << "";
        QTest::newRow("string list") << QVariant(QStringList{"x"}) << "[\"x\"]" << "[\n    \"x\"\n]\n";
        QTest::newRow("nested") << QVariant(QVariantMap{{"m", QVariantList{1, QVariantMap{{"z", "\xc3\xa4\xe2\x82\xac"}}}}})
                                << QString::fromUtf8("{\"m\":[1,{\"z\":\"\xc3\xa4\xe2\x82\xac\"}]}") << "";
        QTest::newRow("empty object") << QVariant(QVariantMap()) << "{}" << "{\n}\n";
        QTest::newRow("number") << QVariant(5) << "" << "";
        QTest::newRow("invalid") << QVariant() << "" << "";
    }
    void text()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, compact);
        QFETCH(QString, indented);

        QCOMPARE(Json::encode(value, false), compact);
        if (!indented.isEmpty())
            QCOMPARE(Json::encode(value, true), indented);
        if (compact.isEmpty()) {
            QCOMPARE(Json::encode(value, true), QString());
            return;
        }
        const QVariant expected = value.type() == QVariant::StringList ? QVariant(value.toList()) : value;
        QCOMPARE(Json::decode(compact), expected);
        QCOMPARE(Json::decode(Json::encode(value, true)), expected);
    }

    // A parse error gives an invalid variant, never a partial value.
    void decodeErrors()
    {
        for (const char *text : {"{", "", "{\"a\":1} x", "{'a':1}", "[1,"})
            QVERIFY2(!Json::decode(QString::fromUtf8(text)).isValid(), text);
    }

    // The overlay wins key by key; maps and lists in it replace, never merge.
    void join_data()
    {
        QTest::addColumn<QVariantMap>("base");
        QTest::addColumn<QVariantMap>("overlay");
        QTest::addColumn<QVariantMap>("expected");

        const QVariantMap m{{"a", 1}, {"b", QVariantMap{{"x", 1}}}, {"l", QVariantList{1, 2}}};
        QTest::newRow("nested map and list replaced")
            << m << QVariantMap{{"b", QVariantMap{{"y", 2}}}, {"c", 3}, {"l", QVariantList{3}}}
            << QVariantMap{{"a", 1}, {"b", QVariantMap{{"y", 2}}}, {"c", 3}, {"l", QVariantList{3}}};
        QTest::newRow("empty overlay") << m << QVariantMap() << m;
        QTest::newRow("invalid value replaces") << m << QVariantMap{{"a", QVariant()}}
                                                << QVariantMap{{"a", QVariant()}, {"b", m.value("b")}, {"l", m.value("l")}};
    }
    void join()
    {
        QFETCH(QVariantMap, base);
        QFETCH(QVariantMap, overlay);
        QFETCH(QVariantMap, expected);
        QCOMPARE(Json::join(base, overlay), expected);
    }

    // Files: a missing or broken file loads as an invalid variant; a save
    // always reports success, truncates first and writes nothing when the
    // directory is missing.
    void files()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath(QStringLiteral("settings.json"));
        QVERIFY(!Json::loadFile(path).isValid());

        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(4096, 'x'));
        old.close();
        QVERIFY(!Json::loadFile(path).isValid());
        const QVariantMap value{{"k", 1}, {"list", QVariantList{1, 2}}};
        QVERIFY(Json::saveFile(value, path));
        QFile saved(path);
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(saved.readAll()), Json::encode(value, true)); // no old bytes left behind
        QCOMPARE(Json::loadFile(path), QVariant(value));

        const QString lost = dir.filePath(QStringLiteral("missing/settings.json"));
        QVERIFY(Json::saveFile(value, lost));
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("missing"))));
    }
};

QTEST_APPLESS_MAIN(tst_Json)
#include "tst_json.moc"
