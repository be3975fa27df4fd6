#ifndef MODEL_DECODER_P_H
#define MODEL_DECODER_P_H

// The decoder behind a VDEC channel of the software model: libavcodec's
// H.264, H.265 or JPEG decoder fed through its parser, so that the stream
// may arrive in pieces of any size (NAL units, access units or a byte
// stream). Used by one thread at a time, outside the model's lock. Not
// installed.

#include <string>
#include <vector>

#include "model_p.h"

struct AVCodecContext;
struct AVCodecParserContext;
struct AVFrame;
struct AVPacket;

// One decoded picture, semi-planar 4:2:0 with V before U, in display order.
struct VxDecoded {
    hi_u32 width = 0;
    hi_u32 height = 0;
    std::vector<unsigned char> luma;   // width x height
    std::vector<unsigned char> chroma; // width x height / 2, V U interleaved
    hi_u64 pts = 0;
    int frameType = 0;                 // HI_VIDEO_FRAME_TYPE_*
};

class VxDecoder
{
public:
    VxDecoder() = default;
    VxDecoder(const VxDecoder &) = delete;
    VxDecoder &operator=(const VxDecoder &) = delete;
    ~VxDecoder();

    // Opens the decoder for payload @p type (HI_PT_H264, HI_PT_H265,
    // HI_PT_JPEG or HI_PT_MJPEG). False with the reason in @p error.
    bool open(int type, std::string *error);
    // Feeds @p len bytes carrying @p pts; @p end drains the decoder.
    // Finished pictures are appended to @p out. Returns the number of
    // pictures that could not be decoded or converted.
    int decode(const unsigned char *data, size_t len, hi_u64 pts, bool end, std::vector<VxDecoded> *out);

private:
    int receive(std::vector<VxDecoded> *out);
    int send(AVPacket *packet, std::vector<VxDecoded> *out);

    AVCodecContext *ctx_ = nullptr;
    AVCodecParserContext *parser_ = nullptr;
    AVFrame *frame_ = nullptr;
    AVPacket *packet_ = nullptr;
    std::vector<unsigned char> padded_;
};

#endif // MODEL_DECODER_P_H
