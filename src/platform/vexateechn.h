#ifndef VEXATEECHN_H
#define VEXATEECHN_H

#include <QObject>
#include <QPointer>

#include "hi_common_video.h"
#include "vexabase_export.h"
#include "vx_mpp_chn.h"

class HiVpss;

/**
 * One output of a tee: one channel of one VPSS group. Made by
 * VexaTee::newChn; owned by the module that asked for it, which destroys it
 * before the tee. Destruction disables the channel.
 *
 * Crop applies to the whole group, so to every output of that group.
 *
 * Thread: resizeChn, enableChn and setPixelFormat are thread-safe
 * (VexaTee::mutex); rotateChn, crop, setMirror and setFlip take no lock.
 */
class VEXABASE_EXPORT VexaTeeChn : public QObject
{
    Q_OBJECT

public:
    explicit VexaTeeChn(QObject *parent = nullptr);
    ~VexaTeeChn() override;

    /** (7, group id, channel number): the address to bind from. */
    vx_mpp_chn getChn();
    bool resizeChn(int width, int height, bool keepAspect);
    /** Enables or disables the hardware channel directly; the group's record is not changed. Always true. */
    bool enableChn(bool on);
    /** Fixed rotation by @p degrees (multiples of 90); 0 turns rotation off. Always true. */
    bool rotateChn(int degrees);
    /**
     * Crops the group's input. With @p pixels the values are absolute;
     * otherwise fractions 0.0-1.0 of the picture. A width or height of 0
     * turns cropping off. Always true.
     */
    bool crop(double x, double y, double width, double height, bool pixels);
    bool setPixelFormat(ot_pixel_format format);
    void setMirror(bool on);
    void setFlip(bool on);
    /** Accepted and ignored. Always true. */
    bool setCompress(int mode);

    int chn = -1;
    /** The group of the channel, not owned; null once the group is gone. */
    QPointer<HiVpss> vpss;

private:
    bool hasGroup(const char *method) const;
};

#endif // VEXATEECHN_H
