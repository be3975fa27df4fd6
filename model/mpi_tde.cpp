// The 2D engine (TDE) of the software model: jobs collect blits, copies,
// resizes and fills, and hi_tde_end_job runs them on surfaces in media
// memory (MMZ blocks or VB blocks), in order, before it returns.

#include "hi_mpi_tde.h"

#include <algorithm>
#include <cstdio>

#include "model_p.h"

namespace {

// Where the colour channels of a packed pixel lie: shift and width in bits
// of alpha, red, green and blue (width 0: the format has no such channel).
struct Layout {
    int bytes;
    int as, aw, rs, rw, gs, gw, bs, bw;
};

bool packedLayout(int format, Layout *l)
{
    switch (format) {
    case HI_TDE_COLOR_FORMAT_RGB444: *l = {2, 0, 0, 8, 4, 4, 4, 0, 4}; return true;
    case HI_TDE_COLOR_FORMAT_BGR444: *l = {2, 0, 0, 0, 4, 4, 4, 8, 4}; return true;
    case HI_TDE_COLOR_FORMAT_RGB555: *l = {2, 0, 0, 10, 5, 5, 5, 0, 5}; return true;
    case HI_TDE_COLOR_FORMAT_BGR555: *l = {2, 0, 0, 0, 5, 5, 5, 10, 5}; return true;
    case HI_TDE_COLOR_FORMAT_RGB565: *l = {2, 0, 0, 11, 5, 5, 6, 0, 5}; return true;
    case HI_TDE_COLOR_FORMAT_BGR565: *l = {2, 0, 0, 0, 5, 5, 6, 11, 5}; return true;
    case HI_TDE_COLOR_FORMAT_RGB888: *l = {3, 0, 0, 16, 8, 8, 8, 0, 8}; return true;
    case HI_TDE_COLOR_FORMAT_BGR888: *l = {3, 0, 0, 0, 8, 8, 8, 16, 8}; return true;
    case HI_TDE_COLOR_FORMAT_ARGB4444: *l = {2, 12, 4, 8, 4, 4, 4, 0, 4}; return true;
    case HI_TDE_COLOR_FORMAT_ABGR4444: *l = {2, 12, 4, 0, 4, 4, 4, 8, 4}; return true;
    case HI_TDE_COLOR_FORMAT_RGBA4444: *l = {2, 0, 4, 12, 4, 8, 4, 4, 4}; return true;
    case HI_TDE_COLOR_FORMAT_BGRA4444: *l = {2, 0, 4, 4, 4, 8, 4, 12, 4}; return true;
    case HI_TDE_COLOR_FORMAT_ARGB1555: *l = {2, 15, 1, 10, 5, 5, 5, 0, 5}; return true;
    case HI_TDE_COLOR_FORMAT_ABGR1555: *l = {2, 15, 1, 0, 5, 5, 5, 10, 5}; return true;
    case HI_TDE_COLOR_FORMAT_RGBA1555: *l = {2, 0, 1, 11, 5, 6, 5, 1, 5}; return true;
    case HI_TDE_COLOR_FORMAT_BGRA1555: *l = {2, 0, 1, 1, 5, 6, 5, 11, 5}; return true;
    case HI_TDE_COLOR_FORMAT_ARGB8565: *l = {3, 16, 8, 11, 5, 5, 6, 0, 5}; return true;
    case HI_TDE_COLOR_FORMAT_ABGR8565: *l = {3, 16, 8, 0, 5, 5, 6, 11, 5}; return true;
    case HI_TDE_COLOR_FORMAT_RGBA8565: *l = {3, 0, 8, 19, 5, 13, 6, 8, 5}; return true;
    case HI_TDE_COLOR_FORMAT_BGRA8565: *l = {3, 0, 8, 8, 5, 13, 6, 19, 5}; return true;
    case HI_TDE_COLOR_FORMAT_ARGB8888: *l = {4, 24, 8, 16, 8, 8, 8, 0, 8}; return true;
    case HI_TDE_COLOR_FORMAT_ABGR8888: *l = {4, 24, 8, 0, 8, 8, 8, 16, 8}; return true;
    case HI_TDE_COLOR_FORMAT_RGBA8888: *l = {4, 0, 8, 24, 8, 16, 8, 8, 8}; return true;
    case HI_TDE_COLOR_FORMAT_BGRA8888: *l = {4, 0, 8, 8, 8, 16, 8, 24, 8}; return true;
    case HI_TDE_COLOR_FORMAT_RABG8888: *l = {4, 16, 8, 24, 8, 0, 8, 8, 8}; return true;
    case HI_TDE_COLOR_FORMAT_A8: *l = {1, 0, 8, 0, 0, 0, 0, 0, 0}; return true;
    default: return false;
    }
}

// Semi-planar YCbCr formats: the luma plane at phys_addr, the chroma pairs
// at cbcr_phys_addr in the frames' own order (V before U); @p rows is the
// chroma rows per luma row pair (2 for 4:2:2, 1 for 4:2:0, 0 for luma only).
bool semiPlanar(int format, int *rows)
{
    switch (format) {
    case HI_TDE_COLOR_FORMAT_MP1_YCbCr420MBP:
    case HI_TDE_COLOR_FORMAT_MP2_YCbCr420MBP:
    case HI_TDE_COLOR_FORMAT_JPG_YCbCr420MBP: *rows = 1; return true;
    case HI_TDE_COLOR_FORMAT_JPG_YCbCr422MBHP: *rows = 2; return true;
    case HI_TDE_COLOR_FORMAT_JPG_YCbCr400MBP: *rows = 0; return true;
    default: return false;
    }
}

// A surface mapped into host memory.
struct Surface {
    int format = 0;
    bool semi = false;
    int chromaRows = 0;
    Layout layout{};
    hi_u32 width = 0, height = 0;
    unsigned char *plane[2] = {nullptr, nullptr};
    hi_u32 stride[2] = {0, 0};
    bool alpha255 = true;
    hi_u8 alpha0 = 0, alpha1 = 255;
};

// Maps @p in, checking that it lies in media memory and that @p rect is
// inside it. False with the reason on stderr.
bool mapSurface(VxState &s, const hi_tde_surface &in, const hi_tde_rect &rect, const char *role, Surface *out)
{
    out->format = vxInt(in.color_format);
    out->semi = semiPlanar(out->format, &out->chromaRows);
    if (!out->semi && !packedLayout(out->format, &out->layout)) {
        fprintf(stderr, "vexa twin: tde: the %s surface's colour format %d is not modelled\n", role, out->format);
        return false;
    }
    out->width = in.width;
    out->height = in.height;
    const hi_u32 bpp = out->semi ? 1 : static_cast<hi_u32>(out->layout.bytes);
    if (in.width == 0 || in.height == 0 || in.stride < in.width * bpp) {
        fprintf(stderr, "vexa twin: tde: the %s surface has no size or a stride below its width\n", role);
        return false;
    }
    if (rect.pos_x < 0 || rect.pos_y < 0 || static_cast<hi_u64>(rect.pos_x) + rect.width > in.width
        || static_cast<hi_u64>(rect.pos_y) + rect.height > in.height) {
        fprintf(stderr, "vexa twin: tde: the %s rectangle does not lie inside its surface\n", role);
        return false;
    }
    hi_u32 offset = 0;
    VxRegion *region = vxRegionAt(s, in.phys_addr, static_cast<hi_u64>(in.stride) * in.height, &offset);
    if (!region) {
        fprintf(stderr, "vexa twin: tde: the %s surface at 0x%x is not in media memory\n", role, in.phys_addr);
        return false;
    }
    out->plane[0] = region->data() + offset;
    out->stride[0] = in.stride;
    if (out->semi && out->chromaRows) {
        const hi_u32 rows = out->chromaRows == 2 ? in.height : (in.height + 1) / 2;
        region = vxRegionAt(s, in.cbcr_phys_addr, static_cast<hi_u64>(in.cbcr_stride) * rows, &offset);
        if (!region || in.cbcr_stride < (in.width + 1) / 2 * 2) {
            fprintf(stderr, "vexa twin: tde: the %s surface's chroma at 0x%x is not in media memory\n", role,
                    in.cbcr_phys_addr);
            return false;
        }
        out->plane[1] = region->data() + offset;
        out->stride[1] = in.cbcr_stride;
    }
    out->alpha255 = vxInt(in.alpha_max_is_255) == HI_TRUE;
    out->alpha0 = in.alpha0;
    out->alpha1 = in.alpha1;
    return true;
}

hi_u32 loadRaw(const unsigned char *p, int bytes)
{
    hi_u32 v = 0;
    for (int i = 0; i < bytes; ++i)
        v |= static_cast<hi_u32>(p[i]) << (8 * i);
    return v;
}

void storeRaw(unsigned char *p, int bytes, hi_u32 v)
{
    for (int i = 0; i < bytes; ++i)
        p[i] = static_cast<unsigned char>(v >> (8 * i));
}

int expand(hi_u32 raw, int shift, int width)
{
    const int v = static_cast<int>((raw >> shift) & ((1u << width) - 1));
    return width >= 8 ? v : (v << (8 - width)) | (v >> (2 * width - 8 > 0 ? 2 * width - 8 : 0));
}

// A packed pixel as 8-bit A, R, G, B.
struct Argb {
    int a, r, g, b;
};

Argb decode(const Surface &sf, hi_u32 raw)
{
    const Layout &l = sf.layout;
    Argb c{255, 0, 0, 0};
    if (l.rw) {
        c.r = l.rw >= 4 ? (expand(raw, l.rs, l.rw)) : 0;
        c.g = expand(raw, l.gs, l.gw);
        c.b = expand(raw, l.bs, l.bw);
    }
    if (l.aw == 1) {
        c.a = ((raw >> l.as) & 1) ? sf.alpha1 : sf.alpha0;
    } else if (l.aw == 8) {
        const int a = static_cast<int>((raw >> l.as) & 0xff);
        // Without alpha_max_is_255 the engine's alpha runs from 0 to 128.
        c.a = sf.alpha255 ? a : std::min(255, a * 255 / 128);
    } else if (l.aw) {
        c.a = expand(raw, l.as, l.aw);
    }
    return c;
}

hi_u32 encode(const Surface &sf, const Argb &c)
{
    const Layout &l = sf.layout;
    hi_u32 raw = 0;
    auto put = [&raw](int v, int shift, int width) {
        if (width)
            raw |= (static_cast<hi_u32>(std::min(255, std::max(0, v))) >> (8 - width)) << shift;
    };
    put(c.r, l.rs, l.rw);
    put(c.g, l.gs, l.gw);
    put(c.b, l.bs, l.bw);
    if (l.aw == 1) {
        const bool one = std::abs(c.a - sf.alpha1) <= std::abs(c.a - sf.alpha0);
        raw |= (one ? 1u : 0u) << l.as;
    } else if (l.aw == 8) {
        raw |= static_cast<hi_u32>(sf.alpha255 ? c.a : c.a * 128 / 255) << l.as;
    } else {
        put(c.a, l.as, l.aw);
    }
    return raw;
}

unsigned char *pixel(const Surface &sf, hi_u32 x, hi_u32 y)
{
    return sf.plane[0] + size_t(y) * sf.stride[0] + size_t(x) * sf.layout.bytes;
}

// Source coordinate for destination offset @p d of @p dn, over @p sn source pixels.
hi_u32 scaled(hi_u32 d, hi_u32 dn, hi_u32 sn)
{
    return static_cast<hi_u32>((static_cast<hi_u64>(d) * 2 + 1) * sn / (static_cast<hi_u64>(dn) * 2));
}

bool sameKind(const Surface &a, const Surface &b)
{
    return a.semi == b.semi && (!a.semi || a.chromaRows == b.chromaRows);
}

bool inClip(const hi_tde_opt *opt, hi_s32 x, hi_s32 y)
{
    if (!opt || vxInt(opt->clip_mode) == HI_TDE_CLIP_MODE_NONE)
        return true;
    const hi_tde_rect &c = opt->clip_rect;
    const bool inside = x >= c.pos_x && y >= c.pos_y && x < c.pos_x + static_cast<hi_s32>(c.width)
        && y < c.pos_y + static_cast<hi_s32>(c.height);
    return vxInt(opt->clip_mode) == HI_TDE_CLIP_MODE_INSIDE ? inside : !inside;
}

// Semi-planar copy or scale of the foreground (nearest pixel), blended over
// the background with the global alpha when the options ask for it.
void runSemi(const Surface &fg, const hi_tde_rect &fr, const Surface *bg, const hi_tde_rect &br, const Surface &dst,
             const hi_tde_rect &dr, const hi_tde_opt *opt)
{
    int alpha = 255;
    if (opt && (vxInt(opt->alpha_blending_cmd) & HI_TDE_ALPHA_BLENDING_BLEND) && vxInt(opt->blend_opt.global_alpha_en))
        alpha = opt->global_alpha;
    const int mirror = opt ? vxInt(opt->mirror) : 0;
    for (int planeNo = 0; planeNo < (dst.chromaRows ? 2 : 1); ++planeNo) {
        // Chroma is handled as pairs at half the width (and half the height for 4:2:0).
        const hi_u32 ys = planeNo && dst.chromaRows == 1 ? 2 : 1, unit = planeNo ? 2 : 1, xs = planeNo ? 2 : 1;
        const hi_u32 dw = dr.width / xs, dh = dr.height / ys, fw = std::max<hi_u32>(fr.width / xs, 1),
                     fh = std::max<hi_u32>(fr.height / ys, 1);
        for (hi_u32 y = 0; y < dh; ++y) {
            hi_u32 sy = scaled(y, dh, fh);
            if (mirror == HI_TDE_MIRROR_VER || mirror == HI_TDE_MIRROR_BOTH)
                sy = fh - 1 - sy;
            const unsigned char *srow = fg.plane[planeNo] + size_t(fr.pos_y / ys + sy) * fg.stride[planeNo];
            unsigned char *drow = dst.plane[planeNo] + size_t(dr.pos_y / ys + y) * dst.stride[planeNo];
            const unsigned char *brow =
                bg ? bg->plane[planeNo] + size_t(br.pos_y / ys + y) * bg->stride[planeNo] : nullptr;
            for (hi_u32 x = 0; x < dw; ++x) {
                if (!inClip(opt, dr.pos_x + static_cast<hi_s32>(x * xs), dr.pos_y + static_cast<hi_s32>(y * ys)))
                    continue;
                hi_u32 sx = scaled(x, dw, fw);
                if (mirror == HI_TDE_MIRROR_HOR || mirror == HI_TDE_MIRROR_BOTH)
                    sx = fw - 1 - sx;
                for (hi_u32 k = 0; k < unit; ++k) {
                    const int f = srow[(fr.pos_x / xs + sx) * unit + k];
                    const int b = brow ? brow[(br.pos_x / xs + x) * unit + k] : f;
                    drow[(dr.pos_x / xs + x) * unit + k] = static_cast<unsigned char>((f * alpha + b * (255 - alpha) + 127) / 255);
                }
            }
        }
    }
}

// The colour key as the options hold it: 0xRRGGBB in the key's first word,
// at the precision of @p sf.
hi_u32 keyOf(const Surface &sf, const hi_tde_opt &opt)
{
    const hi_u32 key = opt.colorkey_value.value[0];
    const Argb c = decode(sf, encode(sf, Argb{255, int((key >> 16) & 0xff), int((key >> 8) & 0xff), int(key & 0xff)}));
    return (static_cast<hi_u32>(c.r) << 16) | (static_cast<hi_u32>(c.g) << 8) | static_cast<hi_u32>(c.b);
}

hi_u32 rgbOf(const Argb &c)
{
    return (static_cast<hi_u32>(c.r) << 16) | (static_cast<hi_u32>(c.g) << 8) | static_cast<hi_u32>(c.b);
}

// Packed blit: foreground scaled (nearest pixel) into the destination
// rectangle, over the background as the options say.
void runPacked(const Surface &fg, const hi_tde_rect &fr, const Surface *bg, const hi_tde_rect &br, const Surface &dst,
               const hi_tde_rect &dr, const hi_tde_opt *opt)
{
    const int cmd = opt ? vxInt(opt->alpha_blending_cmd) : 0;
    const bool blend = (cmd & HI_TDE_ALPHA_BLENDING_BLEND) != 0 && bg;
    const int keyMode = opt && bg ? vxInt(opt->colorkey_mode) : HI_TDE_COLORKEY_MODE_NONE;
    const hi_u32 fgKey = keyMode == HI_TDE_COLORKEY_MODE_FG ? keyOf(fg, *opt) : 0;
    const hi_u32 bgKey = keyMode == HI_TDE_COLORKEY_MODE_BG ? keyOf(*bg, *opt) : 0;
    const bool globalEn = opt && vxInt(opt->blend_opt.global_alpha_en) == HI_TRUE;
    const bool pixelEn = !globalEn || vxInt(opt->blend_opt.pixel_alpha_en) == HI_TRUE;
    const int global = opt ? opt->global_alpha : 255;
    const int blendCmd = opt ? vxInt(opt->blend_opt.blend_cmd) : 0;
    const int alphaFrom = opt ? vxInt(opt->out_alpha_from) : 0;
    const int mirror = opt ? vxInt(opt->mirror) : 0;
    for (hi_u32 y = 0; y < dr.height; ++y) {
        hi_u32 sy = scaled(y, dr.height, fr.height);
        if (mirror == HI_TDE_MIRROR_VER || mirror == HI_TDE_MIRROR_BOTH)
            sy = fr.height - 1 - sy;
        for (hi_u32 x = 0; x < dr.width; ++x) {
            const hi_s32 dx = dr.pos_x + static_cast<hi_s32>(x), dy = dr.pos_y + static_cast<hi_s32>(y);
            if (!inClip(opt, dx, dy))
                continue;
            hi_u32 sx = scaled(x, dr.width, fr.width);
            if (mirror == HI_TDE_MIRROR_HOR || mirror == HI_TDE_MIRROR_BOTH)
                sx = fr.width - 1 - sx;
            const hi_u32 fx = static_cast<hi_u32>(fr.pos_x) + sx, fy = static_cast<hi_u32>(fr.pos_y) + sy;
            unsigned char *out = pixel(dst, static_cast<hi_u32>(dx), static_cast<hi_u32>(dy));
            const Argb f = decode(fg, loadRaw(pixel(fg, fx, fy), fg.layout.bytes));
            if (!bg) {
                storeRaw(out, dst.layout.bytes, encode(dst, f));
                continue;
            }
            const Argb b = decode(*bg, loadRaw(pixel(*bg, static_cast<hi_u32>(br.pos_x) + x, static_cast<hi_u32>(br.pos_y) + y),
                                               bg->layout.bytes));
            Argb o = f;
            // Colour key: a keyed foreground pixel, or a background pixel
            // that is not the key, leaves the background as it is.
            if ((keyMode == HI_TDE_COLORKEY_MODE_FG && rgbOf(f) == fgKey)
                || (keyMode == HI_TDE_COLORKEY_MODE_BG && rgbOf(b) != bgKey)) {
                o = b;
            } else if (blend) {
                int a = pixelEn ? f.a : 255;
                if (globalEn)
                    a = a * global / 255;
                if (blendCmd == HI_TDE_BLEND_CMD_CLEAR) {
                    o = Argb{0, 0, 0, 0};
                } else if (blendCmd != HI_TDE_BLEND_CMD_SRC) {
                    o.r = (f.r * a + b.r * (255 - a) + 127) / 255;
                    o.g = (f.g * a + b.g * (255 - a) + 127) / 255;
                    o.b = (f.b * a + b.b * (255 - a) + 127) / 255;
                    o.a = a + b.a * (255 - a) / 255;
                }
                if (alphaFrom == HI_TDE_OUT_ALPHA_FROM_BG)
                    o.a = b.a;
                else if (alphaFrom == HI_TDE_OUT_ALPHA_FROM_FG)
                    o.a = f.a;
                else if (alphaFrom == HI_TDE_OUT_ALPHA_FROM_GLOBALALPHA)
                    o.a = global;
            }
            storeRaw(out, dst.layout.bytes, encode(dst, o));
        }
    }
}

void runFill(const Surface &dst, const hi_tde_rect &dr, hi_u32 fill)
{
    if (!dst.semi) {
        for (hi_u32 y = 0; y < dr.height; ++y) {
            for (hi_u32 x = 0; x < dr.width; ++x)
                storeRaw(pixel(dst, static_cast<hi_u32>(dr.pos_x) + x, static_cast<hi_u32>(dr.pos_y) + y),
                         dst.layout.bytes, fill);
        }
        return;
    }
    // A YCbCr fill value is 0xAAYYCbCr.
    const unsigned char luma = static_cast<unsigned char>(fill >> 16), cb = static_cast<unsigned char>(fill >> 8),
                        cr = static_cast<unsigned char>(fill);
    for (hi_u32 y = 0; y < dr.height; ++y)
        std::memset(dst.plane[0] + size_t(dr.pos_y + y) * dst.stride[0] + dr.pos_x, luma, dr.width);
    if (!dst.chromaRows)
        return;
    const hi_u32 ys = dst.chromaRows == 1 ? 2 : 1;
    for (hi_u32 y = static_cast<hi_u32>(dr.pos_y) / ys; y < (dr.pos_y + dr.height + ys - 1) / ys; ++y) {
        unsigned char *row = dst.plane[1] + size_t(y) * dst.stride[1];
        for (hi_u32 x = static_cast<hi_u32>(dr.pos_x) / 2; x < (dr.pos_x + dr.width + 1) / 2; ++x) {
            row[2 * x] = cr;
            row[2 * x + 1] = cb;
        }
    }
}

// Runs one operation of an ending job.
hi_s32 run(VxState &s, const VxTdeOp &op)
{
    Surface dst, fg, bg;
    if (!mapSurface(s, op.dst, op.dstRect, "destination", &dst))
        return HI_ERR_TDE_INVALID_PARA;
    if (op.kind == VxTdeOp::Fill) {
        runFill(dst, op.dstRect, op.fill);
        return HI_SUCCESS;
    }
    const bool withBg = op.kind == VxTdeOp::Blit;
    if (!mapSurface(s, op.fg, op.fgRect, withBg ? "foreground" : "source", &fg)
        || (withBg && !mapSurface(s, op.bg, op.bgRect, "background", &bg)))
        return HI_ERR_TDE_INVALID_PARA;
    if (!sameKind(fg, dst) || (withBg && !sameKind(bg, dst))) {
        fprintf(stderr, "vexa twin: tde: YCbCr and RGB surfaces are not mixed in one operation\n");
        return HI_ERR_TDE_INVALID_PARA;
    }
    if (withBg && (op.bgRect.width < op.dstRect.width || op.bgRect.height < op.dstRect.height)) {
        fprintf(stderr, "vexa twin: tde: the background rectangle is smaller than the destination's\n");
        return HI_ERR_TDE_INVALID_PARA;
    }
    hi_tde_rect fr = op.fgRect, dr = op.dstRect;
    // Without resizing, the part both rectangles cover is copied.
    if (op.kind == VxTdeOp::Copy || (withBg && vxInt(op.opt.resize) != HI_TRUE)) {
        fr.width = dr.width = std::min(fr.width, dr.width);
        fr.height = dr.height = std::min(fr.height, dr.height);
    }
    const hi_tde_opt *opt = withBg ? &op.opt : nullptr;
    if (dst.semi) {
        if (opt && vxInt(opt->colorkey_mode) != HI_TDE_COLORKEY_MODE_NONE) {
            fprintf(stderr, "vexa twin: tde: a colour key on YCbCr surfaces is not modelled\n");
            return HI_ERR_TDE_INVALID_PARA;
        }
        runSemi(fg, fr, withBg ? &bg : nullptr, op.bgRect, dst, dr, opt);
    } else {
        runPacked(fg, fr, withBg ? &bg : nullptr, op.bgRect, dst, dr, opt);
    }
    return HI_SUCCESS;
}

} // namespace

