#ifndef OT_COMMON_H
#define OT_COMMON_H

#include "ot_type.h"
#include "ot_errno.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 32-bit board: pointer members of the records are 4-byte aligned. */
#define OT_ALIGN_NUM 4
#define ATTRIBUTE __attribute__((aligned(OT_ALIGN_NUM)))

#define OT_MAX_COLOR_COMPONENT 2
#define OT_MAX_USER_DATA_NUM 2
#define OT_MAX_PRIVATE_DATA_NUM 2
#define OT_MAX_MMZ_NAME_LEN 32
/* Line alignment of frames the platform lays out (strides). */
#define OT_DEFAULT_ALIGN 32
#define OT_MAX_ALIGN 1024

typedef td_s32 ot_vi_dev;
typedef td_s32 ot_vi_pipe;
typedef td_s32 ot_vi_chn;
typedef td_s32 ot_vo_dev;
typedef td_s32 ot_vo_layer;
typedef td_s32 ot_vo_chn;
typedef td_s32 ot_venc_chn;
typedef td_s32 ot_vdec_chn;
typedef td_s32 ot_vpss_grp;
typedef td_s32 ot_vpss_chn;

typedef enum {
    OT_ID_CMPI = 0,
    OT_ID_VB = 1,
    OT_ID_SYS = 2,
    OT_ID_RGN = 3,
    OT_ID_CHNL = 4,
    OT_ID_VDEC = 5,
    OT_ID_AVS = 6,
    OT_ID_VPSS = 7,
    OT_ID_VENC = 8,
    OT_ID_SVP = 9,
    OT_ID_H264E = 10,
    OT_ID_JPEGE = 11,
    OT_ID_H265E = 13,
    OT_ID_JPEGD = 14,
    OT_ID_VO = 15,
    OT_ID_VI = 16,
    OT_ID_DIS = 17,
    OT_ID_VALG = 18,
    OT_ID_RC = 19,
    OT_ID_AIO = 20,
    OT_ID_AI = 21,
    OT_ID_AO = 22,
    OT_ID_AENC = 23,
    OT_ID_ADEC = 24,
    OT_ID_VPU = 25,
    OT_ID_PCIV = 26,
    OT_ID_PCIVFMW = 27,
    OT_ID_ISP = 28,
    OT_ID_IVE = 29,
    OT_ID_USER = 30,
    OT_ID_PROC = 33,
    OT_ID_LOG = 34,
    OT_ID_VFMW = 35,
    OT_ID_GDC = 37,
    OT_ID_PHOTO = 38,
    OT_ID_FB = 39,
    OT_ID_HDMI = 40,
    OT_ID_VOIE = 41,
    OT_ID_TDE = 42,
    OT_ID_HDR = 43,
    OT_ID_PRORES = 44,
    OT_ID_VGS = 45,
    OT_ID_FD = 47,
    OT_ID_OD = 48,
    OT_ID_LPR = 50,
    OT_ID_SVP_NNIE = 51,
    OT_ID_SVP_DSP = 52,
    OT_ID_DPU_RECT = 53,
    OT_ID_DPU_MATCH = 54,
    OT_ID_MOTIONSENSOR = 55,
    OT_ID_MOTIONFUSION = 56,
    OT_ID_GYRODIS = 57,
    OT_ID_PM = 58,
    OT_ID_SVP_ALG = 59,
    OT_ID_IVP = 60,
    OT_ID_MCF = 61,
    OT_ID_SVP_MAU = 62,
    OT_ID_VDA = 63,
    OT_ID_VPP = 64,
    OT_ID_KCF = 65,
    OT_ID_PQP = 66,
    OT_ID_NPUDEV = 67,
    OT_ID_AICPU = 68,
    OT_ID_NPUDFX = 69,
    OT_ID_TSFW = 70,
    OT_ID_CIPHER = 71,
    OT_ID_KLAD = 72,
    OT_ID_KEYSLOT = 73,
    OT_ID_OTP = 74,
    OT_ID_VDEC_ADAPT = 75,
    OT_ID_DCC = 76,
    OT_ID_VDEC_SERVER = 77,
    OT_ID_VFMW_MDC = 78,
    OT_ID_VB_LOG = 79,
    OT_ID_MCF_CALIBRATION = 80,
    OT_ID_SVP_NPU = 81,
    OT_ID_HNR = 82,
    OT_ID_SNAP = 83,
    OT_ID_LOG_MDC = 84,
    OT_ID_UVC = 85,
    OT_ID_FISHEYE_CALIBRATION = 86,
    OT_ID_BUTT = 87,
} ot_mod_id;

typedef struct {
    ot_mod_id mod_id;
    td_s32 dev_id;
    td_s32 chn_id;
} ot_mpp_chn;

/* Payload types, numbered as RTP numbers them. */
typedef enum {
    OT_PT_PCMU = 0,
    OT_PT_PCMA = 8,
    OT_PT_G711A = 19,
    OT_PT_G711U = 20,
    OT_PT_G726 = 21,
    OT_PT_LPCM = 23,
    OT_PT_JPEG = 26,
    OT_PT_AAC = 37,
    OT_PT_MP3 = 43,
    OT_PT_ADPCMA = 49,
    OT_PT_H264 = 96,
    OT_PT_MP4VIDEO = 230,
    OT_PT_H265 = 265,
    OT_PT_AMR = 1001,
    OT_PT_MJPEG = 1002,
    OT_PT_AMRWB = 1003,
    OT_PT_PRORES = 1006,
    OT_PT_OPUS = 1007
} ot_payload_type;

#ifdef __cplusplus
}
#endif

#endif /* OT_COMMON_H */
