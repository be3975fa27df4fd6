// VO module of the software model: devices with their interface timing,
// video layers and their channels. An enabled device runs a thread that,
// once per display period, takes the next frame of every enabled channel
// of its layers (frames sent with hi_mpi_vo_send_frame or arriving over a
// binding), composes them on the screen (each scaled into its channel's
// rectangle, higher priority on top, the device's background colour
// elsewhere) and writes the screen to the device's screen file.

#include "hi_mpi_vo.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "model_screen_p.h"

// Frames a channel queues when the layer's attribute gives no display
// buffer length.
static const hi_u32 kDefaultBufLen = 4;

static bool validVoDev(hi_vo_dev dev)
{
    return dev >= 0 && dev < HI_VO_MAX_DEV_NUM;
}

static bool validLayer(hi_vo_layer layer)
{
    return layer >= 0 && layer < HI_VO_MAX_LAYER_NUM;
}

// Size and frame rate of an interface timing; false for timings the model
// does not know.
static bool syncTiming(const hi_vo_pub_attr &pub, hi_u32 *w, hi_u32 *h, hi_u32 *fps)
{
    struct Timing {
        int sync;
        hi_u32 w, h, fps;
    };
    static const Timing timings[] = {
        {HI_VO_OUT_PAL, 720, 576, 25},          {HI_VO_OUT_NTSC, 720, 480, 30},
        {HI_VO_OUT_640x480_60, 640, 480, 60},   {HI_VO_OUT_480P60, 720, 480, 60},
        {HI_VO_OUT_576P50, 720, 576, 50},       {HI_VO_OUT_800x600_60, 800, 600, 60},
        {HI_VO_OUT_1024x768_60, 1024, 768, 60}, {HI_VO_OUT_720P50, 1280, 720, 50},
        {HI_VO_OUT_720P60, 1280, 720, 60},      {HI_VO_OUT_1280x1024_60, 1280, 1024, 60},
        {HI_VO_OUT_1080P24, 1920, 1080, 24},    {HI_VO_OUT_1080P25, 1920, 1080, 25},
        {HI_VO_OUT_1080P30, 1920, 1080, 30},    {HI_VO_OUT_1080I50, 1920, 1080, 25},
        {HI_VO_OUT_1080I60, 1920, 1080, 30},    {HI_VO_OUT_1080P50, 1920, 1080, 50},
        {HI_VO_OUT_1080P60, 1920, 1080, 60},    {HI_VO_OUT_1920x1200_60, 1920, 1200, 60},
        {HI_VO_OUT_3840x2160_30, 3840, 2160, 30}, {HI_VO_OUT_3840x2160_60, 3840, 2160, 60},
    };
    const int sync = vxInt(pub.intf_sync);
    if (sync == HI_VO_OUT_USER) {
        // The user timing's active area; its pixel clock is not modelled.
        *w = pub.sync_info.hact;
        *h = pub.sync_info.vact;
        *fps = 30;
        return *w >= 2 && *h >= 2 && *w % 2 == 0 && *h % 2 == 0;
    }
    for (const Timing &t : timings) {
        if (t.sync == sync) {
            *w = t.w;
            *h = t.h;
            *fps = t.fps;
            return true;
        }
    }
    return false;
}

// The device a layer shows on: the one it was bound to, else its own number.
static int layerDev(const VxState &s, hi_vo_layer layer)
{
    if (s.voLayer[layer].dev >= 0)
        return s.voLayer[layer].dev;
    return layer < HI_VO_MAX_DEV_NUM ? layer : -1;
}

// Frames a channel of @p layer queues, as the layer's display buffer length says.
static size_t bufLen(const VxState &s, int layer)
{
    const hi_u32 len = s.layer[layer].display_buf_len;
    return len ? len : kDefaultBufLen;
}

static void dropFrames(VxState &s, VxVoChn &c, bool shownToo)
{
    vxUnrefAll(s, c.queue);
    if (shownToo && c.showing) {
        vxUnref(s, c.shown.blk);
        c.showing = false;
    }
    c.filling = true;
    vxModel().changed.notify_all();
}