hi_s32 hi_tde_open(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    s.tdeOpen = true;
    return HI_SUCCESS;
}

hi_void hi_tde_close(hi_void)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    VxState &s = vxModel().s;
    hi_s32 ignored = 0;
    vxEnter(s, __func__, "", &ignored);
    s.tdeOpen = false;
    s.tdeJobs.clear();
}

hi_s32 hi_tde_begin_job(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    const hi_s32 handle = s.nextTdeJob++;
    s.tdeJobs[handle];
    return handle;
}

hi_s32 hi_tde_end_job(hi_s32 handle, hi_bool is_sync, hi_bool is_block, hi_u32 time_out)
{
    VX_CALL(vxStatus, "%d,%d,%d,%u", handle, vxInt(is_sync), vxInt(is_block), time_out);
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    auto job = s.tdeJobs.find(handle);
    if (job == s.tdeJobs.end())
        return HI_ERR_TDE_INVALID_HANDLE;
    // The engine runs the job's operations in order; the job is over either way.
    const std::vector<VxTdeOp> ops = std::move(job->second);
    s.tdeJobs.erase(job);
    for (const VxTdeOp &op : ops) {
        const hi_s32 status = run(s, op);
        if (status != HI_SUCCESS)
            return status;
    }
    return HI_SUCCESS;
}

