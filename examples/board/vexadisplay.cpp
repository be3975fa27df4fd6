#include "vexadisplay.h"

#include <QDebug>

#include "hi_mpi_vo.h"
#include "vexaboard.h"
#include "vexahi.h"
#include "vexatee.h"
#include "vexateechn.h"
#include "vx_mpi.h"

namespace {

struct Timing {
    const char *name;
    hi_vo_intf_sync sync;
    int width, height;
};

const Timing timings[] = {
    {"1080p30", HI_VO_OUT_1080P30, 1920, 1080}, {"1080p60", HI_VO_OUT_1080P60, 1920, 1080},
    {"1080p25", HI_VO_OUT_1080P25, 1920, 1080}, {"1080p50", HI_VO_OUT_1080P50, 1920, 1080},
    {"720p60", HI_VO_OUT_720P60, 1280, 720},    {"720p50", HI_VO_OUT_720P50, 1280, 720},
    {"576p50", HI_VO_OUT_576P50, 720, 576},     {"480p60", HI_VO_OUT_480P60, 720, 480},
    {"2160p30", HI_VO_OUT_3840x2160_30, 3840, 2160},
};

// The largest number of VO channels one layer shows here (an 8x8 mosaic).
constexpr int kMaxChannels = 64;
// The smallest picture a tee channel makes.
constexpr int kMinChannelSize = 64;

const Timing *findTiming(const QString &name)
{
    for (const Timing &t : timings) {
        if (name == QLatin1String(t.name))
            return &t;
    }
    return nullptr;
}

hi_vo_intf_type interfaceBits(const QString &name)
{
    if (name == QLatin1String("vga"))
        return HI_VO_INTF_VGA;
    if (name == QLatin1String("bt1120"))
        return HI_VO_INTF_BT1120;
    if (name == QLatin1String("cvbs"))
        return HI_VO_INTF_CVBS;
    return HI_VO_INTF_HDMI;
}

QString hex(hi_s32 status)
{
    return QString::number(uint(status), 16).prepend("0x");
}

} // namespace

VexaDisplay::VexaDisplay(QObject *parent)
    : VexaObject(parent)
{
    directInvokeNames << "stats";
}

VexaDisplay::~VexaDisplay()
{
    closeScreen();
}

int VexaDisplay::gridSize(int channels)
{
    int n = 1;
    while (n * n < channels)
        ++n;
    return n;
}

QVariant VexaDisplay::stats()
{
    return QVariantMap{{"inputs", shownCount.loadRelaxed()}, {"channels", channelCount.loadRelaxed()},
                       {"width", widthNow.loadRelaxed()}, {"height", heightNow.loadRelaxed()},
                       {"device", devNow.loadRelaxed()}, {"layer", layerNow.loadRelaxed()}};
}

QString VexaDisplay::checkSetup(QVariantMap s, QVariantMap links)
{
    const int d = s.value("device", 0).toInt(), l = s.value("layer", -1).toInt();
    if (d < 0 || d >= HI_VO_MAX_DEV_NUM)
        return QStringLiteral("VO device %1 does not exist (0 to %2)").arg(d).arg(HI_VO_MAX_DEV_NUM - 1);
    if (l < -1 || l >= HI_VO_MAX_LAYER_NUM)
        return QStringLiteral("video layer %1 does not exist (0 to %2, or -1 for the device's own)").arg(l).arg(HI_VO_MAX_LAYER_NUM - 1);
    const QString output = s.value("output", "1080p30").toString();
    if (output == QLatin1String("user")) {
        const int w = s.value("width", 1920).toInt(), h = s.value("height", 1080).toInt();
        if (w < 64 || h < 64 || w > 4096 || h > 4096 || w % 2 || h % 2)
            return QStringLiteral("the display cannot show a %1x%2 screen (even sizes from 64x64 to 4096x4096)").arg(w).arg(h);
    } else if (!findTiming(output)) {
        return QStringLiteral("unknown output timing \"%1\"").arg(output);
    }
    const int fps = s.value("fps", 0).toInt();
    if (fps < 0 || fps > 240)
        return QStringLiteral("fps %1 is outside 0-240").arg(fps);
    const int n = s.value("channels", 4).toInt();
    if (n < 1 || n > kMaxChannels)
        return QStringLiteral("the display can have 1 to %1 channels, not %2").arg(kMaxChannels).arg(n);
    const int named = s.value("layout").toString().split(QLatin1Char(','), Qt::SkipEmptyParts).size();
    if (named > n)
        return QStringLiteral("\"layout\" names %1 sources for %2 channels").arg(named).arg(n);
    const int inputs = links.value("inputsV", 0).toInt();
    if (inputs > n) {
        const int g = gridSize(inputs);
        return QStringLiteral("the display has %1 channel%2 and %3 inputs: set \"channels\" to %3 or more (a %4x%4 mosaic), "
                              "or link fewer sources").arg(n).arg(n == 1 ? "" : "s").arg(inputs).arg(g);
    }
    return QString();
}

