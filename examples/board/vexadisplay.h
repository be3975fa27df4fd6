#ifndef VEXADISPLAY_H
#define VEXADISPLAY_H

#include <QAtomicInteger>
#include <QMap>
#include <QVector>

#include "vexaobject.h"
#include "vexaboardmodules_export.h"

class VexaTeeChn;

/**
 * Display module: a VO device and its video layer showing every picture
 * source linked to its V input (captures, decoders: modules that describe a
 * tee, VexaBoard::PictureStream) as one cell of a mosaic. "channels" VO
 * channels are laid out as the smallest square grid that holds them (1: the
 * whole screen, 2 to 4: 2x2, 5 to 9: 3x3, ...); each source takes the first
 * free cell when its tee is described, a channel of that tee sized for the
 * cell, bound to its VO channel with VexaHi::bindFromTee.
 *
 * Settings: "device" (VO device), "layer" (-1: the device's own layer),
 * "output" (the interface timing; "user": "width" x "height" at 30 pictures
 * per second), "interface" (hdmi, vga, bt1120, cvbs), "fps" (the layer's
 * display rate, 0: the timing's), "latency" (normal: four queued frames;
 * low: three and a short display threshold, through the library's helpers),
 * "background" (0xRRGGBB where no channel is), "channels", "layout" (source
 * module names in cell order, comma-separated: a named source always takes
 * its own cell; the others take the first cell neither held nor named).
 *
 * On the board the screen is the device's interface; on a PC the platform
 * model writes it to the file named by the environment variable
 * VEXA_TWIN_VO<device> (e.g. VEXA_TWIN_VO0=screen.mkv), see docs/twin.md.
 *
 * A source that stops (a description without a tee), is unlinked, or the
 * module stopping gives its cell back: the binding is cleared, the VO
 * channel disabled and the tee channel deleted; at stop the layer and the
 * device are disabled after every channel.
 *
 * Events: "error" (value: a message) when the platform refuses the screen,
 * a tee does not exist or more sources come than the display has channels.
 *
 * Thread: everything but stats() runs in the module's worker thread. Start
 * the display before its sources (as vexa-launch does): descriptions that
 * arrive before the start are kept for one source only.
 */
class VEXABOARDMODULES_EXPORT VexaDisplay : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:device", "int=0; VO device")
    Q_CLASSINFO("setting:layer", "int=-1; video layer (-1: the device's own)")
    Q_CLASSINFO("setting:output", "enum(1080p30|1080p60|1080p25|1080p50|720p60|720p50|576p50|480p60|2160p30|user)=1080p30; interface timing (user: width x height at 30)")
    Q_CLASSINFO("setting:width", "int=1920; screen width of the user timing")
    Q_CLASSINFO("setting:height", "int=1080; screen height of the user timing")
    Q_CLASSINFO("setting:interface", "enum(hdmi|vga|bt1120|cvbs)=hdmi; the device's interface")
    Q_CLASSINFO("setting:fps", "int=0; display rate of the layer (0: the timing's)")
    Q_CLASSINFO("setting:latency", "enum(normal|low)=normal; frames queued per channel (normal 4, low 3)")
    Q_CLASSINFO("setting:background", "int=0; screen colour where no channel is (0xRRGGBB)")
    Q_CLASSINFO("setting:channels", "int=4; VO channels, one per source, as a square mosaic (at most 64)")
    Q_CLASSINFO("setting:layout", "string; source module names in cell order, comma-separated (others: the first free cell)")
    Q_CLASSINFO("sends", "events")
    Q_CLASSINFO("accepts", "video")
    Q_CLASSINFO("videoInput", "tee")
    Q_CLASSINFO("event:error", "the screen or a source cannot be shown (value: message)")

public:
    Q_INVOKABLE explicit VexaDisplay(QObject *parent = nullptr);
    ~VexaDisplay() override;

    /** "inputs" (sources shown), "channels", "width", "height", "device", "layer". Thread: thread-safe. */
    Q_INVOKABLE QVariant stats();
    /** Why @p settings cannot work (or more V inputs than channels in @p links), or an empty string. */
    Q_INVOKABLE QString checkSetup(QVariantMap settings, QVariantMap links);

    /** Columns (and rows) of the square mosaic holding @p channels cells. */
    static int gridSize(int channels);

protected:
    void onStart() override;
    void onStop() override;
    void onNewInfoV(StreamInfo info) override;
    void onUnLinkV(StreamInfo info) override;

private:
    struct Cell {
        VexaTeeChn *teeChn = nullptr;
        bool enabled = false;   // the VO channel
        QVariantMap shown;      // the tee description it shows
    };

    bool openScreen();
    void closeScreen();
    int cellFor(VexaObject *source) const;
    bool attach(int cell, const QVariantMap &source);
    void detach(int cell);
    void fail(const QString &message);

    int dev = 0, layer = 0, cells = 4, grid = 2, screenW = 0, screenH = 0;
    bool devEnabled = false, layerBound = false, layerEnabled = false;
    QStringList layout;              // source names in cell order
    QMap<VexaObject *, int> cellOf;  // the cell each source was given
    QVector<Cell> cellList;

    QAtomicInteger<int> shownCount = 0, widthNow = 0, heightNow = 0, channelCount = 0, devNow = -1, layerNow = -1;
};

#endif // VEXADISPLAY_H
