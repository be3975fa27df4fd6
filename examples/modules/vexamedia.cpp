#include "vexamedia.h"

#include <QByteArray>

extern "C" {
#include <libavutil/log.h>
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/buffer.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
}

namespace {
const AVRational usTimeBase{1, int(VexaMedia::TimeBase)};
}

namespace {

QVariantMap tagsOf(const AVDictionary *dict)
{
    QVariantMap tags;
    const AVDictionaryEntry *e = nullptr;
    while ((e = av_dict_get(dict, "", e, AV_DICT_IGNORE_SUFFIX)))
        tags.insert(QString::fromUtf8(e->key), QString::fromUtf8(e->value));
    return tags;
}

void setTags(AVDictionary **dict, const QVariantMap &tags)
{
    for (auto it = tags.constBegin(); it != tags.constEnd(); ++it)
        av_dict_set(dict, it.key().toUtf8().constData(), it.value().toString().toUtf8().constData(), 0);
}

} // namespace

QVariantMap VexaMedia::describe(const AVStream *stream)
{
    const AVCodecParameters *par = stream->codecpar;
    QVariantMap p;
    const QVariantMap tags = tagsOf(stream->metadata);
    if (!tags.isEmpty())
        p["tags"] = tags;
    p["index"] = stream->index;
    p["codecId"] = int(par->codec_id);
    p["codecName"] = QString::fromLatin1(avcodec_get_name(par->codec_id));
    p["timeBaseNum"] = stream->time_base.num;
    p["timeBaseDen"] = stream->time_base.den;
    p["bitRate"] = qint64(par->bit_rate);
    p["profile"] = par->profile;
    p["level"] = par->level;
    p["codecTag"] = quint32(par->codec_tag);
    p["bitsPerCodedSample"] = par->bits_per_coded_sample;
    p["bitsPerRawSample"] = par->bits_per_raw_sample;
    p["packetFlags"] = QStringLiteral("tag");
    p["packetDuration"] = QStringLiteral("tag");
    if (par->extradata && par->extradata_size > 0)
        p["extradata"] = QByteArray(reinterpret_cast<const char *>(par->extradata), par->extradata_size);
    // Stream-level side data a muxer writes into the header (the display
    // matrix of a rotated phone video, for instance), by type.
    QVariantMap side;
    for (int i = 0; i < stream->nb_side_data; ++i) {
        const AVPacketSideData &sd = stream->side_data[i];
        side.insert(QString::number(int(sd.type)), QByteArray(reinterpret_cast<const char *>(sd.data), int(sd.size)));
    }
    if (!side.isEmpty())
        p["sideData"] = side;
    p["disposition"] = stream->disposition;

    if (par->codec_type == AVMEDIA_TYPE_VIDEO) {
        p["kind"] = QStringLiteral("video");
        p["width"] = par->width;
        p["height"] = par->height;
        p["pixelFormat"] = par->format;
        p["sampleAspectNum"] = par->sample_aspect_ratio.num;
        p["sampleAspectDen"] = par->sample_aspect_ratio.den;
        // The container's own (MP4 "pasp", Matroska display size), which
        // may differ from the bitstream's.
        if (stream->sample_aspect_ratio.num > 0 && stream->sample_aspect_ratio.den > 0) {
            p["containerAspectNum"] = stream->sample_aspect_ratio.num;
            p["containerAspectDen"] = stream->sample_aspect_ratio.den;
        }
        p["frameRateNum"] = stream->avg_frame_rate.num;
        p["frameRateDen"] = stream->avg_frame_rate.den;
        p["realFrameRateNum"] = stream->r_frame_rate.num;
        p["realFrameRateDen"] = stream->r_frame_rate.den;
        p["videoDelay"] = par->video_delay;
        p["fieldOrder"] = int(par->field_order);
        p["colorRange"] = int(par->color_range);
        p["colorPrimaries"] = int(par->color_primaries);
        p["colorTrc"] = int(par->color_trc);
        p["colorSpace"] = int(par->color_space);
        p["chromaLocation"] = int(par->chroma_location);
    } else if (par->codec_type == AVMEDIA_TYPE_AUDIO) {
        p["kind"] = QStringLiteral("audio");
        p["sampleRate"] = par->sample_rate;
        p["channels"] = par->ch_layout.nb_channels;
        p["channelMask"] = par->ch_layout.order == AV_CHANNEL_ORDER_NATIVE
                ? QVariant(quint64(par->ch_layout.u.mask)) : QVariant(quint64(0));
        p["sampleFormat"] = par->format;
        p["frameSize"] = par->frame_size;
        p["initialPadding"] = par->initial_padding;
        p["trailingPadding"] = par->trailing_padding;
        p["seekPreroll"] = par->seek_preroll;
        p["blockAlign"] = par->block_align;
    } else {
        const char *type = av_get_media_type_string(par->codec_type);
        p["kind"] = QString::fromLatin1(type ? type : "data");
        // Bitmap subtitles have a size.
        if (par->width > 0 && par->height > 0) {
            p["width"] = par->width;
            p["height"] = par->height;
        }
    }
    return p;
}

