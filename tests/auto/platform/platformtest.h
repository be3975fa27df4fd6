#ifndef PLATFORMTEST_H
#define PLATFORMTEST_H

// Helpers shared by the platform glue's tests.

#include <QRegularExpression>
#include <QtTest>

#include <cstring>

#include "hi_mpi_sys.h"
#include "hi_mpi_vpss.h"
#include "vx_mpi_model.h"

namespace PlatformTest {

// Platform calls logged by the model since the last clear, optionally only
// those whose text starts with @p prefix.
inline QStringList calls(const QString &prefix = QString())
{
    QStringList out;
    for (const std::string &call : vx_model_calls()) {
        const QString text = QString::fromStdString(call);
        if (text.startsWith(prefix))
            out << text;
    }
    return out;
}

// A fresh platform brought up as start-up code does, with an empty log.
inline bool boot()
{
    vx_model_reset();
    const bool up = vx_model_boot() == 0;
    vx_model_clear_calls();
    return up;
}

// Makes the next call of @p function fail (nothing when empty) and expects
// the message @p message (nothing when empty): a warning when it says the
// call lacked what it needs, else a debug line.
inline void inject(const QString &function, hi_s32 status, const QString &message)
{
    if (!function.isEmpty())
        vx_model_fail(function.toLatin1().constData(), status);
    static const QRegularExpression misuse(QStringLiteral(
        "^(VexaHi::\\w+: (no |bad )|HiVpss::\\w+: no channel|VexaTeeChn::\\w+: channel -?\\d+ has no VPSS group)"));
    if (!message.isEmpty())
        QTest::ignoreMessage(misuse.match(message).hasMatch() ? QtWarningMsg : QtDebugMsg, message.toLatin1().constData());
}

// A record with every byte set to @p fill, so that untouched fields stand out.
template <typename Record>
Record filled(unsigned char fill = 0)
{
    Record r;
    std::memset(&r, fill, sizeof(r));
    return r;
}

// "{mod,dev,chn}" of whatever feeds the destination, or "none".
inline QString boundSource(int mod, int dev, int chn)
{
    const hi_mpp_chn dst = {static_cast<hi_mod_id>(mod), dev, chn};
    hi_mpp_chn src;
    if (hi_mpi_sys_get_bind_by_dst(&dst, &src) != 0)
        return QStringLiteral("none");
    return QStringLiteral("{%1,%2,%3}").arg(static_cast<int>(src.mod_id)).arg(src.dev_id).arg(src.chn_id);
}

// What the platform holds for a VPSS group or channel (zeroed when it has nothing).
inline hi_vpss_grp_attr grpAttr(int grp)
{
    auto attr = filled<hi_vpss_grp_attr>();
    hi_mpi_vpss_get_grp_attr(grp, &attr);
    return attr;
}

inline hi_vpss_chn_attr chnAttr(int grp, int chn)
{
    auto attr = filled<hi_vpss_chn_attr>();
    hi_mpi_vpss_get_chn_attr(grp, chn, &attr);
    return attr;
}

// A VPSS group in one line: "max WxH rate src/dst nr N dei N dci N contrast N".
inline QString groupState(int grp)
{
    const hi_vpss_grp_attr a = grpAttr(grp);
    auto param = filled<hi_vpss_grp_param>();
    hi_mpi_vpss_get_grp_param(grp, &param);
    return QString("max %1x%2 rate %3/%4 nr %5 dei %6 dci %7 contrast %8")
        .arg(a.max_width).arg(a.max_height).arg(a.frame_rate.src_frame_rate).arg(a.frame_rate.dst_frame_rate)
        .arg(int(a.nr_en)).arg(int(a.dei_mode)).arg(int(a.dci_en)).arg(param.contrast);
}

// A VPSS channel in one line: "on|off WxH user|auto aspect N mirror N flip N
// rotation N", the rotation as its angle code or -1 when off.
inline QString channelState(int grp, int chn)
{
    const hi_vpss_chn_attr a = chnAttr(grp, chn);
    auto rot = filled<hi_rotation_attr>();
    hi_mpi_vpss_get_chn_rotation(grp, chn, &rot);
    return QString("%1 %2x%3 %4 aspect %5 mirror %6 flip %7 rotation %8")
        .arg(vx_model_vpss_chn_enabled(grp, chn) ? "on" : "off").arg(a.width).arg(a.height)
        .arg(a.chn_mode == HI_VPSS_CHN_MODE_USER ? "user" : "auto").arg(int(a.aspect_ratio.mode))
        .arg(int(a.mirror_en)).arg(int(a.flip_en)).arg(rot.enable ? int(rot.rotation_fixed) : -1);
}

} // namespace PlatformTest

#endif // PLATFORMTEST_H
