// The file a VO device's screen goes to (see vx_model_vo_screen).

#include "model_screen_p.h"

#include <cerrno>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
}

static bool endsWith(const std::string &s, const char *tail)
{
    const size_t n = std::strlen(tail);
    return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

static std::string avError(int code)
{
    char buf[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buf, sizeof(buf));
    return buf;
}

VxScreenFile::~VxScreenFile()
{
    close();
}

bool VxScreenFile::open(const std::string &path, hi_u32 width, hi_u32 height, hi_u32 fps, std::string *error)
{
    close();
    if (endsWith(path, ".yuv") || endsWith(path, ".nv21")) {
        raw_ = std::fopen(path.c_str(), "wb");
        if (!raw_)
            *error = std::strerror(errno);
        return raw_ != nullptr;
    }
    int ret = avformat_alloc_output_context2(&fmt_, nullptr, nullptr, path.c_str());
    const AVCodec *codec = avcodec_find_encoder(AV_CODEC_ID_FFV1);
    if (ret < 0 || !fmt_ || !codec) {
        *error = ret < 0 ? avError(ret) : "no FFV1 encoder";
        close();
        return false;
    }
    stream_ = avformat_new_stream(fmt_, nullptr);
    ctx_ = avcodec_alloc_context3(codec);
    frame_ = av_frame_alloc();
    packet_ = av_packet_alloc();
    if (!stream_ || !ctx_ || !frame_ || !packet_) {
        *error = "out of memory";
        close();
        return false;
    }
    ctx_->width = static_cast<int>(width);
    ctx_->height = static_cast<int>(height);
    ctx_->pix_fmt = AV_PIX_FMT_YUV420P;
    ctx_->time_base = AVRational{1, static_cast<int>(fps)};
    ctx_->framerate = AVRational{static_cast<int>(fps), 1};
    ctx_->thread_count = 1;
    if (fmt_->oformat->flags & AVFMT_GLOBALHEADER)
        ctx_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    frame_->format = AV_PIX_FMT_YUV420P;
    frame_->width = ctx_->width;
    frame_->height = ctx_->height;
    if ((ret = avcodec_open2(ctx_, codec, nullptr)) < 0 || (ret = av_frame_get_buffer(frame_, 0)) < 0
        || (ret = avcodec_parameters_from_context(stream_->codecpar, ctx_)) < 0) {
        *error = avError(ret);
        close();
        return false;
    }
    stream_->time_base = ctx_->time_base;
    stream_->avg_frame_rate = ctx_->framerate;
    if (!(fmt_->oformat->flags & AVFMT_NOFILE) && (ret = avio_open(&fmt_->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
        *error = avError(ret);
        close();
        return false;
    }
    if ((ret = avformat_write_header(fmt_, nullptr)) < 0) {
        *error = avError(ret);
        avio_closep(&fmt_->pb);
        close();
        return false;
    }
    next_ = 0;
    started_ = true;
    return true;
}

bool VxScreenFile::encode(AVFrame *frame)
{
    if (avcodec_send_frame(ctx_, frame) < 0)
        return false;
    while (avcodec_receive_packet(ctx_, packet_) == 0) {
        av_packet_rescale_ts(packet_, ctx_->time_base, stream_->time_base);
        packet_->stream_index = stream_->index;
        const int ret = av_interleaved_write_frame(fmt_, packet_);
        av_packet_unref(packet_);
        if (ret < 0)
            return false;
    }
    return true;
}

bool VxScreenFile::write(const VxPicture &screen)
{
    if (raw_) {
        bool ok = true;
        for (hi_u32 y = 0; y < screen.height; ++y)
            ok = ok && std::fwrite(screen.plane[0] + size_t(y) * screen.stride[0], 1, screen.width, raw_) == screen.width;
        for (hi_u32 y = 0; y < screen.height / 2; ++y)
            ok = ok && std::fwrite(screen.plane[1] + size_t(y) * screen.stride[1], 1, screen.width, raw_) == screen.width;
        return ok;
    }
    if (!ctx_ || av_frame_make_writable(frame_) < 0)
        return false;
    for (hi_u32 y = 0; y < screen.height; ++y)
        std::memcpy(frame_->data[0] + size_t(y) * frame_->linesize[0], screen.plane[0] + size_t(y) * screen.stride[0],
                    screen.width);
    // The screen's chroma pairs are V, U.
    for (hi_u32 y = 0; y < screen.height / 2; ++y) {
        const unsigned char *vu = screen.plane[1] + size_t(y) * screen.stride[1];
        unsigned char *u = frame_->data[1] + size_t(y) * frame_->linesize[1];
        unsigned char *v = frame_->data[2] + size_t(y) * frame_->linesize[2];
        for (hi_u32 x = 0; x < screen.width / 2; ++x) {
            v[x] = vu[2 * x];
            u[x] = vu[2 * x + 1];
        }
    }
    frame_->pts = next_++;
    return encode(frame_);
}

void VxScreenFile::close()
{
    if (raw_) {
        std::fclose(raw_);
        raw_ = nullptr;
    }
    if (started_) {
        encode(nullptr);
        av_write_trailer(fmt_);
        started_ = false;
    }
    if (fmt_ && fmt_->pb && !(fmt_->oformat->flags & AVFMT_NOFILE))
        avio_closep(&fmt_->pb);
    avformat_free_context(fmt_);
    fmt_ = nullptr;
    stream_ = nullptr;
    avcodec_free_context(&ctx_);
    av_frame_free(&frame_);
    av_packet_free(&packet_);
}