int VexaMedia::extraStream(const VexaObject::Packet &p)
{
    if (!(p.tag & TagExtraStream) || !p.sender)
        return -1;
    // Asked of the one sender that may set the flag, in its own thread.
    static thread_local const QMetaObject *lastClass = nullptr;
    static thread_local bool offers = false;
    const QMetaObject *mo = p.sender->metaObject();
    if (mo != lastClass) {
        lastClass = mo;
        offers = mo->indexOfMethod("packetStream()") >= 0;
    }
    if (!offers)
        return -1;
    bool ok = false;
    const int stream = p.sender->invoke(QStringLiteral("packetStream")).toInt(&ok);
    return ok && stream >= 0 ? stream : UnknownExtraStream;
}

bool VexaMedia::toCodecParameters(const QVariantMap &p, AVCodecParameters *par)
{
    const auto id = AVCodecID(p.value("codecId").toInt());
    if (id == AV_CODEC_ID_NONE || !avcodec_descriptor_get(id))
        return false;
    par->codec_id = id;
    par->codec_type = avcodec_get_type(id);
    // The muxer picks its own tag for the container.
    par->codec_tag = 0;
    par->bit_rate = p.value("bitRate").toLongLong();
    par->profile = p.value("profile", FF_PROFILE_UNKNOWN).toInt();
    par->level = p.value("level", FF_LEVEL_UNKNOWN).toInt();
    par->bits_per_coded_sample = p.value("bitsPerCodedSample").toInt();
    par->bits_per_raw_sample = p.value("bitsPerRawSample").toInt();

    const QByteArray extra = p.value("extradata").toByteArray();
    av_freep(&par->extradata);
    par->extradata_size = 0;
    if (!extra.isEmpty()) {
        par->extradata = static_cast<uint8_t *>(av_mallocz(size_t(extra.size()) + AV_INPUT_BUFFER_PADDING_SIZE));
        if (!par->extradata)
            return false;
        memcpy(par->extradata, extra.constData(), size_t(extra.size()));
        par->extradata_size = extra.size();
    }

    if (par->codec_type == AVMEDIA_TYPE_VIDEO) {
        par->width = p.value("width").toInt();
        par->height = p.value("height").toInt();
        par->format = p.value("pixelFormat", -1).toInt();
        par->sample_aspect_ratio = AVRational{p.value("sampleAspectNum").toInt(), p.value("sampleAspectDen", 1).toInt()};
        par->video_delay = p.value("videoDelay").toInt();
        par->field_order = AVFieldOrder(p.value("fieldOrder").toInt());
        par->color_range = AVColorRange(p.value("colorRange").toInt());
        par->color_primaries = AVColorPrimaries(p.value("colorPrimaries", AVCOL_PRI_UNSPECIFIED).toInt());
        par->color_trc = AVColorTransferCharacteristic(p.value("colorTrc", AVCOL_TRC_UNSPECIFIED).toInt());
        par->color_space = AVColorSpace(p.value("colorSpace", AVCOL_SPC_UNSPECIFIED).toInt());
        par->chroma_location = AVChromaLocation(p.value("chromaLocation").toInt());
    } else if (par->codec_type == AVMEDIA_TYPE_SUBTITLE) {
        par->width = p.value("width").toInt();
        par->height = p.value("height").toInt();
    } else if (par->codec_type == AVMEDIA_TYPE_AUDIO) {
        par->sample_rate = p.value("sampleRate").toInt();
        par->format = p.value("sampleFormat", -1).toInt();
        par->frame_size = p.value("frameSize").toInt();
        par->initial_padding = p.value("initialPadding").toInt();
        par->trailing_padding = p.value("trailingPadding").toInt();
        par->seek_preroll = p.value("seekPreroll").toInt();
        par->block_align = p.value("blockAlign").toInt();
        av_channel_layout_uninit(&par->ch_layout);
        const quint64 mask = p.value("channelMask").toULongLong();
        const int channels = p.value("channels").toInt();
        if (mask != 0)
            av_channel_layout_from_mask(&par->ch_layout, mask);
        else if (channels > 0)
            av_channel_layout_default(&par->ch_layout, channels);
    }
    return true;
}

