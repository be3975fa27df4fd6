// Bring-up of the SYS and VB modules and the module parameters set at start-up.

#include "vx_mpi_sys_p.h"

#include <cstring>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_vdec.h"
#include "hi_mpi_venc.h"
#include "hi_mpi_vi.h"
#include "vexalog_p.h"

namespace {

// Fills the pool table of a video-buffer record from a board-file list of
// {"cnt", "size"} objects. The record has room for HI_VB_MAX_COMMON_POOLS
// pools; a longer list is cut there rather than written past the record.
void fillPools(hi_vb_cfg &cfg, const QVariantList &pools, const char *listName)
{
    int count = pools.size();
    if (count > HI_VB_MAX_COMMON_POOLS) {
        qCDebug(lcVexaPlatform, "videoBuffer \"%s\" lists %d pools; the first %d are used", listName, count,
                int(HI_VB_MAX_COMMON_POOLS));
        count = HI_VB_MAX_COMMON_POOLS;
    }
    cfg.max_pool_cnt = count;
    for (int i = 0; i < count; ++i) {
        const QVariantMap pool = pools.at(i).toMap();
        cfg.common_pool[i].blk_cnt = pool.value(QStringLiteral("cnt")).toInt();
        // The size is a signed 32-bit value in the board file, widened here.
        const qint32 size = pool.value(QStringLiteral("size")).toInt();
        cfg.common_pool[i].blk_size = static_cast<hi_u64>(size);
    }
}

// Encoders share one stream buffer per module type off.
void setEncoderStreamBuffers()
{
    for (hi_venc_mod_type type : {HI_VENC_MOD_H264, HI_VENC_MOD_H265}) {
        hi_venc_mod_param param;
        std::memset(&param, 0, sizeof param);
        param.mod_type = type;
        hi_mpi_venc_get_mod_param(&param);
        if (type == HI_VENC_MOD_H264)
            param.h264_mod_param.one_stream_buf = 0;
        else
            param.h265_mod_param.one_stream_buf = 0;
        hi_mpi_venc_set_mod_param(&param);
    }
}

// The capture module's error-frame detection, set to -1 at every start-up.
void setCaptureErrorFrames()
{
    hi_vi_mod_param vi;
    std::memset(&vi, 0, sizeof vi);
    hi_mpi_vi_get_mod_param(&vi);
    vi.detect_err_frame = -1;
    hi_mpi_vi_set_mod_param(&vi);
}

// The decoder's pools from the board file, or, when the file lists none,
// private buffers for the decoder. An empty section configures neither.
void setDecoderPools(const QVariantMap &section)
{
    hi_vb_cfg dec;
    std::memset(&dec, 0, sizeof dec);
    if (!section.isEmpty()) {
        const QVariantList decPools = section.value(QStringLiteral("dec")).toList();
        fillPools(dec, decPools, "dec");
        if (!decPools.isEmpty()) {
            hi_mpi_vb_set_mod_pool_cfg(HI_VB_UID_VDEC, &dec);
        } else {
            hi_vdec_mod_param vdec;
            std::memset(&vdec, 0, sizeof vdec);
            hi_mpi_vdec_get_mod_param(&vdec);
            vdec.vb_src = HI_VB_SRC_PRIVATE;
            hi_mpi_vdec_set_mod_param(&vdec);
        }
    }
    hi_mpi_vb_init_mod_common_pool(HI_VB_UID_VDEC);
}

} // namespace

bool vx_mpi_sys_init(const QVariantMap &config)
{
    const QVariantMap section = config.contains(QStringLiteral("videoBuffer"))
        ? config.value(QStringLiteral("videoBuffer")).toMap()
        : QVariantMap();

    hi_vb_cfg common;
    std::memset(&common, 0, sizeof common);
    if (!section.isEmpty())
        fillPools(common, section.value(QStringLiteral("sys")).toList(), "sys");

    // Tear down whatever an earlier run left behind: the system and the
    // module pools of every VB user.
    hi_mpi_sys_exit();
    for (int uid = 0; uid < HI_VB_UID_BUTT; ++uid) {
        const hi_s32 ret = hi_mpi_vb_exit_mod_common_pool(static_cast<hi_vb_uid>(uid));
        if (ret != 0) {
            qCDebug(lcVexaPlatform, "HI_MPI_VB_ExitModCommPool failed %#x", ret);
            return false;
        }
    }
    hi_mpi_vb_exit();

    const hi_s32 cfgRet = hi_mpi_vb_set_cfg(&common);
    if (cfgRet != 0)
        qCDebug(lcVexaPlatform, "HI_MPI_VB_SetConf failed! %#x", cfgRet);
    if (hi_mpi_vb_init() != 0) {
        qCDebug(lcVexaPlatform, "HI_MPI_VB_Init failed!");
        return false;
    }
    if (hi_mpi_sys_init() != 0) {
        qCDebug(lcVexaPlatform, "HI_MPI_SYS_Init failed!");
        return false;
    }

    setEncoderStreamBuffers();
    setCaptureErrorFrames();
    setDecoderPools(section);
    return true;
}
