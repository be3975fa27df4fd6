// Decoder, video-output, 2D-engine and capture helpers.

#include "vx_mpi.h"

#include <cstring>

#include "hi_mpi_tde.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vo.h"

hi_vdec_stream vx_vdec_stream_init(VexaObject::Packet pkt)
{
    hi_vdec_stream stream;
    std::memset(&stream, 0, sizeof(stream));
    stream.addr = reinterpret_cast<hi_u8 *>(pkt.data);
    stream.len = static_cast<hi_u32>(pkt.len);
    const bool useAlt = pkt.altPts != pkt.pts && pkt.altPts != -1;
    stream.pts = static_cast<hi_u64>(useAlt ? pkt.altPts : pkt.pts);
    stream.end_of_frame = HI_TRUE;
    stream.end_of_stream = HI_FALSE;
    stream.need_display = HI_TRUE;
    return stream;
}

int vx_mpi_vo_set_low_Latency(ot_vo_video_layer_attr &attr, int dev)
{
    const hi_s32 ret = hi_mpi_vo_set_vtth(dev, 2);
    attr.display_buf_len = 3;
    attr.partition_mode = OT_VO_PARTITION_MODE_SINGLE;
    return ret;
}

void vx_mpi_vo_set_normal_Latency(ot_vo_video_layer_attr &attr, int dev)
{
    Q_UNUSED(dev)
    attr.display_buf_len = 4;
    attr.partition_mode = OT_VO_PARTITION_MODE_SINGLE;
}

int vx_mpi_vo_bt_set_param(int dev, bool first, bool second)
{
    hi_vo_bt_param param;
    std::memset(&param, 0, sizeof(param));
    hi_mpi_vo_get_bt_param(dev, &param);
    param.yc_inverted_en = first ? HI_TRUE : HI_FALSE;
    param.clk_edge = second ? OT_VO_CLK_EDGE_DUAL : OT_VO_CLK_EDGE_SINGLE;
    return hi_mpi_vo_set_bt_param(dev, &param);
}

int vx_tde_bit_blit(int handle, ot_tde_surface src, ot_tde_surface dst, ot_tde_rect srcRect, ot_tde_rect dstRect,
                    ot_tde_opt opt)
{
    // The destination is also the background: the source is composed over
    // the destination's own content.
    hi_tde_double_src job;
    job.bg_surface = &dst;
    job.fg_surface = &src;
    job.dst_surface = &dst;
    job.bg_rect = &dstRect;
    job.fg_rect = &srcRect;
    job.dst_rect = &dstRect;
    return hi_tde_bit_blit(handle, &job, &opt);
}

int vx_mpi_vi_set_frame_depth(int pipe, int chn, int depth)
{
    return hi_mpi_vi_set_frame_depth(pipe, chn, static_cast<hi_u32>(depth));
}
