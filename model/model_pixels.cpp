// Pixel work of the software model: the virtual sensor's test picture and
// the VPSS steps (crop, scale with libswscale, aspect ratio, mirror, flip,
// quarter turns).
// Everything here runs outside the model's lock on memory the caller keeps.

#include "model_pixels_p.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libswscale/swscale.h>
}

// Cells of the frame-number strip: a white marker, sixteen bits (most
// significant first, white = 1) and a black marker.
static const hi_u32 kCells = 18;

static unsigned char patternLuma(hi_u32 x, hi_u32 y, hi_u32 w, hi_u32 h, hi_u32 n)
{
    const hi_u32 strip = std::max<hi_u32>(h / 8, 2);
    if (y < strip) {
        const hi_u32 cell = x * kCells / w;
        if (cell == 0)
            return 235;
        if (cell == kCells - 1)
            return 16;
        return ((n >> (kCells - 2 - cell)) & 1) ? 235 : 16;
    }
    // A bar that moves a 64th of the width per frame over a horizontal ramp.
    const hi_u32 barWidth = std::max<hi_u32>(w / 16, 2);
    const hi_u32 barX = (n * std::max<hi_u32>(w / 64, 1)) % w;
    if ((x + w - barX) % w < barWidth)
        return 235;
    return static_cast<unsigned char>(40 + x * 160 / w);
}

void vxDrawPattern(const VxPicture &pic, hi_u32 n, bool mirror, bool flip)
{
    const hi_u32 w = pic.width, h = pic.height;
    for (hi_u32 y = 0; y < h; ++y) {
        const hi_u32 sy = flip ? h - 1 - y : y;
        unsigned char *row = pic.plane[0] + static_cast<size_t>(y) * pic.stride[0];
        for (hi_u32 x = 0; x < w; ++x)
            row[x] = patternLuma(mirror ? w - 1 - x : x, sy, w, h, n);
    }
    if (!pic.plane[1])
        return;
    // The bottom quarter is red (V high, U low), the rest neutral, so that a
    // swapped chroma order or a lost flip shows.
    const bool vFirst = pic.format == HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420 || pic.format == HI_PIXEL_FORMAT_YVU_SEMIPLANAR_422;
    const bool full = pic.format == HI_PIXEL_FORMAT_YVU_SEMIPLANAR_422 || pic.format == HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422;
    const hi_u32 rows = full ? h : h / 2;
    for (hi_u32 cy = 0; cy < rows; ++cy) {
        const hi_u32 y = full ? cy : cy * 2;
        const hi_u32 sy = flip ? h - 1 - y : y;
        const bool red = sy >= h * 3 / 4;
        const unsigned char v = red ? 200 : 128, u = red ? 90 : 128;
        unsigned char *row = pic.plane[1] + static_cast<size_t>(cy) * pic.stride[1];
        for (hi_u32 cx = 0; cx < w / 2; ++cx) {
            row[2 * cx] = vFirst ? v : u;
            row[2 * cx + 1] = vFirst ? u : v;
        }
    }
}

static AVPixelFormat avFormat(int format)
{
    switch (format) {
    case HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420:
        return AV_PIX_FMT_NV21;
    case HI_PIXEL_FORMAT_YUV_SEMIPLANAR_420:
        return AV_PIX_FMT_NV12;
    case HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422:
        return AV_PIX_FMT_NV16;
    case HI_PIXEL_FORMAT_YUV_400:
        return AV_PIX_FMT_GRAY8;
    default:
        return AV_PIX_FMT_NONE;
    }
}

bool vxCanProcess(int format)
{
    return avFormat(format) != AV_PIX_FMT_NONE;
}

int vxAvFormat(int format)
{
    return avFormat(format);
}

VxScaler::~VxScaler()
{
    sws_freeContext(ctx);
}

// The picture's top-left corner moved to (x, y): both even.
static VxPicture window(const VxPicture &pic, hi_u32 x, hi_u32 y, hi_u32 w, hi_u32 h)
{
    VxPicture out = pic;
    out.width = w;
    out.height = h;
    const bool half = pic.format != HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422;
    out.plane[0] = pic.plane[0] + static_cast<size_t>(y) * pic.stride[0] + x;
    if (pic.plane[1])
        out.plane[1] = pic.plane[1] + static_cast<size_t>(half ? y / 2 : y) * pic.stride[1] + x;
    return out;
}

