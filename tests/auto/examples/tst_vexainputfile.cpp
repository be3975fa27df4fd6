// VexaInputFile against ffprobe's reading of the same file: every packet's
// payload, size, keyframe flag and timestamps; the stream descriptions; the
// end of file, looping and a missing file.

#include <QTemporaryDir>
#include <QtTest>

#include "../tools/mediaprobe.h"
#include "testmodules.h"
#include "vexa.h"
#include "vexaexamplemodules.h"
#include "vexamedia.h"

class tst_VexaInputFile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void packetsMatchFile_data();
    void packetsMatchFile();
    void loopKeepsTimestampsRising();
    void missingFileIsAnEvent();

private:
    VexaTestSink *run(const QVariantMap &settings, VexaObject **input);

    QTemporaryDir dir;
    QString clipMp4;
};

void tst_VexaInputFile::initTestCase()
{
    if (!MediaProbe::toolsAvailable())
        QSKIP("ffmpeg and ffprobe are needed to make and read test media");
    QVERIFY(dir.isValid());
    Vexa::init(false);
    vexaRegisterExampleModules();
    qRegisterMetaType<VexaTestSink *>("VexaTestSink");
    clipMp4 = dir.filePath("clip.mp4");
    QString error;
    QVERIFY2(MediaProbe::makeClip(clipMp4, 1.5, &error), qPrintable(error));
    QVERIFY(MediaProbe::rewrap(clipMp4, dir.filePath("clip.mkv")));
}

VexaTestSink *tst_VexaInputFile::run(const QVariantMap &settings, VexaObject **input)
{
    VexaObject *in = Vexa::create("InputFile");
    auto *sink = static_cast<VexaTestSink *>(Vexa::create("TestSink"));
    in->setData(settings);
    Vexa::linkA(in, sink);
    Vexa::linkV(in, sink);
    Vexa::linkE(in, sink);
    sink->start();
    in->start();
    *input = in;
    return sink;
}

void tst_VexaInputFile::packetsMatchFile_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("mp4, decode times differ") << "clip.mp4";
    QTest::newRow("mkv, no decode times") << "clip.mkv";
}

void tst_VexaInputFile::packetsMatchFile()
{
    QFETCH(QString, file);
    const QString path = dir.filePath(file);
    VexaObject *in = nullptr;
    VexaTestSink *sink = run({{"path", path}}, &in);
    QTRY_VERIFY_WITH_TIMEOUT(sink->hasEvent("eos"), 60000);
    QCOMPARE(sink->events().first().second.toString(), in->name());

    MediaProbe::Streams want;
    QVERIFY(MediaProbe::probe(path, &want));
    const QList<VexaTestSink::Seen> seen = sink->packets();
    QMap<QString, QList<VexaTestSink::Seen>> got;
    for (const auto &s : seen)
        got[s.video ? "video" : "audio"] << s;
    for (const QString &kind : {QStringLiteral("audio"), QStringLiteral("video")}) {
        const auto &a = want[kind];
        const auto &b = got[kind];
        QCOMPARE(b.size(), a.size());
        for (int i = 0; i < a.size(); ++i) {
            const QByteArray where = QStringLiteral("%1 packet %2").arg(kind).arg(i).toUtf8();
            QVERIFY2(b[i].len == a[i].size, where.constData());
            QVERIFY2("MD5:" + b[i].md5 == a[i].hash.toLatin1(), where.constData());
            QVERIFY2(bool(b[i].tag & 1) == a[i].key, where.constData());
            QVERIFY2(qAbs(b[i].pts - a[i].ptsUs) <= 1, where.constData());
            if (a[i].hasDts) {
                const qint64 dts = b[i].altPts == -1 ? b[i].pts : b[i].altPts;
                QVERIFY2(qAbs(dts - a[i].dtsUs) <= 1, where.constData());
            } else {
                QVERIFY2(b[i].altPts == VexaMedia::NoPts, where.constData());
            }
        }
    }

    const VexaObject::StreamInfo v = sink->infoV();
    const VexaObject::StreamInfo a = sink->infoA();
    QCOMPARE(v.type, VexaMedia::CompressedStream);
    QCOMPARE(v.sender, in);
    QCOMPARE(v.params.value("codecName").toString(), QStringLiteral("h264"));
    QCOMPARE(v.params.value("width").toInt(), 160);
    QCOMPARE(v.params.value("height").toInt(), 120);
    QVERIFY(!v.params.value("extradata").toByteArray().isEmpty());
    QCOMPARE(a.params.value("codecName").toString(), QStringLiteral("aac"));
    QCOMPARE(a.params.value("sampleRate").toInt(), 48000);
    QCOMPARE(a.params.value("channels").toInt(), 1);
    QVERIFY(!a.params.value("extradata").toByteArray().isEmpty());
    // The same descriptions are kept for links made later.
    QCOMPARE(in->getStreamInfoV().params, v.params);

    in->stop(true);
    in->destroy();
    sink->destroy();
}

void tst_VexaInputFile::loopKeepsTimestampsRising()
{
    MediaProbe::Streams want;
    QVERIFY(MediaProbe::probe(clipMp4, &want));
    const int perPass = want["audio"].size() + want["video"].size();

    VexaObject *in = nullptr;
    VexaTestSink *sink = run({{"path", clipMp4}, {"loop", true}}, &in);
    QTRY_VERIFY_WITH_TIMEOUT(sink->packetCount() > perPass * 5 / 2, 60000);
    QVERIFY(in->stop(true));
    QVERIFY(!sink->hasEvent("eos"));
    QVERIFY(in->invoke("stats").isNull());   // stopped: invoke refuses
    const QList<VexaTestSink::Seen> seen = sink->packets();
    QHash<bool, qint64> last{{false, std::numeric_limits<qint64>::min()}, {true, std::numeric_limits<qint64>::min()}};
    for (int i = 0; i < seen.size(); ++i) {
        const qint64 dts = seen[i].altPts == -1 ? seen[i].pts : seen[i].altPts;
        QVERIFY2(dts > last[seen[i].video], qPrintable(QStringLiteral("packet %1").arg(i)));
        last[seen[i].video] = dts;
        // Each pass repeats the file's payloads.
        if (i >= perPass)
            QCOMPARE(seen[i].md5, seen[i - perPass].md5);
    }
    in->destroy();
    sink->destroy();
}

void tst_VexaInputFile::missingFileIsAnEvent()
{
    VexaObject *in = nullptr;
    const QString path = dir.filePath("no-such-file.mp4");
    VexaTestSink *sink = run({{"path", path}}, &in);
    QTRY_VERIFY(sink->hasEvent("error"));
    const QString message = sink->events().first().second.toString();
    QVERIFY2(message.contains(path) && message.contains("No such file"), qPrintable(message));
    QCOMPARE(sink->packetCount(), 0);
    QCOMPARE(in->getStreamInfoV().type, 0);
    // Still alive and stoppable.
    QVERIFY(in->stop(true));
    in->destroy();
    sink->destroy();
}

QTEST_GUILESS_MAIN(tst_VexaInputFile)
#include "tst_vexainputfile.moc"
