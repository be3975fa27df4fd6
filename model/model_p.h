#ifndef MODEL_P_H
#define MODEL_P_H

// State of the software model of the media platform, shared by the files
// that implement its modules. Not installed.

#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "hi_common_sys.h"
#include "hi_common_tde.h"
#include "hi_common_vb.h"
#include "hi_common_vdec.h"
#include "hi_common_venc.h"
#include "hi_common_vi.h"
#include "hi_common_vo.h"
#include "hi_common_vpss.h"
#include "vx_mpi_model.h"

// One stretch of "physical" memory: a media-memory block or a VB pool.
struct VxRegion {
    std::vector<unsigned char> mem;
    bool mmz = false;
};

struct VxPool {
    hi_phys_addr_t base = 0;
    hi_u64 blkSize = 0;
    std::vector<bool> used;
};

struct VxVpssChn {
    hi_vpss_chn_attr attr{};
    hi_rotation_attr rotation{};
    bool enabled = false;
};

struct VxVpssGrp {
    bool exists = false;
    bool started = false;
    hi_vpss_grp_attr attr{};
    hi_vpss_crop_info crop{};
    hi_vpss_grp_param param{};
    hi_u32 delay = 0;
    VxVpssChn chn[HI_VPSS_MAX_PHYS_CHN_NUM];
};

struct VxVencChn {
    hi_venc_rc_param rc{};
    hi_venc_chn_param param{};
    hi_venc_h264_vui vui264{};
    hi_venc_h265_vui vui265{};
    bool started = false;
    hi_s32 recvPicNum = 0;
};

struct VxState {
    std::vector<std::string> calls;
    std::map<std::string, std::pair<hi_s32, int>> faults;

    bool ptsFixed = false;
    hi_u64 pts = 0;

    bool vbReady = false;
    bool sysReady = false;
    bool vbConfigured = false;
    hi_vb_cfg vbCfg{};
    std::vector<VxPool> pools;
    hi_vb_cfg modCfg[HI_VB_UID_BUTT]{};
    bool modCfgSet[HI_VB_UID_BUTT]{};
    bool modPoolReady[HI_VB_UID_BUTT]{};

    std::map<hi_phys_addr_t, VxRegion> regions;
    hi_phys_addr_t nextPhys = 0x10000000;

    // destination (mod, dev, chn) -> source
    std::map<std::tuple<int, int, int>, hi_mpp_chn> binds;

    std::vector<VxVpssGrp> vpss = std::vector<VxVpssGrp>(HI_VPSS_MAX_GRP_NUM);

    std::vector<VxVencChn> venc = std::vector<VxVencChn>(HI_VENC_MAX_CHN_NUM);
    hi_venc_mod_param vencMod[HI_VENC_MOD_RC + 1]{};

    hi_vdec_mod_param vdecMod{};
    hi_vi_mod_param viMod{};
    hi_u32 viDepth[HI_VI_MAX_PIPE_NUM][HI_VI_MAX_CHN_NUM]{};
    hi_u32 vtth[HI_VO_MAX_DEV_NUM]{};
    hi_vo_bt_param bt[HI_VO_MAX_DEV_NUM]{};
    hi_vo_video_layer_attr layer[HI_VO_MAX_LAYER_NUM]{};

    bool tdeOpen = false;
    std::set<hi_s32> tdeJobs;
    hi_s32 nextTdeJob = 1;
    bool haveBlit = false;
    vx_model_blit lastBlit{};

    VxState();
};

struct VxModel {
    std::mutex mutex;
    VxState s;
};

VxModel &vxModel();

// The int an enum field of a caller's record holds. Callers may store any
// int there (the interface is C), so the field is never loaded as the enum.
template <typename Enum>
inline int vxInt(const Enum &field)
{
    static_assert(sizeof(Enum) == sizeof(int), "platform enums are int-sized");
    int value;
    std::memcpy(&value, &field, sizeof(value));
    return value;
}

// The common tail of a get call once its object is found: @p nullPtr when
// the caller gave no record, otherwise the stored record copied out.
template <typename Record>
inline hi_s32 vxCopyOut(const Record &stored, Record *out, hi_s32 nullPtr)
{
    if (!out)
        return nullPtr;
    *out = stored;
    return HI_SUCCESS;
}

// The common tail of a set call once its object is found: @p nullPtr when
// the caller gave no record, otherwise the status of @p check (called with
// the new and the stored record); the record is stored only when that is
// HI_SUCCESS.
template <typename Record, typename Check>
inline hi_s32 vxCopyIn(Record &stored, const Record *in, hi_s32 nullPtr, Check check)
{
    if (!in)
        return nullPtr;
    const hi_s32 status = check(*in, static_cast<const Record &>(stored));
    if (status != HI_SUCCESS)
        return status;
    stored = *in;
    return HI_SUCCESS;
}

// A set call that takes any record the caller gives.
template <typename Record>
inline hi_s32 vxCopyIn(Record &stored, const Record *in, hi_s32 nullPtr)
{
    return vxCopyIn(stored, in, nullPtr, [](const Record &, const Record &) -> hi_s32 { return HI_SUCCESS; });
}

// Formats the arguments of a logged call (printf rules).
std::string vxArgs(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
// "{mod,dev,chn}" or "null".
std::string vxChn(const hi_mpp_chn *chn);
// Logs the call; true with the status to return when a fault is armed for it.
bool vxEnter(VxState &s, const char *function, const std::string &args, hi_s32 *status);

// Region holding [phys, phys + size), or null.
VxRegion *vxRegionAt(VxState &s, hi_phys_addr_t phys, hi_u64 size, hi_u32 *offset);
// Reserves a fresh stretch of physical addresses for @p size bytes.
hi_phys_addr_t vxReserve(VxState &s, hi_u64 size);

// Locks the model, logs the call and returns @p failValue when a fault is
// armed for it. Leaves `s` naming the model's state; `vxStatus` holds the
// armed status for use in @p failValue.
#define VX_CALL(failValue, ...)                                              \
    std::lock_guard<std::mutex> vxGuard(vxModel().mutex);                    \
    VxState &s = vxModel().s;                                                \
    {                                                                        \
        hi_s32 vxStatus = 0;                                                 \
        if (vxEnter(s, __func__, vxArgs(__VA_ARGS__), &vxStatus))            \
            return failValue;                                                \
    }

#endif // MODEL_P_H
