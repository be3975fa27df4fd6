// The example modules. VexaInputFile given a missing file. VexaOutputFile
// under pressure: its worker is held still while a producer thread sends
// packets, so that the queue bound or the payload ring fills up; FFmpeg's
// framemd5 muxer writes the file, whose per-packet hashes show whether each
// payload survived intact and which packets were kept. (What the input reads
// from real files is checked end to end by the remux cases of the tools
// test, against ffprobe.)

#include <QCryptographicHash>
#include <QFile>
#include <QScopeGuard>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <memory>

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavcodec/defs.h>
#include <libavutil/buffer.h>
}

#include "testmodules.h"
#include "vexamedia.h"
#include "vexatest.h"

namespace {

QByteArray payload(int index, int size)
{
    QByteArray b(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        b[i] = char((index * 131 + i * 7) & 0xff);
    return b;
}

VexaObject::StreamInfo compressed(const QVariantMap &params)
{
    VexaObject::StreamInfo info;
    info.type = VexaMedia::CompressedStream;
    info.params = params;
    return info;
}

// A video description for @p src (MPEG-4, 25 fps, flags in the tag) and,
// with @p audio, an audio one and the audio link to @p out (which then waits
// for audio packets that never come, holding video back to interleave).
void describeAndLinkAudio(VexaTestSource *src, VexaObject *out, bool audio)
{
    src->setOutInfoV(compressed({{"kind", "video"}, {"codecId", int(AV_CODEC_ID_MPEG4)}, {"codecName", "mpeg4"},
                                 {"timeBaseNum", 1}, {"timeBaseDen", 25}, {"width", 64}, {"height", 48},
                                 {"packetFlags", "tag"}}));
    if (audio) {
        src->setOutInfoA(compressed({{"kind", "audio"}, {"codecId", int(AV_CODEC_ID_PCM_S16LE)}, {"codecName", "pcm_s16le"},
                                     {"timeBaseNum", 1}, {"timeBaseDen", 48000}, {"sampleRate", 48000}, {"channels", 1}}));
        Vexa::linkA(src, out);
    }
}

// Holds @p obj's worker thread inside a posted call until @p release is
// released; true once the worker is inside.
bool holdWorker(VexaObject *obj, QSemaphore &release)
{
    auto inside = std::make_shared<QSemaphore>();
    QMetaObject::invokeMethod(obj, [inside, &release] { inside->release(); release.acquire(); }, Qt::QueuedConnection);
    return inside->tryAcquire(1, 30000);
}

} // namespace

class tst_Examples : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        registerTestModules();
    }

    // A missing input file, or an existing output file without "overwrite",
    // is an "error" event naming it; the module stays alive and sends
    // nothing. An existing file is not truncated before a header is written.
    void fileErrors_data()
    {
        QTest::addColumn<QString>("module");
        QTest::addColumn<QString>("file");
        QTest::addColumn<bool>("overwrite");
        QTest::addColumn<QString>("error"); // empty: none
        QTest::newRow("input missing") << "InputFile" << "no-such-file.mp4" << false << "No such file";
        QTest::newRow("output exists") << "OutputFile" << "existing-0.framemd5" << false << "already exists";
        QTest::newRow("output exists, overwrite") << "OutputFile" << "existing-1.framemd5" << true << "";
    }
    void fileErrors()
    {
        QFETCH(QString, module);
        QFETCH(QString, file);
        QFETCH(bool, overwrite);
        QFETCH(QString, error);
        const QString path = dir.filePath(file);
        QFile f(path);
        if (module == QLatin1String("OutputFile")) {
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("keep me");
            f.close();
        }
        VexaObject *obj = Vexa::create(module);
        auto *sink = static_cast<VexaTestSink *>(Vexa::create("TestSink"));
        Vexa::linkV(obj, sink);
        Vexa::linkE(obj, sink);
        QVERIFY(sink->start());
        QVERIFY(obj->start(QVariantMap{{"path", path}, {"format", "framemd5"}, {"overwrite", overwrite}}));
        if (!error.isEmpty()) {
            QTRY_VERIFY(!sink->events().isEmpty());
            QCOMPARE(sink->events().first().first, QStringLiteral("error"));
            const QString message = sink->events().first().second.toString();
            QVERIFY2(message.contains(path) && message.contains(error), qPrintable(message));
        }
        QVERIFY(obj->stop(true));
        QCOMPARE(sink->packets(), 0);
        QCOMPARE(obj->getStreamInfoV().type, 0);
        if (f.exists()) {
            QVERIFY(f.open(QIODevice::ReadOnly));
            QCOMPARE(f.readAll(), QByteArray("keep me"));
        }
        obj->destroy();
        sink->destroy();
    }

    void outputOverflow_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<int>("bufLen");
        QTest::addColumn<int>("memSize");
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("heldAt");      // wait: packets received when the sender is held back
        QTest::addColumn<QList<int>>("kept"); // packets in the file, by index
        QTest::addColumn<bool>("audioToo");   // an audio stream is described but sends nothing
        QTest::addColumn<int>("lend");        // 0: plain payloads; 1: lent buffers; 2: lent without padding room

        const QList<int> all{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
        // The bound counts the incoming packet: a bound of 4 holds 3.
        QTest::newRow("wait, queue full") << "wait" << 4 << (1 << 20) << 500 << 4 << all << false << 0;
        // A 2500-byte ring holds two 1000-byte payloads; the third would wrap
        // onto the first, still queued.
        QTest::newRow("wait, ring full") << "wait" << 50 << 2500 << 1000 << 3 << all << false << 0;
        // The muxer keeps video back while it waits for audio to interleave
        // with; the ring fills with blocks it holds, and it must let go.
        QTest::newRow("wait, ring held by the muxer") << "wait" << 50 << 2500 << 1000 << 3 << all << true << 0;
        // Payloads larger than the whole ring get copies of their own: never
        // dropped for their size, still held back by the queue bound.
        QTest::newRow("wait, packets larger than the ring") << "wait" << 4 << 2500 << 3000 << 4 << all << false << 0;
        QTest::newRow("drop, packets larger than the ring") << "drop" << 50 << 2500 << 3000 << 0 << all << false << 0;
        QTest::newRow("drop, queue full keeps the newest") << "drop" << 4 << (1 << 20) << 500 << 0 << QList<int>{9, 10, 11} << false << 0;
        QTest::newRow("drop, ring full keeps the queued") << "drop" << 50 << 2500 << 1000 << 0 << QList<int>{0, 1} << false << 0;
        // A lent buffer is kept by reference (the sender drops its own at
        // once), also past the ring's size; one without room for the padding
        // is copied (the sender scribbles over it).
        QTest::newRow("wait, lent buffers") << "wait" << 4 << 2500 << 3000 << 4 << all << false << 1;
        QTest::newRow("drop, lent buffers keep the newest") << "drop" << 4 << (1 << 20) << 500 << 0 << QList<int>{9, 10, 11} << false << 1;
        QTest::newRow("wait, lent without padding is copied") << "wait" << 4 << (1 << 20) << 500 << 4 << all << false << 2;
    }
    void outputOverflow()
    {
        QFETCH(QString, mode);
        QFETCH(int, bufLen);
        QFETCH(int, memSize);
        QFETCH(int, size);
        QFETCH(int, heldAt);
        QFETCH(QList<int>, kept);
        QFETCH(bool, audioToo);
        QFETCH(int, lend);
        const int count = 12;

        const QString path = dir.filePath(QStringLiteral("%1.framemd5").arg(QTest::currentDataTag()).replace(' ', '_'));
        auto *src = static_cast<VexaTestSource *>(Vexa::create("TestSource"));
        VexaObject *out = Vexa::create("OutputFile");
        describeAndLinkAudio(src, out, audioToo);
        out->setData(QVariantMap{{"path", path}, {"format", "framemd5"}, {"overflow", mode},
                                 {"bufLenV", bufLen}, {"memSize", memSize}});
        Vexa::linkV(src, out);
        QVERIFY(out->start());
        QVERIFY(src->start());

        // Hold the output's worker inside a posted call: nothing is drained.
        QSemaphore release;
        QVERIFY(holdWorker(out, release));

        // One scratch buffer, scribbled over after every send: the output must
        // keep its own copy.
        QByteArray scratch(size, '\0');
        QScopedPointer<QThread> producer(QThread::create([&] {
            for (int i = 0; i < count; ++i) {
                VexaObject::Packet p;
                p.len = size;
                p.pts = i * 40000;
                p.tag = i % 12 == 0 ? 1 : 0;
                if (lend == 0) {
                    scratch = payload(i, size);
                    p.data = scratch.data();
                    src->sendPacketV(p);
                    scratch.fill('\xee');
                    continue;
                }
                AVBufferRef *buf = av_buffer_alloc(size_t(size) + (lend == 1 ? AV_INPUT_BUFFER_PADDING_SIZE : 0));
                memcpy(buf->data, payload(i, size).constData(), size_t(size));
                p.data = reinterpret_cast<char *>(buf->data);
                {
                    const VexaPayloadLend lent = VexaMedia::lend(buf);
                    src->sendPacketV(p);
                }
                if (lend == 2)
                    memset(buf->data, 0xee, size_t(size));   // still the sender's alone
                av_buffer_unref(&buf);
            }
        }));
        producer->start();
        // On a failed check too, let the worker and the producer finish
        // before the locals they use go away.
        auto finish = qScopeGuard([&] {
            release.release();
            producer->wait();
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
        QVERIFY(out->stop(true));

        const QList<QStringList> rows = VexaTest::frameMd5(path);
        QCOMPARE(rows.size(), kept.size());
        for (int r = 0; r < rows.size(); ++r) {
            const int i = kept.at(r);
            QCOMPARE(rows[r].value(4).toInt(), size);
            QCOMPARE(rows[r].value(2).toLongLong(), qint64(i)); // pts, in 1/25 s
            QCOMPARE(rows[r].value(5).toLatin1(), QCryptographicHash::hash(payload(i, size), QCryptographicHash::Md5).toHex());
        }
        src->destroy();
        out->destroy();
    }

    // A source that describes its stream and sends packets just before the
    // output is stopped: the description reaches the output's thread after
    // the state has changed (and is parked there), the packets are already
    // queued. The file still holds them all.
    void describedJustBeforeStop()
    {
        const QString path = dir.filePath(QStringLiteral("late-description.framemd5"));
        auto *src = static_cast<VexaTestSource *>(Vexa::create("TestSource"));
        VexaObject *out = Vexa::create("OutputFile");
        out->setData(QVariantMap{{"path", path}, {"format", "framemd5"}});
        Vexa::linkV(src, out);
        QVERIFY(out->start());
        QVERIFY(src->start());

        QSemaphore release;
        QVERIFY(holdWorker(out, release));
        describeAndLinkAudio(src, out, false);
        src->sendInfoV(src->getStreamInfoV());
        for (int i = 0; i < 3; ++i) {
            VexaObject::Packet p;
            const QByteArray data = payload(i, 100);
            p.len = data.size();
            p.data = const_cast<char *>(data.constData());
            p.pts = i * 40000;
            p.tag = i == 0 ? 1 : 0;
            src->sendPacketV(p);
        }
        // stop() changes the state at once; its onStop runs behind the
        // description.
        QVERIFY(out->stop());
        release.release();
        QTRY_COMPARE(VexaTest::frameMd5(path).size(), 3);
        src->destroy();
        out->destroy();
    }

    // The output in its sender's thread (both started with one thread name):
    // a full queue or ring cannot wait for the worker, which is the sender
    // itself; the sender writes instead, and nothing is lost.
    void sharedThread_data()
    {
        QTest::addColumn<int>("bufLen");
        QTest::addColumn<int>("memSize");
        QTest::addColumn<bool>("audioToo");
        QTest::newRow("queue full") << 4 << (1 << 20) << false;
        QTest::newRow("ring full") << 50 << 2500 << false;
        QTest::newRow("ring held by the muxer") << 50 << 2500 << true;
    }
    void sharedThread()
    {
        QFETCH(int, bufLen);
        QFETCH(int, memSize);
        QFETCH(bool, audioToo);
        const int count = 12;
        const int size = 1000;
        const QString tag = QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_');
        const QString path = dir.filePath(QStringLiteral("shared-%1.framemd5").arg(tag));
        auto *src = static_cast<VexaTestSource *>(Vexa::create("TestSource"));
        VexaObject *out = Vexa::create("OutputFile");
        src->setThreadName(QStringLiteral("shared-") + tag);
        out->setThreadName(QStringLiteral("shared-") + tag);
        describeAndLinkAudio(src, out, audioToo);
        out->setData(QVariantMap{{"path", path}, {"format", "framemd5"}, {"bufLenV", bufLen}, {"memSize", memSize}});
        Vexa::linkV(src, out);
        QVERIFY(out->start());
        QVERIFY(src->start());
        QCOMPARE(src->thread(), out->thread());

        QAtomicInt sent;
        QMetaObject::invokeMethod(src, [&] {
            QByteArray scratch;
            for (int i = 0; i < count; ++i) {
                scratch = payload(i, size);
                VexaObject::Packet p;
                p.data = scratch.data();
                p.len = size;
                p.pts = i * 40000;
                p.tag = i == 0 ? 1 : 0;
                src->sendPacketV(p);
                scratch.fill('\xee');
                sent.storeRelease(i + 1);
            }
        }, Qt::QueuedConnection);
        QTRY_COMPARE_WITH_TIMEOUT(sent.loadAcquire(), count, 30000);
        QCOMPARE(out->invoke("stats").toMap().value("droppedV").toLongLong(), qint64(0));
        QVERIFY(out->stop(true));

        const QList<QStringList> rows = VexaTest::frameMd5(path);
        QCOMPARE(rows.size(), count);
        for (int i = 0; i < count; ++i)
            QCOMPARE(rows[i].value(5).toLatin1(), QCryptographicHash::hash(payload(i, size), QCryptographicHash::Md5).toHex());
        src->destroy();
        out->destroy();
    }

private:
    QTemporaryDir dir;
};

QTEST_GUILESS_MAIN(tst_Examples)
#include "tst_examples.moc"
