#include "vexaoverlay.h"

#include <QDateTime>
#include <QDebug>
#include <QMutexLocker>
#include <QSize>
#include <QTimer>

#include <cstring>

#include "hi_mpi_tde.h"
#include "hi_mpi_vpss.h"
#include "hivpss.h"
#include "vexaboard.h"
#include "vexahi.h"
#include "vexatee.h"
#include "vexateechn.h"
#include "vx_mpi.h"

namespace {

// A 5x7 dot font: seven rows per character, bit 4 the leftmost dot.
struct Glyph {
    char c;
    quint8 rows[7];
};

const Glyph font[] = {
    {'0', {0x0e, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0e}}, {'1', {0x04, 0x0c, 0x04, 0x04, 0x04, 0x04, 0x0e}},
    {'2', {0x0e, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1f}}, {'3', {0x1f, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0e}},
    {'4', {0x02, 0x06, 0x0a, 0x12, 0x1f, 0x02, 0x02}}, {'5', {0x1f, 0x10, 0x1e, 0x01, 0x01, 0x11, 0x0e}},
    {'6', {0x06, 0x08, 0x10, 0x1e, 0x11, 0x11, 0x0e}}, {'7', {0x1f, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0e, 0x11, 0x11, 0x0e, 0x11, 0x11, 0x0e}}, {'9', {0x0e, 0x11, 0x11, 0x0f, 0x01, 0x02, 0x0c}},
    {'-', {0x00, 0x00, 0x00, 0x1f, 0x00, 0x00, 0x00}}, {':', {0x00, 0x0c, 0x0c, 0x00, 0x0c, 0x0c, 0x00}},
    {'/', {0x01, 0x01, 0x02, 0x04, 0x08, 0x10, 0x10}}, {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0c, 0x0c}},
};

const quint8 *glyphOf(QChar c)
{
    for (const Glyph &g : font) {
        if (c == QLatin1Char(g.c))
            return g.rows;
    }
    return nullptr; // a gap
}

constexpr unsigned char kInk = 235, kPaper = 16, kNeutral = 128;
// Milliseconds between two looks at the channel.
constexpr int kPollMs = 5;

int margin(int scale)
{
    return 2 * scale;
}

QString hex(hi_s32 status)
{
    return QString::number(uint(status), 16).prepend("0x");
}

} // namespace

VexaOverlay::VexaOverlay(QObject *parent)
    : VexaObject(parent)
{
    directInvokeNames << "stats";
}

VexaOverlay::~VexaOverlay()
{
    detach(false);
}

QSize VexaOverlay::boxSize(const QString &text, int scale)
{
    const int w = 2 * margin(scale) + qMax(1, text.size()) * 6 * scale - scale;
    const int h = 2 * margin(scale) + 7 * scale;
    return QSize((w + 1) & ~1, (h + 1) & ~1);
}

QVariant VexaOverlay::stats()
{
    return QVariantMap{{"pictures", pictures.loadRelaxed()}, {"tee", teeId.loadRelaxed()}};
}

QString VexaOverlay::checkSetup(QVariantMap s, QVariantMap)
{
    const int sc = s.value("scale", 2).toInt();
    if (sc < 1 || sc > 16)
        return QStringLiteral("scale %1 is outside 1-16").arg(sc);
    if (s.value("x", 16).toInt() < 0 || s.value("y", 16).toInt() < 0)
        return QStringLiteral("the text box's corner (%1, %2) is outside the picture")
            .arg(s.value("x", 16).toInt()).arg(s.value("y", 16).toInt());
    if (s.value("clock", "yyyy-MM-dd hh:mm:ss").toString().isEmpty())
        return QStringLiteral("\"clock\" is empty: there is nothing to draw");
    return QString();
}

void VexaOverlay::fail(const QString &message)
{
    qDebug("%s: %s", qPrintable(name()), qPrintable(message));
    sendEvent("error", message);
}

void VexaOverlay::onStart()
{
    const QString problem = checkSetup(settings, {});
    if (!problem.isEmpty()) {
        fail(problem);
        return;
    }
    if (inInfoV.type == VexaBoard::PictureStream)
        attach(inInfoV.params);
}

void VexaOverlay::onStop()
{
    detach(true);
}

