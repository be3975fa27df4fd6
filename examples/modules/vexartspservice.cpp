// The media library's headers come first: a member of GLib's is called
// "signals", which Qt's headers make a keyword.
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>

#include "vexartspservice_p.h"

#include <QDeadlineTimer>
#include <QMutexLocker>
#include <QThread>
#include <QUrl>

#include <atomic>
#include <mutex>

#include <arpa/inet.h>

extern "C" {
#include <libavcodec/codec_id.h>
}

#include "vexaexamples_p.h"
#include "vexamedia.h"
#include "vexapayloadlend.h"

namespace {

// The latest group of pictures kept for viewers to come; a longer one is
// not kept (viewers then wait for the next keyframe).
const int maxHeldPackets = 1500;
// What each viewer's source may queue before its oldest buffers go: a
// viewer that reads slowly loses packets instead of holding anyone back.
const guint64 viewerQueueBytes = 8 * 1024 * 1024;
// A time this far behind a viewer's latest means that the source started
// again (a publisher that came back, say): the viewer's times go on from
// where they were.
const int64_t backJumpUs = 1000000;
// How long close() waits for the viewers' pipelines to end.
const int closeWaitMs = 5000;
// The RTSP port when the URL names none.
const int defaultPort = 554;

GstRTSPStatusCode refuseOrAccept(bool refuse)
{
    return refuse ? GST_RTSP_STS_SERVICE_UNAVAILABLE : GST_RTSP_STS_OK;
}

// The media library is set up once per process, at the first use.
bool initLibrary(QString *error)
{
    static std::once_flag once;
    static QString failure;
    std::call_once(once, [] {
        GError *err = nullptr;
        if (!gst_init_check(nullptr, nullptr, &err)) {
            failure = QStringLiteral("cannot start the media library: %1")
                          .arg(QString::fromUtf8(err ? err->message : "unknown error"));
        }
        g_clear_error(&err);
    });
    if (!failure.isEmpty() && error)
        *error = failure;
    return failure.isEmpty();
}

// True when the element @p name exists, else why not in @p error.
bool haveElement(const char *name, const char *package, QString *error)
{
    GstElementFactory *f = gst_element_factory_find(name);
    if (f) {
        gst_object_unref(f);
        return true;
    }
    *error = QStringLiteral("the media element \"%1\" is missing (install %2)").arg(QLatin1String(name), QLatin1String(package));
    return false;
}

bool isAnnexB(const QByteArray &b)
{
    return b.startsWith(QByteArray("\0\0\1", 3)) || b.startsWith(QByteArray("\0\0\0\1", 4));
}

GstBuffer *bufferOf(const QByteArray &bytes)
{
    return gst_buffer_new_memdup(bytes.constData(), gsize(bytes.size()));
}

// A reference to a payload lent by the sender, held by a buffer of the
// media library until its last viewer lets go, in one of the library's
// threads. The hand-over happens inside the library, which the thread
// sanitizer does not see; the atomics make it visible.
struct Borrowed {
    Borrowed(const VexaPayloadLend::Lender *l, void *r)
    {
        lender.store(l, std::memory_order_release);
        reference.store(r, std::memory_order_release);
    }
    std::atomic<const VexaPayloadLend::Lender *> lender;
    std::atomic<void *> reference;
};

void releaseBorrowed(gpointer p)
{
    Borrowed *b = static_cast<Borrowed *>(p);
    void *r = b->reference.load(std::memory_order_acquire);
    b->lender.load(std::memory_order_acquire)->unref(r);
    delete b;
}

GstClockTime toClock(int64_t us)
{
    return us == VexaMedia::NoPts ? GST_CLOCK_TIME_NONE : GstClockTime(us) * 1000;
}

} // namespace

VexaRtspService::VexaRtspService() = default;

VexaRtspService::~VexaRtspService()
{
    close();
}