// The next frame of a channel for this display period: the queue first
// fills to one less than its length (the display latency), then gives one
// frame per period; an empty queue keeps the last frame on the screen.
static void advance(VxState &s, VxVoChn &c, size_t len)
{
    const size_t start = std::max<size_t>(1, len - 1);
    if (c.filling && c.queue.size() >= start)
        c.filling = false;
    if (c.filling || c.queue.empty())
        return;
    if (c.showing)
        vxUnref(s, c.shown.blk);
    c.shown = c.queue.front();
    c.queue.pop_front();
    c.showing = true;
    vxModel().changed.notify_all(); // room for a waiting sender
}

// Fills a semi-planar (V first) picture with the colour 0xRRGGBB.
static void fillScreen(const VxPicture &pic, hi_u32 rgb)
{
    const int r = (rgb >> 16) & 0xff, g = (rgb >> 8) & 0xff, b = rgb & 0xff;
    const int y = 16 + (47 * r + 157 * g + 16 * b) / 256;
    const int u = 128 + (-26 * r - 87 * g + 112 * b) / 256;
    const int v = 128 + (112 * r - 102 * g - 10 * b) / 256;
    for (hi_u32 row = 0; row < pic.height; ++row)
        std::memset(pic.plane[0] + size_t(row) * pic.stride[0], y, pic.width);
    for (hi_u32 row = 0; row < pic.height / 2; ++row) {
        unsigned char *p = pic.plane[1] + size_t(row) * pic.stride[1];
        for (hi_u32 x = 0; x < pic.width / 2; ++x) {
            p[2 * x] = static_cast<unsigned char>(v);
            p[2 * x + 1] = static_cast<unsigned char>(u);
        }
    }
}

// One channel's frame on the screen this period.
struct VxVoPiece {
    int layer, chn;
    hi_u32 priority;
    VxFrameRef frame;
    std::shared_ptr<VxBytes> keep;
    unsigned char *data;
    hi_u32 x, y, w, h;                // on the screen, even
};