void VexaOverlay::onNewInfoV(StreamInfo info)
{
    if (getState() != QLatin1String("started"))
        return;
    // The description taken at start can arrive once more (parked before start).
    if (input && info.type == VexaBoard::PictureStream && info.params == attachedTo)
        return;
    detach(true);
    if (info.type == VexaBoard::PictureStream)
        attach(info.params);
    else if (info.type != 0)
        fail(QStringLiteral("its video input offers no tee (a compressed stream): link a capture or a decoder to it"));
}

void VexaOverlay::onUnLinkV(StreamInfo)
{
    detach(true);
}

bool VexaOverlay::attach(const QVariantMap &source)
{
    const int sourceTee = source.value("tee", -1).toInt();
    VexaTee *from = VexaHi::getTee(sourceTee);
    if (!from) {
        fail(QStringLiteral("tee %1 does not exist").arg(sourceTee));
        return false;
    }
    width = source.value("width").toInt();
    height = source.value("height").toInt();
    scale = settings.value("scale", 2).toInt();
    const QString text = QDateTime::currentDateTime().toString(settings.value("clock", "yyyy-MM-dd hh:mm:ss").toString());
    const QSize box = boxSize(text, scale);
    if (box.width() > width || box.height() > height) {
        fail(QStringLiteral("a %1x%2 text box does not fit into %3x%4 pictures").arg(box.width()).arg(box.height())
                 .arg(width).arg(height));
        return false;
    }
    // The box stays inside the picture, on even pixels.
    boxX = qMin(settings.value("x", 16).toInt(), width - box.width()) & ~1;
    boxY = qMin(settings.value("y", 16).toInt(), height - box.height()) & ~1;

    // Pictures of the source's size, taken by this module (user mode).
    input = from->newChn(true);
    if (!input || !input->resizeChn(width, height, false) || !input->vpss || !input->vpss->setDepth(input->chn, 2)) {
        fail(QStringLiteral("tee %1 gave no user channel for %2x%3").arg(sourceTee).arg(width).arg(height));
        detach(false);
        return false;
    }
    const hi_s32 ret = hi_tde_open();
    tdeOpen = ret == 0;
    if (ret != 0) {
        fail(QStringLiteral("hi_tde_open failed with %1").arg(hex(ret)));
        detach(false);
        return false;
    }
    tee = VexaHi::newTee(HI_ID_BUTT, 0, 0);
    teeId = tee->getId();
    attachedTo = source;
    blitFailed = false;
    drawn.clear();
    timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &VexaOverlay::poll);
    timer->start(kPollMs);
    qDebug("%s: clock at %d,%d on tee %d's pictures, offered through tee %d", qPrintable(name()), boxX, boxY, sourceTee,
           tee->getId());
    outInfoV.type = VexaBoard::PictureStream;
    outInfoV.params = VexaBoard::pictureParams(tee->getId(), width, height, source.value("fps").toInt());
    sendInfoV(outInfoV);
    return true;
}

void VexaOverlay::detach(bool announce)
{
    delete timer;
    timer = nullptr;
    if (tee) {
        VexaBoard::releasePictureTee(tee);
        teeId = -1;
    }
    VexaBoard::releaseTeeChn(input);
    if (tdeOpen)
        hi_tde_close();
    tdeOpen = false;
    if (boxVirt) {
        VexaHi::mmzFree(boxPhys, boxVirt);
        boxVirt = nullptr;
        boxPhys = 0;
    }
    attachedTo.clear();
    if (announce && outInfoV.type) {
        outInfoV = StreamInfo();
        sendInfoV(outInfoV);
    }
}