bool VexaRtspService::parseUrl(const QString &url, QString *address, int *port, QString *path, QString *error)
{
    const QUrl u(url, QUrl::StrictMode);
    const QString usage = QStringLiteral("bad \"url\" \"%1\": expected rtsp://address:port/path").arg(url);
    if (!u.isValid() || u.scheme() != QLatin1String("rtsp") || u.host().isEmpty()) {
        *error = usage;
        return false;
    }
    if (u.hasQuery() || u.hasFragment() || !u.userInfo().isEmpty()) {
        *error = usage + QStringLiteral(" (no user, query or fragment)");
        return false;
    }
    QString host = u.host();
    if (host == QLatin1String("localhost"))
        host = QStringLiteral("127.0.0.1");
    const QByteArray h = host.toLatin1();
    unsigned char raw[16];
    if (inet_pton(AF_INET, h.constData(), raw) != 1 && inet_pton(AF_INET6, h.constData(), raw) != 1) {
        *error = QStringLiteral("bad \"url\" \"%1\": the address to listen on must be an IP address of this machine "
                                "(127.0.0.1, 0.0.0.0, ...), not \"%2\"").arg(url, host);
        return false;
    }
    *port = u.port(defaultPort);
    if (*port <= 0 || *port > 65535) {
        *error = QStringLiteral("bad \"url\" \"%1\": port %2 is out of range").arg(url).arg(*port);
        return false;
    }
    *path = u.path();
    while (path->size() > 1 && path->endsWith(QLatin1Char('/')))
        path->chop(1);
    if (path->size() < 2) {
        *error = usage + QStringLiteral(" (the path is missing)");
        return false;
    }
    *address = host;
    return true;
}

bool VexaRtspService::streamFor(const QVariantMap &params, bool video, int payloader, Stream *stream, QString *error)
{
    if (!initLibrary(error))
        return false;
    const int codec = params.value("codecId").toInt();
    const QByteArray extra = params.value("extradata").toByteArray();
    const QString codecName = params.value("codecName").toString();
    if (!haveElement("appsrc", "gstreamer1.0-plugins-base", error))
        return false;
    QString launch = QStringLiteral("appsrc name=src%1 is-live=true format=time max-bytes=%2 ! ")
                         .arg(video ? 1 : 0).arg(viewerQueueBytes);
    GstCaps *caps = nullptr;
    stream->prefix.clear();
    if (video) {
        const bool h264 = codec == AV_CODEC_ID_H264;
        const bool h265 = codec == AV_CODEC_ID_HEVC;
        if (!h264 && !h265) {
            *error = QStringLiteral("cannot serve %1 video over RTSP (H.264 and H.265 are served)")
                         .arg(codecName.isEmpty() ? QStringLiteral("unknown") : codecName);
            return false;
        }
        const char *parser = h264 ? "h264parse" : "h265parse";
        const char *payer = h264 ? "rtph264pay" : "rtph265pay";
        if (!haveElement(parser, "gstreamer1.0-plugins-bad", error) || !haveElement(payer, "gstreamer1.0-plugins-good", error))
            return false;
        // Parameter sets in a configuration record go into the caps; in
        // Annex B form, in front of every keyframe, so that the parser
        // finds them whatever the stream carries.
        const bool record = !extra.isEmpty() && extra.at(0) == 1;
        caps = gst_caps_new_simple(h264 ? "video/x-h264" : "video/x-h265",
                                   "stream-format", G_TYPE_STRING, record ? (h264 ? "avc" : "hvc1") : "byte-stream",
                                   "alignment", G_TYPE_STRING, "au", nullptr);
        if (record) {
            GstBuffer *b = bufferOf(extra);
            gst_caps_set_simple(caps, "codec_data", GST_TYPE_BUFFER, b, nullptr);
            gst_buffer_unref(b);
        } else if (isAnnexB(extra)) {
            stream->prefix = extra;
        }
        launch += QStringLiteral("%1 ! %2 name=pay%3 pt=%4 config-interval=-1")
                      .arg(QLatin1String(parser), QLatin1String(payer)).arg(payloader).arg(96 + payloader);
    } else {
        if (codec != AV_CODEC_ID_AAC) {
            *error = QStringLiteral("cannot serve %1 audio over RTSP (AAC is served)")
                         .arg(codecName.isEmpty() ? QStringLiteral("unknown") : codecName);
            return false;
        }
        if (!haveElement("aacparse", "gstreamer1.0-plugins-good", error) || !haveElement("rtpmp4gpay", "gstreamer1.0-plugins-good", error))
            return false;
        // Raw frames come with their configuration in the extradata;
        // without it they carry ADTS headers of their own.
        caps = gst_caps_new_simple("audio/mpeg", "mpegversion", G_TYPE_INT, 4,
                                   "stream-format", G_TYPE_STRING, extra.isEmpty() ? "adts" : "raw", nullptr);
        if (!extra.isEmpty()) {
            GstBuffer *b = bufferOf(extra);
            gst_caps_set_simple(caps, "codec_data", GST_TYPE_BUFFER, b, nullptr);
            gst_buffer_unref(b);
        }
        const int rate = params.value("sampleRate").toInt();
        const int channels = params.value("channels").toInt();
        if (rate > 0)
            gst_caps_set_simple(caps, "rate", G_TYPE_INT, rate, nullptr);
        if (channels > 0)
            gst_caps_set_simple(caps, "channels", G_TYPE_INT, channels, nullptr);
        launch += QStringLiteral("aacparse ! rtpmp4gpay name=pay%1 pt=%2").arg(payloader).arg(96 + payloader);
    }
    stream->video = video;
    stream->launch = launch;
    if (stream->caps)
        gst_caps_unref(stream->caps);
    stream->caps = caps;
    return true;
}

