#ifndef VEXAMEDIA_H
#define VEXAMEDIA_H

#include <QVariantMap>

#include <cstdint>
#include <limits>

#include "vexaobject.h"
#include "vexapayloadlend.h"
#include "vexaexamplemodules_export.h"

struct AVBufferRef;
struct AVCodecParameters;
struct AVCodecTag;
struct AVFormatContext;
struct AVRational;
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
    /**
     * Flag in the low byte of Packet::tag, on A only: the packet is not of
     * the audio stream described but of one of the "extraStreams" of the A
     * description (a source told to send every stream of its input:
     * subtitles, data, further audio and video tracks). While sendPacketA
     * runs, the sender's invokable packetStream() (listed in its
     * directInvokeNames) says which: its "stream" number in that list.
     * Receivers that do not take extra streams skip these packets
     * (extraStream() tells them apart).
     */
    static constexpr qint32 TagExtraStream = 0x40;
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
     * "packetDuration" = "tag"; "containerAspectNum"/"containerAspectDen"
     * when the container gives the video its own sample aspect ratio, and
     * "tags" (the stream's metadata: language, title, ...) when it has any.
     */
    static QVariantMap describe(const AVStream *stream);
    /**
     * Adds to the description @p params what the container of @p fmt holds
     * beside its streams: "containerTags" (global metadata: title, artist,
     * ...) and "chapters" (each with "id", "timeBaseNum"/"timeBaseDen",
     * "start", "end" and "tags"), moved by @p shiftUs as the packets are.
     * addStream() writes them into an output that has none yet.
     */
    static void describeContainer(const AVFormatContext *fmt, qint64 shiftUs, QVariantMap *params);
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

    /**
     * A new stream of the output @p oc made from a description made by
     * describe(): codec parameters, the source's time base (microseconds
     * when it has none), frame rates, aspect, side data, disposition and the
     * codec tag where the container keeps it. Null when the description
     * names no known codec (nothing is added then).
     */
    static AVStream *addStream(AVFormatContext *oc, const QVariantMap &params);
    /** Closes the file or connection of the output @p *oc, frees it and sets it null. */
    static void closeOutput(AVFormatContext **oc);

    /**
     * @p us (NoPts: AV_NOPTS_VALUE) in the time base @p stream through the
     * source's own ticks @p source, so that the result is what rescaling the
     * source's timestamps gives (microseconds directly when @p source is 0/x).
     */
    static int64_t toStreamTime(qint64 us, AVRational source, AVRational stream);

    /**
     * The extra stream @p p belongs to (see TagExtraStream), -1 when it is
     * a packet of the stream described, or UnknownExtraStream when the
     * sender marked it but could not say of which. Call it in the sending thread
     * while the sender's sendPacketA runs; the flag is believed only of
     * senders that offer packetStream(), as other senders need not set tag.
     */
    static int extraStream(const VexaObject::Packet &p);
    static constexpr int UnknownExtraStream = std::numeric_limits<int>::max();

    /** The decode time of @p p: altPts when set, else pts. */
    static qint64 decodeTime(const VexaObject::Packet &p) { return p.altPts != -1 ? p.altPts : p.pts; }
    /** Decode time where known, else presentation time: the order of writing. */
    static qint64 orderTime(const VexaObject::Packet &p)
    {
        const qint64 t = decodeTime(p);
        return t != NoPts ? t : p.pts;
    }

    /** The text of an FFmpeg error code. */
    static QString errorText(int error);
    /**
     * Why FFmpeg has no muxer for the container named @p format, or guessed
     * from @p path when @p format is empty ("cannot choose a container for
     * x.nosuchext (set \"format\")", "unknown container format \"x\""); an
     * empty string when it has one.
     */
    static QString containerProblem(const QString &format, const QString &path);
    /**
     * How much FFmpeg's own log says, by the levels of the tools: "quiet",
     * "error", "warning", "info" or "debug" (FFmpeg's verbose level). False
     * for another word, with the level unchanged.
     * Thread: any; FFmpeg's level is process-wide.
     */
    static bool setLibraryLogLevel(const QString &level);

    /**
     * Lending FFmpeg's reference-counted buffers (see VexaPayloadLend): a
     * source puts `const VexaPayloadLend lend = VexaMedia::lend(pkt->buf);`
     * around sendPacketA/V, and a receiver keeps the payload with
     * VexaPayloadPool::keep(). A receiver that hands it to FFmpeg gets the
     * AVBufferRef itself with `pool.disown(block, &VexaMedia::bufferLender)`.
     */
    static const VexaPayloadLend::Lender bufferLender;
    /** A lend of the whole of @p buffer (nothing is lent when it is null). */
    static VexaPayloadLend lend(const AVBufferRef *buffer);
};

#endif // VEXAMEDIA_H
