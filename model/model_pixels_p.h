#ifndef MODEL_PIXELS_P_H
#define MODEL_PIXELS_P_H

// Pixel work of the software model (model_pixels.cpp). Not installed.

#include "model_p.h"

struct SwsContext;

// A semi-planar (or luma-only) picture in host memory.
struct VxPicture {
    unsigned char *plane[2] = {nullptr, nullptr};
    hi_u32 stride[2] = {0, 0};
    hi_u32 width = 0;
    hi_u32 height = 0;
    int format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
};

// The scaling state one output keeps from frame to frame.
struct VxScaler {
    SwsContext *ctx = nullptr;
    VxScaler() = default;
    VxScaler(const VxScaler &) = delete;
    VxScaler &operator=(const VxScaler &) = delete;
    ~VxScaler();
};

// The picture of frame @p f whose block's bytes start at @p data.
// Turns @p src a quarter turn into @p dst (whose size is @p src's turned):
// clockwise, or anticlockwise when @p clockwise is false. Semi-planar 4:2:0
// and luma only; false for other formats.
bool vxQuarterTurn(const VxPicture &src, const VxPicture &dst, bool clockwise);
VxPicture vxPictureOf(const hi_video_frame &f, unsigned char *data);
// True for the pixel formats the model's VPSS reads and writes.
bool vxCanProcess(int format);
// FFmpeg's pixel format (AVPixelFormat) for a platform one, AV_PIX_FMT_NONE
// when the model cannot lay it out.
int vxAvFormat(int format);
// Mirrors and flips a picture in place.
void vxMirrorFlip(const VxPicture &pic, bool mirror, bool flip);
// Fills a picture with black.
void vxFillBlack(const VxPicture &pic);
// Draws the virtual sensor's test picture for frame @p n: a strip at the top
// holding the frame number (see vx_mpi_model.h), a moving bar over a ramp
// and a red bottom quarter.
void vxDrawPattern(const VxPicture &pic, hi_u32 n, bool mirror, bool flip);
// Crops @p src to @p crop, scales it into @p dst as @p aspect says, then
// mirrors and flips. False when the scaler cannot take the formats.
bool vxProcess(VxScaler &scaler, const VxPicture &src, const hi_rect &crop, const VxPicture &dst,
               const hi_aspect_ratio &aspect, bool mirror, bool flip);

#endif // MODEL_PIXELS_P_H