bool VexaRtspService::canServe(const QVariantMap &params, bool video, QString *error)
{
    Stream s;
    const bool ok = streamFor(params, video, 0, &s, error);
    if (s.caps)
        gst_caps_unref(s.caps);
    return ok;
}

bool VexaRtspService::open(const QString &address, int port, const QString &path, int maxViewers, const QString &name, QString *error)
{
    close();
    QMutexLocker lifeLocker(&life);
    if (!initLibrary(error))
        return false;
    {
        QMutexLocker locker(&gate);
        closing = false;
        maxClients = qMax(0, maxViewers);
        moduleName = name;
        mountPath = path;
    }
    server = gst_rtsp_server_new();
    const QByteArray a = address.toLatin1();
    const QByteArray service = QByteArray::number(port);
    gst_rtsp_server_set_address(server, a.constData());
    gst_rtsp_server_set_service(server, service.constData());
    g_signal_connect(server, "client-connected", G_CALLBACK(onClientConnected), this);

    GError *err = nullptr;
    GSource *source = gst_rtsp_server_create_source(server, nullptr, &err);
    if (!source) {
        *error = QStringLiteral("cannot listen on %1:%2: %3").arg(address).arg(port)
                     .arg(QString::fromUtf8(err ? err->message : "unknown error"));
        g_clear_error(&err);
        gst_object_unref(server);
        server = nullptr;
        return false;
    }
    context = g_main_context_new();
    loop = g_main_loop_new(context, FALSE);
    sourceId = g_source_attach(source, context);
    g_source_unref(source);
    GMainContext *ctx = context;
    GMainLoop *lp = loop;
    thread = QThread::create([ctx, lp] {
        g_main_context_push_thread_default(ctx);
        g_main_loop_run(lp);
        g_main_context_pop_thread_default(ctx);
    });
    thread->setObjectName(name + QStringLiteral("-rtsp"));
    thread->start();
    return true;
}

