// Platform model benchmark: the board's capture-to-stream path run on the PC.
//
// 1. Real time: VI (the test pattern, 1920x1080 at 30 frames per second)
//    bound to a VPSS group (a 1920x1080 channel) bound to an H.264 CBR
//    encoder channel, the whole process on one CPU, for --seconds seconds:
//    pictures encoded per second against the sensor's 30, frames lost on
//    the way (bind drops, discarded pictures) and the model's frame copies
//    between stages (vx_model_frame_copies).
// 2. Encoder cost: --frames sensor frames saved as raw NV21, sent with
//    hi_mpi_venc_send_frame to an H.264 CBR channel (CPU time of this
//    process), then the same file through `ffmpeg -c:v libx264` with the
//    channel's preset, tune, GOP and rate control (CPU time of the child),
//    both on the same CPU in the same run; CPU per picture and the ratio.
//
//   vexa_bench_twin [--seconds N] [--frames N] [--kbps N] [--source S] [--quick]
//
// --source picks the sensor's source as VEXA_TWIN_VI0 does (default
// pattern@30; e.g. file:<path>@30 for pictures the encoder has to work on).

#include <sched.h>
#include <sys/resource.h>
#include <sys/select.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_venc.h"
#include "hi_mpi_vi.h"
#include "hi_mpi_vpss.h"
#include "vx_mpi_model.h"

static const hi_u32 kW = 1920, kH = 1080, kFps = 30, kGop = 30;
static QByteArray source = "pattern@30";