quint32 VexaMedia::keepCodecTag(const QVariantMap &p, const AVCodecTag *const *tags)
{
    const quint32 tag = p.value("codecTag").toUInt();
    const auto id = AVCodecID(p.value("codecId").toInt());
    if (tag == 0)
        return 0;
    if (!tags)
        return tag;
    unsigned int own = 0;
    if (av_codec_get_id(tags, tag) == id || !av_codec_get_tag2(tags, id, &own))
        return tag;
    return 0;
}

void VexaMedia::describeContainer(const AVFormatContext *fmt, qint64 shiftUs, QVariantMap *params)
{
    const QVariantMap tags = tagsOf(fmt->metadata);
    if (!tags.isEmpty())
        params->insert(QStringLiteral("containerTags"), tags);
    QVariantList chapters;
    for (unsigned i = 0; i < fmt->nb_chapters; ++i) {
        const AVChapter *c = fmt->chapters[i];
        const int64_t shift = av_rescale_q(shiftUs, usTimeBase, c->time_base);
        QVariantMap m;
        m["id"] = qint64(c->id);
        m["timeBaseNum"] = c->time_base.num;
        m["timeBaseDen"] = c->time_base.den;
        m["start"] = qint64(c->start + shift);
        m["end"] = qint64(c->end + shift);
        m["tags"] = tagsOf(c->metadata);
        chapters << m;
    }
    if (!chapters.isEmpty())
        params->insert(QStringLiteral("chapters"), chapters);
}

void VexaMedia::toStream(const QVariantMap &p, AVStream *stream)
{
    setTags(&stream->metadata, p.value("tags").toMap());
    const QVariantMap side = p.value("sideData").toMap();
    for (auto it = side.constBegin(); it != side.constEnd(); ++it) {
        const QByteArray bytes = it.value().toByteArray();
        uint8_t *data = av_stream_new_side_data(stream, AVPacketSideDataType(it.key().toInt()), size_t(bytes.size()));
        if (data)
            memcpy(data, bytes.constData(), size_t(bytes.size()));
    }
    stream->disposition = p.value("disposition").toInt();
}

QString VexaMedia::timeBaseText(const QVariantMap &params)
{
    return QStringLiteral("%1/%2").arg(params.value("timeBaseNum").toInt()).arg(params.value("timeBaseDen").toInt());
}

