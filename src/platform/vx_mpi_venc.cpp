#include "vx_mpi.h"

#include <cstring>

#include "hi_mpi_venc.h"
#include "vexalog_p.h"

// The floor under the QP in constant and adaptive bit-rate modes: those
// modes always run with a minimum QP of 16, whatever the settings say.
static const hi_u32 kMinQpFloor = 16;

template <typename Param>
static void setQp(Param &p, hi_u32 minQp, hi_u32 maxQp)
{
    p.max_qp = maxQp;
    p.max_i_qp = maxQp;
    p.min_qp = minQp;
    p.min_i_qp = minQp;
}

template <typename Param>
static void setMinQp(Param &p, hi_u32 minQp)
{
    p.min_qp = minQp;
    p.min_i_qp = minQp;
}

void vx_mpi_venc_set_rc_param(int chn, QMap<QString, QVariant> settings)
{
    const QString codec = settings[QStringLiteral("codec")].toString();
    const bool h264 = codec == QLatin1String("h264");
    if (!h264 && codec != QLatin1String("h265"))
        return;

    hi_venc_rc_param rc;
    std::memset(&rc, 0, sizeof(rc));
    hi_mpi_venc_get_rc_param(chn, &rc);

    const QString mode = settings[QStringLiteral("rcmode")].toString();
    if (mode == QLatin1String("vbr")) {
        // No clamping and no ordering check: the platform judges the limits.
        const hi_u32 minQp = static_cast<hi_u32>(settings[QStringLiteral("minqp")].toInt());
        const hi_u32 maxQp = static_cast<hi_u32>(settings[QStringLiteral("maxqp")].toInt());
        if (h264)
            setQp(rc.h264_vbr_param, minQp, maxQp);
        else
            setQp(rc.h265_vbr_param, minQp, maxQp);
    } else if (mode == QLatin1String("cbr")) {
        if (h264)
            setMinQp(rc.h264_cbr_param, kMinQpFloor);
        else
            setMinQp(rc.h265_cbr_param, kMinQpFloor);
    } else if (mode == QLatin1String("avbr")) {
        if (h264) {
            setMinQp(rc.h264_avbr_param, kMinQpFloor);
            rc.h264_avbr_param.save_bitrate_en = HI_TRUE;
        } else {
            setMinQp(rc.h265_avbr_param, kMinQpFloor);
        }
    }

    const hi_s32 ret = hi_mpi_venc_set_rc_param(chn, &rc);
    if (ret != HI_SUCCESS)
        qCDebug(lcVexaPlatform, "hi_mpi_venc_set_rc_param [%d] faild with %#x", chn, static_cast<unsigned>(ret));
}

void vx_mpi_venc_vui_disable(int chn, QMap<QString, QVariant> settings)
{
    const QString codec = settings[QStringLiteral("codec")].toString();
    if (codec == QLatin1String("h264")) {
        hi_venc_h264_vui vui;
        std::memset(&vui, 0, sizeof(vui));
        hi_mpi_venc_get_h264_vui(chn, &vui);
        vui.vui_video_signal.video_signal_type_present_flag = 0;
        hi_mpi_venc_set_h264_vui(chn, &vui);
    } else if (codec == QLatin1String("h265")) {
        hi_venc_h265_vui vui;
        std::memset(&vui, 0, sizeof(vui));
        hi_mpi_venc_get_h265_vui(chn, &vui);
        vui.vui_video_signal.video_signal_type_present_flag = 0;
        hi_mpi_venc_set_h265_vui(chn, &vui);
    }
}

int vx_mpi_venc_start_chn(int chn)
{
    return vx_mpi_venc_start_chn_ex(chn, -1);
}

int vx_mpi_venc_start_chn_ex(int chn, int count)
{
    hi_venc_start_param param;
    std::memset(&param, 0, sizeof(param));
    param.recv_pic_num = count;
    return hi_mpi_venc_start_chn(chn, &param);
}

int vx_mpi_venc_set_max_stream(int chn, int count)
{
    hi_venc_chn_param param;
    std::memset(&param, 0, sizeof(param));
    hi_mpi_venc_get_chn_param(chn, &param);
    param.max_stream_cnt = static_cast<hi_u32>(count);
    return hi_mpi_venc_set_chn_param(chn, &param);
}