hi_s32 hi_tde_bit_blit(hi_s32 handle, const hi_tde_double_src *double_src, const hi_tde_opt *opt)
{
    VX_CALL(vxStatus, "%d", handle);
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    if (!double_src || !opt || !double_src->bg_surface || !double_src->fg_surface || !double_src->dst_surface
        || !double_src->bg_rect || !double_src->fg_rect || !double_src->dst_rect)
        return HI_ERR_TDE_NULL_PTR;
    auto job = s.tdeJobs.find(handle);
    if (job == s.tdeJobs.end())
        return HI_ERR_TDE_INVALID_HANDLE;
    const hi_tde_rect *rects[] = {double_src->bg_rect, double_src->fg_rect, double_src->dst_rect};
    for (const hi_tde_rect *r : rects) {
        if (r->width == 0 || r->height == 0)
            return HI_ERR_TDE_INVALID_PARA;
    }
    vx_model_blit &b = s.lastBlit;
    b.handle = handle;
    b.bg = *double_src->bg_surface;
    b.fg = *double_src->fg_surface;
    b.dst = *double_src->dst_surface;
    b.bgRect = *double_src->bg_rect;
    b.fgRect = *double_src->fg_rect;
    b.dstRect = *double_src->dst_rect;
    b.opt = *opt;
    b.bgIsDst = double_src->bg_surface == double_src->dst_surface;
    b.bgRectIsDstRect = double_src->bg_rect == double_src->dst_rect;
    s.haveBlit = true;
    VxTdeOp op;
    op.kind = VxTdeOp::Blit;
    op.bg = b.bg;
    op.fg = b.fg;
    op.dst = b.dst;
    op.bgRect = b.bgRect;
    op.fgRect = b.fgRect;
    op.dstRect = b.dstRect;
    op.opt = b.opt;
    job->second.push_back(op);
    return HI_SUCCESS;
}

