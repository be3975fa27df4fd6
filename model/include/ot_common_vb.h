#ifndef OT_COMMON_VB_H
#define OT_COMMON_VB_H

#include "ot_common.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef td_u32 ot_vb_pool;
typedef td_u32 ot_vb_blk;

#define OT_VB_INVALID_POOL_ID (-1U)
#define OT_VB_INVALID_HANDLE (-1U)
#define OT_VB_MAX_COMMON_POOLS 16
#define OT_VB_MAX_MOD_COMMON_POOLS 16
#define OT_VB_MAX_POOLS 768

typedef enum {
    OT_VB_REMAP_MODE_NONE = 0,
    OT_VB_REMAP_MODE_NOCACHE = 1,
    OT_VB_REMAP_MODE_CACHED = 2,
    OT_VB_REMAP_MODE_BUTT
} ot_vb_remap_mode;

typedef enum {
    OT_VB_SRC_COMMON = 0,
    OT_VB_SRC_MOD = 1,
    OT_VB_SRC_PRIVATE = 2,
    OT_VB_SRC_USER = 3,
    OT_VB_SRC_BUTT
} ot_vb_src;

typedef enum {
    OT_VB_UID_VI = 0,
    OT_VB_UID_VO = 1,
    OT_VB_UID_VGS = 2,
    OT_VB_UID_VENC = 3,
    OT_VB_UID_VDEC = 4,
    OT_VB_UID_H265E = 5,
    OT_VB_UID_H264E = 6,
    OT_VB_UID_JPEGE = 7,
    OT_VB_UID_JPEGD = 8,
    OT_VB_UID_VPSS = 9,
    OT_VB_UID_DIS = 10,
    OT_VB_UID_USER = 11,
    OT_VB_UID_PCIV = 12,
    OT_VB_UID_AI = 13,
    OT_VB_UID_AENC = 14,
    OT_VB_UID_RC = 15,
    OT_VB_UID_VFMW = 16,
    OT_VB_UID_GDC = 17,
    OT_VB_UID_AVS = 18,
    OT_VB_UID_DPU_RECT = 19,
    OT_VB_UID_DPU_MATCH = 20,
    OT_VB_UID_MCF = 21,
    OT_VB_UID_VDA = 22,
    OT_VB_UID_VPP = 23,
    OT_VB_UID_COMMON = 24,
    OT_VB_UID_UVC = 25,
    OT_VB_UID_VDEC_ADAPT = 26,
    OT_VB_UID_BUTT = 27,
} ot_vb_uid;

typedef struct {
    td_u64 blk_size;
    td_u32 blk_cnt;
    ot_vb_remap_mode remap_mode;
    td_char mmz_name[OT_MAX_MMZ_NAME_LEN];
} ot_vb_pool_cfg;

typedef struct {
    td_u32 max_pool_cnt;
    ot_vb_pool_cfg common_pool[OT_VB_MAX_COMMON_POOLS];
} ot_vb_cfg;

#define OT_ERR_VB_NULL_PTR OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_NULL_PTR)
#define OT_ERR_VB_NO_MEM OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_NO_MEM)
#define OT_ERR_VB_NO_BUF OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_NO_BUF)
#define OT_ERR_VB_UNEXIST OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_UNEXIST)
#define OT_ERR_VB_ILLEGAL_PARAM OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_ILLEGAL_PARAM)
#define OT_ERR_VB_NOT_READY OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_READY)
#define OT_ERR_VB_BUSY OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_BUSY)
#define OT_ERR_VB_NOT_PERM OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_NOT_PERM)
#define OT_ERR_VB_SIZE_NOT_ENOUGH OT_DEFINE_ERR(OT_ID_VB, OT_ERR_LEVEL_ERROR, OT_ERR_SIZE_NOT_ENOUGH)

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_VB_H */
