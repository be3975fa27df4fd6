// VI module of the software model: devices, pipes and channels in front of
// a virtual sensor. A started pipe whose device is enabled runs a thread
// that makes one frame per sensor period in a VB block for each enabled
// channel: to the channel's user queue (its depth) and to every receiver
// bound to the channel.

#include "hi_mpi_vi.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "model_pixels_p.h"
#include "model_source_p.h"

static bool validDev(hi_vi_dev dev)
{
    return dev >= 0 && dev < VX_VI_DEV_NUM;
}

// The pipe @p pipe when it was created; otherwise @p status says why not.
static VxViPipe *pipeOf(VxState &s, hi_vi_pipe pipe, hi_s32 *status)
{
    if (pipe < 0 || pipe >= HI_VI_MAX_PIPE_NUM) {
        *status = HI_ERR_VI_INVALID_PIPE_ID;
        return nullptr;
    }
    if (!s.viPipe[pipe].exists) {
        *status = HI_ERR_VI_NOT_CFG;
        return nullptr;
    }
    return &s.viPipe[pipe];
}

static VxViChn *chnOf(VxState &s, hi_vi_pipe pipe, hi_vi_chn chn, hi_s32 *status)
{
    VxViPipe *p = pipeOf(s, pipe, status);
    if (!p)
        return nullptr;
    if (chn < 0 || chn >= HI_VI_MAX_CHN_NUM) {
        *status = HI_ERR_VI_INVALID_CHN_ID;
        return nullptr;
    }
    return &p->chn[chn];
}

static bool validSize(const hi_size &size)
{
    return size.width >= 64 && size.height >= 64 && size.width <= 8192 && size.height <= 8192
        && size.width % 2 == 0 && size.height % 2 == 0;
}

static bool validRate(const hi_frame_rate_ctrl &rate)
{
    if (rate.src_frame_rate == -1 && rate.dst_frame_rate == -1)
        return true;
    return rate.src_frame_rate > 0 && rate.dst_frame_rate > 0 && rate.dst_frame_rate <= rate.src_frame_rate;
}

// The rate a source description ends with ("...@<fps>", 1 to 240): strips
// it from @p text. 0 when there is none, -1 when it is not a valid rate.
static int takeRate(std::string *text)
{
    const size_t at = text->rfind('@');
    if (at == std::string::npos || text->find_first_not_of("0123456789", at + 1) != std::string::npos)
        return 0;
    const long value = at + 1 < text->size() ? std::strtol(text->c_str() + at + 1, nullptr, 10) : 0;
    text->erase(at);
    return value >= 1 && value <= 240 ? static_cast<int>(value) : -1;
}

// Opens a sensor from a source description: "pattern" (@p sensor stays
// null), a media file ("file:<path>") or a V4L2 camera ("camera",
// "camera:<device>"), each optionally followed by "@<fps>"; the sensor's
// rate in @p fps. False (with a message) when the description is unknown or
// the file or camera cannot be opened.
static bool openSource(hi_vi_dev dev, const std::string &source, std::shared_ptr<VxSensorSource> *sensor, int *fps)
{
    std::string what = source;
    const int rate = takeRate(&what);
    std::string error;
    *fps = rate > 0 ? rate : 30;
    if (rate >= 0 && what == "pattern")
        return true;
    const bool file = what.compare(0, 5, "file:") == 0 && what.size() > 5;
    const bool camera = what == "camera" || what.compare(0, 7, "camera:") == 0;
    if (rate >= 0 && (file || camera)) {
        const std::string location = file ? what.substr(5) : what.size() > 7 ? what.substr(7) : std::string();
        *sensor = VxSensorSource::open(location, camera, *fps, &error);
        if (*sensor) {
            if (file && rate == 0 && (*sensor)->frameRate() >= 1 && (*sensor)->frameRate() <= 240)
                *fps = (*sensor)->frameRate(); // the file's own rate unless one is given
            return true;
        }
        std::fprintf(stderr, "platform model: VI device %d: sensor source \"%s\": %s\n", dev, source.c_str(),
                     error.c_str());
        return false;
    }
    std::fprintf(stderr,
                 "platform model: VI device %d: unknown sensor source \"%s\" (known: pattern, file:<path>, "
                 "camera, camera:<device>, each with an optional @<1..240 fps>)\n",
                 dev, source.c_str());
    return false;
}