// The thread of an enabled device: one screen per display period.
static void screenThread(hi_vo_dev dev, VxWorker *worker, std::string path)
{
    using Clock = std::chrono::steady_clock;
    std::unique_lock<std::mutex> lock(vxModel().mutex);
    VxState &s = vxModel().s;
    VxVoDev &d = s.voDev[dev];
    hi_u32 sw = 0, sh = 0, syncFps = 30;
    syncTiming(d.pub, &sw, &sh, &syncFps);
    VxBytes bytes(size_t(sw) * sh * 3 / 2);
    VxPicture screen;
    screen.width = sw;
    screen.height = sh;
    screen.stride[0] = screen.stride[1] = sw;
    screen.plane[0] = bytes.data();
    screen.plane[1] = bytes.data() + size_t(sw) * sh;
    VxScreenFile file;
    bool fileTried = false;
    hi_u32 fps = syncFps;
    std::map<std::pair<int, int>, std::unique_ptr<VxScaler>> scalers;
    Clock::time_point next = Clock::now();
    for (;;) {
        if (vxModel().changed.wait_until(lock, next, [worker] { return worker->stop; }))
            break;
        std::vector<VxVoPiece> pieces;
        bool anyLayer = false;
        hi_u32 layerFps = 0;
        for (int l = 0; l < HI_VO_MAX_LAYER_NUM; ++l) {
            VxVoLayer &layer = s.voLayer[l];
            if (!layer.enabled || layerDev(s, l) != dev)
                continue;
            anyLayer = true;
            const hi_vo_video_layer_attr &attr = s.layer[l];
            if (!layerFps)
                layerFps = attr.display_frame_rate;
            // Channel rectangles are in the layer's image; the image fills
            // the layer's display rectangle on the screen.
            hi_rect disp = attr.display_rect;
            if (disp.width == 0 || disp.height == 0)
                disp = hi_rect{0, 0, sw, sh};
            hi_size img = attr.img_size;
            if (img.width == 0 || img.height == 0)
                img = hi_size{disp.width, disp.height};
            for (int c = 0; c < HI_VO_MAX_CHN_NUM; ++c) {
                VxVoChn &chn = layer.chn[size_t(c)];
                if (!chn.enabled)
                    continue;
                advance(s, chn, bufLen(s, l));
                if (!chn.showing)
                    continue;
                const hi_rect &r = chn.attr.rect;
                const long long x0 = disp.x + static_cast<long long>(r.x) * disp.width / img.width;
                const long long y0 = disp.y + static_cast<long long>(r.y) * disp.height / img.height;
                const long long x1 = disp.x + (static_cast<long long>(r.x) + r.width) * disp.width / img.width;
                const long long y1 = disp.y + (static_cast<long long>(r.y) + r.height) * disp.height / img.height;
                VxVoPiece piece{l, c, chn.attr.priority, chn.shown, nullptr, nullptr, 0, 0, 0, 0};
                piece.x = static_cast<hi_u32>(std::max(0LL, x0)) & ~1u;
                piece.y = static_cast<hi_u32>(std::max(0LL, y0)) & ~1u;
                const hi_u32 right = static_cast<hi_u32>(std::min<long long>(x1, sw)) & ~1u;
                const hi_u32 bottom = static_cast<hi_u32>(std::min<long long>(y1, sh)) & ~1u;
                if (right < piece.x + 2 || bottom < piece.y + 2 || !vxRef(s, chn.shown.blk))
                    continue;
                piece.w = right - piece.x;
                piece.h = bottom - piece.y;
                piece.keep = vxFrameBytesOf(s, piece.frame, &piece.data);
                pieces.push_back(piece);
            }
        }
        if (!fileTried && anyLayer) {
            // The file starts with the first layer, at that layer's rate.
            fileTried = true;
            fps = layerFps ? layerFps : syncFps;
            if (!path.empty()) {
                lock.unlock();
                std::string error;
                if (!file.open(path, sw, sh, fps, &error))
                    fprintf(stderr, "vexa twin: vo device %d cannot write its screen to %s: %s\n", dev, path.c_str(),
                            error.c_str());
                lock.lock();
            }
        }
        const hi_u32 bg = d.pub.bg_color;
        lock.unlock();
        if (anyLayer) {
            std::stable_sort(pieces.begin(), pieces.end(),
                             [](const VxVoPiece &a, const VxVoPiece &b) { return a.priority < b.priority; });
            fillScreen(screen, bg);
            for (const VxVoPiece &p : pieces) {
                if (!p.data)
                    continue;
                std::unique_ptr<VxScaler> &scaler = scalers[std::make_pair(p.layer, p.chn)];
                if (!scaler)
                    scaler.reset(new VxScaler);
                const hi_video_frame &f = p.frame.info.video_frame;
                VxPicture win = screen;
                win.width = p.w;
                win.height = p.h;
                win.plane[0] = screen.plane[0] + size_t(p.y) * screen.stride[0] + p.x;
                win.plane[1] = screen.plane[1] + size_t(p.y / 2) * screen.stride[1] + p.x;
                hi_aspect_ratio none{};
                vxProcess(*scaler, vxPictureOf(f, p.data), hi_rect{0, 0, f.width, f.height}, win, none, false, false);
            }
            file.write(screen);
        }
        lock.lock();
        for (const VxVoPiece &p : pieces)
            vxUnref(s, p.frame.blk);
        if (anyLayer) {
            ++d.shown;
            vxModel().changed.notify_all();
        }
        const Clock::duration period = std::chrono::microseconds(1000000 / std::max<hi_u32>(fps, 1));
        next += period;
        // A host that fell behind (a slow build) goes on from now, not in a burst.
        if (next < Clock::now() - 4 * period)
            next = Clock::now();
    }
    lock.unlock();
    file.close();
    lock.lock();
}

