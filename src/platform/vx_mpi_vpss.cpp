// VPSS helpers shared by the group and channel classes.

#include "vx_mpi_vpss_p.h"

#include <cstring>

#include "hi_mpi_vpss.h"
#include "vxenum_p.h"

namespace {

// The platform counts fixed rotations in quarter turns.
const int kDegreesPerQuarterTurn = 90;

} // namespace

hi_s32 vx_mpi_vpss_set_rotation(int grp, int chn, int degrees)
{
    hi_rotation_attr rot;
    std::memset(&rot, 0, sizeof(rot));
    rot.enable = degrees != 0 ? HI_TRUE : HI_FALSE;
    rot.rotation_type = HI_ROTATION_ANG_FIXED;
    vxSetEnum(rot.rotation_fixed, degrees / kDegreesPerQuarterTurn);
    return hi_mpi_vpss_set_chn_rotation(grp, chn, &rot);
}