void VexaRtspService::serve(QList<Stream> list)
{
    QMutexLocker lifeLocker(&life);
    QString launch;
    for (const Stream &s : qAsConst(list))
        launch += (launch.isEmpty() ? QString() : QStringLiteral(" ")) + s.launch;
    {
        QMutexLocker locker(&gate);
        for (Stream &s : streams) {
            if (s.caps)
                gst_caps_unref(s.caps);
        }
        streams = list;
        hasVideo = false;
        for (const Stream &s : qAsConst(streams))
            hasVideo = hasVideo || s.video;
        clearHeld();
    }
    if (!server)
        return;
    factory = gst_rtsp_media_factory_new();
    const QByteArray line = QStringLiteral("( %1 )").arg(launch).toUtf8();
    gst_rtsp_media_factory_set_launch(factory, line.constData());
    // A pipeline per viewer: each starts at a keyframe of its own.
    gst_rtsp_media_factory_set_shared(factory, FALSE);
    g_signal_connect(factory, "media-configure", G_CALLBACK(onMediaConfigure), this);
    GstRTSPMountPoints *mounts = gst_rtsp_server_get_mount_points(server);
    const QByteArray p = mountPath.toUtf8();
    g_object_ref(factory);      // kept until close(); the mount points take one
    gst_rtsp_mount_points_add_factory(mounts, p.constData(), factory);
    g_object_unref(mounts);
}

bool VexaRtspService::push(bool video, const char *data, int len, int64_t pts, int64_t dts, bool key)
{
    if (len <= 0 || !data)
        return false;
    QByteArray prefix;
    {
        QMutexLocker locker(&gate);
        if (closing || streams.isEmpty())
            return false;
        for (const Stream &s : qAsConst(streams)) {
            if (s.video == video && key)
                prefix = s.prefix;
        }
    }
    GstBuffer *buffer = nullptr;
    const VexaPayloadLend::Lender *lender = nullptr;
    void *lent = prefix.isEmpty() ? VexaPayloadLend::borrow(data, len, 0, &lender) : nullptr;
    if (lent) {
        // The source's own buffer, referenced for as long as any viewer holds it.
        buffer = gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, const_cast<char *>(data), gsize(len), 0, gsize(len),
                                             new Borrowed{lender, lent}, releaseBorrowed);
    } else {
        buffer = gst_buffer_new_allocate(nullptr, gsize(prefix.size() + len), nullptr);
        if (!buffer)
            return false;
        gst_buffer_fill(buffer, 0, prefix.constData(), gsize(prefix.size()));
        gst_buffer_fill(buffer, gsize(prefix.size()), data, gsize(len));
    }
    if (video && !key)
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);

    QMutexLocker locker(&gate);
    if (closing) {
        locker.unlock();
        gst_buffer_unref(buffer);
        return false;
    }
    if (video && key) {
        clearHeld();
        held.append(Held{gst_buffer_ref(buffer), video, key, pts, dts});
    } else if (!held.isEmpty()) {
        if (held.size() >= maxHeldPackets)
            clearHeld();
        else
            held.append(Held{gst_buffer_ref(buffer), video, key, pts, dts});
    }
    for (Viewer &v : viewerList)
        feed(v, buffer, video, key, pts, dts);
    locker.unlock();
    gst_buffer_unref(buffer);
    return true;
}

void VexaRtspService::feed(Viewer &v, GstBuffer *buffer, bool video, bool key, int64_t pts, int64_t dts)
{
    // Called with gate held.
    GstElement *src = v.sources[video ? 1 : 0];
    if (!v.ready || !src)
        return;
    const int64_t t = dts != VexaMedia::NoPts ? dts : pts;
    if (!v.started) {
        // Video starts each viewer at a keyframe, audio from that time on.
        if ((hasVideo && !(video && key)) || t == VexaMedia::NoPts)
            return;
        v.started = true;
        v.base = t;
        v.latest = 0;
    }
    if (t != VexaMedia::NoPts) {
        if (t - v.base < v.latest - backJumpUs)
            v.base = t - v.latest - 1;
        if (t < v.base)
            return;     // audio from before the viewer's first picture
        v.latest = qMax(v.latest, t - v.base);
    }
    GstBuffer *b = gst_buffer_copy(buffer);     // the same memory, times of this viewer's own
    GST_BUFFER_PTS(b) = pts == VexaMedia::NoPts ? GST_CLOCK_TIME_NONE : toClock(qMax<int64_t>(0, pts - v.base));
    GST_BUFFER_DTS(b) = dts == VexaMedia::NoPts ? GST_CLOCK_TIME_NONE : toClock(dts - v.base);
    gst_app_src_push_buffer(GST_APP_SRC(src), b);
}