// The thread of a started pipe: one sensor frame per period.
static void sensorThread(hi_vi_pipe pipe, VxWorker *worker)
{
    struct Job {
        hi_vi_chn chn;
        VxFrameRef frame;
        std::shared_ptr<VxBytes> keep;
        unsigned char *data;
        bool mirror, flip;
    };
    std::unique_lock<std::mutex> lock(vxModel().mutex);
    VxState &s = vxModel().s;
    auto next = std::chrono::steady_clock::now();
    while (!worker->stop) {
        VxViPipe &p = s.viPipe[pipe];
        const auto period = std::chrono::microseconds(1000000 / s.viDev[p.dev].fps);
        next += period;
        // A thread that fell behind (a slow host, a debugger) starts afresh
        // rather than making a burst of frames.
        const auto now = std::chrono::steady_clock::now();
        if (next + period < now)
            next = now;
        vxModel().changed.wait_until(lock, next, [worker] { return worker->stop; });
        if (worker->stop)
            break;

        const hi_u32 n = p.frameNo++;
        const hi_u64 pts = vxNow(s);
        const std::shared_ptr<VxSensorSource> sensor = s.viDev[p.dev].sensor;
        std::vector<Job> jobs;
        for (hi_vi_chn c = 0; c < HI_VI_MAX_CHN_NUM; ++c) {
            VxViChn &chn = p.chn[c];
            if (!chn.enabled || !chn.rate.pass(chn.attr.frame_rate_ctrl))
                continue;
            Job job{c, VxFrameRef(), nullptr, nullptr, chn.attr.mirror_en == HI_TRUE, chn.attr.flip_en == HI_TRUE};
            if (!vxNewFrame(s, chn.attr.size.width, chn.attr.size.height, vxInt(chn.attr.pixel_format), HI_ID_VI,
                            &job.frame)) {
                ++chn.vbFail;
                ++chn.lost;
                continue;
            }
            job.frame.info.video_frame.pts = pts;
            job.frame.info.video_frame.time_ref = n * 2;
            job.keep = vxFrameBytesOf(s, job.frame, &job.data);
            jobs.push_back(job);
        }
        lock.unlock();
        if (sensor) // the sensor moves on whether or not a channel takes the frame
            sensor->advance();
        for (const Job &job : jobs) {
            const VxPicture pic = vxPictureOf(job.frame.info.video_frame, job.data);
            if (sensor)
                sensor->draw(job.chn, pic, job.mirror, job.flip);
            else
                vxDrawPattern(pic, n, job.mirror, job.flip);
        }
        lock.lock();
        for (const Job &job : jobs) {
            VxViChn &chn = p.chn[job.chn];
            if (!worker->stop && chn.enabled) {
                vxKeepNewest(s, chn.user, chn.attr.depth, job.frame);
                vxDeliver(s, hi_mpp_chn{HI_ID_VI, pipe, job.chn}, job.frame);
            }
            vxUnref(s, job.frame.blk);
        }
    }
}

