#ifndef VEXAOVERLAY_H
#define VEXAOVERLAY_H

#include <QAtomicInteger>
#include <QString>

#include "vexaobject.h"
#include "vexaboardmodules_export.h"

class QTimer;
class VexaTee;
class VexaTeeChn;

/**
 * Overlay module: draws a clock onto the pictures of a tee with the 2D
 * engine and offers the result through a tee of its own. It takes a
 * user-mode channel of the tee its V input describes (at the source's
 * size), draws the text box into each picture in place with
 * vx_tde_bit_blit (the box is a YCbCr surface in media memory, redrawn
 * when the text changes), and sends the picture into the first VPSS group
 * of its own tee, which receivers (a display, an encoder) take channels of
 * as from a capture's.
 *
 * Settings: "clock" (the text as QDateTime::toString() writes it: digits,
 * '-', ':', '/', '.' and spaces are drawn, other characters leave a gap),
 * "x", "y" (the box's top-left corner in the picture), "scale" (pixels per
 * dot of the 5x7 font).
 *
 * The channel is polled in the module's thread (every few milliseconds,
 * every waiting picture at once). Stop, unlink and a description without a
 * tee give back, in this order: the polling, the own tee (its groups'
 * inputs unbound first), the source's tee channel, the text surface.
 *
 * Events: "error" (value: a message) when the tee does not exist or the
 * platform refuses a channel, the media memory or a blit.
 *
 * Thread: everything but stats() runs in the module's worker thread.
 */
class VEXABOARDMODULES_EXPORT VexaOverlay : public VexaObject
{
    Q_OBJECT
    Q_CLASSINFO("setting:clock", "string=yyyy-MM-dd hh:mm:ss; the clock's text (QDateTime format)")
    Q_CLASSINFO("setting:x", "int=16; left edge of the text box in the picture")
    Q_CLASSINFO("setting:y", "int=16; top edge of the text box in the picture")
    Q_CLASSINFO("setting:scale", "int=2; pixels per dot of the 5x7 font (1 to 16)")
    Q_CLASSINFO("sends", "video events")
    Q_CLASSINFO("accepts", "video")
    Q_CLASSINFO("videoInput", "tee")
    Q_CLASSINFO("videoForm", "tee")
    Q_CLASSINFO("event:error", "the overlay could not be set up or drawn (value: message)")

public:
    Q_INVOKABLE explicit VexaOverlay(QObject *parent = nullptr);
    ~VexaOverlay() override;

    /** "pictures" (drawn and sent on), "tee" (its own, -1 when none). Thread: thread-safe. */
    Q_INVOKABLE QVariant stats();
    /** Why @p settings cannot work, or an empty string. */
    Q_INVOKABLE QString checkSetup(QVariantMap settings, QVariantMap links);

    /** The text box's size for @p text at @p scale. */
    static QSize boxSize(const QString &text, int scale);

protected:
    void onStart() override;
    void onStop() override;
    void onNewInfoV(StreamInfo info) override;
    void onUnLinkV(StreamInfo info) override;

private:
    bool attach(const QVariantMap &source);
    void detach(bool announce);
    void fail(const QString &message);
    void poll();
    bool drawText(const QString &text);

    VexaTeeChn *input = nullptr;
    VexaTee *tee = nullptr;
    QTimer *timer = nullptr;
    QVariantMap attachedTo;
    int width = 0, height = 0, boxX = 0, boxY = 0, scale = 2;
    // The text box: a semi-planar YCbCr surface in media memory.
    unsigned int boxPhys = 0;
    void *boxVirt = nullptr;
    int boxW = 0, boxH = 0, boxStride = 0;
    QString drawn;
    bool blitFailed = false;
    bool tdeOpen = false;

    QAtomicInteger<qint64> pictures = 0;
    QAtomicInteger<int> teeId = -1;
};

#endif // VEXAOVERLAY_H
