// VexaOutputFile under pressure: its worker is held still while a producer
// thread sends packets, so that the queue bound or the payload ring fills up.
// The file is written by FFmpeg's framemd5 muxer, whose per-packet hashes
// show whether each payload survived intact and which packets were kept.

#include <QFile>
#include <QScopeGuard>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

extern "C" {
#include <libavcodec/codec_id.h>
}

#include "testmodules.h"
#include "vexa.h"
#include "vexaexamplemodules.h"
#include "vexamedia.h"
#include "vexaoutputfile.h"

class tst_VexaOutputFile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void overflow_data();
    void overflow();
    void unknownFormatReportsError();

private:
    QTemporaryDir dir;
};

namespace {

QByteArray payload(int index, int size)
{
    QByteArray b(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        b[i] = char((index * 131 + i * 7) & 0xff);
    return b;
}

VexaObject::StreamInfo videoInfo()
{
    VexaObject::StreamInfo info;
    info.type = VexaMedia::CompressedStream;
    info.params = {{"kind", "video"}, {"codecId", int(AV_CODEC_ID_MPEG4)}, {"codecName", "mpeg4"},
                   {"timeBaseNum", 1}, {"timeBaseDen", 25}, {"width", 64}, {"height", 48},
                   {"packetFlags", "tag"}};
    return info;
}

// framemd5 lines: stream, dts, pts, duration, size, hash.
QList<QStringList> readFrameMd5(const QString &path)
{
    QList<QStringList> rows;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
        return rows;
    while (!f.atEnd()) {
        const QString line = QString::fromUtf8(f.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        QStringList cols;
        for (const QString &c : line.split(QLatin1Char(',')))
            cols << c.trimmed();
        rows << cols;
    }
    return rows;
}

} // namespace

void tst_VexaOutputFile::initTestCase()
{
    QVERIFY(dir.isValid());
    Vexa::init(false);
    vexaRegisterExampleModules();
    qRegisterMetaType<VexaTestSource *>("VexaTestSource");
}

void tst_VexaOutputFile::overflow_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<int>("bufLen");
    QTest::addColumn<int>("memSize");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("heldAt");        // wait: packets received when the sender is held back
    QTest::addColumn<QList<int>>("kept");   // packets in the file, by index
    QTest::addColumn<bool>("audioToo");     // an audio stream is described but sends nothing

    const int n = 12;
    QList<int> all;
    for (int i = 0; i < n; ++i)
        all << i;
    // The bound counts the incoming packet: a bound of 4 holds 3.
    QTest::newRow("wait, queue full") << "wait" << 4 << (1 << 20) << 500 << 4 << all << false;
    // A 2500-byte ring holds two 1000-byte payloads; the third would wrap
    // onto the first, still queued.
    QTest::newRow("wait, ring full") << "wait" << 50 << 2500 << 1000 << 3 << all << false;
    // The muxer keeps video back while it waits for audio to interleave
    // with; the ring fills with blocks it holds, and it must let go.
    QTest::newRow("wait, ring held by the muxer") << "wait" << 50 << 2500 << 1000 << 3 << all << true;
    QTest::newRow("drop, queue full keeps the newest") << "drop" << 4 << (1 << 20) << 500 << 0 << QList<int>{9, 10, 11} << false;
    QTest::newRow("drop, ring full keeps the queued") << "drop" << 50 << 2500 << 1000 << 0 << QList<int>{0, 1} << false;
}

void tst_VexaOutputFile::overflow()
{
    QFETCH(QString, mode);
    QFETCH(int, bufLen);
    QFETCH(int, memSize);
    QFETCH(int, size);
    QFETCH(int, heldAt);
    QFETCH(QList<int>, kept);
    QFETCH(bool, audioToo);
    const int count = 12;

    const QString path = dir.filePath(QStringLiteral("%1.framemd5").arg(QTest::currentDataTag()).replace(' ', '_'));
    auto *src = static_cast<VexaTestSource *>(Vexa::create("TestSource"));
    VexaObject *out = Vexa::create("OutputFile");
    src->setOutInfoV(videoInfo());
    if (audioToo) {
        VexaObject::StreamInfo audio;
        audio.type = VexaMedia::CompressedStream;
        audio.params = {{"kind", "audio"}, {"codecId", int(AV_CODEC_ID_PCM_S16LE)}, {"codecName", "pcm_s16le"},
                        {"timeBaseNum", 1}, {"timeBaseDen", 48000}, {"sampleRate", 48000}, {"channels", 1}};
        src->setOutInfoA(audio);
        Vexa::linkA(src, out);
    }
    out->setData(QVariantMap{{"path", path}, {"format", "framemd5"}, {"overflow", mode},
                             {"bufLenV", bufLen}, {"memSize", memSize}});
    Vexa::linkV(src, out);
    QVERIFY(out->start());
    QVERIFY(src->start());

    // Hold the output's worker inside a posted call: nothing is drained.
    QSemaphore inside;
    QSemaphore release;
    QMetaObject::invokeMethod(out, [&] { inside.release(); release.acquire(); }, Qt::QueuedConnection);
    QVERIFY(inside.tryAcquire(1, 30000));

    // One scratch buffer, scribbled over after every send: the output must
    // keep its own copy.
    QByteArray scratch(size, '\0');
    QThread *producer = QThread::create([&] {
        for (int i = 0; i < count; ++i) {
            scratch = payload(i, size);
            VexaObject::Packet p;
            p.data = scratch.data();
            p.len = size;
            p.pts = i * 40000;
            p.tag = i % 12 == 0 ? 1 : 0;
            src->sendPacketV(p);
            scratch.fill('\xee');
        }
    });
    producer->start();
    // On a failed check, let the worker and the producer finish before the
    // locals they use go away.
    auto cleanup = qScopeGuard([&] {
        release.release();
        producer->wait();
        delete producer;
    });

    auto stat = [out](const char *key) { return out->invoke("stats").toMap().value(key).toLongLong(); };
    if (mode == QLatin1String("wait")) {
        QTRY_COMPARE(stat("receivedV"), qint64(heldAt));
        QVERIFY(!producer->isFinished());
        QCOMPARE(stat("droppedV"), qint64(0));
    } else {
        QVERIFY(producer->wait(30000));
        QCOMPARE(stat("droppedV"), qint64(count - kept.size()));
    }
    release.release();
    QVERIFY(producer->wait(30000));
    cleanup.dismiss();
    delete producer;
    QVERIFY(out->stop(true));

    const QList<QStringList> rows = readFrameMd5(path);
    QCOMPARE(rows.size(), kept.size());
    for (int r = 0; r < rows.size(); ++r) {
        const int i = kept.at(r);
        const QByteArray want = QCryptographicHash::hash(payload(i, size), QCryptographicHash::Md5).toHex();
        QCOMPARE(rows[r].value(4).toInt(), size);
        QCOMPARE(rows[r].value(2).toLongLong(), qint64(i));   // pts, in 1/25 s
        QCOMPARE(rows[r].value(5).toLatin1(), want);
    }
    src->destroy();
    out->destroy();
}

void tst_VexaOutputFile::unknownFormatReportsError()
{
    qRegisterMetaType<VexaTestSink *>("VexaTestSink");
    VexaObject *out = Vexa::create("OutputFile");
    auto *events = static_cast<VexaTestSink *>(Vexa::create("TestSink"));
    out->setData(QVariantMap{{"path", dir.filePath("x.unknownext")}});
    Vexa::linkE(out, events);
    QVERIFY(events->start());
    QVERIFY(out->start());
    QTRY_VERIFY(events->hasEvent("error"));
    QVERIFY(events->events().first().second.toString().contains("cannot choose a container"));
    // Packets sent now are refused and counted, not queued forever.
    VexaObject::Packet p;
    QByteArray data(100, 'x');
    p.data = data.data();
    p.len = data.size();
    out->onNewPacketV(p);
    QCOMPARE(out->invoke("stats").toMap().value("droppedV").toLongLong(), qint64(1));
    QVERIFY(out->stop(true));
    out->destroy();
    events->destroy();
}

QTEST_GUILESS_MAIN(tst_VexaOutputFile)
#include "tst_vexaoutputfile.moc"