hi_s32 hi_mpi_vi_set_dev_attr(hi_vi_dev vi_dev, const hi_vi_dev_attr *dev_attr)
{
    VX_CALL(vxStatus, "%d,%u,%u", vi_dev, dev_attr ? dev_attr->in_size.width : 0, dev_attr ? dev_attr->in_size.height : 0);
    if (!validDev(vi_dev))
        return HI_ERR_VI_INVALID_DEV_ID;
    if (!dev_attr)
        return HI_ERR_VI_NULL_PTR;
    if (s.viDev[vi_dev].enabled)
        return HI_ERR_VI_NOT_PERM;
    if (!validSize(dev_attr->in_size) || vxInt(dev_attr->intf_mode) < 0
        || vxInt(dev_attr->intf_mode) >= OT_VI_INTF_MODE_BUTT)
        return HI_ERR_VI_ILLEGAL_PARAM;
    s.viDev[vi_dev].attr = *dev_attr;
    s.viDev[vi_dev].attrSet = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_get_dev_attr(hi_vi_dev vi_dev, hi_vi_dev_attr *dev_attr)
{
    VX_CALL(vxStatus, "%d", vi_dev);
    if (!validDev(vi_dev))
        return HI_ERR_VI_INVALID_DEV_ID;
    if (!s.viDev[vi_dev].attrSet)
        return HI_ERR_VI_NOT_CFG;
    return vxCopyOut(s.viDev[vi_dev].attr, dev_attr, HI_ERR_VI_NULL_PTR);
}

hi_s32 hi_mpi_vi_enable_dev(hi_vi_dev vi_dev)
{
    VX_CALL(vxStatus, "%d", vi_dev);
    if (!validDev(vi_dev))
        return HI_ERR_VI_INVALID_DEV_ID;
    if (!s.viDev[vi_dev].attrSet)
        return HI_ERR_VI_NOT_CFG;
    // The sensor behind the device: the model's control, else the
    // environment (VEXA_TWIN_VI<dev>), else the test pattern.
    std::string chosen = s.viDev[vi_dev].source;
    if (chosen.empty()) {
        const std::string name = "VEXA_TWIN_VI" + std::to_string(vi_dev);
        const char *env = std::getenv(name.c_str());
        chosen = env && *env ? env : "pattern";
    }
    // Opening a file or a camera can take a while: the model's other
    // threads go on meanwhile. A running pipe keeps the sensor it took
    // until its next frame.
    std::shared_ptr<VxSensorSource> sensor;
    int fps = 30;
    vxLock.unlock();
    const bool opened = openSource(vi_dev, chosen, &sensor, &fps);
    vxLock.lock();
    if (!opened)
        return HI_ERR_VI_NOT_SUPPORT;
    VxViDev &dev = s.viDev[vi_dev];
    dev.sensor = std::move(sensor);
    dev.fps = fps;
    dev.enabled = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_disable_dev(hi_vi_dev vi_dev)
{
    VX_CALL(vxStatus, "%d", vi_dev);
    if (!validDev(vi_dev))
        return HI_ERR_VI_INVALID_DEV_ID;
    for (const VxViPipe &p : s.viPipe) {
        if (p.dev == vi_dev && p.started)
            return HI_ERR_VI_NOT_PERM; // its pipes stop first
    }
    s.viDev[vi_dev].enabled = false;
    s.viDev[vi_dev].sensor.reset();
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_bind(hi_vi_dev vi_dev, hi_vi_pipe vi_pipe)
{
    VX_CALL(vxStatus, "%d,%d", vi_dev, vi_pipe);
    if (!validDev(vi_dev))
        return HI_ERR_VI_INVALID_DEV_ID;
    if (vi_pipe < 0 || vi_pipe >= HI_VI_MAX_PIPE_NUM)
        return HI_ERR_VI_INVALID_PIPE_ID;
    if (s.viPipe[vi_pipe].dev >= 0)
        return HI_ERR_VI_BINDED;
    s.viPipe[vi_pipe].dev = vi_dev;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_unbind(hi_vi_dev vi_dev, hi_vi_pipe vi_pipe)
{
    VX_CALL(vxStatus, "%d,%d", vi_dev, vi_pipe);
    if (!validDev(vi_dev))
        return HI_ERR_VI_INVALID_DEV_ID;
    if (vi_pipe < 0 || vi_pipe >= HI_VI_MAX_PIPE_NUM)
        return HI_ERR_VI_INVALID_PIPE_ID;
    if (s.viPipe[vi_pipe].dev != vi_dev)
        return HI_ERR_VI_NOT_BINDED;
    if (s.viPipe[vi_pipe].started)
        return HI_ERR_VI_NOT_PERM;
    s.viPipe[vi_pipe].dev = -1;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_create_pipe(hi_vi_pipe vi_pipe, const hi_vi_pipe_attr *pipe_attr)
{
    VX_CALL(vxStatus, "%d,%u,%u", vi_pipe, pipe_attr ? pipe_attr->size.width : 0,
            pipe_attr ? pipe_attr->size.height : 0);
    if (vi_pipe < 0 || vi_pipe >= HI_VI_MAX_PIPE_NUM)
        return HI_ERR_VI_INVALID_PIPE_ID;
    if (!pipe_attr)
        return HI_ERR_VI_NULL_PTR;
    if (!s.sysReady)
        return HI_ERR_VI_NOT_READY;
    VxViPipe &p = s.viPipe[vi_pipe];
    if (p.exists)
        return HI_ERR_VI_BUSY;
    if (!validSize(pipe_attr->size) || !validRate(pipe_attr->frame_rate_ctrl))
        return HI_ERR_VI_ILLEGAL_PARAM;
    const int dev = p.dev; // a binding made before the pipe stays
    p = VxViPipe();
    p.dev = dev;
    p.exists = true;
    p.attr = *pipe_attr;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_destroy_pipe(hi_vi_pipe vi_pipe)
{
    VX_CALL(vxStatus, "%d", vi_pipe);
    hi_s32 status = HI_SUCCESS;
    VxViPipe *p = pipeOf(s, vi_pipe, &status);
    if (!p)
        return status;
    if (p->started)
        return HI_ERR_VI_NOT_PERM;
    // Frames still queued or held by the user go back to their pools.
    for (VxViChn &chn : p->chn) {
        vxUnrefAll(s, chn.user.frames);
        vxUnrefAll(s, chn.held);
    }
    const int dev = p->dev;
    *p = VxViPipe();
    p->dev = dev;
    vxModel().changed.notify_all();
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_start_pipe(hi_vi_pipe vi_pipe)
{
    VX_CALL(vxStatus, "%d", vi_pipe);
    hi_s32 status = HI_SUCCESS;
    VxViPipe *p = pipeOf(s, vi_pipe, &status);
    if (!p)
        return status;
    if (p->dev < 0 || !s.viDev[p->dev].enabled)
        return HI_ERR_VI_NOT_PERM; // no enabled device feeds the pipe
    p->started = true;
    p->stage.start(sensorThread, vi_pipe);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_stop_pipe(hi_vi_pipe vi_pipe)
{
    VX_CALL(vxStatus, "%d", vi_pipe);
    hi_s32 status = HI_SUCCESS;
    VxViPipe *p = pipeOf(s, vi_pipe, &status);
    if (!p)
        return status;
    p->started = false;
    p->stage.stop(s, vxLock);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_set_chn_attr(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, const hi_vi_chn_attr *chn_attr)
{
    VX_CALL(vxStatus, "%d,%d,%u,%u", vi_pipe, vi_chn, chn_attr ? chn_attr->size.width : 0,
            chn_attr ? chn_attr->size.height : 0);
    hi_s32 status = HI_SUCCESS;
    VxViChn *c = chnOf(s, vi_pipe, vi_chn, &status);
    if (!c)
        return status;
    if (!chn_attr)
        return HI_ERR_VI_NULL_PTR;
    if (!validSize(chn_attr->size) || chn_attr->depth > OT_VI_MAX_FRAME_DEPTH
        || !validRate(chn_attr->frame_rate_ctrl))
        return HI_ERR_VI_ILLEGAL_PARAM;
    if (!vxCanProcess(vxInt(chn_attr->pixel_format)) || vxInt(chn_attr->compress_mode) != HI_COMPRESS_MODE_NONE)
        return HI_ERR_VI_NOT_SUPPORT;
    c->attr = *chn_attr;
    c->attrSet = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_get_chn_attr(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, hi_vi_chn_attr *chn_attr)
{
    VX_CALL(vxStatus, "%d,%d", vi_pipe, vi_chn);
    hi_s32 status = HI_SUCCESS;
    VxViChn *c = chnOf(s, vi_pipe, vi_chn, &status);
    if (!c)
        return status;
    if (!c->attrSet)
        return HI_ERR_VI_NOT_CFG;
    return vxCopyOut(c->attr, chn_attr, HI_ERR_VI_NULL_PTR);
}

hi_s32 hi_mpi_vi_enable_chn(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn)
{
    VX_CALL(vxStatus, "%d,%d", vi_pipe, vi_chn);
    hi_s32 status = HI_SUCCESS;
    VxViChn *c = chnOf(s, vi_pipe, vi_chn, &status);
    if (!c)
        return status;
    if (!c->attrSet)
        return HI_ERR_VI_NOT_CFG;
    c->enabled = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_disable_chn(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn)
{
    VX_CALL(vxStatus, "%d,%d", vi_pipe, vi_chn);
    hi_s32 status = HI_SUCCESS;
    VxViChn *c = chnOf(s, vi_pipe, vi_chn, &status);
    if (!c)
        return status;
    c->enabled = false;
    vxUnrefAll(s, c->user.frames);
    vxModel().changed.notify_all();
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_get_chn_frame(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, hi_video_frame_info *frame_info,
                               hi_s32 milli_sec)
{
    VX_CALL(vxStatus, "%d,%d,%d", vi_pipe, vi_chn, milli_sec);
    hi_s32 status = HI_SUCCESS;
    VxViChn *c = chnOf(s, vi_pipe, vi_chn, &status);
    if (!c)
        return status;
    if (!frame_info)
        return HI_ERR_VI_NULL_PTR;
    if (!c->enabled)
        return HI_ERR_VI_NOT_ENABLE;
    if (c->attr.depth == 0)
        return HI_ERR_VI_NOT_PERM; // a channel of depth 0 keeps no frames for the user
    // The channel may go while the call waits: look it up again each time.
    auto ready = [&s, vi_pipe, vi_chn] {
        const VxViPipe &p = s.viPipe[vi_pipe];
        return !p.exists || !p.chn[vi_chn].enabled || !p.chn[vi_chn].user.frames.empty();
    };
    if (!vxWait(vxLock, milli_sec, ready))
        return HI_ERR_VI_BUF_EMPTY;
    c = chnOf(s, vi_pipe, vi_chn, &status);
    if (!c)
        return status;
    if (!c->enabled)
        return HI_ERR_VI_NOT_ENABLE;
    vxHandOut(c->user, c->held, frame_info);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vi_release_chn_frame(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, const hi_video_frame_info *frame_info)
{
    VX_CALL(vxStatus, "%d,%d,0x%x", vi_pipe, vi_chn, frame_info ? frame_info->video_frame.phys_addr[0] : 0);
    hi_s32 status = HI_SUCCESS;
    VxViChn *c = chnOf(s, vi_pipe, vi_chn, &status);
    if (!c)
        return status;
    if (!frame_info)
        return HI_ERR_VI_NULL_PTR;
    return vxTakeBack(s, c->held, frame_info) ? HI_SUCCESS : HI_ERR_VI_ILLEGAL_PARAM;
}

hi_s32 hi_mpi_vi_query_chn_status(hi_vi_pipe vi_pipe, hi_vi_chn vi_chn, hi_vi_chn_status *chn_status)
{
    VX_CALL(vxStatus, "%d,%d", vi_pipe, vi_chn);
    hi_s32 status = HI_SUCCESS;
    VxViChn *c = chnOf(s, vi_pipe, vi_chn, &status);
    if (!c)
        return status;
    if (!chn_status)
        return HI_ERR_VI_NULL_PTR;
    VxViPipe &p = s.viPipe[vi_pipe];
    chn_status->enable = c->enabled ? HI_TRUE : HI_FALSE;
    hi_u32 fps = p.dev >= 0 ? static_cast<hi_u32>(s.viDev[p.dev].fps) : 0;
    const hi_frame_rate_ctrl &rate = c->attr.frame_rate_ctrl;
    if (rate.src_frame_rate > 0 && rate.dst_frame_rate > 0 && rate.dst_frame_rate < rate.src_frame_rate)
        fps = fps * static_cast<hi_u32>(rate.dst_frame_rate) / static_cast<hi_u32>(rate.src_frame_rate);
    chn_status->frame_rate = c->enabled ? fps : 0;
    chn_status->lost_frame_cnt = c->lost;
    chn_status->vb_fail_cnt = c->vbFail;
    chn_status->size = c->attr.size;
    return HI_SUCCESS;
}

void vx_model_vi_source(hi_vi_dev dev, const char *source)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    if (validDev(dev))
        vxModel().s.viDev[dev].source = source ? source : "";
}
