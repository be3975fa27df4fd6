// Decoding for the VDEC channels of the software model (libavcodec).

#include "model_decoder_p.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

VxDecoder::~VxDecoder()
{
    av_parser_close(parser_);
    avcodec_free_context(&ctx_);
    av_frame_free(&frame_);
    av_packet_free(&packet_);
}

bool VxDecoder::open(int type, std::string *error)
{
    AVCodecID id = AV_CODEC_ID_NONE;
    if (type == HI_PT_H264)
        id = AV_CODEC_ID_H264;
    else if (type == HI_PT_H265)
        id = AV_CODEC_ID_HEVC;
    else if (type == HI_PT_JPEG || type == HI_PT_MJPEG)
        id = AV_CODEC_ID_MJPEG;
    const AVCodec *codec = id == AV_CODEC_ID_NONE ? nullptr : avcodec_find_decoder(id);
    if (!codec) {
        *error = "no decoder for payload type " + std::to_string(type);
        return false;
    }
    ctx_ = avcodec_alloc_context3(codec);
    parser_ = av_parser_init(id);
    frame_ = av_frame_alloc();
    packet_ = av_packet_alloc();
    if (!ctx_ || !parser_ || !frame_ || !packet_) {
        *error = "out of memory";
        return false;
    }
    // One thread: the channel's own thread is the decoder, as one hardware unit.
    ctx_->thread_count = 1;
    if (avcodec_open2(ctx_, codec, nullptr) < 0) {
        *error = std::string("cannot open ") + codec->name;
        return false;
    }
    return true;
}

int VxDecoder::receive(std::vector<VxDecoded> *out)
{
    int failed = 0;
    while (avcodec_receive_frame(ctx_, frame_) == 0) {
        const AVPixelFormat format = static_cast<AVPixelFormat>(frame_->format);
        if ((format != AV_PIX_FMT_YUV420P && format != AV_PIX_FMT_YUVJ420P) || frame_->width <= 0
            || frame_->height <= 0) {
            ++failed; // the model lays out 4:2:0 pictures only
            av_frame_unref(frame_);
            continue;
        }
        VxDecoded d;
        d.width = static_cast<hi_u32>(frame_->width);
        d.height = static_cast<hi_u32>(frame_->height);
        d.pts = frame_->pts == AV_NOPTS_VALUE ? 0 : static_cast<hi_u64>(frame_->pts);
        d.frameType = frame_->pict_type == AV_PICTURE_TYPE_B   ? HI_VIDEO_FRAME_TYPE_B
                      : frame_->pict_type == AV_PICTURE_TYPE_P ? HI_VIDEO_FRAME_TYPE_P
                                                               : HI_VIDEO_FRAME_TYPE_I;
        const hi_u32 cw = (d.width + 1) / 2, ch = (d.height + 1) / 2;
        d.luma.resize(size_t(d.width) * d.height);
        d.chroma.resize(size_t(cw) * 2 * ch);
        for (hi_u32 y = 0; y < d.height; ++y)
            std::memcpy(&d.luma[size_t(y) * d.width], frame_->data[0] + ptrdiff_t(y) * frame_->linesize[0], d.width);
        for (hi_u32 y = 0; y < ch; ++y) {
            const unsigned char *u = frame_->data[1] + ptrdiff_t(y) * frame_->linesize[1];
            const unsigned char *v = frame_->data[2] + ptrdiff_t(y) * frame_->linesize[2];
            unsigned char *vu = &d.chroma[size_t(y) * cw * 2];
            for (hi_u32 x = 0; x < cw; ++x) {
                vu[2 * x] = v[x];
                vu[2 * x + 1] = u[x];
            }
        }
        out->push_back(std::move(d));
        av_frame_unref(frame_);
    }
    return failed;
}

int VxDecoder::send(AVPacket *packet, std::vector<VxDecoded> *out)
{
    int failed = 0;
    // A full decoder gives pictures back before it takes more input.
    for (int tries = 0; tries < 2; ++tries) {
        const int ret = avcodec_send_packet(ctx_, packet);
        if (ret == AVERROR(EAGAIN)) {
            failed += receive(out);
            continue;
        }
        if (ret < 0 && ret != AVERROR_EOF)
            ++failed;
        break;
    }
    return failed + receive(out);
}

int VxDecoder::decode(const unsigned char *data, size_t len, hi_u64 pts, bool end, std::vector<VxDecoded> *out)
{
    if (!ctx_)
        return 0;
    int failed = 0;
    // The parser reads a little past the end of its input: give it a copy
    // with zeroed padding.
    padded_.assign(data, data + len);
    padded_.resize(len + AV_INPUT_BUFFER_PADDING_SIZE, 0);
    data = padded_.data();
    // The parser cuts whole pictures out of the bytes as they come; a
    // picture's timestamp is the one sent with its first byte. At the end
    // of the stream, empty input makes it give up the picture it still holds.
    for (;;) {
        uint8_t *piece = nullptr;
        int pieceLen = 0;
        const int used = av_parser_parse2(parser_, ctx_, &piece, &pieceLen, len ? data : nullptr,
                                          static_cast<int>(len), static_cast<int64_t>(pts), AV_NOPTS_VALUE, 0);
        if (used < 0)
            return failed + 1;
        data += used;
        len -= static_cast<size_t>(used);
        if (pieceLen > 0) {
            packet_->data = piece;
            packet_->size = pieceLen;
            packet_->pts = parser_->pts;
            failed += send(packet_, out);
            av_packet_unref(packet_);
        } else if (len == 0 && (!end || used == 0)) {
            break;
        }
        if (len == 0 && !end)
            break;
    }
    if (end) {
        // Drain the decoder; the next piece starts a new stream.
        failed += send(nullptr, out);
        avcodec_flush_buffers(ctx_);
    }
    return failed;
}
