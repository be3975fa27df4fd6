#ifndef VEXAMEDIA_H
#define VEXAMEDIA_H

#include <QVariantMap>

#include <limits>

#include "vexaexamplemodules_export.h"

struct AVCodecParameters;
struct AVCodecTag;
struct AVStream;

/**
 * Conventions shared by the example modules for compressed streams.
 *
 * Packet timestamps: pts and altPts are in microseconds (time base 1/1000000)
 * whatever the container's own time base. A packet without a presentation
 * time carries NoPts in pts. altPts holds the decode timestamp when it
 * differs from pts: NoPts when the container gives none (Matroska, for
 * instance), and -1 ("not set") when it equals pts. A decode timestamp of
 * exactly -1 us is therefore indistinguishable from "same as pts".
 *
 * Packet tag: when a stream description has "packetFlags" = "tag", the
 * producer fills the low byte of tag (TagFlagsMask) with FFmpeg's
 * AV_PKT_FLAG_* bits (1 = keyframe, 4 = discard); when it also has
 * "packetDuration" = "tag", the bits above (from TagDurationShift) hold the
 * packet's duration in ticks of the stream's own time base
 * (timeBaseNum/timeBaseDen), 0 when unknown. Otherwise consumers must not
 * read tag (the record leaves it uninitialised).
 *
 * Stream descriptions: type is CompressedStream; params hold the codec
 * parameters a muxer needs (see describe()).
 *
 * Thread: reentrant.
 */
class VEXAEXAMPLEMODULES_EXPORT VexaMedia
{
public:
    /** StreamInfo::type of a compressed stream described by codec parameters. */
    static constexpr qint32 CompressedStream = 0x43505253;
    /** pts of a packet whose presentation time is unknown. */
    static constexpr qint64 NoPts = std::numeric_limits<qint64>::min();
    /** Packet timestamps are counted in 1 / TimeBase seconds. */
    static constexpr qint64 TimeBase = 1000000;
    /** The packet flags in Packet::tag. */
    static constexpr qint32 TagFlagsMask = 0xff;
    /**
     * Flag in the low byte of Packet::tag (above FFmpeg's own flags): the
     * packet has side data (skip samples, new extradata, ...). While
     * sendPacketA/V runs, the sender's invokable packetSideData() (listed
     * in its directInvokeNames) returns it: a map of bytes by
     * AVPacketSideDataType number.
     */
    static constexpr qint32 TagSideData = 0x80;
    /** Where the packet duration starts in Packet::tag (24 bits, unsigned). */
    static constexpr int TagDurationShift = 8;
    /** The duration carried in @p tag, in stream ticks; 0 when none. */
    static qint64 tagDuration(qint32 tag) { return qint64(quint32(tag) >> TagDurationShift); }

    /**
     * The description of @p stream: "kind" ("audio"/"video"), "codecId",
     * "codecName", "timeBaseNum"/"timeBaseDen" (the stream's own time base),
     * "width", "height", "pixelFormat", "sampleAspectNum"/"sampleAspectDen",
     * "frameRateNum"/"frameRateDen", "realFrameRateNum"/"realFrameRateDen",
     * "videoDelay", colour fields, or
     * "sampleRate", "channels", "channelMask", "sampleFormat", "frameSize",
     * "initialPadding", "trailingPadding", plus "bitRate", "profile", "level",
     * "codecTag", "bitsPerCodedSample", "bitsPerRawSample", "blockAlign",
     * "extradata" (bytes), "sideData" (stream side data: bytes by
     * AVPacketSideDataType number), "disposition", "packetFlags" = "tag" and
     * "packetDuration" = "tag".
     */
    static QVariantMap describe(const AVStream *stream);
    /**
     * Fills @p par from a description made by describe(); false when it
     * names no known codec. The codec tag is left 0 (the muxer's choice);
     * see keepCodecTag().
     */
    static bool toCodecParameters(const QVariantMap &params, AVCodecParameters *par);

    /** Gives @p stream the side data and disposition of a description made by describe(). */
    static void toStream(const QVariantMap &params, AVStream *stream);

    /**
     * The source's codec tag for a stream of @p params in a container whose
     * tag tables are @p tags (AVOutputFormat::codec_tag), or 0 for the
     * muxer's own choice: kept when the tables map it to the same codec or
     * have no tag for the codec, as a remux by `ffmpeg -c copy` does.
     */
    static quint32 keepCodecTag(const QVariantMap &params, const AVCodecTag *const *tags);

    /** "1/90000"-style text of the stream time base in @p params, for messages. */
    static QString timeBaseText(const QVariantMap &params);
};

#endif // VEXAMEDIA_H