// Fills the picture with the colour 0xRRGGBB.
static void fill(const VxPicture &pic, hi_u32 rgb)
{
    const int r = (rgb >> 16) & 0xff, g = (rgb >> 8) & 0xff, b = rgb & 0xff;
    const int y = 16 + (47 * r + 157 * g + 16 * b) / 256;
    const int u = 128 + (-26 * r - 87 * g + 112 * b) / 256;
    const int v = 128 + (112 * r - 102 * g - 10 * b) / 256;
    for (hi_u32 row = 0; row < pic.height; ++row)
        std::memset(pic.plane[0] + static_cast<size_t>(row) * pic.stride[0], y, pic.width);
    if (!pic.plane[1])
        return;
    const bool vFirst = pic.format == HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    const hi_u32 rows = pic.format == HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422 ? pic.height : pic.height / 2;
    for (hi_u32 row = 0; row < rows; ++row) {
        unsigned char *p = pic.plane[1] + static_cast<size_t>(row) * pic.stride[1];
        for (hi_u32 cx = 0; cx < pic.width / 2; ++cx) {
            p[2 * cx] = static_cast<unsigned char>(vFirst ? v : u);
            p[2 * cx + 1] = static_cast<unsigned char>(vFirst ? u : v);
        }
    }
}

// Mirrors and flips a picture in place; @p unit is 1 for luma, 2 for chroma pairs.
static void mirrorFlip(unsigned char *plane, hi_u32 stride, hi_u32 units, hi_u32 rows, hi_u32 unit, bool mirror,
                       bool flip)
{
    if (mirror) {
        for (hi_u32 r = 0; r < rows; ++r) {
            unsigned char *p = plane + static_cast<size_t>(r) * stride;
            for (hi_u32 a = 0, b = units - 1; a < b; ++a, --b)
                std::swap_ranges(p + a * unit, p + a * unit + unit, p + b * unit);
        }
    }
    if (flip) {
        for (hi_u32 a = 0, b = rows - 1; rows && a < b; ++a, --b)
            std::swap_ranges(plane + static_cast<size_t>(a) * stride, plane + static_cast<size_t>(a) * stride + units * unit,
                             plane + static_cast<size_t>(b) * stride);
    }
}

bool vxProcess(VxScaler &scaler, const VxPicture &src, const hi_rect &crop, const VxPicture &dst,
               const hi_aspect_ratio &aspect, bool mirror, bool flip)
{
    const VxPicture in = window(src, static_cast<hi_u32>(crop.x) & ~1u, static_cast<hi_u32>(crop.y) & ~1u,
                                crop.width & ~1u, crop.height & ~1u);
    // Where in the output the picture goes.
    hi_u32 x = 0, y = 0, w = dst.width, h = dst.height;
    if (vxInt(aspect.mode) == HI_ASPECT_RATIO_AUTO) {
        if (static_cast<hi_u64>(in.width) * dst.height > static_cast<hi_u64>(in.height) * dst.width)
            h = static_cast<hi_u32>(static_cast<hi_u64>(dst.width) * in.height / in.width);
        else
            w = static_cast<hi_u32>(static_cast<hi_u64>(dst.height) * in.width / in.height);
        w = std::max<hi_u32>(w & ~1u, 2);
        h = std::max<hi_u32>(h & ~1u, 2);
        x = (dst.width - w) / 2 & ~1u;
        y = (dst.height - h) / 2 & ~1u;
    } else if (vxInt(aspect.mode) == HI_ASPECT_RATIO_MANUAL) {
        const hi_rect &r = aspect.video_rect;
        x = std::min<hi_u32>(static_cast<hi_u32>(std::max(r.x, 0)), dst.width - 2) & ~1u;
        y = std::min<hi_u32>(static_cast<hi_u32>(std::max(r.y, 0)), dst.height - 2) & ~1u;
        w = std::max<hi_u32>(std::min(r.width, dst.width - x) & ~1u, 2);
        h = std::max<hi_u32>(std::min(r.height, dst.height - y) & ~1u, 2);
    }
    if (w != dst.width || h != dst.height)
        fill(dst, aspect.bg_color);
    const VxPicture out = window(dst, x, y, w, h);

    // Same size and format: the rows are copied. (libswscale's unscaled
    // copy between semi-planar pictures leaves the chroma plane unwritten.)
    if (in.width == out.width && in.height == out.height && in.format == out.format && vxCanProcess(in.format)) {
        for (hi_u32 row = 0; row < out.height; ++row)
            std::memcpy(out.plane[0] + static_cast<size_t>(row) * out.stride[0],
                        in.plane[0] + static_cast<size_t>(row) * in.stride[0], out.width);
        if (in.format != HI_PIXEL_FORMAT_YUV_400 && in.plane[1] && out.plane[1]) {
            const hi_u32 rows = in.format == HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422 ? out.height : out.height / 2;
            for (hi_u32 row = 0; row < rows; ++row)
                std::memcpy(out.plane[1] + static_cast<size_t>(row) * out.stride[1],
                            in.plane[1] + static_cast<size_t>(row) * in.stride[1], out.width);
        }
        vxMirrorFlip(dst, mirror, flip);
        return true;
    }

    scaler.ctx = sws_getCachedContext(scaler.ctx, static_cast<int>(in.width), static_cast<int>(in.height),
                                      avFormat(in.format), static_cast<int>(out.width), static_cast<int>(out.height),
                                      avFormat(out.format), SWS_BICUBIC, nullptr, nullptr, nullptr);
    if (!scaler.ctx)
        return false;
    const uint8_t *const srcPlanes[4] = {in.plane[0], in.plane[1], nullptr, nullptr};
    const int srcStrides[4] = {static_cast<int>(in.stride[0]), static_cast<int>(in.stride[1]), 0, 0};
    uint8_t *const dstPlanes[4] = {out.plane[0], out.plane[1], nullptr, nullptr};
    const int dstStrides[4] = {static_cast<int>(out.stride[0]), static_cast<int>(out.stride[1]), 0, 0};
    sws_scale(scaler.ctx, srcPlanes, srcStrides, 0, static_cast<int>(in.height), dstPlanes, dstStrides);

    vxMirrorFlip(dst, mirror, flip);
    return true;
}

