#include "vexateechn.h"

#include <QMutexLocker>
#include <QtMath>

#include <cstring>

#include "hi_mpi_vpss.h"
#include "hivpss.h"
#include "vexalog_p.h"
#include "vexatee.h"
#include "vx_mpi_vpss_p.h"

VexaTeeChn::VexaTeeChn(QObject *parent)
    : QObject(parent)
{
}

VexaTeeChn::~VexaTeeChn()
{
    if (vpss)
        vpss->disableChn(chn);
}

bool VexaTeeChn::hasGroup(const char *method) const
{
    if (vpss)
        return true;
    qCWarning(lcVexaPlatform, "VexaTeeChn::%s: channel %d has no VPSS group", method, chn);
    return false;
}

vx_mpp_chn VexaTeeChn::getChn()
{
    return vx_mpp_chn{HI_ID_VPSS, vpss ? vpss->getId() : -1, chn};
}

bool VexaTeeChn::resizeChn(int width, int height, bool keepAspect)
{
    if (!hasGroup("resizeChn"))
        return false;
    QMutexLocker locker(&VexaTee::mutex);
    return vpss->resizeChn(chn, width, height, keepAspect);
}

bool VexaTeeChn::enableChn(bool on)
{
    if (!hasGroup("enableChn"))
        return true;
    QMutexLocker locker(&VexaTee::mutex);
    if (on)
        hi_mpi_vpss_enable_chn(vpss->getId(), chn);
    else
        hi_mpi_vpss_disable_chn(vpss->getId(), chn);
    return true;
}

bool VexaTeeChn::rotateChn(int degrees)
{
    if (!hasGroup("rotateChn"))
        return true;
    const int grp = vpss->getId();
    const hi_s32 ret = vx_mpi_vpss_set_rotation(grp, chn, degrees);
    // Kept whatever the platform said, so a rebuilt group tries it again.
    if (chn >= 0 && chn < HiVpss::channelCount)
        vpss->chns[chn].rotation = degrees;
    if (ret != HI_SUCCESS)
        qCDebug(lcVexaPlatform, "hi_mpi_vpss_set_chn_rotation %#x %d,%d", static_cast<unsigned>(ret), grp, chn);
    return true;
}

namespace {

// The smallest crop rectangle the platform takes; a disabled crop carries it
// so that the record stays valid.
const hi_u32 kMinCropWidth = 64;
const hi_u32 kMinCropHeight = 64;
// Ratio coordinates are per-mille of the picture.
const double kRatioScale = 1000.0;
// Just inside the range of qint64, so the conversion below never overflows.
const double kInt64Limit = 9.2e18;

// Float to integer as a C cast would, but defined for every input:
// non-finite and out-of-range values become 0.
qint64 toInteger(double v)
{
    if (!qIsFinite(v) || v >= kInt64Limit || v <= -kInt64Limit)
        return 0;
    return static_cast<qint64>(v);
}

} // namespace

bool VexaTeeChn::crop(double x, double y, double width, double height, bool pixels)
{
    if (!hasGroup("crop"))
        return true;
    hi_vpss_crop_info info;
    std::memset(&info, 0, sizeof(info));
    info.enable = HI_TRUE;
    info.crop_rect.width = kMinCropWidth;
    info.crop_rect.height = kMinCropHeight;
    if (width == 0.0 || height == 0.0) {
        info.enable = HI_FALSE;
    } else {
        const double scale = pixels ? 1.0 : kRatioScale;
        info.crop_mode = pixels ? HI_COORD_ABS : HI_COORD_RATIO;
        info.crop_rect.x = static_cast<hi_s32>(toInteger(x * scale));
        info.crop_rect.y = static_cast<hi_s32>(toInteger(y * scale));
        info.crop_rect.width = static_cast<hi_u32>(toInteger(width * scale));
        info.crop_rect.height = static_cast<hi_u32>(toInteger(height * scale));
    }
    const hi_s32 ret = hi_mpi_vpss_set_grp_crop(vpss->getId(), &info);
    if (ret != HI_SUCCESS)
        qCDebug(lcVexaPlatform, "HI_MPI_VPSS_SetGrpCrop failed with %#x", static_cast<unsigned>(ret));
    return true;
}

bool VexaTeeChn::setPixelFormat(ot_pixel_format format)
{
    if (!hasGroup("setPixelFormat"))
        return false;
    QMutexLocker locker(&VexaTee::mutex);
    return vpss->setPixelFormat(chn, format);
}

void VexaTeeChn::setMirror(bool on)
{
    if (hasGroup("setMirror"))
        vpss->setMirror(chn, on);
}

void VexaTeeChn::setFlip(bool on)
{
    if (hasGroup("setFlip"))
        vpss->setFlip(chn, on);
}

bool VexaTeeChn::setCompress(int mode)
{
    Q_UNUSED(mode)
    return true;
}
