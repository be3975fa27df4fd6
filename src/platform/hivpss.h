#ifndef HIVPSS_H
#define HIVPSS_H

#include <QObject>

#include "hi_common_video.h"
#include "vexabase_export.h"

/**
 * One VPSS group with its four channels. The constructor creates and
 * starts a group under the first free group id from 4 up; the destructor
 * disables the channels and destroys the group.
 *
 * The channel records mirror what was last set on the hardware so that the
 * group can be rebuilt at a larger maximum size (setMax).
 *
 * Failures are reported by the debug messages named at each call and by the
 * results; a group whose creation failed keeps answering, and its calls fail
 * at the platform.
 *
 * Thread: not thread-safe; VexaTee and VexaTeeChn serialise their calls with
 * VexaTee::mutex.
 */
class VEXABASE_EXPORT HiVpss : public QObject
{
    Q_OBJECT

public:
    /** What was last set on one channel. */
    struct Channel {
        bool enabled = false;
        bool userMode = false; // the mode enableChn was last given
        int width = -1;
        int height = -1;
        int spare = -1; // kept for the record's layout; not used
        int rotation = 0; // degrees
        bool keepAspect = false;
        bool flip = false;
        bool mirror = false;
    };

    static const int channelCount = 4;
    /** The size every group starts with and every channel is enabled at. */
    static constexpr int defaultWidth = 1920;
    static constexpr int defaultHeight = 1080;

    explicit HiVpss(QObject *parent = nullptr);
    ~HiVpss() override;

    /** Picks a group id, creates and starts the group. Returns the id or -1. */
    int init();
    /**
     * The first group id from 4 to 255 the platform reports as not existing,
     * or -1. Ids 0-3 are left to other users of the VPSS.
     */
    static int requestID();
    int getId();

    /** Enables the first disabled channel and returns its number; -1 when all four run. */
    int newChn(bool userMode);
    /** Sets the channel to 1920x1080 in user or auto mode and enables it. */
    bool enableChn(int chn, bool userMode);
    /** Disables the channel, ignoring the platform's answer. Always true. */
    bool disableChn(int chn);
    /** Grows the group if needed (setMax), then sets the channel's size and aspect mode. */
    bool resizeChn(int chn, int width, int height, bool keepAspect);
    /**
     * Grows the group's maximum size. The group is destroyed and created
     * again under the same id, its crop restored and its enabled channels
     * re-enabled at 1920x1080 with their mirror, flip and rotation (their
     * earlier size and aspect mode are not restored).
     */
    void setMax(int width, int height);
    /** Output frame rate @p dst from input rate @p src (-1: 30); dst -1 turns rate control off. */
    bool setFramerate(int dst, int src);
    bool setDepth(int chn, int depth);
    bool setPixelFormat(int chn, ot_pixel_format format);
    void setMirror(int chn, bool on);
    void setFlip(int chn, bool on);
    bool setDelay(int delay);
    /** Contrast level @p level and dynamic contrast on when level > 0; failures ignored. */
    void setParam(int level);
    void enableNR();
    void enableDIE();

    int maxWidth = defaultWidth;
    int maxHeight = defaultHeight;
    int grp = -1;
    Channel chns[channelCount];

private:
    bool validChn(int chn, const char *method) const;
};

#endif // HIVPSS_H
