#ifndef MODEL_ENCODER_P_H
#define MODEL_ENCODER_P_H

// The encoder behind a VENC channel of the software model: libavcodec with
// libx264, libx265 or FFmpeg's JPEG encoder, configured from the channel's
// records. Used by one
// thread at a time, outside the model's lock. Not installed.

#include <string>
#include <vector>

#include "model_pixels_p.h"

struct AVCodec;
struct AVCodecContext;
struct AVFrame;
struct AVPacket;

// What a channel's encoder is made from: copies of the channel's records.
struct VxEncoderSetup {
    hi_venc_chn_attr attr{};
    hi_venc_rc_param rc{};
    hi_venc_h264_vui vui264{};
    hi_venc_h265_vui vui265{};
};

// One NAL unit of an encoded picture: its type as the stream codes it and
// where it lies in the picture's bytes, start code included.
struct VxNal {
    int type = 0;
    size_t offset = 0;
    size_t len = 0;
};

// One encoded picture in Annex B form.
struct VxEncoded {
    std::vector<unsigned char> bytes;
    std::vector<VxNal> nals;
    bool key = false;
    int qp = 0;
};

class VxEncoder
{
public:
    VxEncoder() = default;
    VxEncoder(const VxEncoder &) = delete;
    VxEncoder &operator=(const VxEncoder &) = delete;
    ~VxEncoder();

    // Opens the encoder for @p setup (an open one is closed first). False
    // with the reason in @p error when the records cannot be encoded.
    bool open(const VxEncoderSetup &setup, std::string *error);
    void close();
    bool isOpen() const { return ctx_ != nullptr; }

    // Encodes @p pic (semi-planar 4:2:0 of the opened size); @p idr forces an
    // IDR picture. A JPEG picture is one unit of type HI_VENC_JPEG_PACK_PIC. The picture comes out at once (no reordering, no
    // look-ahead): false when the encoder failed or gave nothing.
    bool encode(const VxPicture &pic, bool idr, VxEncoded *out);

    // The rate-control mode of @p attr as the encoder understands it: the
    // GOP length and frame rates, or false for a mode the model cannot encode.
    static bool rateOf(const hi_venc_rc_attr &rc, hi_u32 *gop, hi_u32 *srcFps, hi_u32 *dstFps);

private:
    bool openCodec(const AVCodec *codec, const char *name, const std::string &params, std::string *error);

    AVCodecContext *ctx_ = nullptr;
    AVFrame *frame_ = nullptr;   // the encoder's own picture, for inputs it cannot take as they lie
    AVFrame *wrapped_ = nullptr; // an input block taken as it lies
    AVPacket *packet_ = nullptr;
    long long next_ = 0;
    bool hevc_ = false;
    bool jpeg_ = false;
};

#endif // MODEL_ENCODER_P_H