void VexaRtspService::onMediaConfigure(GstRTSPMediaFactory *, GstRTSPMedia *media, void *self)
{
    auto *s = static_cast<VexaRtspService *>(self);
    GstElement *bin = gst_rtsp_media_get_element(media);
    Viewer v;
    v.media = GST_RTSP_MEDIA(g_object_ref(media));
    QMutexLocker locker(&s->gate);
    for (const Stream &st : qAsConst(s->streams)) {
        const int k = st.video ? 1 : 0;
        const QByteArray name = QByteArray("src") + QByteArray::number(k);
        GstElement *src = gst_bin_get_by_name(GST_BIN(bin), name.constData());
        if (!src)
            continue;
        g_object_set(src, "caps", st.caps, nullptr);
        gst_app_src_set_leaky_type(GST_APP_SRC(src), GST_APP_LEAKY_TYPE_DOWNSTREAM);
        // The first request for data says the pipeline runs: the viewer
        // gets the group of pictures kept, then what comes live.
        g_signal_connect(src, "need-data", G_CALLBACK(onNeedData), self);
        v.sources[k] = src;
    }
    gst_object_unref(bin);
    g_signal_connect(media, "unprepared", G_CALLBACK(onMediaUnprepared), self);
    s->viewerList.append(v);
}

void VexaRtspService::onNeedData(GstElement *src, unsigned, void *self)
{
    auto *s = static_cast<VexaRtspService *>(self);
    QMutexLocker locker(&s->gate);
    for (Viewer &v : s->viewerList) {
        if (v.ready || (v.sources[0] != src && v.sources[1] != src))
            continue;
        v.ready = true;
        for (const Held &h : qAsConst(s->held))
            s->feed(v, h.buffer, h.video, h.key, h.pts, h.dts);
    }
}

void VexaRtspService::onMediaUnprepared(GstRTSPMedia *media, void *self)
{
    auto *s = static_cast<VexaRtspService *>(self);
    QMutexLocker locker(&s->gate);
    for (int i = s->viewerList.size() - 1; i >= 0; --i) {
        if (s->viewerList.at(i).media == media)
            s->dropViewer(i);
    }
    s->changed.wakeAll();
}

void VexaRtspService::dropViewer(int i)
{
    // Called with gate held.
    Viewer v = viewerList.takeAt(i);
    for (GstElement *&src : v.sources) {
        if (src) {
            g_signal_handlers_disconnect_by_data(src, this);
            gst_object_unref(src);
        }
    }
    g_signal_handlers_disconnect_by_data(v.media, this);
    g_object_unref(v.media);
}

void VexaRtspService::onClientConnected(GstRTSPServer *, GstRTSPClient *client, void *self)
{
    auto *s = static_cast<VexaRtspService *>(self);
    QMutexLocker locker(&s->gate);
    Client c;
    c.client = GST_RTSP_CLIENT(g_object_ref(client));
    c.admitted = !s->closing && (s->maxClients == 0 || s->admittedCount() < s->maxClients);
    s->clientList.append(c);
    g_signal_connect(client, "closed", G_CALLBACK(onClientClosed), self);
    if (!c.admitted) {
        g_signal_connect(client, "pre-describe-request", G_CALLBACK(onRequest), self);
        g_signal_connect(client, "pre-setup-request", G_CALLBACK(onRequest), self);
        qCDebug(lcExamples).noquote() << QStringLiteral("[%1] a viewer beyond the %2 served is refused")
                                         .arg(s->moduleName).arg(s->maxClients);
    }
}

int VexaRtspService::onRequest(GstRTSPClient *client, GstRTSPContext *, void *self)
{
    auto *s = static_cast<VexaRtspService *>(self);
    QMutexLocker locker(&s->gate);
    for (const Client &c : qAsConst(s->clientList)) {
        if (c.client == client)
            return refuseOrAccept(!c.admitted);
    }
    return GST_RTSP_STS_OK;
}

