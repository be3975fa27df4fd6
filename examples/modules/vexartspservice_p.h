#ifndef VEXARTSPSERVICE_P_H
#define VEXARTSPSERVICE_P_H

// Not API: the server side of VexaRtspServer, kept apart so that the
// module's header needs no media library headers.

#include <QList>
#include <QMutex>
#include <QString>
#include <QVariantMap>
#include <QWaitCondition>

#include <cstdint>

class QThread;

typedef struct _GMainContext GMainContext;
typedef struct _GMainLoop GMainLoop;
typedef struct _GstBuffer GstBuffer;
typedef struct _GstCaps GstCaps;
typedef struct _GstElement GstElement;
typedef struct _GstRTSPClient GstRTSPClient;
typedef struct _GstRTSPContext GstRTSPContext;
typedef struct _GstRTSPMedia GstRTSPMedia;
typedef struct _GstRTSPMediaFactory GstRTSPMediaFactory;
typedef struct _GstRTSPServer GstRTSPServer;

/*
 * An RTSP server on one address and port serving one path, with a main
 * loop of its own in a thread of its own. Every viewer gets a media
 * pipeline of its own, fed by push() from the latest keyframe on; the
 * service keeps the latest group of pictures for viewers to come.
 *
 * Thread: thread-safe. open() and close() from one thread (the module's).
 */
class VexaRtspService
{
public:
    struct Stream {
        bool video = false;
        QString launch;         // the part of the launch line for this stream
        GstCaps *caps = nullptr;    // of its source; owned
        QByteArray prefix;      // put in front of each keyframe (Annex B parameter sets)
    };

    VexaRtspService();
    ~VexaRtspService();

    /**
     * Checks @p url ("rtsp://address:port/path") and fills @p address,
     * @p port and @p path; else false with the reason in @p error.
     */
    static bool parseUrl(const QString &url, QString *address, int *port, QString *path, QString *error);
    /**
     * What a stream described by @p params needs, or false with the reason
     * in @p error (an unsupported codec). @p payloader is the stream's
     * number in the served media (pay0, pay1).
     */
    static bool streamFor(const QVariantMap &params, bool video, int payloader, Stream *stream, QString *error);

    /** True when a stream described by @p params can be served, else false with the reason in @p error. */
    static bool canServe(const QVariantMap &params, bool video, QString *error);

    /** Listens on @p address, @p port; false with the reason in @p error. */
    bool open(const QString &address, int port, const QString &path, int maxViewers, const QString &name, QString *error);
    /** Serves @p streams (one or two) at the path; viewers before that get "404 Not Found". Takes the caps. */
    void serve(QList<Stream> streams);
    /**
     * Hands a packet to the viewers: @p data of @p len bytes, times in
     * microseconds (pts NoPts: unknown), @p key for a video keyframe.
     * False when nothing is served (not open, or no stream yet).
     */
    bool push(bool video, const char *data, int len, int64_t pts, int64_t dts, bool key);
    /** Disconnects every viewer and ends the server, within a few seconds. */
    void close();
    /** The viewers being served. */
    int viewers();

private:
    struct Viewer {
        GstRTSPMedia *media = nullptr;      // referenced
        GstElement *sources[2] = {nullptr, nullptr};   // audio, video; referenced
        bool ready = false;     // its pipeline asked for data
        bool started = false;   // fed from a keyframe on
        int64_t base = 0;       // the time that is 0 in this viewer's pipeline, microseconds
        int64_t latest = 0;     // the latest time fed, from base
    };
    struct Held {
        GstBuffer *buffer;      // referenced
        bool video;
        bool key;
        int64_t pts;
        int64_t dts;
    };

    static void onMediaConfigure(GstRTSPMediaFactory *factory, GstRTSPMedia *media, void *self);
    struct Client {
        GstRTSPClient *client;  // referenced
        bool admitted;          // within maxViewers
    };

    static void onNeedData(GstElement *src, unsigned length, void *self);
    static void onMediaUnprepared(GstRTSPMedia *media, void *self);
    static void onClientConnected(GstRTSPServer *server, GstRTSPClient *client, void *self);
    static void onClientClosed(GstRTSPClient *client, void *self);
    static int onRequest(GstRTSPClient *client, GstRTSPContext *ctx, void *self);
    void feed(Viewer &v, GstBuffer *buffer, bool video, bool key, int64_t pts, int64_t dts);
    void dropViewer(int i);
    void dropClient(int i);
    int admittedCount() const;
    void clearHeld();
    void shutDown();

    QMutex life;                // open(), serve() and close() one at a time
    QMutex gate;                // what the server's threads and push() share
    QWaitCondition changed;     // a viewer or a client went
    QList<Viewer> viewerList;
    QList<Held> held;           // the latest group of pictures, from its keyframe
    QList<Client> clientList;
    QList<Stream> streams;
    bool hasVideo = false;
    bool closing = false;
    int maxClients = 0;         // 0: no bound
    QString moduleName;
    QString mountPath;

    GMainContext *context = nullptr;
    GMainLoop *loop = nullptr;
    GstRTSPServer *server = nullptr;
    GstRTSPMediaFactory *factory = nullptr;     // referenced while served
    unsigned sourceId = 0;
    QThread *thread = nullptr;
};

#endif // VEXARTSPSERVICE_P_H