bool VexaOverlay::drawText(const QString &text)
{
    const QSize box = boxSize(text, scale);
    if (box.width() > width - boxX || box.height() > height - boxY)
        return false;
    if (!boxVirt || box.width() != boxW || box.height() != boxH) {
        if (boxVirt)
            VexaHi::mmzFree(boxPhys, boxVirt);
        boxVirt = nullptr;
        boxW = box.width();
        boxH = box.height();
        boxStride = (boxW + 15) & ~15;
        const hi_s32 ret = VexaHi::mmzAlloc(&boxPhys, &boxVirt, unsigned(boxStride * boxH * 3 / 2), false, "overlay", nullptr);
        if (ret != 0 || !boxVirt) {
            boxVirt = nullptr;
            fail(QStringLiteral("no media memory for a %1x%2 text box (%3)").arg(boxW).arg(boxH).arg(hex(ret)));
            return false;
        }
    }
    auto *luma = static_cast<unsigned char *>(boxVirt);
    std::memset(luma, kPaper, size_t(boxStride * boxH));
    std::memset(luma + boxStride * boxH, kNeutral, size_t(boxStride * boxH / 2));
    const int m = margin(scale);
    for (int i = 0; i < text.size(); ++i) {
        const quint8 *rows = glyphOf(text.at(i));
        if (!rows)
            continue;
        for (int r = 0; r < 7; ++r) {
            for (int c = 0; c < 5; ++c) {
                if (!(rows[r] & (0x10 >> c)))
                    continue;
                for (int dy = 0; dy < scale; ++dy) {
                    unsigned char *line = luma + (m + r * scale + dy) * boxStride + m + (i * 6 + c) * scale;
                    std::memset(line, kInk, size_t(scale));
                }
            }
        }
    }
    drawn = text;
    return true;
}

void VexaOverlay::poll()
{
    if (!input || !input->vpss)
        return;
    const int grp = input->vpss->getId(), chn = input->chn;
    hi_video_frame_info info;
    while (input && hi_mpi_vpss_get_chn_frame(grp, chn, &info, 0) == 0) {
        const hi_video_frame &f = info.video_frame;
        const QString text = QDateTime::currentDateTime().toString(settings.value("clock", "yyyy-MM-dd hh:mm:ss").toString());
        if (!blitFailed && (text == drawn || drawText(text)) && int(f.width) >= boxX + boxW && int(f.height) >= boxY + boxH) {
            hi_tde_surface box = {};
            box.phys_addr = boxPhys;
            box.color_format = HI_TDE_COLOR_FORMAT_JPG_YCbCr420MBP;
            box.width = hi_u32(boxW);
            box.height = hi_u32(boxH);
            box.stride = hi_u32(boxStride);
            box.phys_len = hi_u32(boxStride * boxH);
            box.cbcr_phys_addr = boxPhys + unsigned(boxStride * boxH);
            box.cbcr_stride = hi_u32(boxStride);
            box.cbcr_phys_len = hi_u32(boxStride * boxH / 2);
            hi_tde_surface picture = {};
            picture.phys_addr = f.phys_addr[0];
            picture.color_format = HI_TDE_COLOR_FORMAT_JPG_YCbCr420MBP;
            picture.width = f.width;
            picture.height = f.height;
            picture.stride = f.stride[0];
            picture.phys_len = f.stride[0] * f.height;
            picture.cbcr_phys_addr = f.phys_addr[1];
            picture.cbcr_stride = f.stride[1];
            picture.cbcr_phys_len = f.stride[1] * f.height / 2;
            // The box is copied over the picture (no blending): the text stays readable on any picture.
            hi_tde_opt opt = {};
            const hi_s32 job = hi_tde_begin_job();
            hi_s32 ret = job < 0 ? job : vx_tde_bit_blit(job, box, picture, {0, 0, hi_u32(boxW), hi_u32(boxH)},
                                                          {boxX, boxY, hi_u32(boxW), hi_u32(boxH)}, opt);
            if (job >= 0) {
                if (ret == 0)
                    ret = hi_tde_end_job(job, HI_TRUE, HI_TRUE, 100);
                else
                    hi_tde_cancel_job(job);
            }
            if (ret != 0) {
                blitFailed = true;
                fail(QStringLiteral("the 2D engine refused the text box (%1): pictures go on without it").arg(hex(ret)));
            }
        }
        // Into the own tee's first group; its other groups cascade from it.
        int out = -1;
        {
            QMutexLocker locker(&VexaTee::mutex);
            if (tee && !tee->vpssList.isEmpty())
                out = tee->vpssList.first()->getId();
        }
        if (out >= 0 && hi_mpi_vpss_send_frame(out, &info, 20) == 0)
            pictures.ref();
        hi_mpi_vpss_release_chn_frame(grp, chn, &info);
    }
}
