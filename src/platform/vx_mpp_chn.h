#ifndef VX_MPP_CHN_H
#define VX_MPP_CHN_H

/**
 * A platform channel address: module id, device id, channel id, the same
 * triple as the platform's own channel address record. Module id 7
 * (HI_ID_VPSS) is the VPSS; module id 87 (HI_ID_BUTT, one past the last
 * module) stands for "no source".
 */
struct vx_mpp_chn {
    int mod_id;
    int dev_id;
    int chn_id;
};

#endif // VX_MPP_CHN_H
