#include "hivpss.h"

#include <cstring>

#include "hi_mpi_vpss.h"
#include "vexalog_p.h"
#include "vx_mpi_vpss_p.h"

namespace {

const hi_u32 kDefaultWidth = HiVpss::defaultWidth;
const hi_u32 kDefaultHeight = HiVpss::defaultHeight;
// Group ids below this one are left to other users of the VPSS.
const int kFirstGroupId = 4;
// -1 for both frame rates: no frame-rate control.
const hi_s32 kNoRateControl = -1;
// The input rate assumed when setFramerate is given none.
const hi_s32 kDefaultSrcFrameRate = 30;

// The picture format a new group and a newly enabled channel start with:
// semi-planar 4:2:0 without frame-rate control.
template <typename Attr>
void setDefaultFormat(Attr &attr)
{
    attr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    attr.frame_rate.src_frame_rate = kNoRateControl;
    attr.frame_rate.dst_frame_rate = kNoRateControl;
}

// Reads a channel's attribute, lets @p change edit it and writes it back,
// with the messages shared by the channel setters.
template <typename Change>
bool changeChnAttr(int grp, int chn, Change change)
{
    hi_vpss_chn_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    hi_s32 ret = hi_mpi_vpss_get_chn_attr(grp, chn, &attr);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "reseiz chn HI_MPI_VPSS_GetChnMode failed with %d %d %#x", grp, chn,
                static_cast<unsigned>(ret));
        return false;
    }
    change(attr);
    ret = hi_mpi_vpss_set_chn_attr(grp, chn, &attr);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "hi_mpi_vpss_set_chn_attr resize failed with %d %#x", grp, static_cast<unsigned>(ret));
        return false;
    }
    return true;
}

// Reads the group attribute, lets @p change edit it and writes it back; the
// results are not looked at (the callers' settings are best effort).
template <typename Change>
void editGroupAttr(int grp, Change change)
{
    hi_vpss_grp_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    hi_mpi_vpss_get_grp_attr(grp, &attr);
    change(attr);
    hi_mpi_vpss_set_grp_attr(grp, &attr);
}

} // namespace

HiVpss::HiVpss(QObject *parent)
    : QObject(parent)
{
    init();
}

HiVpss::~HiVpss()
{
    if (grp == -1)
        return;
    for (int chn = 0; chn < channelCount; ++chn)
        disableChn(chn);
    hi_mpi_vpss_stop_grp(grp);
    hi_mpi_vpss_destroy_grp(grp);
}

bool HiVpss::validChn(int chn, const char *method) const
{
    if (chn >= 0 && chn < channelCount)
        return true;
    qCWarning(lcVexaPlatform, "HiVpss::%s: no channel %d in group %d", method, chn, grp);
    return false;
}

int HiVpss::requestID()
{
    hi_vpss_grp_attr attr;
    for (int id = kFirstGroupId; id < HI_VPSS_MAX_GRP_NUM; ++id) {
        if (hi_mpi_vpss_get_grp_attr(id, &attr) == HI_ERR_VPSS_UNEXIST)
            return id;
    }
    return -1;
}

int HiVpss::init()
{
    grp = requestID();

    hi_vpss_grp_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.max_width = kDefaultWidth;
    attr.max_height = kDefaultHeight;
    attr.max_dei_width = kDefaultWidth;
    attr.max_dei_height = kDefaultHeight;
    setDefaultFormat(attr);

    hi_s32 ret = hi_mpi_vpss_create_grp(grp, &attr);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "HI_MPI_VPSS_CreateGrp failed with %d %#x", grp, static_cast<unsigned>(ret));
        return -1;
    }
    ret = hi_mpi_vpss_start_grp(grp);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "HI_MPI_VPSS_StartGrp failed with %d %#x", grp, static_cast<unsigned>(ret));
        return -1;
    }
    return grp;
}

int HiVpss::getId()
{
    return grp;
}

