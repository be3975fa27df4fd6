#ifndef MODEL_SCREEN_P_H
#define MODEL_SCREEN_P_H

// The file a VO device's screen goes to: raw semi-planar pictures, or
// lossless FFV1 video in a container libavformat picks by the file name's
// ending. Used by one thread at a time, outside the model's lock. Not
// installed.

#include <cstdio>
#include <string>

#include "model_pixels_p.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

class VxScreenFile
{
public:
    VxScreenFile() = default;
    VxScreenFile(const VxScreenFile &) = delete;
    VxScreenFile &operator=(const VxScreenFile &) = delete;
    ~VxScreenFile();

    // Creates @p path for screens of @p width x @p height at @p fps
    // pictures per second. False with the reason in @p error.
    bool open(const std::string &path, hi_u32 width, hi_u32 height, hi_u32 fps, std::string *error);
    // Appends one screen (semi-planar 4:2:0, V before U, the opened size).
    bool write(const VxPicture &screen);
    // Finishes the file (trailer, index); nothing is written after it.
    void close();

private:
    bool encode(AVFrame *frame);

    FILE *raw_ = nullptr;
    AVFormatContext *fmt_ = nullptr;
    AVCodecContext *ctx_ = nullptr;
    AVStream *stream_ = nullptr;
    AVFrame *frame_ = nullptr;
    AVPacket *packet_ = nullptr;
    long long next_ = 0;
    bool started_ = false;            // the header is written: a trailer is due
};

#endif // MODEL_SCREEN_P_H
