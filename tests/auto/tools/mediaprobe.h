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
};

// Packets per stream kind ("audio", "video"), in file order.
using Streams = QMap<QString, QList<Packet>>;

inline bool toolsAvailable()
{
    return !QStandardPaths::findExecutable(QStringLiteral("ffmpeg")).isEmpty()
        && !QStandardPaths::findExecutable(QStringLiteral("ffprobe")).isEmpty();
}

// A short clip: H.264 video with B-frames (so decode and presentation times
// differ) and AAC audio, in the container chosen by the extension of @p path.
inline bool makeClip(const QString &path, double seconds = 2.0, QString *error = nullptr)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), {
        "-hide_banner", "-loglevel", "error", "-y",
        "-f", "lavfi", "-i", "testsrc=size=160x120:rate=25",
        "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000",
        "-t", QString::number(seconds),
        "-c:v", "libx264", "-preset", "ultrafast", "-g", "12", "-bf", "2", "-pix_fmt", "yuv420p",
        "-c:a", "aac", "-b:a", "64k", "-shortest", path});
    const bool ok = p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    if (!ok && error)
        *error = QString::fromLocal8Bit(p.readAllStandardError());
    return ok;
}

// Copies @p from into @p to with ffmpeg (another container, same packets).
inline bool rewrap(const QString &from, const QString &to)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), {"-hide_banner", "-loglevel", "error", "-y", "-i", from, "-c", "copy", to});
    return p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

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
    QMap<int, QPair<QString, QString>> streams; // index -> kind, time base
    for (const QJsonValue &s : doc.value("streams").toArray()) {
        const QJsonObject o = s.toObject();
        streams.insert(o.value("index").toInt(), {o.value("codec_type").toString(), o.value("time_base").toString()});
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
        (*out)[stream.first].append(pk);
    }
    return true;
}

} // namespace MediaProbe

#endif // MEDIAPROBE_H
