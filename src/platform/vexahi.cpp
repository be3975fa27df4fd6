#include "vexahi.h"

#include <QMutexLocker>

#include <cstring>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hivpss.h"
#include "vexalog_p.h"
#include "vexatee.h"
#include "vexateechn.h"
#include "vxenum_p.h"

bool VexaHi::absPTS = false;
qint64 VexaHi::timeOffset = 0;
QMutex VexaHi::lockPTS;
QMap<unsigned int, void *> VexaHi::mmzMap;
QMap<int, VexaTee *> VexaHi::teeMap;
QMutex VexaHi::lockTee;

namespace {

// Frame lines start on this boundary (bytes).
const qint64 kStrideAlign = 16;
// The largest frame makeFrame asks a pool for: a block size the platform's
// 32-bit mapping calls can address.
const qint64 kMaxFrameBytes = 0x7fffffff;
// Y = U = V = 128: uniform mid-grey.
const int kGreyLevel = 0x80;

} // namespace

static hi_mpp_chn mppChn(int mod, int dev, int chn)
{
    hi_mpp_chn c;
    vxSetEnum(c.mod_id, mod);
    c.dev_id = dev;
    c.chn_id = chn;
    return c;
}

bool VexaHi::bind(int srcMod, int srcDev, int srcChn, int dstMod, int dstDev, int dstChn)
{
    const hi_mpp_chn src = mppChn(srcMod, srcDev, srcChn);
    const hi_mpp_chn dst = mppChn(dstMod, dstDev, dstChn);

    hi_mpp_chn old;
    std::memset(&old, 0, sizeof(old));
    if (hi_mpi_sys_get_bind_by_dst(&dst, &old) == HI_SUCCESS) {
        if (static_cast<int>(old.mod_id) == srcMod && old.dev_id == srcDev && old.chn_id == srcChn)
            return true;
        // The platform refuses a second source: re-pointing means unbinding first.
        hi_mpi_sys_unbind(&old, &dst);
    }
    if (srcMod == HI_ID_BUTT)
        return true;

    const hi_s32 ret = hi_mpi_sys_bind(&src, &dst);
    if (ret == HI_SUCCESS)
        return true;
    qCDebug(lcVexaPlatform, "HI_MPI_SYS_Bind failed with %#x %d %d %d %d %d %d", static_cast<unsigned>(ret), srcMod,
            srcDev, srcChn, dstMod, dstDev, dstChn);
    return false;
}

bool VexaHi::bindFromTee(VexaTeeChn *chn, int dstMod, int dstDev, int dstChn)
{
    if (!chn) {
        qCWarning(lcVexaPlatform, "VexaHi::bindFromTee: no tee channel");
        return false;
    }
    const vx_mpp_chn src = chn->getChn();
    return bind(src.mod_id, src.dev_id, src.chn_id, dstMod, dstDev, dstChn);
}

void VexaHi::getPTS(void *pts, bool withOffset)
{
    hi_u64 *out = static_cast<hi_u64 *>(pts);
    if (!out) {
        qCWarning(lcVexaPlatform, "VexaHi::getPTS: no output value");
        return;
    }
    QMutexLocker locker(&lockPTS);
    hi_mpi_sys_get_cur_pts(out);
    if (withOffset && !absPTS)
        *out += static_cast<hi_u64>(timeOffset); // two's complement: a negative offset subtracts
}

qint64 VexaHi::getPTSOffset()
{
    QMutexLocker locker(&lockPTS);
    return timeOffset;
}

void VexaHi::setPTSOffset(qint64 offset)
{
    QMutexLocker locker(&lockPTS);
    timeOffset = offset;
}

