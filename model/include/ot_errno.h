#ifndef OT_ERRNO_H
#define OT_ERRNO_H

#include "ot_type.h"

/* Status code layout: 0xA0000000 | module << 16 | level << 13 | code. */
#define OT_ERR_APPID (0x80000000U + 0x20000000U)

typedef enum {
    OT_ERR_LEVEL_DEBUG = 0,
    OT_ERR_LEVEL_INFO,
    OT_ERR_LEVEL_NOTICE,
    OT_ERR_LEVEL_WARNING,
    OT_ERR_LEVEL_ERROR,
    OT_ERR_LEVEL_CRIT,
    OT_ERR_LEVEL_ALERT,
    OT_ERR_LEVEL_FATAL,
    OT_ERR_LEVEL_BUTT
} ot_err_level;

#define OT_DEFINE_ERR(mod, level, err_id) \
    ((td_s32)((OT_ERR_APPID) | ((td_u32)(mod) << 16) | ((td_u32)(level) << 13) | ((td_u32)(err_id))))

typedef enum {
    OT_ERR_INVALID_DEV_ID = 0x1,
    OT_ERR_INVALID_PIPE_ID = 0x2,
    OT_ERR_INVALID_CHN_ID = 0x3,
    OT_ERR_INVALID_LAYER_ID = 0x4,
    OT_ERR_INVALID_GRP_ID = 0x5,
    OT_ERR_ILLEGAL_PARAM = 0x7,
    OT_ERR_EXIST = 0x8,
    OT_ERR_UNEXIST = 0x9,
    OT_ERR_NULL_PTR = 0xa,
    OT_ERR_NOT_CFG = 0xb,
    OT_ERR_NOT_SUPPORT = 0xc,
    OT_ERR_NOT_PERM = 0xd,
    OT_ERR_NOT_ENABLE = 0x10,
    OT_ERR_NOT_DISABLE = 0x11,
    OT_ERR_NOT_START = 0x12,
    OT_ERR_NOT_STOP = 0x13,
    OT_ERR_NO_MEM = 0x14,
    OT_ERR_NO_BUF = 0x15,
    OT_ERR_BUF_EMPTY = 0x16,
    OT_ERR_BUF_FULL = 0x17,
    OT_ERR_NOT_READY = 0x18,
    OT_ERR_TIMEOUT = 0x20,
    OT_ERR_BAD_ADDR = 0x21,
    OT_ERR_BUSY = 0x22,
    OT_ERR_SIZE_NOT_ENOUGH = 0x23,
    OT_ERR_NOT_BINDED = 0x24,
    OT_ERR_BINDED = 0x25,
    OT_ERR_BUTT = 0x3f
} ot_errno;

#endif /* OT_ERRNO_H */
