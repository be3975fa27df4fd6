// Video-output helpers.

#include "vx_mpi.h"

#include <cstring>

#include "hi_mpi_vo.h"

namespace {

// Low latency: a small display threshold (VTTH) on the device and a short
// frame queue on the layer.
const hi_u32 kLowLatencyVtth = 2;
const hi_u32 kLowLatencyBufLen = 3;
// Normal latency: one more queued frame; the device's threshold is left alone.
const hi_u32 kNormalBufLen = 4;

} // namespace

int vx_mpi_vo_set_low_Latency(ot_vo_video_layer_attr &attr, int dev)
{
    const hi_s32 ret = hi_mpi_vo_set_vtth(dev, kLowLatencyVtth);
    attr.display_buf_len = kLowLatencyBufLen;
    attr.partition_mode = OT_VO_PARTITION_MODE_SINGLE;
    return ret;
}

void vx_mpi_vo_set_normal_Latency(ot_vo_video_layer_attr &attr, int dev)
{
    Q_UNUSED(dev)
    attr.display_buf_len = kNormalBufLen;
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
