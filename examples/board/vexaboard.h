#ifndef VEXABOARD_H
#define VEXABOARD_H

#include <QVariantMap>

#include "vexaboardmodules_export.h"

class VexaTee;
class VexaTeeChn;

/**
 * What the board modules share: the stream description of pictures offered
 * through a tee, the description keys of compressed streams that the file
 * and network modules read, and the process-wide numbering of encoder and
 * decoder channels.
 *
 * Pictures do not travel as packets: a module that offers pictures (a
 * capture, a decoder) owns a tee (VexaHi::newTee) and describes it on V
 * with type PictureStream and the params "tee" (the tee id), "width",
 * "height" and "fps". A receiver asks the tee for a channel of its own
 * (VexaTee::newChn), sizes it and binds it to its platform channel
 * (VexaHi::bindFromTee).
 *
 * Thread: thread-safe.
 */
class VEXABOARDMODULES_EXPORT VexaBoard
{
public:
    /** StreamInfo::type of pictures offered through a tee. */
    static constexpr qint32 PictureStream = 0x50494354;
    /** StreamInfo::type of a compressed stream described by codec parameters (as the file and network modules). */
    static constexpr qint32 CompressedStream = 0x43505253;
    /** Packet timestamps of compressed streams are in microseconds. */
    static constexpr qint64 TimeBase = 1000000;

    /** Kinds of platform channels numbered here. */
    enum Unit { Encoder, Decoder };
    /** The first free channel of @p unit (or @p wanted when >= 0 and free), -1 when none is. */
    static int takeChannel(Unit unit, int wanted = -1);
    /** Gives a channel from takeChannel() back. */
    static void releaseChannel(Unit unit, int chn);
    /** Channels of @p unit in use. */
    static int channelsInUse(Unit unit);

    /**
     * Gives back the tee of a module that offers pictures (@p tee set to
     * null): its groups' inputs, bound to the module's platform channel,
     * are unbound first, then the groups and the tee go. Null does nothing.
     */
    static void releasePictureTee(VexaTee *&tee);

    /**
     * Gives back a tee channel (@p chn set to null): it is deleted, which
     * disables its VPSS channel, under VexaTee::mutex, so that no other
     * module takes or gives back a channel of the same group meanwhile and
     * the group (its tee stopping in another thread) cannot go half-way
     * through. Null does nothing.
     */
    static void releaseTeeChn(VexaTeeChn *&chn);

    /** The description of a tee's pictures. */
    static QVariantMap pictureParams(int tee, int width, int height, int fps);
};

#endif // VEXABOARD_H