void VexaRtspService::onClientClosed(GstRTSPClient *client, void *self)
{
    auto *s = static_cast<VexaRtspService *>(self);
    QMutexLocker locker(&s->gate);
    for (int i = s->clientList.size() - 1; i >= 0; --i) {
        if (s->clientList.at(i).client == client)
            s->dropClient(i);
    }
    s->changed.wakeAll();
}

void VexaRtspService::dropClient(int i)
{
    // Called with gate held.
    Client c = clientList.takeAt(i);
    g_signal_handlers_disconnect_by_data(c.client, this);
    g_object_unref(c.client);
}

int VexaRtspService::admittedCount() const
{
    int n = 0;
    for (const Client &c : clientList)
        n += c.admitted ? 1 : 0;
    return n;
}

int VexaRtspService::viewers()
{
    QMutexLocker locker(&gate);
    return admittedCount();
}

void VexaRtspService::clearHeld()
{
    // Called with gate held.
    for (Held &h : held)
        gst_buffer_unref(h.buffer);
    held.clear();
}

void VexaRtspService::close()
{
    QMutexLocker lifeLocker(&life);
    if (server)
        shutDown();
    QMutexLocker locker(&gate);
    clearHeld();
    for (Stream &s : streams) {
        if (s.caps)
            gst_caps_unref(s.caps);
    }
    streams.clear();
    hasVideo = false;
}

void VexaRtspService::shutDown()
{
    // Called with life held.
    {
        QMutexLocker locker(&gate);
        closing = true;
    }
    // No new connection, then every viewer disconnected.
    if (GSource *source = g_main_context_find_source_by_id(context, sourceId))
        g_source_destroy(source);
    sourceId = 0;
    GList *all = gst_rtsp_server_client_filter(server, [](GstRTSPServer *, GstRTSPClient *, gpointer) {
        return GST_RTSP_FILTER_REF;
    }, nullptr);
    for (GList *l = all; l; l = l->next)
        gst_rtsp_client_close(GST_RTSP_CLIENT(l->data));
    g_list_free_full(all, g_object_unref);
    {
        // The viewers' pipelines end in the server's own threads.
        QMutexLocker locker(&gate);
        QDeadlineTimer deadline(closeWaitMs);
        while ((!viewerList.isEmpty() || !clientList.isEmpty()) && !deadline.hasExpired())
            changed.wait(&gate, deadline);
        if (!viewerList.isEmpty() || !clientList.isEmpty())
            qCDebug(lcExamples).noquote() << QStringLiteral("[%1] %2 viewers did not end within %3 s; left behind")
                                             .arg(moduleName).arg(viewerList.size()).arg(closeWaitMs / 1000);
        while (!viewerList.isEmpty())
            dropViewer(0);
        while (!clientList.isEmpty())
            dropClient(0);
        clearHeld();
    }
    if (factory) {
        GstRTSPMountPoints *mounts = gst_rtsp_server_get_mount_points(server);
        const QByteArray p = mountPath.toUtf8();
        gst_rtsp_mount_points_remove_factory(mounts, p.constData());
        g_object_unref(mounts);
        g_signal_handlers_disconnect_by_data(factory, this);
        g_object_unref(factory);
        factory = nullptr;
    }
    g_signal_handlers_disconnect_by_data(server, this);
    // Quit from inside the loop: a quit before the loop runs would be lost.
    GSource *quit = g_idle_source_new();
    g_source_set_callback(quit, [](gpointer lp) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop *>(lp));
        return G_SOURCE_REMOVE;
    }, loop, nullptr);
    g_source_attach(quit, context);
    g_source_unref(quit);
    thread->wait();
    delete thread;
    thread = nullptr;
    gst_object_unref(server);
    server = nullptr;
    g_main_loop_unref(loop);
    loop = nullptr;
    g_main_context_unref(context);
    context = nullptr;
}
