#ifndef MEDIAPROBE_H
#define MEDIAPROBE_H

// Test media made and read back with the host's ffmpeg and ffprobe tools, so
// that what our modules write is checked by a reader we did not write.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

namespace MediaProbe {

struct Packet {
    int size = 0;
    QString hash;           // "MD5:..."
    bool key = false;
    bool hasPts = false;
    bool hasDts = false;
    qint64 ptsUs = 0;       // in microseconds, rounded
    qint64 dtsUs = 0;
    qint64 durationUs = 0;  // 0 when none
    QString sideData;       // ffprobe's side data list, as compact JSON
};

// Packets per stream kind ("audio", "video"), in file order.
using Streams = QMap<QString, QList<Packet>>;

// What ffprobe reports of each stream's side data (type and rotation), by
// kind, for the streams that have any.
inline QMap<QString, QString> streamSideData(const QString &path)
{
    QProcess p;
    p.start(QStringLiteral("ffprobe"), {"-v", "error", "-show_streams", "-of", "json", path});
    p.waitForFinished(60000);
    QMap<QString, QString> out;
    for (const QJsonValue &s : QJsonDocument::fromJson(p.readAllStandardOutput()).object().value("streams").toArray()) {
        const QJsonObject o = s.toObject();
        QStringList items;
        for (const QJsonValue &sd : o.value("side_data_list").toArray())
            items << sd.toObject().value("side_data_type").toString() + QLatin1Char(' ')
                         + QString::number(sd.toObject().value("rotation").toInt());
        if (!items.isEmpty())
            out.insert(o.value("codec_type").toString(), items.join(QLatin1String(", ")));
    }
    return out;
}

// What a container holds beside the packets, as ffprobe reports it: the
// video's sample and display aspect ratios, stream languages, global title
// and artist, chapters with their times and titles.
inline QString containerFacts(const QString &path)
{
    QProcess p;
    p.start(QStringLiteral("ffprobe"), {"-v", "error", "-show_entries",
                                        "format_tags=title,artist:stream=codec_type,sample_aspect_ratio,display_aspect_ratio"
                                        ":stream_tags=language:chapter=start_time,end_time:chapter_tags=title",
                                        "-of", "compact", path});
    p.waitForFinished(60000);
    return QString::fromUtf8(p.readAllStandardOutput());
}

inline bool toolsAvailable()
{
    return !QStandardPaths::findExecutable(QStringLiteral("ffmpeg")).isEmpty()
        && !QStandardPaths::findExecutable(QStringLiteral("ffprobe")).isEmpty();
}

// Runs ffmpeg quietly with @p args; false (and its messages in @p error)
// when it fails.
inline bool ffmpeg(const QStringList &args, QString *error = nullptr)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), QStringList{"-hide_banner", "-loglevel", "error", "-y"} + args);
    const bool ok = p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    if (!ok && error)
        *error = QString::fromLocal8Bit(p.readAllStandardError());
    return ok;
}

// A short clip: H.264 video with B-frames (so decode and presentation times
// differ) and AAC audio, in the container chosen by the extension of @p path.
inline bool makeClip(const QString &path, double seconds = 2.0, QString *error = nullptr)
{
    return ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000",
                   "-t", QString::number(seconds), "-c:v", "libx264", "-preset", "ultrafast", "-g", "12", "-bf", "2",
                   "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "64k", "-shortest", path}, error);
}

// Copies @p from into @p to (another container, same packets).
inline bool rewrap(const QString &from, const QString &to) { return ffmpeg({"-i", from, "-c", "copy", to}); }

inline qint64 toUs(qint64 ts, const QString &timeBase)
{
    const QStringList nd = timeBase.split(QLatin1Char('/'));
    const qint64 num = nd.value(0).toLongLong();
    const qint64 den = qMax<qint64>(1, nd.value(1).toLongLong());
    // Round half away from zero, as the modules' rescaling does.
    const long double v = static_cast<long double>(ts) * num * 1000000.0L / den;
    return static_cast<qint64>(v < 0 ? v - 0.5L : v + 0.5L);
}

