#ifndef VEXALINKTABLE_P_H
#define VEXALINKTABLE_P_H

//
// Not API: the stream links between module objects, as the link operations
// made them, so that destroying a receiver can cut and drain every link into
// it.
//

#include <QHash>
#include <QMutex>
#include <QVector>

class VexaObject;

/**
 * Makes and breaks the Qt connections of audio and video links and keeps a
 * record of them. Descriptions travel queued into the receiver's thread
 * (directly when there is no application object), packets directly in the
 * sender's thread; both connections are unique, so a pair is linked once.
 *
 * Every change happens under one lock, together with the check that the
 * receiver is not destroyed: a link made while destroy() runs is either cut
 * by it or refused.
 */
class VexaLinkTable
{
public:
    enum Kind { Audio, Video };

    /** Connects src's @p kind stream to dst. False when linked already, refused by Qt, or dst is destroyed. */
    static bool link(VexaObject *src, VexaObject *dst, Kind kind);
    /**
     * Disconnects src's @p kind stream from dst and waits until no packet
     * delivery from src to dst is running (other than one the caller is in).
     */
    static void unlink(VexaObject *src, VexaObject *dst, Kind kind);
    /**
     * Disconnects every audio and video link into @p dst and waits for the
     * packet deliveries from those sources that were running. Call it after
     * the object is marked destroyed.
     */
    static void cutInto(VexaObject *dst);
    /** Drops every record of @p obj, as source or receiver; for its destructor. */
    static void forget(VexaObject *obj);

private:
    struct Link {
        VexaObject *source;
        Kind kind;
    };
    static void disconnect(VexaObject *src, VexaObject *dst, Kind kind);

    struct Table {
        QMutex mutex;
        QHash<VexaObject *, QVector<Link>> into;        // receiver -> its links
        QHash<VexaObject *, QVector<VexaObject *>> outOf; // source -> its receivers (one entry per link)
    };
    static Table &table();
};

#endif // VEXALINKTABLE_P_H