hi_s32 hi_mpi_vo_set_vtth(hi_vo_dev dev, hi_u32 vtth)
{
    VX_CALL(vxStatus, "%d,%u", dev, vtth);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    s.vtth[dev] = vtth;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_get_vtth(hi_vo_dev dev, hi_u32 *vtth)
{
    VX_CALL(vxStatus, "%d", dev);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    return vxCopyOut(s.vtth[dev], vtth, HI_ERR_VO_NULL_PTR);
}

hi_s32 hi_mpi_vo_set_bt_param(hi_vo_dev dev, const hi_vo_bt_param *bt_param)
{
    VX_CALL(vxStatus, "%d,%d,%d,%d", dev, bt_param ? vxInt(bt_param->yc_inverted_en) : -1,
            bt_param ? vxInt(bt_param->bit_inverted_en) : -1,
            bt_param ? vxInt(bt_param->clk_edge) : -1);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    return vxCopyIn(s.bt[dev], bt_param, HI_ERR_VO_NULL_PTR,
                    [](const hi_vo_bt_param &param, const hi_vo_bt_param &) -> hi_s32 {
                        if (vxInt(param.yc_inverted_en) > HI_TRUE || vxInt(param.bit_inverted_en) > HI_TRUE
                            || vxInt(param.clk_edge) < 0 || vxInt(param.clk_edge) >= OT_VO_CLK_EDGE_BUTT)
                            return HI_ERR_VO_ILLEGAL_PARAM;
                        return HI_SUCCESS;
                    });
}

hi_s32 hi_mpi_vo_get_bt_param(hi_vo_dev dev, hi_vo_bt_param *bt_param)
{
    VX_CALL(vxStatus, "%d", dev);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    return vxCopyOut(s.bt[dev], bt_param, HI_ERR_VO_NULL_PTR);
}

hi_s32 hi_mpi_vo_set_video_layer_attr(hi_vo_layer layer, const hi_vo_video_layer_attr *layer_attr)
{
    VX_CALL(vxStatus, "%d", layer);
    if (!validLayer(layer))
        return HI_ERR_VO_INVALID_LAYER_ID;
    const hi_s32 status = vxCopyIn(s.layer[layer], layer_attr, HI_ERR_VO_NULL_PTR,
                    [](const hi_vo_video_layer_attr &attr, const hi_vo_video_layer_attr &) -> hi_s32 {
                        if (attr.display_buf_len > 15 || vxInt(attr.partition_mode) < 0
                            || vxInt(attr.partition_mode) >= OT_VO_PARTITION_MODE_BUTT)
                            return HI_ERR_VO_ILLEGAL_PARAM;
                        return HI_SUCCESS;
                    });
    if (status == HI_SUCCESS)
        s.voLayer[layer].attrSet = true;
    return status;
}

hi_s32 hi_mpi_vo_get_video_layer_attr(hi_vo_layer layer, hi_vo_video_layer_attr *layer_attr)
{
    VX_CALL(vxStatus, "%d", layer);
    if (!validLayer(layer))
        return HI_ERR_VO_INVALID_LAYER_ID;
    return vxCopyOut(s.layer[layer], layer_attr, HI_ERR_VO_NULL_PTR);
}


hi_s32 hi_mpi_vo_set_pub_attr(hi_vo_dev dev, const hi_vo_pub_attr *pub_attr)
{
    VX_CALL(vxStatus, "%d,%d,%u", dev, pub_attr ? vxInt(pub_attr->intf_sync) : -1,
            pub_attr ? pub_attr->intf_type : 0u);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    if (!pub_attr)
        return HI_ERR_VO_NULL_PTR;
    VxVoDev &d = s.voDev[dev];
    if (d.enabled)
        return HI_ERR_VO_NOT_DISABLE;
    hi_u32 w = 0, h = 0, fps = 0;
    if (!syncTiming(*pub_attr, &w, &h, &fps))
        return HI_ERR_VO_ILLEGAL_PARAM;
    d.pub = *pub_attr;
    d.pubSet = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_get_pub_attr(hi_vo_dev dev, hi_vo_pub_attr *pub_attr)
{
    VX_CALL(vxStatus, "%d", dev);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    return vxCopyOut(s.voDev[dev].pub, pub_attr, HI_ERR_VO_NULL_PTR);
}

hi_s32 hi_mpi_vo_enable(hi_vo_dev dev)
{
    VX_CALL(vxStatus, "%d", dev);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    VxVoDev &d = s.voDev[dev];
    if (!d.pubSet)
        return HI_ERR_VO_NOT_CFG;
    if (d.enabled)
        return HI_SUCCESS;
    std::string path = d.screen;
    if (!d.screenSet) {
        const std::string name = "VEXA_TWIN_VO" + std::to_string(dev);
        const char *env = std::getenv(name.c_str());
        path = env ? env : "";
    }
    d.enabled = true;
    d.shown = 0;
    d.worker.reset(new VxWorker);
    d.worker->thread = std::thread(screenThread, dev, d.worker.get(), path);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_disable(hi_vo_dev dev)
{
    VX_CALL(vxStatus, "%d", dev);
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    // The screen file is finished before the call returns.
    vxStopWorker(vxLock, s.voDev[dev].worker);
    s.voDev[dev].enabled = false;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_bind_layer(hi_vo_layer layer, hi_vo_dev dev)
{
    VX_CALL(vxStatus, "%d,%d", layer, dev);
    if (!validLayer(layer))
        return HI_ERR_VO_INVALID_LAYER_ID;
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    if (s.voLayer[layer].enabled)
        return HI_ERR_VO_NOT_DISABLE;
    s.voLayer[layer].dev = dev;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_unbind_layer(hi_vo_layer layer, hi_vo_dev dev)
{
    VX_CALL(vxStatus, "%d,%d", layer, dev);
    if (!validLayer(layer))
        return HI_ERR_VO_INVALID_LAYER_ID;
    if (!validVoDev(dev))
        return HI_ERR_VO_INVALID_DEV_ID;
    if (s.voLayer[layer].dev != dev)
        return HI_ERR_VO_NOT_BINDED;
    if (s.voLayer[layer].enabled)
        return HI_ERR_VO_NOT_DISABLE;
    s.voLayer[layer].dev = -1;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_enable_video_layer(hi_vo_layer layer)
{
    VX_CALL(vxStatus, "%d", layer);
    if (!validLayer(layer))
        return HI_ERR_VO_INVALID_LAYER_ID;
    if (!s.voLayer[layer].attrSet)
        return HI_ERR_VO_NOT_CFG;
    const int dev = layerDev(s, layer);
    if (dev < 0)
        return HI_ERR_VO_NOT_BINDED;
    if (!s.voDev[size_t(dev)].enabled)
        return HI_ERR_VO_NOT_ENABLE;
    s.voLayer[layer].enabled = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_disable_video_layer(hi_vo_layer layer)
{
    VX_CALL(vxStatus, "%d", layer);
    if (!validLayer(layer))
        return HI_ERR_VO_INVALID_LAYER_ID;
    VxVoLayer &l = s.voLayer[layer];
    for (VxVoChn &c : l.chn) {
        dropFrames(s, c, true);
        c.enabled = false;
    }
    l.enabled = false;
    return HI_SUCCESS;
}

// Calls @p fn with channel @p chn of @p layer when both ids are valid.
template <typename Fn>
static hi_s32 onChannel(VxState &s, hi_vo_layer layer, hi_vo_chn chn, Fn fn)
{
    if (!validLayer(layer))
        return HI_ERR_VO_INVALID_LAYER_ID;
    if (chn < 0 || chn >= HI_VO_MAX_CHN_NUM)
        return HI_ERR_VO_INVALID_CHN_ID;
    return fn(s.voLayer[layer], s.voLayer[layer].chn[size_t(chn)]);
}

hi_s32 hi_mpi_vo_set_chn_attr(hi_vo_layer layer, hi_vo_chn chn, const hi_vo_chn_attr *chn_attr)
{
    VX_CALL(vxStatus, "%d,%d,%d,%d,%u,%u", layer, chn, chn_attr ? chn_attr->rect.x : 0, chn_attr ? chn_attr->rect.y : 0,
            chn_attr ? chn_attr->rect.width : 0, chn_attr ? chn_attr->rect.height : 0);
    return onChannel(s, layer, chn, [&s, layer, chn_attr](VxVoLayer &l, VxVoChn &c) -> hi_s32 {
        if (!chn_attr)
            return HI_ERR_VO_NULL_PTR;
        const hi_rect &r = chn_attr->rect;
        if (r.x < 0 || r.y < 0 || r.width < 2 || r.height < 2)
            return HI_ERR_VO_ILLEGAL_PARAM;
        // Inside the layer's image when the layer has one.
        const hi_size &img = s.layer[layer].img_size;
        if (l.attrSet && img.width && img.height
            && (static_cast<hi_u64>(r.x) + r.width > img.width || static_cast<hi_u64>(r.y) + r.height > img.height))
            return HI_ERR_VO_ILLEGAL_PARAM;
        c.attr = *chn_attr;
        c.attrSet = true;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vo_get_chn_attr(hi_vo_layer layer, hi_vo_chn chn, hi_vo_chn_attr *chn_attr)
{
    VX_CALL(vxStatus, "%d,%d", layer, chn);
    return onChannel(s, layer, chn, [chn_attr](VxVoLayer &, VxVoChn &c) -> hi_s32 {
        return vxCopyOut(c.attr, chn_attr, HI_ERR_VO_NULL_PTR);
    });
}

hi_s32 hi_mpi_vo_enable_chn(hi_vo_layer layer, hi_vo_chn chn)
{
    VX_CALL(vxStatus, "%d,%d", layer, chn);
    return onChannel(s, layer, chn, [](VxVoLayer &l, VxVoChn &c) -> hi_s32 {
        if (!l.enabled)
            return HI_ERR_VO_NOT_ENABLE;
        if (!c.attrSet)
            return HI_ERR_VO_NOT_CFG;
        if (!c.enabled)
            c.filling = true;
        c.enabled = true;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vo_disable_chn(hi_vo_layer layer, hi_vo_chn chn)
{
    VX_CALL(vxStatus, "%d,%d", layer, chn);
    return onChannel(s, layer, chn, [&s](VxVoLayer &, VxVoChn &c) -> hi_s32 {
        dropFrames(s, c, true);
        c.enabled = false;
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vo_send_frame(hi_vo_layer layer, hi_vo_chn chn, hi_video_frame_info *frame_info, hi_s32 milli_sec)
{
    VX_CALL(vxStatus, "%d,%d,0x%x,%d", layer, chn, frame_info ? frame_info->video_frame.phys_addr[0] : 0u, milli_sec);
    if (!validLayer(layer))
        return HI_ERR_VO_INVALID_LAYER_ID;
    if (chn < 0 || chn >= HI_VO_MAX_CHN_NUM)
        return HI_ERR_VO_INVALID_CHN_ID;
    if (!frame_info)
        return HI_ERR_VO_NULL_PTR;
    VxVoLayer &l = s.voLayer[layer];
    VxVoChn &c = l.chn[size_t(chn)];
    if (!l.enabled || !c.enabled)
        return HI_ERR_VO_NOT_ENABLE;
    const hi_video_frame &f = frame_info->video_frame;
    if (!vxCanProcess(vxInt(f.pixel_format)) || vxInt(f.compress_mode) != HI_COMPRESS_MODE_NONE)
        return HI_ERR_VO_NOT_SUPPORT;
    const hi_vb_blk blk = vxBlockAt(s, f.phys_addr[0]);
    if (f.width < 2 || f.height < 2 || !vxFrameInBlock(s, blk, f))
        return HI_ERR_VO_ILLEGAL_PARAM;
    const bool room = vxWait(vxLock, milli_sec, [&s, &l, &c, layer] {
        return !l.enabled || !c.enabled || c.queue.size() < bufLen(s, layer);
    });
    if (!l.enabled || !c.enabled)
        return HI_ERR_VO_NOT_ENABLE;
    if (!room)
        return milli_sec == 0 ? HI_ERR_VO_BUSY : HI_ERR_VO_TIMEOUT;
    VxFrameRef frame;
    frame.info = *frame_info;
    frame.blk = vxBlockAt(s, f.phys_addr[0]); // the sender may have let the block go meanwhile
    if (!vxRef(s, frame.blk))
        return HI_ERR_VO_ILLEGAL_PARAM;
    c.queue.push_back(frame);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vo_clear_chn_buf(hi_vo_layer layer, hi_vo_chn chn, hi_bool is_clear_all)
{
    VX_CALL(vxStatus, "%d,%d,%d", layer, chn, vxInt(is_clear_all));
    return onChannel(s, layer, chn, [&s, is_clear_all](VxVoLayer &, VxVoChn &c) -> hi_s32 {
        if (!c.enabled)
            return HI_ERR_VO_NOT_ENABLE;
        // Without "all" the frame on the screen stays there.
        dropFrames(s, c, vxInt(is_clear_all) == HI_TRUE);
        return HI_SUCCESS;
    });
}

hi_s32 hi_mpi_vo_query_chn_status(hi_vo_layer layer, hi_vo_chn chn, hi_vo_chn_status *status)
{
    VX_CALL(vxStatus, "%d,%d", layer, chn);
    return onChannel(s, layer, chn, [status](VxVoLayer &, VxVoChn &c) -> hi_s32 {
        if (!status)
            return HI_ERR_VO_NULL_PTR;
        if (!c.enabled)
            return HI_ERR_VO_NOT_ENABLE;
        status->chn_buf_used = static_cast<hi_u32>(c.queue.size()) + (c.showing ? 1 : 0);
        return HI_SUCCESS;
    });
}

void vxVoReceive(VxState &s, const std::tuple<int, int, int> &receiver, const VxFrameRef &frame)
{
    const int layer = std::get<1>(receiver), chn = std::get<2>(receiver);
    if (!validLayer(layer) || chn < 0 || chn >= HI_VO_MAX_CHN_NUM)
        return;
    VxVoLayer &l = s.voLayer[layer];
    VxVoChn &c = l.chn[size_t(chn)];
    if (!l.enabled || !c.enabled)
        return;
    if (c.queue.size() >= bufLen(s, layer)) {
        ++s.bindDrops[receiver];
        return;
    }
    if (vxRef(s, frame.blk)) {
        c.queue.push_back(frame);
        vxModel().changed.notify_all();
    }
}

bool vxVoHasRoom(const VxState &s, const std::tuple<int, int, int> &receiver)
{
    const int layer = std::get<1>(receiver), chn = std::get<2>(receiver);
    if (!validLayer(layer) || chn < 0 || chn >= HI_VO_MAX_CHN_NUM)
        return true;
    const VxVoLayer &l = s.voLayer[layer];
    const VxVoChn &c = l.chn[size_t(chn)];
    return !l.enabled || !c.enabled || c.queue.size() < bufLen(s, layer);
}

void vx_model_vo_screen(hi_vo_dev dev, const char *path)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    if (!validVoDev(dev))
        return;
    VxVoDev &d = vxModel().s.voDev[dev];
    d.screen = path ? path : "";
    d.screenSet = !d.screen.empty();
}

unsigned long long vx_model_vo_screens(hi_vo_dev dev)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    return validVoDev(dev) ? vxModel().s.voDev[dev].shown : 0;
}
