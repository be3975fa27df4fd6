/*
 * A board application as it is written for the chip: platform headers only,
 * no model controls, no project headers. The build compiles it against the
 * model's include folder alone, so a model header that stops being a
 * self-contained board header (a missing include, a model-only type, C++
 * in a C header) breaks the build.
 */
#include "hi_common.h"
#include "hi_common_sys.h"
#include "hi_common_vb.h"
#include "hi_common_video.h"
#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_vdec.h"
#include "hi_mpi_venc.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vo.h"
#include "hi_mpi_tde.h"
#include "hi_mpi_vpss.h"

#include <string.h>
#include <sys/select.h>

#define WIDTH 1920
#define HEIGHT 1080

static hi_s32 start_vb(void)
{
    hi_vb_cfg cfg;
    memset(&cfg, 0, sizeof(cfg));
    cfg.max_pool_cnt = 1;
    cfg.common_pool[0].blk_size = WIDTH * HEIGHT * 3 / 2;
    cfg.common_pool[0].blk_cnt = 8;
    if (hi_mpi_vb_set_cfg(&cfg) != HI_SUCCESS || hi_mpi_vb_init() != HI_SUCCESS)
        return HI_FAILURE;
    return hi_mpi_sys_init();
}

static hi_s32 start_vi(void)
{
    hi_vi_dev_attr dev;
    hi_vi_pipe_attr pipe;
    hi_vi_chn_attr chn;
    memset(&dev, 0, sizeof(dev));
    memset(&pipe, 0, sizeof(pipe));
    memset(&chn, 0, sizeof(chn));
    dev.intf_mode = HI_VI_INTF_MODE_MIPI;
    dev.in_size.width = WIDTH;
    dev.in_size.height = HEIGHT;
    pipe.size = dev.in_size;
    pipe.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    pipe.frame_rate_ctrl.src_frame_rate = -1;
    pipe.frame_rate_ctrl.dst_frame_rate = -1;
    chn.size = dev.in_size;
    chn.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    chn.frame_rate_ctrl = pipe.frame_rate_ctrl;
    if (hi_mpi_vi_set_dev_attr(0, &dev) != HI_SUCCESS || hi_mpi_vi_enable_dev(0) != HI_SUCCESS
        || hi_mpi_vi_bind(0, 0) != HI_SUCCESS || hi_mpi_vi_create_pipe(0, &pipe) != HI_SUCCESS
        || hi_mpi_vi_set_chn_attr(0, 0, &chn) != HI_SUCCESS)
        return HI_FAILURE;
    return hi_mpi_vi_enable_chn(0, 0);
}

static hi_s32 start_vpss(void)
{
    hi_vpss_grp_attr grp;
    hi_vpss_chn_attr chn;
    memset(&grp, 0, sizeof(grp));
    grp.max_width = WIDTH;
    grp.max_height = HEIGHT;
    grp.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    grp.frame_rate.src_frame_rate = -1;
    grp.frame_rate.dst_frame_rate = -1;
    if (hi_mpi_vpss_create_grp(0, &grp) != HI_SUCCESS || hi_mpi_vpss_get_chn_attr(0, 0, &chn) != HI_SUCCESS)
        return HI_FAILURE;
    chn.width = WIDTH;
    chn.height = HEIGHT;
    chn.chn_mode = HI_VPSS_CHN_MODE_USER;
    if (hi_mpi_vpss_set_chn_attr(0, 0, &chn) != HI_SUCCESS || hi_mpi_vpss_enable_chn(0, 0) != HI_SUCCESS)
        return HI_FAILURE;
    return hi_mpi_vpss_start_grp(0);
}

