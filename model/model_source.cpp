// Pictures from outside the model for a virtual sensor: a media file read
// with libavformat and decoded with libavcodec, from its start again at its
// end, or a V4L2 camera opened through libavdevice. Each output scales the
// current picture to its own size and pixel format with libswscale.

#include "model_source_p.h"

#include <cstdio>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

static std::string avError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

std::unique_ptr<VxSensorSource> VxSensorSource::open(const std::string &location, bool camera, int fps,
                                                     std::string *error)
{
    std::unique_ptr<VxSensorSource> src(new VxSensorSource);
    src->m_camera = camera;
    const AVInputFormat *input = nullptr;
    AVDictionary *options = nullptr;
    std::string url = location;
    if (camera) {
        static std::once_flag registered;
        std::call_once(registered, [] { avdevice_register_all(); });
        input = av_find_input_format("video4linux2");
        if (!input) {
            *error = "this FFmpeg has no V4L2 input";
            return nullptr;
        }
        if (url.empty())
            url = "/dev/video0";
        av_dict_set(&options, "framerate", std::to_string(fps).c_str(), 0);
    }
    int r = avformat_open_input(&src->m_format, url.c_str(), const_cast<AVInputFormat *>(input), &options);
    av_dict_free(&options);
    if (r < 0) {
        *error = "cannot open \"" + url + "\": " + avError(r);
        return nullptr;
    }
    if ((r = avformat_find_stream_info(src->m_format, nullptr)) < 0) {
        *error = "cannot read \"" + url + "\": " + avError(r);
        return nullptr;
    }
    const AVCodec *decoder = nullptr;
    src->m_stream = av_find_best_stream(src->m_format, AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (src->m_stream < 0 || !decoder) {
        *error = "\"" + url + "\" has no video stream the model can decode";
        return nullptr;
    }
    const AVStream *stream = src->m_format->streams[src->m_stream];
    src->m_codec = avcodec_alloc_context3(decoder);
    if (!src->m_codec || avcodec_parameters_to_context(src->m_codec, stream->codecpar) < 0
        || (r = avcodec_open2(src->m_codec, decoder, nullptr)) < 0) {
        *error = "cannot decode \"" + url + "\"";
        return nullptr;
    }
    src->m_packet = av_packet_alloc();
    src->m_frame = av_frame_alloc();
    if (!src->m_packet || !src->m_frame) {
        *error = "out of memory";
        return nullptr;
    }
    if (stream->avg_frame_rate.num > 0 && stream->avg_frame_rate.den > 0)
        src->m_fps = static_cast<int>(av_q2d(stream->avg_frame_rate) + 0.5);
    // The first picture now, so that a file that opens but never decodes
    // is refused here rather than showing black.
    if (!src->decodeOne()) {
        *error = "\"" + url + "\" gives no picture";
        return nullptr;
    }
    src->m_fresh = true;
    return src;
}

VxSensorSource::~VxSensorSource()
{
    av_frame_free(&m_frame);
    av_packet_free(&m_packet);
    avcodec_free_context(&m_codec);
    avformat_close_input(&m_format);
}

// Decodes the next picture into m_frame. At the end of a file it starts
// again from the beginning (once per call, so that a file without a
// decodable picture does not loop forever).
bool VxSensorSource::decodeOne()
{
    bool rewound = false;
    for (;;) {
        int r = avcodec_receive_frame(m_codec, m_frame);
        if (r == 0) {
            m_havePicture = true;
            return true;
        }
        if (r == AVERROR_EOF) {
            if (m_camera || rewound)
                return false;
            rewound = true;
            avcodec_flush_buffers(m_codec);
            if (av_seek_frame(m_format, m_stream, 0, AVSEEK_FLAG_BACKWARD) < 0)
                avformat_seek_file(m_format, -1, INT64_MIN, 0, INT64_MAX, 0);
            continue;
        }
        if (r != AVERROR(EAGAIN))
            return false;
        r = av_read_frame(m_format, m_packet);
        if (r == AVERROR(EAGAIN))
            continue;
        if (r < 0) {
            avcodec_send_packet(m_codec, nullptr); // drain what the decoder holds
            continue;
        }
        if (m_packet->stream_index == m_stream)
            avcodec_send_packet(m_codec, m_packet);
        av_packet_unref(m_packet);
    }
}

void VxSensorSource::advance()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_fresh) // the sensor's first frame shows the picture decoded on opening
        m_fresh = false;
    else
        decodeOne();
}

void VxSensorSource::draw(int slot, const VxPicture &dst, bool mirror, bool flip)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const AVPixelFormat format = static_cast<AVPixelFormat>(vxAvFormat(dst.format));
    if (!m_havePicture || format == AV_PIX_FMT_NONE) {
        vxFillBlack(dst);
        return;
    }
    VxScaler &scaler = m_scalers[slot];
    scaler.ctx = sws_getCachedContext(scaler.ctx, m_frame->width, m_frame->height,
                                      static_cast<AVPixelFormat>(m_frame->format), static_cast<int>(dst.width),
                                      static_cast<int>(dst.height), format, SWS_BICUBIC, nullptr, nullptr, nullptr);
    if (!scaler.ctx) {
        vxFillBlack(dst);
        return;
    }
    uint8_t *const planes[4] = {dst.plane[0], dst.plane[1], nullptr, nullptr};
    const int strides[4] = {static_cast<int>(dst.stride[0]), static_cast<int>(dst.stride[1]), 0, 0};
    sws_scale(scaler.ctx, m_frame->data, m_frame->linesize, 0, m_frame->height, planes, strides);
    vxMirrorFlip(dst, mirror, flip);
}