// Queues a copy or resize of @p single_src on job @p handle.
static hi_s32 queueSingle(VxState &s, hi_s32 handle, const hi_tde_single_src *single_src, VxTdeOp::Kind kind)
{
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    if (!single_src || !single_src->src_surface || !single_src->dst_surface || !single_src->src_rect
        || !single_src->dst_rect)
        return HI_ERR_TDE_NULL_PTR;
    auto job = s.tdeJobs.find(handle);
    if (job == s.tdeJobs.end())
        return HI_ERR_TDE_INVALID_HANDLE;
    const hi_tde_rect &src = *single_src->src_rect, &dst = *single_src->dst_rect;
    if (src.width == 0 || src.height == 0 || dst.width == 0 || dst.height == 0)
        return HI_ERR_TDE_INVALID_PARA;
    // A quick copy keeps the size; a resize keeps the colour format.
    if (kind == VxTdeOp::Copy && (src.width != dst.width || src.height != dst.height))
        return HI_ERR_TDE_INVALID_PARA;
    if (kind == VxTdeOp::Resize
        && vxInt(single_src->src_surface->color_format) != vxInt(single_src->dst_surface->color_format))
        return HI_ERR_TDE_INVALID_PARA;
    VxTdeOp op;
    op.kind = kind;
    op.fg = *single_src->src_surface;
    op.dst = *single_src->dst_surface;
    op.fgRect = src;
    op.dstRect = dst;
    job->second.push_back(op);
    return HI_SUCCESS;
}

