#ifndef VEXACAPTURE_H
#define VEXACAPTURE_H

#include <QAtomicInteger>

#include "vexaobject.h"
#include "vexaboardmodules_export.h"

class VexaTee;

/**
 * Source module: one VI channel (device "device", pipe of the same number,
 * channel 0) at "width" x "height" and "fps", split through a tee of its
 * own. It sends no packets: its V description (VexaBoard::PictureStream)
 * names the tee, and every module linked to its V output takes a channel
 * of that tee (an encoder, a display, an overlay).
 *
 * Stop disables the channel, stops and destroys the pipe, unbinds the tee's
 * groups and destroys the tee; receivers still holding a tee channel find
 * its group gone and give the channel back as usual.
 *
 * Events: "error" (value: a message) when the platform refuses the capture.
 *
 * Thread: everything runs in the module's worker thread.
 */
class VEXABOARDMODULES_EXPORT VexaCapture : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:device", "int=0; VI device (its pipe has the same number; channel 0)")
    Q_CLASSINFO("setting:width", "int=1920; picture width")
    Q_CLASSINFO("setting:height", "int=1080; picture height")
    Q_CLASSINFO("setting:fps", "int=30; pictures per second taken from the sensor")
    Q_CLASSINFO("setting:sensorFps", "int=30; the sensor's own rate (frame-rate control from it to fps)")
    Q_CLASSINFO("sends", "video events")
    Q_CLASSINFO("accepts", "none")
    Q_CLASSINFO("videoForm", "tee")
    Q_CLASSINFO("event:error", "the platform refused the capture (value: message)")

public:
    Q_INVOKABLE explicit VexaCapture(QObject *parent = nullptr);
    ~VexaCapture() override;

    /** "tee" (id, -1 when stopped), "width", "height", "fps". Thread: thread-safe. */
    Q_INVOKABLE QVariant stats();
    /** Why @p settings cannot work, or an empty string. */
    Q_INVOKABLE QString checkSetup(QVariantMap settings, QVariantMap links);

protected:
    void onStart() override;
    void onStop() override;

private:
    void teardown();

    int dev = 0;
    bool devEnabled = false, pipeCreated = false, pipeStarted = false, chnEnabled = false;
    VexaTee *tee = nullptr;
    QAtomicInteger<int> teeId = -1;
    QAtomicInteger<int> width = 0, height = 0, fps = 0; // read by stats()
};

#endif // VEXACAPTURE_H
