// The JSON helper: text round trips, failure results, the one-level join
// and the file functions (which always report success).

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <vexajson.h>

class tst_Json : public QObject
{
    Q_OBJECT

private slots:
    // Compact and indented text both decode to the value encoded.
    void roundTrip_data()
    {
        QTest::addColumn<QVariant>("value");

        QTest::newRow("object") << QVariant(QVariantMap{{"a", 1}, {"b", "two"}, {"c", true}, {"d", 2.5}});
        QTest::newRow("array") << QVariant(QVariantList{1, "x", false});
        QTest::newRow("nested") << QVariant(QVariantMap{{"m", QVariantMap{{"l", QVariantList{1, QVariantMap{{"z", 0}}}}}}});
        QTest::newRow("non-ASCII text") << QVariant(QVariantMap{{"name", QString::fromUtf8("Kamera \xc3\xa4\xe2\x82\xac")}});
        QTest::newRow("empty object") << QVariant(QVariantMap());
    }
    void roundTrip()
    {
        QFETCH(QVariant, value);
        for (bool indented : {false, true})
            QCOMPARE(Json::decode(Json::encode(value, indented)), value);
    }

    // Exact text: compact on one line, indented ending in a line break, keys
    // sorted; no text for a value that is neither a map nor a list.
    void encode()
    {
        const QVariantMap k{{"k", 1}};
        QCOMPARE(Json::encode(k, false), QStringLiteral("{\"k\":1}"));
        QCOMPARE(Json::encode(k, true), QStringLiteral("{\n    \"k\": 1\n}\n"));
        QCOMPARE(Json::encode(QVariantMap{{"b", 1}, {"a", 2}}, false), QStringLiteral("{\"a\":2,\"b\":1}"));
        QCOMPARE(Json::encode(QStringList{"x"}, false), QStringLiteral("[\"x\"]"));
        QCOMPARE(Json::encode(5, false), QString());
        QCOMPARE(Json::encode(QVariant(), true), QString());
    }

    // A parse error gives an invalid variant, never a partial value.
    void decode_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("array") << "[1,2]" << QVariant(QVariantList{1, 2});
        QTest::newRow("unterminated object") << "{" << QVariant();
        QTest::newRow("empty text") << "" << QVariant();
        QTest::newRow("trailing garbage") << "{\"a\":1} x" << QVariant();
        QTest::newRow("single quotes") << "{'a':1}" << QVariant();
    }
    void decode()
    {
        QFETCH(QString, text);
        QFETCH(QVariant, expected);
        const QVariant v = Json::decode(text);
        QCOMPARE(v.type(), expected.type());
        QCOMPARE(v, expected);
    }

    // The overlay wins key by key; maps and lists in it replace, never merge.
    void join_data()
    {
        QTest::addColumn<QVariantMap>("base");
        QTest::addColumn<QVariantMap>("overlay");
        QTest::addColumn<QVariantMap>("expected");

        const QVariantMap m{{"a", 1}, {"b", QVariantMap{{"x", 1}}}};
        QTest::newRow("nested map replaced")
            << m << QVariantMap{{"b", QVariantMap{{"y", 2}}}, {"c", 3}}
            << QVariantMap{{"a", 1}, {"b", QVariantMap{{"y", 2}}}, {"c", 3}};
        QTest::newRow("list replaced") << QVariantMap{{"l", QVariantList{1, 2}}} << QVariantMap{{"l", QVariantList{3}}}
                                       << QVariantMap{{"l", QVariantList{3}}};
        QTest::newRow("empty overlay") << m << QVariantMap() << m;
        QTest::newRow("empty base") << QVariantMap() << m << m;
        QTest::newRow("invalid value replaces") << m << QVariantMap{{"a", QVariant()}}
                                                << QVariantMap{{"a", QVariant()}, {"b", QVariantMap{{"x", 1}}}};
    }
    void join()
    {
        QFETCH(QVariantMap, base);
        QFETCH(QVariantMap, overlay);
        QFETCH(QVariantMap, expected);
        const QVariantMap joined = Json::join(base, overlay);
        QCOMPARE(joined, expected);
        QCOMPARE(joined.value(QStringLiteral("a")).isValid(), expected.value(QStringLiteral("a")).isValid());
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

        // A longer file is truncated before the new document is written.
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(4096, 'x'));
        old.close();
        QVERIFY(!Json::loadFile(path).isValid());
        const QVariantMap value{{"k", 1}, {"list", QVariantList{1, 2}}};
        QVERIFY(Json::saveFile(value, path));
        QFile saved(path);
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(saved.readAll()), Json::encode(value, true));
        QCOMPARE(Json::loadFile(path), QVariant(value));

        // No directory: still true, and nothing is written anywhere.
        const QString lost = dir.filePath(QStringLiteral("missing/settings.json"));
        QVERIFY(Json::saveFile(value, lost));
        QVERIFY(!QFile::exists(lost));
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("missing"))));
    }
};

QTEST_APPLESS_MAIN(tst_Json)
#include "tst_json.moc"