static hi_s32 start_venc(void)
{
    hi_venc_chn_attr attr;
    hi_venc_start_param start;
    hi_mpp_chn src, dst;
    memset(&attr, 0, sizeof(attr));
    memset(&start, 0, sizeof(start));
    attr.venc_attr.type = HI_PT_H264;
    attr.venc_attr.max_pic_width = attr.venc_attr.pic_width = WIDTH;
    attr.venc_attr.max_pic_height = attr.venc_attr.pic_height = HEIGHT;
    attr.venc_attr.buf_size = WIDTH * HEIGHT * 2;
    attr.venc_attr.is_by_frame = HI_TRUE;
    attr.rc_attr.rc_mode = HI_VENC_RC_MODE_H264_CBR;
    attr.rc_attr.h264_cbr.gop = 30;
    attr.rc_attr.h264_cbr.bit_rate = 4000;
    start.recv_pic_num = -1;
    src.mod_id = HI_ID_VPSS;
    src.dev_id = 0;
    src.chn_id = 0;
    dst.mod_id = HI_ID_VENC;
    dst.dev_id = 0;
    dst.chn_id = 0;
    if (hi_mpi_venc_create_chn(0, &attr) != HI_SUCCESS || hi_mpi_sys_bind(&src, &dst) != HI_SUCCESS)
        return HI_FAILURE;
    return hi_mpi_venc_start_chn(0, &start);
}

/* One stream fetch: the per-frame loop of a recording application. */
static hi_s32 take_stream(void)
{
    hi_venc_chn_status status;
    hi_venc_stream stream;
    hi_venc_pack packs[16];
    if (hi_mpi_venc_query_status(0, &status) != HI_SUCCESS || status.cur_packs == 0)
        return HI_FAILURE;
    memset(&stream, 0, sizeof(stream));
    stream.pack = packs;
    stream.pack_cnt = status.cur_packs < 16 ? status.cur_packs : 16;
    if (hi_mpi_venc_get_stream(0, &stream, 1000) != HI_SUCCESS)
        return HI_FAILURE;
    return hi_mpi_venc_release_stream(0, &stream);
}

/* A playback channel: one access unit in, one picture out. */
static hi_s32 decode_one(hi_u8 *unit, hi_u32 len)
{
    hi_vdec_chn_attr attr;
    hi_vdec_stream stream;
    hi_video_frame_info frame;
    hi_vdec_supplement_info supplement;
    memset(&attr, 0, sizeof(attr));
    memset(&stream, 0, sizeof(stream));
    attr.type = HI_PT_H265;
    attr.mode = HI_VDEC_SEND_MODE_FRAME;
    attr.pic_width = WIDTH;
    attr.pic_height = HEIGHT;
    attr.stream_buf_size = WIDTH * HEIGHT;
    attr.frame_buf_cnt = 4;
    stream.addr = unit;
    stream.len = len;
    stream.end_of_frame = HI_TRUE;
    if (hi_mpi_vdec_create_chn(0, &attr) != HI_SUCCESS || hi_mpi_vdec_start_recv_stream(0) != HI_SUCCESS
        || hi_mpi_vdec_send_stream(0, &stream, -1) != HI_SUCCESS
        || hi_mpi_vdec_get_frame(0, &frame, &supplement, 1000) != HI_SUCCESS)
        return HI_FAILURE;
    return hi_mpi_vdec_release_frame(0, &frame);
}

/* A display: 1080p60 on HDMI, one full-screen channel fed by VPSS channel 0. */
static hi_s32 start_vo(void)
{
    hi_vo_pub_attr pub;
    hi_vo_video_layer_attr layer;
    hi_vo_chn_attr chn;
    hi_mpp_chn src, dst;
    memset(&pub, 0, sizeof(pub));
    memset(&layer, 0, sizeof(layer));
    memset(&chn, 0, sizeof(chn));
    pub.bg_color = 0x000000;
    pub.intf_type = HI_VO_INTF_HDMI;
    pub.intf_sync = HI_VO_OUT_1080P60;
    layer.display_rect.width = layer.img_size.width = WIDTH;
    layer.display_rect.height = layer.img_size.height = HEIGHT;
    layer.display_frame_rate = 60;
    layer.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    layer.display_buf_len = 3;
    chn.rect.width = WIDTH;
    chn.rect.height = HEIGHT;
    src.mod_id = HI_ID_VPSS;
    src.dev_id = 0;
    src.chn_id = 0;
    dst.mod_id = HI_ID_VO;
    dst.dev_id = 0;
    dst.chn_id = 0;
    if (hi_mpi_vo_set_pub_attr(0, &pub) != HI_SUCCESS || hi_mpi_vo_enable(0) != HI_SUCCESS
        || hi_mpi_vo_set_video_layer_attr(0, &layer) != HI_SUCCESS || hi_mpi_vo_enable_video_layer(0) != HI_SUCCESS
        || hi_mpi_vo_set_chn_attr(0, 0, &chn) != HI_SUCCESS || hi_mpi_vo_enable_chn(0, 0) != HI_SUCCESS)
        return HI_FAILURE;
    return hi_mpi_sys_bind(&src, &dst);
}

