#ifndef OT_TYPE_H
#define OT_TYPE_H

/* Scalar types of the media platform interface (32-bit ARM board). */

typedef unsigned char td_u8;
typedef unsigned short td_u16;
typedef unsigned int td_u32;
typedef unsigned long long td_u64;
typedef signed char td_s8;
typedef short td_s16;
typedef int td_s32;
typedef long long td_s64;
typedef char td_char;
typedef float td_float;
typedef double td_double;
#define td_void void

/* Physical addresses are 32 bits wide on the board; the software model uses
 * the same width on every host and maps them to host memory itself. */
typedef unsigned int td_phys_addr_t;

typedef enum {
    TD_FALSE = 0,
    TD_TRUE = 1,
} td_bool;

#ifndef NULL
#ifdef __cplusplus
#define NULL 0
#else
#define NULL ((void *)0)
#endif
#endif

#define TD_NULL 0L
#define TD_SUCCESS 0
#define TD_FAILURE (-1)

#endif /* OT_TYPE_H */
