#ifndef MODELTEST_H
#define MODELTEST_H

// Helpers the platform model's tests share: booting VB with one pool, the
// capture chain a board program sets up, reading the virtual sensor's test
// pattern back and comparing pictures.

#include <QByteArray>
#include <QtGlobal>

#include <cmath>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_vi.h"
#include "vx_mpi_model.h"

namespace ModelTest {

// Boots the model with one common pool of @p count blocks of @p blkSize bytes.
inline int boot(hi_u32 blkSize, hi_u32 count)
{
    hi_vb_cfg cfg = {};
    cfg.max_pool_cnt = 1;
    cfg.common_pool[0].blk_size = blkSize;
    cfg.common_pool[0].blk_cnt = count;
    return vx_model_boot(&cfg);
}

// The device, pipe and channel records of a w x h capture without frame-rate control.
struct ViAttrs {
    hi_vi_dev_attr dev = {};
    hi_vi_pipe_attr pipe = {};
    hi_vi_chn_attr chn = {};
};

inline ViAttrs viAttrs(hi_u32 w, hi_u32 h, hi_pixel_format format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420)
{
    ViAttrs a;
    a.dev.intf_mode = HI_VI_INTF_MODE_MIPI;
    a.dev.in_size = {w, h};
    a.pipe.size = {w, h};
    a.pipe.pixel_format = format;
    a.pipe.frame_rate_ctrl = {-1, -1};
    a.chn.size = {w, h};
    a.chn.pixel_format = format;
    a.chn.frame_rate_ctrl = {-1, -1};
    return a;
}

// Device 0 -> pipe 0 -> channel 0 as @p a says; the pipe started when
// @p start. The first failing call's status, or 0.
inline hi_s32 startVi(const ViAttrs &a, bool start = true)
{
    hi_s32 r = 0;
    (r = hi_mpi_vi_set_dev_attr(0, &a.dev)) || (r = hi_mpi_vi_enable_dev(0)) || (r = hi_mpi_vi_bind(0, 0))
        || (r = hi_mpi_vi_create_pipe(0, &a.pipe)) || (r = hi_mpi_vi_set_chn_attr(0, 0, &a.chn))
        || (r = hi_mpi_vi_enable_chn(0, 0)) || (start && (r = hi_mpi_vi_start_pipe(0)));
    return r;
}

// A w x h frame record (semi-planar 4:2:0, V first, stride w) over block
// @p blk, as a board program describes a picture it made itself.
inline hi_video_frame_info frameIn(hi_vb_blk blk, hi_u32 w, hi_u32 h)
{
    hi_video_frame_info info = {};
    hi_video_frame &f = info.video_frame;
    f.width = w;
    f.height = h;
    f.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    f.stride[0] = f.stride[1] = w;
    f.phys_addr[0] = hi_mpi_vb_handle_to_phys_addr(blk);
    f.phys_addr[1] = f.phys_addr[0] + w * h;
    return info;
}

// The frame's luma and chroma packed without stride padding (w x h, then
// the chroma rows), as a rawvideo file of the same pixel format holds them.
inline QByteArray packed(const hi_video_frame &f)
{
    const hi_u32 rows = f.height * 3 / 2;
    const auto *base = static_cast<const char *>(hi_mpi_sys_mmap(f.phys_addr[0], f.stride[0] * rows));
    QByteArray out;
    if (!base)
        return out;
    for (hi_u32 y = 0; y < rows; ++y) {
        const int plane = y < f.height ? 0 : 1;
        out.append(base + (f.phys_addr[plane] - f.phys_addr[0]) + f.stride[plane] * (plane ? y - f.height : y),
                   int(f.width));
    }
    hi_mpi_sys_munmap(const_cast<char *>(base), f.stride[0] * rows);
    return out;
}

// The luma at (@p fx, @p fy) (fractions of the width and height), and the
// first chroma byte of the pair there (V for the board's default format).
inline int lumaAt(const hi_video_frame &f, double fx, double fy)
{
    const auto *y = static_cast<const uchar *>(hi_mpi_sys_mmap(f.phys_addr[0], f.stride[0] * f.height));
    return y ? y[hi_u32(fy * f.height) * f.stride[0] + hi_u32(fx * f.width)] : -1;
}
inline int chromaAt(const hi_video_frame &f, double fx, double fy)
{
    const auto *c = static_cast<const uchar *>(hi_mpi_sys_mmap(f.phys_addr[1], f.stride[1] * f.height / 2));
    return c ? c[hi_u32(fy * f.height / 2) * f.stride[1] + (hi_u32(fx * f.width) & ~1u)] : -1;
}

// Reads the frame number from the pattern's strip, -1 when no strip is
// there; @p mirrored and @p flipped say how the picture was turned.
inline int frameNumber(const hi_video_frame &f, bool mirrored = false, bool flipped = false)
{
    int n = 0;
    for (int i = 0; i < 18; ++i) {
        const double x = (2 * i + 1) / 36.0;
        const bool bit = lumaAt(f, mirrored ? 1 - x : x, flipped ? 1 - 1 / 16.0 : 1 / 16.0) > 128;
        if ((i == 0 && !bit) || (i == 17 && bit))
            return -1;
        if (i > 0 && i < 17)
            n = n * 2 + bit;
    }
    return n;
}

// The chroma in the middle of the red bottom quarter (top quarter when flipped).
inline int redChroma(const hi_video_frame &f, bool flipped = false)
{
    return chromaAt(f, 0.5, flipped ? 1 / 8.0 : 7 / 8.0);
}

// Peak signal-to-noise ratio of two 8-bit pictures of the same size, in dB
// (99 when they are equal, -1 when the sizes differ).
inline double psnr(const QByteArray &a, const QByteArray &b)
{
    if (a.size() != b.size() || a.isEmpty())
        return -1;
    double sum = 0;
    for (int i = 0; i < a.size(); ++i) {
        const double d = double(uchar(a[i])) - double(uchar(b[i]));
        sum += d * d;
    }
    return sum == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * a.size() / sum);
}

} // namespace ModelTest

#endif // MODELTEST_H