int HiVpss::newChn(bool userMode)
{
    for (int chn = 0; chn < channelCount; ++chn) {
        if (!chns[chn].enabled) {
            enableChn(chn, userMode);
            return chn;
        }
    }
    return -1;
}

bool HiVpss::enableChn(int chn, bool userMode)
{
    if (!validChn(chn, "enableChn"))
        return false;

    hi_vpss_chn_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    hi_s32 ret = hi_mpi_vpss_get_chn_attr(grp, chn, &attr);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "hi_mpi_vpss_get_chn_attr failed with %d %#x", grp, static_cast<unsigned>(ret));
        return false;
    }
    attr.chn_mode = userMode ? HI_VPSS_CHN_MODE_USER : HI_VPSS_CHN_MODE_AUTO;
    attr.width = kDefaultWidth;
    attr.height = kDefaultHeight;
    setDefaultFormat(attr);
    attr.compress_mode = HI_COMPRESS_MODE_NONE;
    attr.aspect_ratio.mode = HI_ASPECT_RATIO_NONE;
    ret = hi_mpi_vpss_set_chn_attr(grp, chn, &attr);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "hi_mpi_vpss_set_chn_attr enable failed with %d %#x", grp, static_cast<unsigned>(ret));
        return false;
    }
    ret = hi_mpi_vpss_enable_chn(grp, chn);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "HI_MPI_VPSS_EnableChn failed with %d %#x", grp, static_cast<unsigned>(ret));
        return false;
    }

    Channel &c = chns[chn];
    c.width = defaultWidth;
    c.height = defaultHeight;
    c.enabled = true;
    c.userMode = userMode;
    return true;
}

bool HiVpss::disableChn(int chn)
{
    if (!validChn(chn, "disableChn"))
        return true;
    hi_mpi_vpss_disable_chn(grp, chn);
    chns[chn].enabled = false;
    return true;
}

bool HiVpss::resizeChn(int chn, int width, int height, bool keepAspect)
{
    if (!validChn(chn, "resizeChn"))
        return false;
    setMax(width, height);

    const bool set = changeChnAttr(grp, chn, [width, height, keepAspect](hi_vpss_chn_attr &attr) {
        attr.width = static_cast<hi_u32>(width);
        attr.height = static_cast<hi_u32>(height);
        attr.aspect_ratio.mode = keepAspect ? HI_ASPECT_RATIO_AUTO : HI_ASPECT_RATIO_NONE;
    });
    if (!set)
        return false;

    Channel &c = chns[chn];
    c.width = width;
    c.height = height;
    c.keepAspect = keepAspect;
    return true;
}

void HiVpss::setMax(int width, int height)
{
    // The maximum only grows.
    if (width > maxWidth) {
        maxWidth = width;
        if (height > maxHeight)
            maxHeight = height;
    } else if (height > maxHeight) {
        maxHeight = height;
    } else {
        return;
    }

    hi_vpss_grp_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    const hi_s32 ret = hi_mpi_vpss_get_grp_attr(grp, &attr);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "hi_mpi_vpss_get_grp_attr failed with %d %#x", grp, static_cast<unsigned>(ret));
        return;
    }
    attr.max_width = static_cast<hi_u32>(maxWidth);
    attr.max_height = static_cast<hi_u32>(maxHeight);
    hi_vpss_crop_info crop;
    std::memset(&crop, 0, sizeof(crop));
    hi_mpi_vpss_get_grp_crop(grp, &crop);

    // The maximum size is fixed at creation: rebuild the group under its id.
    hi_mpi_vpss_stop_grp(grp);
    hi_mpi_vpss_destroy_grp(grp);
    hi_mpi_vpss_create_grp(grp, &attr);
    hi_mpi_vpss_start_grp(grp);
    if (crop.enable && crop.crop_rect.width != 0)
        hi_mpi_vpss_set_grp_crop(grp, &crop);

    // Channels come back at the default size on purpose: only the channel
    // being resized (resizeChn calls this first) gets its own size again.
    for (int chn = 0; chn < channelCount; ++chn) {
        const Channel &c = chns[chn];
        if (!c.enabled)
            continue;
        enableChn(chn, c.userMode);
        setMirror(chn, c.mirror);
        setFlip(chn, c.flip);
        if (c.rotation != 0)
            vx_mpi_vpss_set_rotation(grp, chn, c.rotation);
    }
}