void VexaDisplay::fail(const QString &message)
{
    qDebug("%s: %s", qPrintable(name()), qPrintable(message));
    sendEvent("error", message);
}

void VexaDisplay::onStart()
{
    const QString problem = checkSetup(settings, {});
    if (!problem.isEmpty()) {
        fail(problem);
        return;
    }
    if (!openScreen())
        return;
    // A source described before the start (parked) shows at once.
    if (inInfoV.type == VexaBoard::PictureStream && inInfoV.sender)
        onNewInfoV(inInfoV);
}

void VexaDisplay::onStop()
{
    closeScreen();
}

bool VexaDisplay::openScreen()
{
    dev = settings.value("device", 0).toInt();
    layer = settings.value("layer", -1).toInt();
    if (layer < 0)
        layer = dev;
    cells = settings.value("channels", 4).toInt();
    layout.clear();
    for (const QString &n : settings.value("layout").toString().split(QLatin1Char(',')))
        layout << n.trimmed();
    grid = gridSize(cells);
    const QString output = settings.value("output", "1080p30").toString();

    hi_vo_pub_attr pub = {};
    pub.bg_color = hi_u32(settings.value("background", 0).toLongLong()) & 0xffffffu;
    pub.intf_type = interfaceBits(settings.value("interface", "hdmi").toString());
    if (const Timing *t = findTiming(output)) {
        pub.intf_sync = t->sync;
        screenW = t->width;
        screenH = t->height;
    } else {
        screenW = settings.value("width", 1920).toInt();
        screenH = settings.value("height", 1080).toInt();
        pub.intf_sync = HI_VO_OUT_USER;
        pub.sync_info.hact = hi_u16(screenW);
        pub.sync_info.vact = hi_u16(screenH);
        pub.sync_info.iop = HI_TRUE;
    }

    hi_vo_video_layer_attr attr = {};
    attr.display_rect = {0, 0, hi_u32(screenW), hi_u32(screenH)};
    attr.img_size = {hi_u32(screenW), hi_u32(screenH)};
    attr.display_frame_rate = hi_u32(settings.value("fps", 0).toInt());
    attr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;

    // The board's order: device timing, device, layer attribute, layer.
    const char *step = "hi_mpi_vo_set_pub_attr";
    hi_s32 ret = hi_mpi_vo_set_pub_attr(dev, &pub);
    if (ret == 0 && (ret = hi_mpi_vo_enable(dev)) != 0)
        step = "hi_mpi_vo_enable";
    devEnabled = ret == 0;
    if (ret == 0 && layer != dev) {
        if ((ret = hi_mpi_vo_bind_layer(layer, dev)) != 0)
            step = "hi_mpi_vo_bind_layer";
        layerBound = ret == 0;
    }
    if (ret == 0) {
        if (settings.value("latency", "normal").toString() == QLatin1String("low")) {
            if ((ret = vx_mpi_vo_set_low_Latency(attr, dev)) != 0)
                step = "hi_mpi_vo_set_vtth";
        } else {
            vx_mpi_vo_set_normal_Latency(attr, dev);
        }
    }
    if (ret == 0 && (ret = hi_mpi_vo_set_video_layer_attr(layer, &attr)) != 0)
        step = "hi_mpi_vo_set_video_layer_attr";
    if (ret == 0 && (ret = hi_mpi_vo_enable_video_layer(layer)) != 0)
        step = "hi_mpi_vo_enable_video_layer";
    layerEnabled = ret == 0;
    if (ret != 0) {
        const QString msg = QStringLiteral("VO device %1, layer %2 (%3x%4): %5 failed with %6")
                                .arg(dev).arg(layer).arg(screenW).arg(screenH).arg(step, hex(ret));
        closeScreen();
        fail(msg);
        return false;
    }
    cellList.fill(Cell(), cells);
    widthNow = screenW;
    heightNow = screenH;
    channelCount = cells;
    devNow = dev;
    layerNow = layer;
    qDebug("%s: VO device %d, layer %d, %dx%d, %d channels in a %dx%d mosaic", qPrintable(name()), dev, layer, screenW,
           screenH, cells, grid, grid);
    return true;
}

void VexaDisplay::closeScreen()
{
    // Channels first (unbound before they go), then the layer, then the device.
    for (int i = 0; i < cellList.size(); ++i)
        detach(i);
    cellList.clear();
    cellOf.clear();
    if (layerEnabled)
        hi_mpi_vo_disable_video_layer(layer);
    if (layerBound)
        hi_mpi_vo_unbind_layer(layer, dev);
    // Disabling the device finishes its screen (a file on the platform model).
    if (devEnabled)
        hi_mpi_vo_disable(dev);
    layerEnabled = layerBound = devEnabled = false;
    shownCount = 0;
    channelCount = 0;
    devNow = -1;
    layerNow = -1;
}

