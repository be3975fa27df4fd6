#include "vexartspserver.h"

#include <QMetaMethod>
#include <QMutexLocker>

#include "vexaexamples_p.h"
#include "vexamedia.h"
#include "vexartspservice_p.h"
#include "vexasinkcounters_p.h"

namespace {
// Packets of a described kind that may come before the other kind is
// described; then the path is served with the one kind.
const int describeWaitPackets = 32;
// FFmpeg's key flag in the packet tag.
const qint32 keyFlag = 1;
}

VexaRtspServer::VexaRtspServer(QObject *parent)
    : VexaMediaSink(parent)
    , service(new VexaRtspService)
{
    // Slow viewers lose packets: drops are expected, not a failure.
    counts->setDropping(true);
}

VexaRtspServer::~VexaRtspServer()
{
    service->close();
}

QVariant VexaRtspServer::stats()
{
    QVariantMap m = counts->toMap();
    QMutexLocker locker(&gate);
    m["viewers"] = running ? service->viewers() : 0;
    return m;
}

void VexaRtspServer::onStart()
{
    service->close();
    counts->resetLines();
    QString address, path, error;
    int port = 0;
    const QString url = settings.value("url", QStringLiteral("rtsp://127.0.0.1:8554/live")).toString();
    const int maxViewers = settings.value("maxViewers", 0).toInt();
    {
        QMutexLocker locker(&gate);
        descriptions[0] = inInfoA;
        descriptions[1] = inInfoV;
        keyFlags = inInfoV.params.value("packetFlags").toString() == QLatin1String("tag");
        waiting[0] = waiting[1] = 0;
        served = false;
        serving[0] = serving[1] = false;
        running = false;
        firstTime = VexaMedia::NoPts;
    }
    if (maxViewers < 0) {
        fail(QStringLiteral("bad \"maxViewers\" %1: 0 or more").arg(maxViewers));
        return;
    }
    if (!VexaRtspService::parseUrl(url, &address, &port, &path, &error)) {
        fail(error);
        return;
    }
    if (!service->open(address, port, path, maxViewers, name(), &error)) {
        fail(error);
        return;
    }
    if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] serving rtsp://%2:%3%4").arg(name(), address).arg(port).arg(path);
    {
        QMutexLocker locker(&gate);
        running = true;
    }
    if (inInfoV.type != 0 && !videoServable(inInfoV))
        return;
    serveWhenDescribed();
}

bool VexaRtspServer::videoServable(const StreamInfo &info)
{
    // Checked as soon as described: a camera's wrong codec is an error at
    // once, not when the first viewer asks.
    QString error;
    if (VexaRtspService::canServe(info.params, true, &error))
        return true;
    fail(error);
    return false;
}

void VexaRtspServer::onStop()
{
    {
        QMutexLocker locker(&gate);
        running = false;
    }
    // A packet still being handed over finds the service closed and is
    // counted as dropped.
    service->close();
    const QVariantMap s = counts->toMap();
    if (debugLevel > 0)
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] served %2 audio and %3 video packets, dropped %4")
                                         .arg(name())
                                         .arg(s.value("packetsA").toLongLong())
                                         .arg(s.value("packetsV").toLongLong())
                                         .arg(s.value("dropped").toLongLong());
}

void VexaRtspServer::described(const StreamInfo &info, bool video)
{
    bool check = false;
    {
        QMutexLocker locker(&gate);
        if (served && info.type != 0) {
            // Viewers have the stream as first described.
            qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2 description (%3) after the stream is served: ignored")
                                             .arg(name(), video ? "video" : "audio", info.params.value("codecName").toString());
            return;
        }
        descriptions[video ? 1 : 0] = info;
        if (video)
            keyFlags = info.params.value("packetFlags").toString() == QLatin1String("tag");
        check = running && video && info.type != 0;
    }
    if (check && !videoServable(info))
        return;
    serveWhenDescribed();
}

void VexaRtspServer::serveWhenDescribed()
{
    StreamInfo infos[2];
    {
        QMutexLocker locker(&gate);
        if (!running || served)
            return;
        const bool haveA = descriptions[0].type != 0;
        const bool haveV = descriptions[1].type != 0;
        const bool enough = (haveA && waiting[0] >= describeWaitPackets) || (haveV && waiting[1] >= describeWaitPackets);
        if (!(haveA && haveV) && !enough)
            return;
        served = true;      // this thread makes the streams; no other does
        infos[0] = descriptions[0];
        infos[1] = descriptions[1];
    }
    QList<VexaRtspService::Stream> streams;
    QString error;
    for (int k : {1, 0}) {
        if (infos[k].type == 0)
            continue;
        VexaRtspService::Stream s;
        if (!VexaRtspService::streamFor(infos[k].params, k == 1, streams.size(), &s, &error)) {
            if (k == 1) {
                fail(error);
                return;
            }
            // Video without its sound is still worth serving.
            qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2; audio left out").arg(name(), error);
            continue;
        }
        streams.append(s);
    }
    if (streams.isEmpty()) {
        fail(error);
        return;
    }
    bool kinds[2] = {false, false};
    for (const VexaRtspService::Stream &s : qAsConst(streams))
        kinds[s.video ? 1 : 0] = true;
    service->serve(streams);
    QMutexLocker locker(&gate);
    serving[0] = kinds[0];
    serving[1] = kinds[1];
}

void VexaRtspServer::accept(const Packet &pkt, bool video)
{
    VexaSinkCounters::Kind &c = counts->of(video);
    c.received.fetchAndAddRelaxed(1);
    const int k = video ? 1 : 0;
    bool key = true;
    bool describeNow = false;
    {
        QMutexLocker locker(&gate);
        if (!running || pkt.len <= 0 || !pkt.data || (served && !serving[k]) || (!served && descriptions[k].type == 0)) {
            // Not running, empty, a kind left out, or not described.
            locker.unlock();
            c.dropped.fetchAndAddRelaxed(1);
            return;
        }
        if (!served) {
            describeNow = ++waiting[k] == describeWaitPackets;
        }
        // Without key flags every packet counts as a keyframe.
        key = !video || !keyFlags || (pkt.tag & keyFlag) != 0;
    }
    if (describeNow)
        serveWhenDescribed();
    if (!service->push(video, pkt.data, pkt.len, pkt.pts, VexaMedia::decodeTime(pkt), key)) {
        c.dropped.fetchAndAddRelaxed(1);
        return;
    }
    counts->wrote(video, pkt.len);
    const qint64 t = VexaMedia::orderTime(pkt);
    if (t != VexaMedia::NoPts) {
        QMutexLocker locker(&gate);
        if (firstTime == VexaMedia::NoPts)
            firstTime = t;
        counts->reachedMedia(t - firstTime);
    }
}

void VexaRtspServer::fail(const QString &message)
{
    {
        QMutexLocker locker(&gate);
        running = false;
    }
    service->close();
    // Whoever receives the module's events (vexa-launch) reports the error
    // itself; the log has it only when no one does, so it shows once.
    if (debugLevel > 0 || !isSignalConnected(QMetaMethod::fromSignal(&VexaObject::newEvent)))
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2").arg(name(), message);
    sendEvent(QStringLiteral("error"), message);
}