bool HiVpss::setFramerate(int dst, int src)
{
    hi_vpss_grp_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    hi_s32 ret = hi_mpi_vpss_get_grp_attr(grp, &attr);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "hi_mpi_vpss_get_grp_attr failed with %d %d %#x", grp, dst, static_cast<unsigned>(ret));
        return false;
    }
    attr.frame_rate.src_frame_rate = src == -1 ? kDefaultSrcFrameRate : src;
    attr.frame_rate.dst_frame_rate = dst;
    if (dst == kNoRateControl)
        attr.frame_rate.src_frame_rate = kNoRateControl;
    ret = hi_mpi_vpss_set_grp_attr(grp, &attr);
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "HI_MPI_VPSS_SetGrpFrameRate failed with %d %d %#x", grp, dst,
                static_cast<unsigned>(ret));
        return false;
    }
    return true;
}

bool HiVpss::setDepth(int chn, int depth)
{
    if (!validChn(chn, "setDepth"))
        return false;
    return changeChnAttr(grp, chn, [depth](hi_vpss_chn_attr &attr) { attr.depth = static_cast<hi_u32>(depth); });
}

bool HiVpss::setPixelFormat(int chn, ot_pixel_format format)
{
    if (!validChn(chn, "setPixelFormat"))
        return false;
    return changeChnAttr(grp, chn, [format](hi_vpss_chn_attr &attr) { attr.pixel_format = format; });
}

void HiVpss::setMirror(int chn, bool on)
{
    if (!validChn(chn, "setMirror"))
        return;
    // Recorded first, so that a rebuild restores it even if this write fails.
    chns[chn].mirror = on;
    changeChnAttr(grp, chn, [on](hi_vpss_chn_attr &attr) { attr.mirror_en = on ? HI_TRUE : HI_FALSE; });
}

void HiVpss::setFlip(int chn, bool on)
{
    if (!validChn(chn, "setFlip"))
        return;
    chns[chn].flip = on;
    changeChnAttr(grp, chn, [on](hi_vpss_chn_attr &attr) { attr.flip_en = on ? HI_TRUE : HI_FALSE; });
}

bool HiVpss::setDelay(int delay)
{
    const hi_s32 ret = hi_mpi_vpss_set_grp_delay(grp, static_cast<hi_u32>(delay));
    if (ret != HI_SUCCESS) {
        qCDebug(lcVexaPlatform, "hi_mpi_vpss_set_grp_delay failed with %d %#x", grp, static_cast<unsigned>(ret));
        return false;
    }
    return true;
}

void HiVpss::setParam(int level)
{
    hi_vpss_grp_param param;
    std::memset(&param, 0, sizeof(param));
    hi_mpi_vpss_get_grp_param(grp, &param);
    param.contrast = static_cast<hi_u32>(level);
    hi_mpi_vpss_set_grp_param(grp, &param);

    editGroupAttr(grp, [level](hi_vpss_grp_attr &attr) { attr.dci_en = level > 0 ? HI_TRUE : HI_FALSE; });
}

void HiVpss::enableNR()
{
    editGroupAttr(grp, [](hi_vpss_grp_attr &attr) { attr.nr_en = HI_TRUE; });
}

void HiVpss::enableDIE()
{
    editGroupAttr(grp, [](hi_vpss_grp_attr &attr) { attr.dei_mode = HI_VPSS_DEI_MODE_AUTO; });
}
