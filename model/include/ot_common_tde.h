#ifndef OT_COMMON_TDE_H
#define OT_COMMON_TDE_H

#include "ot_common.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    OT_TDE_COLOR_FORMAT_RGB444 = 0,
    OT_TDE_COLOR_FORMAT_BGR444 = 1,
    OT_TDE_COLOR_FORMAT_RGB555 = 2,
    OT_TDE_COLOR_FORMAT_BGR555 = 3,
    OT_TDE_COLOR_FORMAT_RGB565 = 4,
    OT_TDE_COLOR_FORMAT_BGR565 = 5,
    OT_TDE_COLOR_FORMAT_RGB888 = 6,
    OT_TDE_COLOR_FORMAT_BGR888 = 7,
    OT_TDE_COLOR_FORMAT_ARGB4444 = 8,
    OT_TDE_COLOR_FORMAT_ABGR4444 = 9,
    OT_TDE_COLOR_FORMAT_RGBA4444 = 10,
    OT_TDE_COLOR_FORMAT_BGRA4444 = 11,
    OT_TDE_COLOR_FORMAT_ARGB1555 = 12,
    OT_TDE_COLOR_FORMAT_ABGR1555 = 13,
    OT_TDE_COLOR_FORMAT_RGBA1555 = 14,
    OT_TDE_COLOR_FORMAT_BGRA1555 = 15,
    OT_TDE_COLOR_FORMAT_ARGB8565 = 16,
    OT_TDE_COLOR_FORMAT_ABGR8565 = 17,
    OT_TDE_COLOR_FORMAT_RGBA8565 = 18,
    OT_TDE_COLOR_FORMAT_BGRA8565 = 19,
    OT_TDE_COLOR_FORMAT_ARGB8888 = 20,
    OT_TDE_COLOR_FORMAT_ABGR8888 = 21,
    OT_TDE_COLOR_FORMAT_RGBA8888 = 22,
    OT_TDE_COLOR_FORMAT_BGRA8888 = 23,
    OT_TDE_COLOR_FORMAT_RABG8888 = 24,
    OT_TDE_COLOR_FORMAT_CLUT1 = 25,
    OT_TDE_COLOR_FORMAT_CLUT2 = 26,
    OT_TDE_COLOR_FORMAT_CLUT4 = 27,
    OT_TDE_COLOR_FORMAT_CLUT8 = 28,
    OT_TDE_COLOR_FORMAT_ACLUT44 = 29,
    OT_TDE_COLOR_FORMAT_ACLUT88 = 30,
    OT_TDE_COLOR_FORMAT_A1 = 31,
    OT_TDE_COLOR_FORMAT_A8 = 32,
    OT_TDE_COLOR_FORMAT_YCbCr888 = 33,
    OT_TDE_COLOR_FORMAT_AYCbCr8888 = 34,
    OT_TDE_COLOR_FORMAT_YCbCr422 = 35,
    OT_TDE_COLOR_FORMAT_PKGVYUY = 36,
    OT_TDE_COLOR_FORMAT_BYTE = 37,
    OT_TDE_COLOR_FORMAT_HALFWORD = 38,
    OT_TDE_COLOR_FORMAT_JPG_YCbCr400MBP = 39,
    OT_TDE_COLOR_FORMAT_JPG_YCbCr422MBHP = 40,
    OT_TDE_COLOR_FORMAT_JPG_YCbCr422MBVP = 41,
    OT_TDE_COLOR_FORMAT_MP1_YCbCr420MBP = 42,
    OT_TDE_COLOR_FORMAT_MP2_YCbCr420MBP = 43,
    OT_TDE_COLOR_FORMAT_MP2_YCbCr420MBI = 44,
    OT_TDE_COLOR_FORMAT_JPG_YCbCr420MBP = 45,
    OT_TDE_COLOR_FORMAT_JPG_YCbCr444MBP = 46,
    OT_TDE_COLOR_FORMAT_MAX = 47,
} ot_tde_color_format;

typedef enum {
    OT_TDE_ALPHA_BLENDING_NONE = 0x0,
    OT_TDE_ALPHA_BLENDING_BLEND = 0x1,
    OT_TDE_ALPHA_BLENDING_ROP = 0x2,
    OT_TDE_ALPHA_BLENDING_COLORIZE = 0x4,
    OT_TDE_ALPHA_BLENDING_BUTT = 0x8
} ot_tde_alpha_blending;

typedef enum {
    OT_TDE_ROP_BLACK = 0,
    OT_TDE_ROP_COPYPEN = 12,
    OT_TDE_ROP_WHITE = 15,
    OT_TDE_ROP_BUTT = 16
} ot_tde_rop_mode;

typedef enum {
    OT_TDE_COLORKEY_MODE_NONE = 0,
    OT_TDE_COLORKEY_MODE_FG,
    OT_TDE_COLORKEY_MODE_BG,
    OT_TDE_COLORKEY_MODE_BUTT
} ot_tde_colorkey_mode;

/* Colour-key value: its per-format layouts are not used here. */
typedef union {
    td_u32 value[8];
} ot_tde_colorkey;

typedef enum {
    OT_TDE_CLIP_MODE_NONE = 0,
    OT_TDE_CLIP_MODE_INSIDE,
    OT_TDE_CLIP_MODE_OUTSIDE,
    OT_TDE_CLIP_MODE_BUTT
} ot_tde_clip_mode;