/* An on-screen box: a filled rectangle and a half-transparent copy of it
 * blended next to it, in an ARGB8888 buffer in media memory. */
static hi_s32 draw_box(void)
{
    hi_phys_addr_t phys;
    hi_void *virt;
    hi_tde_surface surface;
    hi_tde_rect box = {0, 0, 64, 64}, next = {64, 0, 64, 64};
    hi_tde_none_src fill;
    hi_tde_double_src blit;
    hi_tde_opt opt;
    hi_s32 job;
    memset(&surface, 0, sizeof(surface));
    memset(&opt, 0, sizeof(opt));
    if (hi_mpi_sys_mmz_alloc(&phys, &virt, "osd", HI_NULL, 128 * 64 * 4) != HI_SUCCESS || hi_tde_open() != HI_SUCCESS)
        return HI_FAILURE;
    surface.phys_addr = phys;
    surface.color_format = HI_TDE_COLOR_FORMAT_ARGB8888;
    surface.width = 128;
    surface.height = 64;
    surface.stride = 128 * 4;
    surface.alpha_max_is_255 = HI_TRUE;
    fill.dst_surface = &surface;
    fill.dst_rect = &box;
    blit.bg_surface = blit.dst_surface = blit.fg_surface = &surface;
    blit.bg_rect = blit.dst_rect = &next;
    blit.fg_rect = &box;
    opt.alpha_blending_cmd = HI_TDE_ALPHA_BLENDING_BLEND;
    opt.blend_opt.global_alpha_en = HI_TRUE;
    opt.global_alpha = 128;
    job = hi_tde_begin_job();
    if (job < 0 || hi_tde_quick_fill(job, &fill, 0xff2080ffU) != HI_SUCCESS
        || hi_tde_bit_blit(job, &blit, &opt) != HI_SUCCESS)
        return HI_FAILURE;
    return hi_tde_end_job(job, HI_FALSE, HI_TRUE, 100);
}

/* Waits for a decoded picture as a playback loop does: select on the channel's descriptor. */
static hi_s32 wait_picture(hi_vdec_chn chn)
{
    fd_set fds;
    struct timeval timeout;
    const hi_s32 fd = hi_mpi_vdec_get_fd(chn);
    if (fd < 0)
        return HI_FAILURE;
    FD_ZERO(&fds);
    FD_SET(fd, &fds);
    timeout.tv_sec = 1;
    timeout.tv_usec = 0;
    return select(fd + 1, &fds, HI_NULL, HI_NULL, &timeout) > 0 ? HI_SUCCESS : HI_FAILURE;
}

int board_program_main(hi_u8 *unit, hi_u32 len)
{
    if (start_vb() != HI_SUCCESS || start_vi() != HI_SUCCESS || start_vpss() != HI_SUCCESS
        || start_venc() != HI_SUCCESS || start_vo() != HI_SUCCESS || hi_mpi_vi_start_pipe(0) != HI_SUCCESS)
        return 1;
    return take_stream() == HI_SUCCESS && decode_one(unit, len) == HI_SUCCESS && wait_picture(0) == HI_SUCCESS
        && draw_box() == HI_SUCCESS ? 0 : 1;
}
