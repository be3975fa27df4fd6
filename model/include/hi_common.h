#ifndef HI_COMMON_H
#define HI_COMMON_H

#include "hi_type.h"
#include "ot_common.h"

typedef ot_vi_dev hi_vi_dev;
typedef ot_vi_pipe hi_vi_pipe;
typedef ot_vi_chn hi_vi_chn;
typedef ot_vo_dev hi_vo_dev;
typedef ot_vo_layer hi_vo_layer;
typedef ot_vo_chn hi_vo_chn;
typedef ot_venc_chn hi_venc_chn;
typedef ot_vdec_chn hi_vdec_chn;
typedef ot_vpss_grp hi_vpss_grp;
typedef ot_vpss_chn hi_vpss_chn;
typedef ot_mod_id hi_mod_id;
typedef ot_mpp_chn hi_mpp_chn;

#define HI_MAX_COLOR_COMPONENT OT_MAX_COLOR_COMPONENT
#define HI_MAX_MMZ_NAME_LEN OT_MAX_MMZ_NAME_LEN
#define HI_DEFAULT_ALIGN OT_DEFAULT_ALIGN
#define HI_MAX_ALIGN OT_MAX_ALIGN

#define HI_ID_CMPI OT_ID_CMPI
#define HI_ID_VB OT_ID_VB
#define HI_ID_SYS OT_ID_SYS
#define HI_ID_RGN OT_ID_RGN
#define HI_ID_CHNL OT_ID_CHNL
#define HI_ID_VDEC OT_ID_VDEC
#define HI_ID_AVS OT_ID_AVS
#define HI_ID_VPSS OT_ID_VPSS
#define HI_ID_VENC OT_ID_VENC
#define HI_ID_SVP OT_ID_SVP
#define HI_ID_H264E OT_ID_H264E
#define HI_ID_JPEGE OT_ID_JPEGE
#define HI_ID_H265E OT_ID_H265E
#define HI_ID_JPEGD OT_ID_JPEGD
#define HI_ID_VO OT_ID_VO
#define HI_ID_VI OT_ID_VI
#define HI_ID_DIS OT_ID_DIS
#define HI_ID_VALG OT_ID_VALG
#define HI_ID_RC OT_ID_RC
#define HI_ID_AIO OT_ID_AIO
#define HI_ID_AI OT_ID_AI
#define HI_ID_AO OT_ID_AO
#define HI_ID_AENC OT_ID_AENC
#define HI_ID_ADEC OT_ID_ADEC
#define HI_ID_VPU OT_ID_VPU
#define HI_ID_PCIV OT_ID_PCIV
#define HI_ID_PCIVFMW OT_ID_PCIVFMW
#define HI_ID_ISP OT_ID_ISP
#define HI_ID_IVE OT_ID_IVE
#define HI_ID_USER OT_ID_USER
#define HI_ID_PROC OT_ID_PROC
#define HI_ID_LOG OT_ID_LOG
#define HI_ID_VFMW OT_ID_VFMW
#define HI_ID_GDC OT_ID_GDC
#define HI_ID_PHOTO OT_ID_PHOTO
#define HI_ID_FB OT_ID_FB
#define HI_ID_HDMI OT_ID_HDMI
#define HI_ID_VOIE OT_ID_VOIE
#define HI_ID_TDE OT_ID_TDE
#define HI_ID_HDR OT_ID_HDR
#define HI_ID_PRORES OT_ID_PRORES
#define HI_ID_VGS OT_ID_VGS
#define HI_ID_FD OT_ID_FD
#define HI_ID_OD OT_ID_OD
#define HI_ID_LPR OT_ID_LPR
#define HI_ID_SVP_NNIE OT_ID_SVP_NNIE
#define HI_ID_SVP_DSP OT_ID_SVP_DSP
#define HI_ID_DPU_RECT OT_ID_DPU_RECT
#define HI_ID_DPU_MATCH OT_ID_DPU_MATCH
#define HI_ID_MOTIONSENSOR OT_ID_MOTIONSENSOR
#define HI_ID_MOTIONFUSION OT_ID_MOTIONFUSION
#define HI_ID_GYRODIS OT_ID_GYRODIS
#define HI_ID_PM OT_ID_PM
#define HI_ID_SVP_ALG OT_ID_SVP_ALG
#define HI_ID_IVP OT_ID_IVP
#define HI_ID_MCF OT_ID_MCF
#define HI_ID_SVP_MAU OT_ID_SVP_MAU
#define HI_ID_VDA OT_ID_VDA
#define HI_ID_VPP OT_ID_VPP
#define HI_ID_KCF OT_ID_KCF
#define HI_ID_PQP OT_ID_PQP
#define HI_ID_NPUDEV OT_ID_NPUDEV
#define HI_ID_AICPU OT_ID_AICPU
#define HI_ID_NPUDFX OT_ID_NPUDFX
#define HI_ID_TSFW OT_ID_TSFW
#define HI_ID_CIPHER OT_ID_CIPHER
#define HI_ID_KLAD OT_ID_KLAD
#define HI_ID_KEYSLOT OT_ID_KEYSLOT
#define HI_ID_OTP OT_ID_OTP
#define HI_ID_VDEC_ADAPT OT_ID_VDEC_ADAPT
#define HI_ID_DCC OT_ID_DCC
#define HI_ID_VDEC_SERVER OT_ID_VDEC_SERVER
#define HI_ID_VFMW_MDC OT_ID_VFMW_MDC
#define HI_ID_VB_LOG OT_ID_VB_LOG
#define HI_ID_MCF_CALIBRATION OT_ID_MCF_CALIBRATION
#define HI_ID_SVP_NPU OT_ID_SVP_NPU
#define HI_ID_HNR OT_ID_HNR
#define HI_ID_SNAP OT_ID_SNAP
#define HI_ID_LOG_MDC OT_ID_LOG_MDC
#define HI_ID_UVC OT_ID_UVC
#define HI_ID_FISHEYE_CALIBRATION OT_ID_FISHEYE_CALIBRATION
#define HI_ID_BUTT OT_ID_BUTT

#endif /* HI_COMMON_H */