typedef enum {
    OT_TDE_DEFLICKER_LEVEL_MODE_NONE = 0,
    OT_TDE_DEFLICKER_LEVEL_MODE_BUTT = 4
} ot_tde_deflicker_mode;

typedef enum {
    OT_TDE_FILTER_MODE_COLOR = 0,
    OT_TDE_FILTER_MODE_ALPHA,
    OT_TDE_FILTER_MODE_BOTH,
    OT_TDE_FILTER_MODE_NONE,
    OT_TDE_FILTER_MODE_BUTT
} ot_tde_filter_mode;

typedef enum {
    OT_TDE_MIRROR_NONE = 0,
    OT_TDE_MIRROR_HOR,
    OT_TDE_MIRROR_VER,
    OT_TDE_MIRROR_BOTH,
    OT_TDE_MIRROR_BUTT
} ot_tde_mirror_mode;

typedef enum {
    OT_TDE_OUT_ALPHA_FROM_NORM = 0,
    OT_TDE_OUT_ALPHA_FROM_BG,
    OT_TDE_OUT_ALPHA_FROM_FG,
    OT_TDE_OUT_ALPHA_FROM_GLOBALALPHA,
    OT_TDE_OUT_ALPHA_FROM_BUTT
} ot_tde_out_alpha_from;

typedef enum {
    OT_TDE_BLEND_ZERO = 0,
    OT_TDE_BLEND_ONE,
    OT_TDE_BLEND_BUTT = 11
} ot_tde_blend_mode;

typedef enum {
    OT_TDE_BLEND_CMD_NONE = 0,
    OT_TDE_BLEND_CMD_CLEAR,
    OT_TDE_BLEND_CMD_SRC,
    OT_TDE_BLEND_CMD_SRCOVER,
    OT_TDE_BLEND_CMD_BUTT = 14
} ot_tde_blend_cmd;

typedef struct {
    td_s32 pos_x;
    td_s32 pos_y;
    td_u32 width;
    td_u32 height;
} ot_tde_rect;

typedef struct {
    td_phys_addr_t phys_addr;
    td_u32 phys_len;
    ot_tde_color_format color_format;
    td_u32 height;
    td_u32 width;
    td_u32 stride;
    td_bool is_ycbcr_clut;
    td_bool alpha_max_is_255;
    td_bool support_alpha_ex_1555;
    td_u8 alpha0;
    td_u8 alpha1;
    td_phys_addr_t cbcr_phys_addr;
    td_u32 cbcr_phys_len;
    td_u32 cbcr_stride;
    td_phys_addr_t clut_phys_addr;
    td_u32 clut_phys_len;
} ot_tde_surface;

typedef struct {
    td_bool global_alpha_en;
    td_bool pixel_alpha_en;
    td_bool src1_alpha_premulti;
    td_bool src2_alpha_premulti;
    ot_tde_blend_cmd blend_cmd;
    ot_tde_blend_mode src1_blend_mode;
    ot_tde_blend_mode src2_blend_mode;
} ot_tde_blend_opt;

typedef struct {
    td_bool src_csc_user_en;
    td_bool src_csc_param_reload_en;
    td_bool dst_csc_user_en;
    td_bool dst_csc_param_reload_en;
    td_phys_addr_t src_csc_param_addr;
    td_s32 src_csc_param_len;
    td_phys_addr_t dst_csc_param_addr;
    td_s32 dst_csc_param_len;
} ot_tde_csc_opt;

typedef struct {
    ot_tde_alpha_blending alpha_blending_cmd;
    ot_tde_rop_mode rop_color;
    ot_tde_rop_mode rop_alpha;
    ot_tde_colorkey_mode colorkey_mode;
    ot_tde_colorkey colorkey_value;
    ot_tde_clip_mode clip_mode;
    ot_tde_rect clip_rect;
    ot_tde_deflicker_mode deflicker_mode;
    td_bool resize;
    ot_tde_filter_mode filter_mode;
    ot_tde_mirror_mode mirror;
    td_bool clut_reload;
    td_u8 global_alpha;
    ot_tde_out_alpha_from out_alpha_from;
    td_u32 color_resize;
    ot_tde_blend_opt blend_opt;
    ot_tde_csc_opt csc_opt;
    td_bool is_compress;
    td_bool is_decompress;
} ot_tde_opt;

typedef struct {
    ot_tde_surface *bg_surface;
    ot_tde_surface *fg_surface;
    ot_tde_surface *dst_surface;
    ot_tde_rect *bg_rect;
    ot_tde_rect *fg_rect;
    ot_tde_rect *dst_rect;
} ot_tde_double_src;

typedef struct {
    ot_tde_surface *src_surface;
    ot_tde_surface *dst_surface;
    ot_tde_rect *src_rect;
    ot_tde_rect *dst_rect;
} ot_tde_single_src;

typedef struct {
    ot_tde_surface *dst_surface;
    ot_tde_rect *dst_rect;
} ot_tde_none_src;

#define OT_ERR_TDE_DEV_NOT_OPEN OT_DEFINE_ERR(OT_ID_TDE, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_READY)
#define OT_ERR_TDE_NULL_PTR OT_DEFINE_ERR(OT_ID_TDE, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)
#define OT_ERR_TDE_INVALID_HANDLE OT_DEFINE_ERR(OT_ID_TDE, OT_ERR_LEVEL_ERROR, OT_ERR_INVALID_CHN_ID)
#define OT_ERR_TDE_INVALID_PARA OT_DEFINE_ERR(OT_ID_TDE, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_TDE_H */