// Reads every packet of @p path; false when ffprobe cannot read the file.
inline bool probe(const QString &path, Streams *out, QString *error = nullptr)
{
    QProcess p;
    p.start(QStringLiteral("ffprobe"), {"-v", "error", "-show_streams", "-show_packets", "-show_data_hash", "MD5",
                                        "-of", "json", path});
    if (!p.waitForFinished(120000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        if (error)
            *error = QString::fromLocal8Bit(p.readAllStandardError());
        return false;
    }
    const QJsonObject doc = QJsonDocument::fromJson(p.readAllStandardOutput()).object();
    // Index -> name, time base. A stream is named by its kind ("video"),
    // and by its kind and number ("audio 2") when the file has more than one of that kind.
    QMap<int, QPair<QString, QString>> streams;
    QMap<QString, int> kinds;
    const QJsonArray list = doc.value("streams").toArray();
    for (const QJsonValue &s : list)
        ++kinds[s.toObject().value("codec_type").toString()];
    for (const QJsonValue &s : list) {
        const QJsonObject o = s.toObject();
        const QString kind = o.value("codec_type").toString();
        const int index = o.value("index").toInt();
        streams.insert(index, {kinds.value(kind) > 1 ? QStringLiteral("%1 %2").arg(kind).arg(index) : kind,
                               o.value("time_base").toString()});
    }
    out->clear();
    for (const QJsonValue &v : doc.value("packets").toArray()) {
        const QJsonObject o = v.toObject();
        const auto stream = streams.value(o.value("stream_index").toInt());
        Packet pk;
        pk.size = o.value("size").toString().toInt();
        pk.hash = o.value("data_hash").toString();
        pk.key = o.value("flags").toString().startsWith(QLatin1Char('K'));
        pk.hasPts = o.contains("pts");
        pk.hasDts = o.contains("dts");
        if (pk.hasPts)
            pk.ptsUs = toUs(o.value("pts").toVariant().toLongLong(), stream.second);
        if (pk.hasDts)
            pk.dtsUs = toUs(o.value("dts").toVariant().toLongLong(), stream.second);
        pk.sideData = QString::fromUtf8(QJsonDocument(o.value("side_data_list").toArray()).toJson(QJsonDocument::Compact));
        if (o.contains("duration"))
            pk.durationUs = toUs(o.value("duration").toVariant().toLongLong(), stream.second);
        (*out)[stream.first].append(pk);
    }
    return true;
}

// The first packet of @p got whose size or data differs from @p want's, or
// an empty string. @p got holds @p want @p rounds times over (a source sent
// again); with 0 rounds, as many packets as it likes but at least one, from
// a source that loops.
inline QString sameData(const Streams &want, const Streams &got, int rounds = 1)
{
    if (got.keys() != want.keys())
        return QStringLiteral("streams %1, expected %2").arg(got.keys().join(','), want.keys().join(','));
    for (auto it = want.begin(); it != want.end(); ++it) {
        const QList<Packet> &a = it.value();
        const QList<Packet> &b = got[it.key()];
        if (a.isEmpty() || (rounds > 0 ? b.size() != rounds * a.size() : b.isEmpty()))
            return QStringLiteral("%1: %2 packets, expected %3 rounds of %4").arg(it.key()).arg(b.size()).arg(rounds).arg(a.size());
        for (int i = 0; i < b.size(); ++i) {
            const Packet &w = a[i % a.size()];
            if (b[i].size != w.size || b[i].hash != w.hash)
                return QStringLiteral("%1 packet %2: size %3 %4, expected %5 %6")
                    .arg(it.key()).arg(i).arg(b[i].size).arg(b[i].hash).arg(w.size).arg(w.hash);
        }
    }
    return QString();
}

// The first difference between the packets of @p want and @p got (count,
// size and data hash; keyframe flag, timestamps to the microsecond with
// decode times present alike, durations and side data), or an empty string.
inline QString mismatch(const Streams &want, const Streams &got)
{
    const QString data = sameData(want, got);
    if (!data.isEmpty())
        return data;
    for (auto it = want.begin(); it != want.end(); ++it) {
        const QList<Packet> &a = it.value();
        const QList<Packet> &b = got[it.key()];
        for (int i = 0; i < a.size(); ++i) {
            QStringList bad;
            if (b[i].key != a[i].key)
                bad << QStringLiteral("keyframe flag");
            if (b[i].hasPts != a[i].hasPts || qAbs(b[i].ptsUs - a[i].ptsUs) > 1)
                bad << QStringLiteral("pts %1 us, expected %2 us").arg(b[i].ptsUs).arg(a[i].ptsUs);
            if (b[i].hasDts != a[i].hasDts || qAbs(b[i].dtsUs - a[i].dtsUs) > 1)
                bad << QStringLiteral("dts %1 us (%2), expected %3 us (%4)").arg(b[i].dtsUs).arg(b[i].hasDts).arg(a[i].dtsUs).arg(a[i].hasDts);
            if (b[i].sideData != a[i].sideData)
                bad << QStringLiteral("side data %1, expected %2").arg(b[i].sideData, a[i].sideData);
            if (b[i].durationUs != a[i].durationUs)
                bad << QStringLiteral("duration %1 us, expected %2 us").arg(b[i].durationUs).arg(a[i].durationUs);
            if (!bad.isEmpty())
                return QStringLiteral("%1 packet %2: %3").arg(it.key()).arg(i).arg(bad.join(QLatin1String("; ")));
        }
    }
    return QString();
}

} // namespace MediaProbe

#endif // MEDIAPROBE_H