void vxMirrorFlip(const VxPicture &pic, bool mirror, bool flip)
{
    mirrorFlip(pic.plane[0], pic.stride[0], pic.width, pic.height, 1, mirror, flip);
    if (pic.plane[1]) {
        const hi_u32 rows = pic.format == HI_PIXEL_FORMAT_YUV_SEMIPLANAR_422 ? pic.height : pic.height / 2;
        mirrorFlip(pic.plane[1], pic.stride[1], pic.width / 2, rows, 2, mirror, flip);
    }
}

void vxFillBlack(const VxPicture &pic)
{
    fill(pic, 0);
}

VxPicture vxPictureOf(const hi_video_frame &f, unsigned char *data)
{
    VxPicture pic;
    pic.width = f.width;
    pic.height = f.height;
    pic.format = vxInt(f.pixel_format);
    pic.stride[0] = f.stride[0];
    pic.stride[1] = f.stride[1];
    pic.plane[0] = data;
    pic.plane[1] = f.phys_addr[1] ? data + (f.phys_addr[1] - f.phys_addr[0]) : nullptr;
    return pic;
}

// Turns one plane of units of @p unit bytes: the destination is h x w units.
static void turnPlane(const unsigned char *src, hi_u32 srcStride, hi_u32 w, hi_u32 h, unsigned char *dst,
                      hi_u32 dstStride, hi_u32 unit, bool clockwise)
{
    // Destination (x, y) shows source (y, h - 1 - x) clockwise, (w - 1 - y, x) anticlockwise.
    for (hi_u32 y = 0; y < w; ++y) {
        unsigned char *row = dst + static_cast<size_t>(y) * dstStride;
        const hi_u32 sx = clockwise ? y : w - 1 - y;
        for (hi_u32 x = 0; x < h; ++x) {
            const hi_u32 sy = clockwise ? h - 1 - x : x;
            std::memcpy(row + x * unit, src + static_cast<size_t>(sy) * srcStride + sx * unit, unit);
        }
    }
}

bool vxQuarterTurn(const VxPicture &src, const VxPicture &dst, bool clockwise)
{
    const bool planar420 = src.format == HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420
        || src.format == HI_PIXEL_FORMAT_YUV_SEMIPLANAR_420;
    if ((!planar420 && src.format != HI_PIXEL_FORMAT_YUV_400) || dst.format != src.format
        || dst.width != src.height || dst.height != src.width)
        return false;
    turnPlane(src.plane[0], src.stride[0], src.width, src.height, dst.plane[0], dst.stride[0], 1, clockwise);
    if (src.plane[1] && dst.plane[1])
        turnPlane(src.plane[1], src.stride[1], src.width / 2, src.height / 2, dst.plane[1], dst.stride[1], 2, clockwise);
    return true;
}
