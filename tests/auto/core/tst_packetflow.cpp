// The records, the bounded packet queues, the payload ring and the rule that
// decides whether an incoming stream description is a change. Objects here
// run in the application thread, so queued calls run at processEvents().

#include <cstring>

#include <QCoreApplication>
#include <QtTest>

#include "vexaprobe.h"

using Packet = VexaObject::Packet;
using StreamInfo = VexaObject::StreamInfo;

namespace {

// A started object living in the application thread.
VexaProbe *startInMain(const QString &name, const QVariantMap &settings = {})
{
    auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), name));
    p->threadName = QStringLiteral("main");
    p->start(settings);
    QCoreApplication::processEvents();
    return p;
}

Packet packet(qint64 pts)
{
    Packet p;
    p.pts = pts;
    return p;
}

QList<qint64> ptsOf(const QList<Packet> &packets)
{
    QList<qint64> out;
    for (const Packet &p : packets)
        out << p.pts;
    return out;
}

QList<qint64> range(qint64 first, qint64 last)
{
    QList<qint64> out;
    for (qint64 i = first; i <= last; ++i)
        out << i;
    return out;
}

} // namespace

class tst_PacketFlow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Vexa::init(false);
        registerProbe();
    }
    void cleanup()
    {
        Vexa::debug = false;
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // Packets share their payload; descriptions copy their parameters on write.
    void recordCopies()
    {
        char payload[] = "abc";
        Packet p;
        QCOMPARE(p.altPts, qint64(-1));
        p.data = payload;
        p.len = 3;
        Packet copy = p;
        copy.len = 1;
        QCOMPARE(p.len, 3);
        QCOMPARE(static_cast<void *>(copy.data), static_cast<void *>(payload));

        StreamInfo info = makeInfo(1, {{"w", 1}});
        StreamInfo other = info;
        other.params.insert(QStringLiteral("h"), 2);
        QCOMPARE(info.params, (QVariantMap{{"w", 1}}));
        QCOMPARE(other.params.size(), 2);
    }

    // The bound counts the new packet and a full queue drops its oldest one.
    void queueBounds_data()
    {
        QTest::addColumn<bool>("audio");
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<int>("calls");
        QTest::addColumn<int>("firstFalse"); // 1-based; 0: every call returns true
        QTest::addColumn<int>("kept");

        QTest::newRow("audio, default bound 20") << true << QVariantMap() << 25 << 20 << 19;
        QTest::newRow("video, default bound 20") << false << QVariantMap() << 25 << 20 << 19;
        QTest::newRow("video, bound 3") << false << QVariantMap{{"bufLenV", 3}} << 6 << 3 << 2;
        QTest::newRow("audio, unbounded") << true << QVariantMap{{"bufLenA", -1}} << 25 << 0 << 25;
        QTest::newRow("video, unbounded") << false << QVariantMap{{"bufLenV", -1}} << 25 << 0 << 25;
        QTest::newRow("audio, bound 1") << true << QVariantMap{{"bufLenA", 1}} << 5 << 1 << 0;
        QTest::newRow("video, bound 0") << false << QVariantMap{{"bufLenV", 0}} << 5 << 1 << 0;
    }
    void queueBounds()
    {
        QFETCH(bool, audio);
        QFETCH(QVariantMap, settings);
        QFETCH(int, calls);
        QFETCH(int, firstFalse);
        QFETCH(int, kept);

        VexaProbe *p = startInMain(QStringLiteral("flow_bounds"), settings);
        for (int i = 1; i <= calls; ++i) {
            const bool ok = audio ? p->bufferPacketA(packet(i)) : p->bufferPacketV(packet(i));
            QVERIFY2(ok == (firstFalse == 0 || i < firstFalse), qPrintable(QStringLiteral("call %1").arg(i)));
        }
        QCOMPARE(ptsOf(audio ? p->packetsA : p->packetsV), range(calls - kept + 1, calls));
        p->destroy();
    }

    // A bound lowered at a restart leaves a longer queue as it is: one in,
    // one out per call.
    void loweredBoundKeepsLength()
    {
        VexaProbe *p = startInMain(QStringLiteral("flow_lowered"));
        for (int i = 1; i <= 25; ++i)
            p->bufferPacketV(packet(i));
        QVERIFY(p->stop());
        p->setData(QVariantMap{{"bufLenV", 5}});
        QVERIFY(p->start());
        QCoreApplication::processEvents();
        QCOMPARE(p->bufLenV, 5);
        for (int i = 26; i <= 28; ++i)
            QVERIFY(!p->bufferPacketV(packet(i)));
        QCOMPARE(ptsOf(p->packetsV), range(10, 28));
        p->destroy();
    }

    // With the debug switch set, a full queue reports itself; the video line
    // reads the "path" setting, which inserts a null one when missing.
    void fullQueueDebugLine_data()
    {
        QTest::addColumn<bool>("audio");
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<QString>("line");
        QTest::addColumn<QVariantMap>("settingsAfter");

        const QVariantMap bound{{"bufLenA", 2}, {"bufLenV", 2}};
        QVariantMap withPath = bound;
        withPath.insert(QStringLiteral("path"), QStringLiteral("/dev/v0"));
        QVariantMap nullPath = bound;
        nullPath.insert(QStringLiteral("path"), QVariant());

        QTest::newRow("audio") << true << bound << "[flow_debug] bufA full 2" << bound;
        QTest::newRow("video without path") << false << bound << "[flow_debug] bufV full 2 \"\"" << nullPath;
        QTest::newRow("video with path") << false << withPath << "[flow_debug] bufV full 2 \"/dev/v0\"" << withPath;
    }
    void fullQueueDebugLine()
    {
        QFETCH(bool, audio);
        QFETCH(QVariantMap, settings);
        QFETCH(QString, line);
        QFETCH(QVariantMap, settingsAfter);

        VexaProbe *p = startInMain(QStringLiteral("flow_debug"), settings);
        Vexa::debug = true;
        QTest::ignoreMessage(QtDebugMsg, qPrintable(line));
        for (int i = 0; i < 2; ++i)
            audio ? p->bufferPacketA(packet(i)) : p->bufferPacketV(packet(i));
        const QVariantMap after = p->getData();
        QCOMPARE(after, settingsAfter);
        QCOMPARE(after.value(QStringLiteral("path")).isNull(), !settings.contains(QStringLiteral("path")));
        p->destroy();
    }

    // The ring is created once; a block never wraps but restarts at the base
    // when it would reach the end; headroom bytes are left untouched.
    void payloadRing()
    {
        auto *p = qobject_cast<VexaProbe *>(Vexa::create(QStringLiteral("Probe"), QStringLiteral("flow_ring")));
        QVERIFY(!p->bufferData(nullptr, 1, 0));
        p->memInit(0);
        QVERIFY(!p->bufferData(nullptr, 1, 0));
        p->memInit(100);
        p->memInit(200); // ignored: the ring keeps its size
        QVERIFY(!p->bufferData(nullptr, 101, 0));
        QVERIFY(!p->bufferData(nullptr, 91, 10));

        char *base = p->bufferData(nullptr, 0, 0);
        QVERIFY(base);
        std::memset(base, '.', 100);
        char src[100];
        std::memset(src, 's', sizeof src);

        const auto at = [](char *ptr) { return static_cast<void *>(ptr); };
        char *a = p->bufferData(src, 30, 10);
        QCOMPARE(at(a), at(base + 10));
        QCOMPARE(QByteArray(base, 10), QByteArray(10, '.'));
        QCOMPARE(QByteArray(a, 30), QByteArray(30, 's'));
        QCOMPARE(a[30], '.');
        QCOMPARE(at(p->bufferData(src, 40, 10)), at(base + 50)); // ends at 90
        char *c = p->bufferData(nullptr, 10, 0);         // would end exactly at 100
        QCOMPARE(at(c), at(base));
        QCOMPARE(QByteArray(c, 10), QByteArray(10, '.')); // nothing copied
        QCOMPARE(at(p->bufferData(src, 100, 0)), at(base)); // the whole ring: only from the base
        QCOMPARE(at(p->bufferData(nullptr, 1, 0)), at(base));
        p->destroy();
    }

    // A description is accepted when its sender differs, or when its type or
    // one of the parameters it carries changed; dropping a parameter alone
    // is no change.
    void descriptionChangeRule_data()
    {
        QTest::addColumn<bool>("otherSender");
        QTest::addColumn<int>("type");
        QTest::addColumn<QVariantMap>("params");
        QTest::addColumn<bool>("accepted");

        const QVariantMap same{{"w", 1}, {"h", 2}};
        QTest::newRow("equal, same sender") << false << 1 << same << false;
        QTest::newRow("equal, other sender") << true << 1 << same << true;
        QTest::newRow("lacks a key") << false << 1 << QVariantMap{{"w", 1}} << false;
        QTest::newRow("no params") << false << 1 << QVariantMap() << false;
        QTest::newRow("type changed") << false << 2 << same << true;
        QTest::newRow("value changed") << false << 1 << QVariantMap{{"w", 1}, {"h", 3}} << true;
        QTest::newRow("key added") << false << 1 << QVariantMap{{"w", 1}, {"h", 2}, {"fps", 25}} << true;
    }
    void descriptionChangeRule()
    {
        QFETCH(bool, otherSender);
        QFETCH(int, type);
        QFETCH(QVariantMap, params);
        QFETCH(bool, accepted);

        VexaProbe *x = startInMain(QStringLiteral("flow_x"));
        VexaProbe *y = startInMain(QStringLiteral("flow_y"));
        VexaProbe *r = startInMain(QStringLiteral("flow_r"));
        for (bool audio : {true, false}) {
            auto deliver = [&](const StreamInfo &i) { audio ? r->invokeInfoA(i) : r->invokeInfoV(i); };
            const int before = r->hooks().size();
            deliver(makeInfo(1, {{"w", 1}, {"h", 2}}, x));
            QCoreApplication::processEvents();
            QCOMPARE(r->hooks().size(), before + 1);
            deliver(makeInfo(type, params, otherSender ? y : x));
            QCoreApplication::processEvents();
            QCOMPARE(r->hooks().size(), before + 1 + int(accepted));
        }
        const QVariantList current = r->currentInV().toList();
        QCOMPARE(current.value(0).toInt(), accepted ? type : 1);
        for (VexaProbe *p : {x, y, r})
            p->destroy();
    }
};

QTEST_GUILESS_MAIN(tst_PacketFlow)
#include "tst_packetflow.moc"