hi_video_frame_info VexaHi::makeFrame(int width, int height, unsigned int *blk)
{
    hi_video_frame_info info;
    std::memset(&info, 0, sizeof(info));

    // Sizes are computed wide so that absurd dimensions are refused rather
    // than wrapped around.
    const qint64 stride = (static_cast<qint64>(width) + kStrideAlign - 1) & ~(kStrideAlign - 1);
    const qint64 luma = stride * height;
    const qint64 size = luma * 3 / 2;
    if (width <= 0 || height <= 0 || size > kMaxFrameBytes) {
        qCWarning(lcVexaPlatform, "VexaHi::makeFrame: bad frame size %dx%d", width, height);
        return info;
    }

    const hi_vb_blk handle = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, static_cast<hi_u64>(size), nullptr);
    if (handle == HI_VB_INVALID_HANDLE) {
        qCDebug(lcVexaPlatform, "HI_MPI_VB_GetBlock failed");
        return info;
    }
    // From here on the block is the caller's, even if a later step fails.
    if (blk)
        *blk = handle;

    const hi_vb_pool pool = hi_mpi_vb_handle_to_pool_id(handle);
    if (pool == HI_VB_INVALID_POOL_ID) {
        qCDebug(lcVexaPlatform, "HI_MPI_VB_Handle2PoolId failed");
        return info;
    }
    const hi_phys_addr_t phys = hi_mpi_vb_handle_to_phys_addr(handle);
    if (phys == 0) {
        qCDebug(lcVexaPlatform, "HI_MPI_VB_Handle2PhysAddr failed");
        return info;
    }
    unsigned char *virt = static_cast<unsigned char *>(hi_mpi_sys_mmap(phys, static_cast<hi_u32>(size)));
    if (!virt) {
        qCDebug(lcVexaPlatform, "HI_MPI_SYS_Mmap failed");
        return info;
    }

    std::memset(virt, kGreyLevel, static_cast<size_t>(luma + luma / 2));

    hi_video_frame &frame = info.video_frame;
    frame.width = static_cast<hi_u32>(width);
    frame.height = static_cast<hi_u32>(height);
    frame.field = HI_VIDEO_FIELD_FRAME;
    frame.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    frame.video_format = HI_VIDEO_FORMAT_LINEAR;
    frame.compress_mode = HI_COMPRESS_MODE_NONE;
    frame.dynamic_range = HI_DYNAMIC_RANGE_SDR8;
    frame.color_gamut = HI_COLOR_GAMUT_BT709;
    frame.stride[0] = static_cast<hi_u32>(stride);
    frame.stride[1] = static_cast<hi_u32>(stride);
    frame.phys_addr[0] = phys;
    frame.phys_addr[1] = static_cast<hi_phys_addr_t>(phys + luma);
    frame.virt_addr[0] = virt;
    frame.virt_addr[1] = virt + luma;
    info.pool_id = pool;
    info.mod_id = HI_ID_VPSS;
    return info;
}

int VexaHi::mmzAlloc(unsigned int *phys, void **virt, unsigned int size, bool cached, const char *mmbName,
                     const char *zoneName)
{
    if (!phys || !virt) {
        qCDebug(lcVexaPlatform, "VexaHi::mmzAlloc: no address outputs");
        return HI_ERR_SYS_NULL_PTR;
    }
    // The platform's physical address may be wider than the registry's key.
    hi_phys_addr_t physOut = *phys;
    hi_void *virtOut = *virt;
    const hi_s32 ret = cached ? hi_mpi_sys_mmz_alloc_cached(&physOut, &virtOut, mmbName, zoneName, size)
                              : hi_mpi_sys_mmz_alloc(&physOut, &virtOut, mmbName, zoneName, size);
    *phys = static_cast<unsigned int>(physOut);
    *virt = virtOut;
    mmzMap.insert(*phys, *virt);
    return ret;
}

int VexaHi::mmzFree(unsigned int phys, void *virt)
{
    const hi_s32 ret = hi_mpi_sys_mmz_free(phys, virt);
    mmzMap.remove(phys);
    return ret;
}

void VexaHi::mmzClear()
{
    const QList<unsigned int> keys = mmzMap.keys();
    for (unsigned int phys : keys)
        hi_mpi_sys_mmz_free(phys, mmzMap.value(phys));
    mmzMap = QMap<unsigned int, void *>();
}

VexaTee *VexaHi::newTee(int srcMod, int srcDev, int srcChn)
{
    QMutexLocker locker(&lockTee);
    VexaTee *tee = new VexaTee();
    tee->setSource(srcMod, srcDev, srcChn);
    teeMap.insert(tee->getId(), tee);
    return tee;
}

VexaTee *VexaHi::newTee(vx_mpp_chn src)
{
    return newTee(src.mod_id, src.dev_id, src.chn_id);
}

VexaTee *VexaHi::getTee(int id)
{
    QMutexLocker locker(&lockTee);
    return teeMap.value(id, nullptr);
}

void VexaHi::delTee(VexaTee *tee)
{
    QMutexLocker locker(&lockTee);
    for (auto it = teeMap.begin(); it != teeMap.end(); ++it) {
        if (it.value() == tee) {
            teeMap.erase(it);
            delete tee;
            return;
        }
    }
}