hi_s32 hi_tde_quick_copy(hi_s32 handle, const hi_tde_single_src *single_src)
{
    VX_CALL(vxStatus, "%d", handle);
    return queueSingle(s, handle, single_src, VxTdeOp::Copy);
}

hi_s32 hi_tde_quick_resize(hi_s32 handle, const hi_tde_single_src *single_src)
{
    VX_CALL(vxStatus, "%d", handle);
    return queueSingle(s, handle, single_src, VxTdeOp::Resize);
}

hi_s32 hi_tde_quick_fill(hi_s32 handle, const hi_tde_none_src *none_src, hi_u32 fill_data)
{
    VX_CALL(vxStatus, "%d,0x%x", handle, fill_data);
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    if (!none_src || !none_src->dst_surface || !none_src->dst_rect)
        return HI_ERR_TDE_NULL_PTR;
    auto job = s.tdeJobs.find(handle);
    if (job == s.tdeJobs.end())
        return HI_ERR_TDE_INVALID_HANDLE;
    if (none_src->dst_rect->width == 0 || none_src->dst_rect->height == 0)
        return HI_ERR_TDE_INVALID_PARA;
    VxTdeOp op;
    op.kind = VxTdeOp::Fill;
    op.dst = *none_src->dst_surface;
    op.dstRect = *none_src->dst_rect;
    op.fill = fill_data;
    job->second.push_back(op);
    return HI_SUCCESS;
}

hi_s32 hi_tde_cancel_job(hi_s32 handle)
{
    VX_CALL(vxStatus, "%d", handle);
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    // Its operations are dropped unrun.
    return s.tdeJobs.erase(handle) ? HI_SUCCESS : HI_ERR_TDE_INVALID_HANDLE;
}

hi_s32 hi_tde_wait_for_done(hi_s32 handle)
{
    VX_CALL(vxStatus, "%d", handle);
    if (!s.tdeOpen)
        return HI_ERR_TDE_DEV_NOT_OPEN;
    // Jobs run within hi_tde_end_job: any job handed out is done once ended.
    return handle > 0 && handle < s.nextTdeJob ? HI_SUCCESS : HI_ERR_TDE_INVALID_HANDLE;
}

hi_s32 hi_tde_wait_all_done(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    return s.tdeOpen ? HI_SUCCESS : HI_ERR_TDE_DEV_NOT_OPEN;
}
