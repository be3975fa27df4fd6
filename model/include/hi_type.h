#ifndef HI_TYPE_H
#define HI_TYPE_H

#include "ot_type.h"

typedef td_u8 hi_u8;
typedef td_u16 hi_u16;
typedef td_u32 hi_u32;
typedef td_u64 hi_u64;
typedef td_s8 hi_s8;
typedef td_s16 hi_s16;
typedef td_s32 hi_s32;
typedef td_s64 hi_s64;
typedef td_char hi_char;
typedef td_float hi_float;
typedef td_double hi_double;
#define hi_void void
typedef td_phys_addr_t hi_phys_addr_t;
typedef td_bool hi_bool;

#define HI_FALSE TD_FALSE
#define HI_TRUE TD_TRUE
#define HI_NULL TD_NULL
#define HI_SUCCESS TD_SUCCESS
#define HI_FAILURE TD_FAILURE

#endif /* HI_TYPE_H */