void VexaDisplay::onNewInfoV(StreamInfo info)
{
    if (getState() != QLatin1String("started") || !layerEnabled || !info.sender)
        return;
    int cell = cellOf.value(info.sender, -1);
    // The description taken at start can arrive once more (parked before start).
    if (cell >= 0 && info.type == VexaBoard::PictureStream && cellList.at(cell).teeChn && cellList.at(cell).shown == info.params)
        return;
    if (cell >= 0)
        detach(cell);
    if (info.type != VexaBoard::PictureStream) {
        // A source without pictures (stopped) gives its cell back; one named
        // in "layout" finds it again when it comes back.
        cellOf.remove(info.sender);
        if (info.type != 0)
            fail(QStringLiteral("%1 offers no tee (a compressed stream): link a capture or a decoder to the display")
                     .arg(info.sender->name()));
        return;
    }
    if (cell < 0) {
        cell = cellFor(info.sender);
        if (cell < 0) {
            fail(QStringLiteral("the display has %1 channels, all showing or kept for other sources: %2 is not shown")
                     .arg(cells).arg(info.sender->name()));
            return;
        }
        cellOf.insert(info.sender, cell);
    }
    attach(cell, info.params);
}

int VexaDisplay::cellFor(VexaObject *source) const
{
    const QList<int> taken = cellOf.values();
    const int named = layout.indexOf(source->name());
    if (named >= 0)
        return named < cells && !taken.contains(named) ? named : -1;
    for (int i = 0; i < cells; ++i) {
        if (!taken.contains(i) && (i >= layout.size() || layout.at(i).isEmpty()))
            return i;
    }
    return -1;
}

void VexaDisplay::onUnLinkV(StreamInfo info)
{
    const int cell = cellOf.value(info.sender, -1);
    if (cell < 0)
        return;
    detach(cell);
    cellOf.remove(info.sender);
}

bool VexaDisplay::attach(int cell, const QVariantMap &source)
{
    const int teeId = source.value("tee", -1).toInt();
    VexaTee *tee = VexaHi::getTee(teeId);
    if (!tee) {
        fail(QStringLiteral("tee %1 does not exist").arg(teeId));
        return false;
    }
    // The cell's rectangle, on even pixels; the last row and column take the rest.
    const int col = cell % grid, row = cell / grid;
    const int x = (screenW * col / grid) & ~1, y = (screenH * row / grid) & ~1;
    const int w = ((screenW * (col + 1) / grid) & ~1) - x, h = ((screenH * (row + 1) / grid) & ~1) - y;
    Cell &c = cellList[cell];

    hi_vo_chn_attr attr = {};
    attr.priority = 0;
    attr.rect = {x, y, hi_u32(w), hi_u32(h)};
    hi_s32 ret = hi_mpi_vo_set_chn_attr(layer, cell, &attr);
    const char *step = "hi_mpi_vo_set_chn_attr";
    if (ret == 0 && (ret = hi_mpi_vo_enable_chn(layer, cell)) != 0)
        step = "hi_mpi_vo_enable_chn";
    c.enabled = ret == 0;
    if (ret != 0) {
        fail(QStringLiteral("VO channel %1 of layer %2: %3 failed with %4").arg(cell).arg(layer).arg(step, hex(ret)));
        detach(cell);
        return false;
    }
    // The tee scales to the cell; the VO fits what it gets into the rectangle.
    const int chnW = qMax(kMinChannelSize, w), chnH = qMax(kMinChannelSize, h);
    c.teeChn = tee->newChn();
    if (!c.teeChn || !c.teeChn->resizeChn(chnW, chnH, false) || !VexaHi::bindFromTee(c.teeChn, HI_ID_VO, layer, cell)) {
        fail(QStringLiteral("tee %1 gave no channel for %2x%3").arg(teeId).arg(chnW).arg(chnH));
        detach(cell);
        return false;
    }
    c.shown = source;
    shownCount.ref();
    qDebug("%s: VO channel %d at %d,%d %dx%d, from tee %d", qPrintable(name()), cell, x, y, w, h, teeId);
    return true;
}

void VexaDisplay::detach(int cell)
{
    if (cell < 0 || cell >= cellList.size())
        return;
    Cell &c = cellList[cell];
    if (!c.shown.isEmpty())
        shownCount.deref();
    // Unbound first, so that no picture arrives while the channel goes.
    if (c.teeChn || c.enabled)
        VexaHi::bind(HI_ID_BUTT, 0, 0, HI_ID_VO, layer, cell);
    if (c.enabled)
        hi_mpi_vo_disable_chn(layer, cell);
    VexaBoard::releaseTeeChn(c.teeChn);
    c = Cell();
}
