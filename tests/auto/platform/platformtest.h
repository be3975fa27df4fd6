#ifndef PLATFORMTEST_H
#define PLATFORMTEST_H

// Helpers shared by the platform glue's tests.

#include <QString>
#include <QStringList>

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

// "{mod,dev,chn}" of whatever feeds the destination, or "none".
QString boundSource(int mod, int dev, int chn);

} // namespace PlatformTest

#include "hi_mpi_sys.h"

inline QString PlatformTest::boundSource(int mod, int dev, int chn)
{
    hi_mpp_chn dst = {static_cast<hi_mod_id>(mod), dev, chn};
    hi_mpp_chn src;
    if (hi_mpi_sys_get_bind_by_dst(&dst, &src) != 0)
        return QStringLiteral("none");
    return QStringLiteral("{%1,%2,%3}").arg(static_cast<int>(src.mod_id)).arg(src.dev_id).arg(src.chn_id);
}

#endif // PLATFORMTEST_H