AVStream *VexaMedia::addStream(AVFormatContext *oc, const QVariantMap &params)
{
    // The parameters first, so that a description that names no codec adds
    // no stream.
    AVCodecParameters *par = avcodec_parameters_alloc();
    AVStream *st = nullptr;
    if (par && toCodecParameters(params, par))
        st = avformat_new_stream(oc, nullptr);
    if (st && avcodec_parameters_copy(st->codecpar, par) < 0)
        st = nullptr;   // freed with the context
    avcodec_parameters_free(&par);
    if (!st)
        return nullptr;
    const int num = params.value("timeBaseNum").toInt();
    const int den = params.value("timeBaseDen").toInt();
    st->time_base = num > 0 && den > 0 ? AVRational{num, den} : usTimeBase;
    const int frNum = params.value("frameRateNum").toInt();
    const int frDen = params.value("frameRateDen").toInt();
    if (frNum > 0 && frDen > 0)
        st->avg_frame_rate = AVRational{frNum, frDen};
    const int rNum = params.value("realFrameRateNum").toInt();
    const int rDen = params.value("realFrameRateDen").toInt();
    if (rNum > 0 && rDen > 0)
        st->r_frame_rate = AVRational{rNum, rDen};
    // As ffmpeg -c copy: the container's aspect ratio where it has one, in
    // both the stream and its codec parameters.
    const int sarNum = params.value("containerAspectNum").toInt();
    const int sarDen = params.value("containerAspectDen").toInt();
    if (st->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && sarNum > 0 && sarDen > 0)
        st->codecpar->sample_aspect_ratio = AVRational{sarNum, sarDen};
    st->sample_aspect_ratio = st->codecpar->sample_aspect_ratio;
    toStream(params, st);
    // The container's tags and chapters, from the first description that
    // brings them.
    if (!oc->metadata)
        setTags(&oc->metadata, params.value("containerTags").toMap());
    const QVariantList chapters = params.value("chapters").toList();
    if (oc->nb_chapters == 0 && !chapters.isEmpty()) {
        oc->chapters = static_cast<AVChapter **>(av_calloc(size_t(chapters.size()), sizeof(AVChapter *)));
        for (int i = 0; oc->chapters && i < chapters.size(); ++i) {
            const QVariantMap m = chapters.at(i).toMap();
            auto *c = static_cast<AVChapter *>(av_mallocz(sizeof(AVChapter)));
            if (!c)
                break;
            c->id = m.value("id").toLongLong();
            c->time_base = AVRational{m.value("timeBaseNum").toInt(), qMax(1, m.value("timeBaseDen").toInt())};
            c->start = m.value("start").toLongLong();
            c->end = m.value("end").toLongLong();
            setTags(&c->metadata, m.value("tags").toMap());
            oc->chapters[oc->nb_chapters++] = c;
        }
    }
    st->codecpar->codec_tag = keepCodecTag(params, oc->oformat->codec_tag);
    return st;
}

void VexaMedia::closeOutput(AVFormatContext **oc)
{
    if (!*oc)
        return;
    if ((*oc)->pb && !((*oc)->oformat->flags & AVFMT_NOFILE))
        avio_closep(&(*oc)->pb);
    avformat_free_context(*oc);
    *oc = nullptr;
}

int64_t VexaMedia::toStreamTime(qint64 us, AVRational source, AVRational stream)
{
    if (us == NoPts)
        return AV_NOPTS_VALUE;
    if (source.num > 0 && source.den > 0)
        return av_rescale_q(av_rescale_q(us, usTimeBase, source), source, stream);
    return av_rescale_q(us, usTimeBase, stream);
}

QString VexaMedia::containerProblem(const QString &format, const QString &path)
{
    const QByteArray name = format.toLatin1();
    const QByteArray file = path.toLocal8Bit();
    // A named container is looked up by its name alone (the extension would
    // otherwise stand in for a misspelt name).
    if (name.isEmpty() ? av_guess_format(nullptr, file.constData(), nullptr) != nullptr
                       : av_guess_format(name.constData(), nullptr, nullptr) != nullptr)
        return QString();
    return format.isEmpty() ? QStringLiteral("cannot choose a container for %1 (set \"format\")").arg(path)
                            : QStringLiteral("unknown container format \"%1\"").arg(format);
}

bool VexaMedia::setLibraryLogLevel(const QString &level)
{
    static const struct { const char *name; int level; } levels[] = {
        {"quiet", AV_LOG_QUIET}, {"error", AV_LOG_ERROR}, {"warning", AV_LOG_WARNING},
        {"info", AV_LOG_INFO}, {"debug", AV_LOG_VERBOSE}};
    for (const auto &l : levels) {
        if (level == QLatin1String(l.name)) {
            av_log_set_level(l.level);
            return true;
        }
    }
    return false;
}

QString VexaMedia::errorText(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {0};
    av_strerror(error, text, sizeof(text));
    return QString::fromLocal8Bit(text);
}

namespace {

void *refBuffer(void *owner)
{
    return av_buffer_ref(static_cast<const AVBufferRef *>(owner));
}

void unrefBuffer(void *reference)
{
    auto *ref = static_cast<AVBufferRef *>(reference);
    av_buffer_unref(&ref);
}

} // namespace

const VexaPayloadLend::Lender VexaMedia::bufferLender{&refBuffer, &unrefBuffer};

VexaPayloadLend VexaMedia::lend(const AVBufferRef *buffer)
{
    // The buffer is not written through: owner is only handed back to refBuffer.
    return VexaPayloadLend(buffer ? &bufferLender : nullptr, const_cast<AVBufferRef *>(buffer),
                           buffer ? reinterpret_cast<const char *>(buffer->data) : nullptr,
                           buffer ? qint64(buffer->size) : 0);
}
