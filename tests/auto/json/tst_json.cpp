// The JSON helper: exact text both ways, failure results, the one-level join
// and the file functions (which always report success).

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <QJsonDocument>

#include <vexajson.h>
#include <vexajsontext.h>

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

    // A key given twice in one object keeps its last value, as Qt's reader
    // keeps it, and nothing is lost on the way (the sanitizer build checks
    // for leaks): Qt's reader loses the first value when it is an array or
    // an object, so those members are read without it. Errors are reported
    // where the text as given has them.
    void duplicateKeys_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("expected");  // compact text of the document, as Qt's reader gives it
        QTest::addColumn<int>("errorOffset");      // -1: valid
        QTest::newRow("array, then number") << QByteArray(R"({"a":["q"],"a":2})") << QByteArray(R"({"a":2})") << -1;
        QTest::newRow("object, then number") << QByteArray(R"({"a":{"b":"c"},"a":1})") << QByteArray(R"({"a":1})") << -1;
        QTest::newRow("three, spaced, nested") << QByteArray(" {\n \"a\" : [1] ,\"b\":{\"a\":[3],\"a\":{}}, \"a\" : [2] , \"a\":3 } ")
                                               << QByteArray(R"({"a":3,"b":{"a":{}}})") << -1;
        QTest::newRow("string, then array") << QByteArray(R"({"a":"x","a":[1]})") << QByteArray(R"({"a":[1]})") << -1;
        // (Plain literals: moc reads a backslash in a raw string as an escape.)
        QTest::newRow("escaped keys") << QByteArray("{\"a\":[1],\"\\u0061\":2,\"\\\"\":[3],\"\\\"\":4}")
                                      << QByteArray("{\"\\\"\":4,\"a\":2}") << -1;
        QTest::newRow("in an array") << QByteArray(R"([{"k":{"x":1},"k":[]},{"k":1}])") << QByteArray(R"([{"k":[]},{"k":1}])") << -1;
        QTest::newRow("error after") << QByteArray(R"({"a":[1],"a":2,"b":tru})") << QByteArray() << 20;
        QTest::newRow("error at the end") << QByteArray(R"({"a":[1],"a":2,"b":[1,2)") << QByteArray() << 23;
        QTest::newRow("byte order mark") << QByteArray("\xef\xbb\xbf{\"a\":[1],\"a\":2}") << QByteArray(R"({"a":2})") << -1;
        QTest::newRow("error after the object") << QByteArray(R"({"a":[1],"a":2} x)") << QByteArray() << 16;
        QTest::newRow("error after a closed object") << QByteArray(R"({"o":{"a":[1],"a":2},"b":[1)") << QByteArray() << 27;
        QTest::newRow("error in an overridden member") << QByteArray(R"({"a":[tru],"a":2})") << QByteArray() << 10;
    }
    void duplicateKeys()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, expected);
        QFETCH(int, errorOffset);
        QJsonParseError error;
        const QJsonDocument doc = VexaJsonText::parse(text, &error);
        QCOMPARE(error.error == QJsonParseError::NoError ? -1 : error.offset, errorOffset);
        QCOMPARE(doc.toJson(QJsonDocument::Compact), expected);
        QCOMPARE(Json::decode(QString::fromUtf8(text)), doc.isNull() ? QVariant() : doc.toVariant());
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