static double cpuSeconds(int who)
{
    rusage u = {};
    getrusage(who, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

static bool ok(hi_s32 status, const char *what)
{
    if (status != HI_SUCCESS)
        std::fprintf(stderr, "%s failed: %#x\n", what, unsigned(status));
    return status == HI_SUCCESS;
}

static hi_venc_chn_attr h264Cbr(hi_u32 kbps)
{
    hi_venc_chn_attr attr = {};
    attr.venc_attr.type = HI_PT_H264;
    attr.venc_attr.max_pic_width = attr.venc_attr.pic_width = kW;
    attr.venc_attr.max_pic_height = attr.venc_attr.pic_height = kH;
    attr.venc_attr.buf_size = kW * kH * 2;
    attr.venc_attr.profile = 1;
    attr.venc_attr.is_by_frame = HI_TRUE;
    attr.rc_attr.rc_mode = HI_VENC_RC_MODE_H264_CBR;
    attr.rc_attr.h264_cbr = {kGop, 1, kFps, kFps, kbps};
    attr.gop_attr.gop_mode = HI_VENC_GOP_MODE_NORMAL_P;
    return attr;
}

// Takes one stream (waiting up to @p wait ms) and gives it back; its bytes, or -1.
static long takeStream(hi_venc_chn chn, hi_s32 wait)
{
    hi_venc_pack packs[16];
    hi_venc_stream stream = {};
    stream.pack = packs;
    stream.pack_cnt = 16;
    if (hi_mpi_venc_get_stream(chn, &stream, wait) != HI_SUCCESS)
        return -1;
    long bytes = 0;
    for (hi_u32 i = 0; i < stream.pack_cnt; ++i)
        bytes += long(packs[i].len - packs[i].offset);
    hi_mpi_venc_release_stream(chn, &stream);
    return bytes;
}

static bool startCapture(bool withVpss)
{
    hi_vi_dev_attr dev = {};
    dev.intf_mode = HI_VI_INTF_MODE_MIPI;
    dev.in_size = {kW, kH};
    hi_vi_pipe_attr pipe = {};
    pipe.size = {kW, kH};
    pipe.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    pipe.frame_rate_ctrl = {-1, -1};
    hi_vi_chn_attr chn = {};
    chn.size = {kW, kH};
    chn.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    chn.frame_rate_ctrl = {-1, -1};
    chn.depth = withVpss ? 0 : 4;
    if (!ok(hi_mpi_vi_set_dev_attr(0, &dev), "vi dev") || !ok(hi_mpi_vi_enable_dev(0), "vi enable")
        || !ok(hi_mpi_vi_bind(0, 0), "vi bind") || !ok(hi_mpi_vi_create_pipe(0, &pipe), "vi pipe")
        || !ok(hi_mpi_vi_set_chn_attr(0, 0, &chn), "vi chn") || !ok(hi_mpi_vi_enable_chn(0, 0), "vi chn enable"))
        return false;
    if (!withVpss)
        return true;
    hi_vpss_grp_attr grp = {};
    grp.max_width = kW;
    grp.max_height = kH;
    grp.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    grp.frame_rate = {-1, -1};
    hi_vpss_chn_attr out = {};
    if (!ok(hi_mpi_vpss_create_grp(0, &grp), "vpss grp") || !ok(hi_mpi_vpss_get_chn_attr(0, 0, &out), "vpss chn"))
        return false;
    out.width = kW;
    out.height = kH;
    return ok(hi_mpi_vpss_set_chn_attr(0, 0, &out), "vpss chn") && ok(hi_mpi_vpss_enable_chn(0, 0), "vpss enable");
}

static bool startEncoder(hi_u32 kbps)
{
    const hi_venc_chn_attr attr = h264Cbr(kbps);
    hi_venc_start_param start = {};
    start.recv_pic_num = -1;
    return ok(hi_mpi_venc_create_chn(0, &attr), "venc create") && ok(hi_mpi_venc_start_chn(0, &start), "venc start");
}

static void bootModel(hi_u32 blocks)
{
    vx_model_reset();
    hi_vb_cfg cfg = {};
    cfg.max_pool_cnt = 1;
    cfg.common_pool[0].blk_size = kW * kH * 3 / 2;
    cfg.common_pool[0].blk_cnt = blocks;
    vx_model_boot(&cfg);
    vx_model_vi_source(0, source.constData());
}

// 1. VI -> VPSS -> VENC bound, for @p seconds.
static void realTime(double seconds, hi_u32 kbps)
{
    bootModel(16);
    const hi_mpp_chn vi = {HI_ID_VI, 0, 0}, vpss = {HI_ID_VPSS, 0, 0}, venc = {HI_ID_VENC, 0, 0};
    if (!startCapture(true) || !startEncoder(kbps) || !ok(hi_mpi_sys_bind(&vi, &vpss), "bind vi")
        || !ok(hi_mpi_sys_bind(&vpss, &venc), "bind vpss") || !ok(hi_mpi_vpss_start_grp(0), "vpss start"))
        return;
    const auto t0 = std::chrono::steady_clock::now();
    const double cpu0 = cpuSeconds(RUSAGE_SELF);
    if (!ok(hi_mpi_vi_start_pipe(0), "vi start"))
        return;
    long pictures = 0, bytes = 0;
    double elapsed = 0;
    while (elapsed < seconds) {
        const long got = takeStream(0, 200);
        if (got >= 0) {
            ++pictures;
            bytes += got;
        }
        elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    const double cpu = cpuSeconds(RUSAGE_SELF) - cpu0;
    hi_mpi_vi_stop_pipe(0);
    hi_mpi_vpss_stop_grp(0);
    hi_mpi_venc_stop_chn(0);
    hi_venc_chn_status status = {};
    hi_mpi_venc_query_status(0, &status);
    std::printf("1080p30 VI (%s) -> VPSS -> VENC H.264 CBR %u kb/s, one CPU, %.1f s\n", source.constData(), kbps,
                elapsed);
    std::printf("  encoded pictures per second: %.1f (sensor 30; ratio %.2f)\n", pictures / elapsed,
                pictures / elapsed / kFps);
    std::printf("  CPU busy: %.0f%% of the one CPU; stream %.0f kb/s\n", 100 * cpu / elapsed,
                bytes * 8.0 / 1000 / elapsed);
    std::printf("  frames lost: VI->VPSS %llu, VPSS->VENC %llu, discarded by the encoder %u\n",
                vx_model_bind_drops(&vpss), vx_model_bind_drops(&venc), status.discard_pics);
    std::printf("  frame copies between stages: %llu\n", vx_model_frame_copies());
}

// 2. The same frames through the model's encoder and through ffmpeg.
static void encoderCost(int frames, hi_u32 kbps)
{
    const size_t frameBytes = size_t(kW) * kH * 3 / 2;
    QTemporaryDir dir;
    const QString raw = dir.filePath("frames.nv21");
    QFile file(raw);
    if (!file.open(QIODevice::WriteOnly))
        return;
    // Capture the sensor's frames (stride = width at 1920, so a frame is one piece).
    bootModel(8);
    if (!startCapture(false) || !ok(hi_mpi_vi_start_pipe(0), "vi start"))
        return;
    for (int i = 0; i < frames; ++i) {
        hi_video_frame_info info = {};
        if (!ok(hi_mpi_vi_get_chn_frame(0, 0, &info, 5000), "vi frame"))
            return;
        const void *data = hi_mpi_sys_mmap(info.video_frame.phys_addr[0], hi_u32(frameBytes));
        file.write(static_cast<const char *>(data), qint64(frameBytes));
        hi_mpi_sys_munmap(const_cast<void *>(data), hi_u32(frameBytes));
        hi_mpi_vi_release_chn_frame(0, 0, &info);
    }
    file.close();
    hi_mpi_vi_stop_pipe(0);

    // The model: each frame in a block, sent and its stream taken.
    bootModel(4);
    if (!startEncoder(kbps) || !file.open(QIODevice::ReadOnly))
        return;
    const hi_vb_blk blk = hi_mpi_vb_get_blk(0, frameBytes, nullptr);
    hi_video_frame_info in = {};
    in.video_frame.width = kW;
    in.video_frame.height = kH;
    in.video_frame.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    in.video_frame.stride[0] = in.video_frame.stride[1] = kW;
    in.video_frame.phys_addr[0] = hi_mpi_vb_handle_to_phys_addr(blk);
    in.video_frame.phys_addr[1] = in.video_frame.phys_addr[0] + kW * kH;
    auto *block = static_cast<char *>(hi_mpi_sys_mmap(in.video_frame.phys_addr[0], hi_u32(frameBytes)));
    std::vector<QByteArray> all;
    for (int i = 0; i < frames; ++i)
        all.push_back(file.read(qint64(frameBytes)));
    const double model0 = cpuSeconds(RUSAGE_SELF);
    long modelBytes = 0;
    for (int i = 0; i < frames; ++i) {
        std::memcpy(block, all[size_t(i)].constData(), frameBytes);
        in.video_frame.pts = hi_u64(i) * 1000000 / kFps;
        if (!ok(hi_mpi_venc_send_frame(0, &in, 5000), "venc send"))
            return;
        modelBytes += std::max(0L, takeStream(0, 5000));
    }
    const double modelCpu = cpuSeconds(RUSAGE_SELF) - model0;
    hi_mpi_venc_stop_chn(0);
    hi_mpi_vb_release_blk(blk);

    // ffmpeg with what the channel's records turn into.
    const QString params = QString("keyint=%1:min-keyint=%1:scenecut=0:bframes=0:repeat-headers=1:bitrate=%2:"
                                   "vbv-maxrate=%2:vbv-bufsize=%2:qpmin=10:qpmax=51:log=0")
                               .arg(kGop)
                               .arg(kbps);
    const QStringList args = {"-hide_banner", "-loglevel", "error", "-y", "-f", "rawvideo", "-pix_fmt", "nv21",
                              "-s", QString("%1x%2").arg(kW).arg(kH), "-r", QString::number(kFps), "-i", raw,
                              "-c:v", "libx264", "-preset", "veryfast", "-tune", "zerolatency", "-profile:v", "main",
                              "-threads", "1", "-x264-params", params, "-f", "h264", dir.filePath("ffmpeg.h264")};
    const double ff0 = cpuSeconds(RUSAGE_CHILDREN);
    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", args);
    if (!ffmpeg.waitForFinished(600000) || ffmpeg.exitCode() != 0) {
        std::fprintf(stderr, "ffmpeg failed: %s\n", ffmpeg.readAllStandardError().constData());
        return;
    }
    const double ffCpu = cpuSeconds(RUSAGE_CHILDREN) - ff0;
    const qint64 ffBytes = QFile(dir.filePath("ffmpeg.h264")).size();
    std::printf("H.264 CBR %u kb/s, preset veryfast, %d frames of 1920x1080, one CPU\n", kbps, frames);
    std::printf("  model (send_frame/get_stream): %.1f ms CPU per picture, %.0f kb/s\n", 1000 * modelCpu / frames,
                modelBytes * 8.0 / 1000 * kFps / frames);
    std::printf("  ffmpeg -c:v libx264:           %.1f ms CPU per picture, %.0f kb/s\n", 1000 * ffCpu / frames,
                ffBytes * 8.0 / 1000 * kFps / frames);
    std::printf("  ratio model / ffmpeg: %.3f\n", modelCpu / ffCpu);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    double seconds = 10;
    int frames = 150;
    hi_u32 kbps = 4000;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--quick")) {
            seconds = 2;
            frames = 20;
        } else if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc) {
            seconds = std::atof(argv[++i]);
        } else if (!std::strcmp(argv[i], "--frames") && i + 1 < argc) {
            frames = std::max(1, std::atoi(argv[++i]));
        } else if (!std::strcmp(argv[i], "--source") && i + 1 < argc) {
            source = argv[++i];
        } else if (!std::strcmp(argv[i], "--kbps") && i + 1 < argc) {
            kbps = hi_u32(std::max(100, std::atoi(argv[++i])));
        } else {
            std::fprintf(stderr, "usage: %s [--seconds N] [--frames N] [--kbps N] [--source S] [--quick]\n", argv[0]);
            return 2;
        }
    }
    // One CPU for the whole process and the ffmpeg it starts (threads and
    // children inherit the mask).
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu() >= 0 ? sched_getcpu() : 0, &one);
    if (sched_setaffinity(0, sizeof(one), &one) != 0)
        std::perror("sched_setaffinity");
    realTime(seconds, kbps);
    encoderCost(frames, kbps);
    vx_model_reset();
    return 0;
}
