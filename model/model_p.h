#ifndef MODEL_P_H
#define MODEL_P_H

// State of the software model of the media platform, shared by the files
// that implement its modules. Not installed.

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "hi_common_sys.h"
#include "hi_common_tde.h"
#include "hi_common_vb.h"
#include "hi_common_vdec.h"
#include "hi_common_venc.h"
#include "hi_common_vi.h"
#include "hi_common_vo.h"
#include "hi_common_vpss.h"
#include "vx_mpi_model.h"

#include "model_stage_p.h"

// VI devices of the model (virtual sensors).
#define VX_VI_DEV_NUM 4

typedef std::vector<unsigned char> VxBytes;

// One stretch of "physical" memory: a media-memory block or a VB pool. The
// bytes are shared so that a worker drawing into a block outside the model's
// lock keeps them alive even if the pool goes meanwhile.
struct VxRegion {
    std::shared_ptr<VxBytes> mem = std::make_shared<VxBytes>();
    bool mmz = false;
    unsigned char *data() const { return mem->data(); }
    size_t size() const { return mem->size(); }
};

// A VB pool: a common pool from the VB configuration or one made with
// hi_mpi_vb_create_pool. refs[i] counts the holders of block i (0: free).
struct VxPool {
    hi_phys_addr_t base = 0;
    hi_u64 blkSize = 0;
    std::vector<int> refs;
    bool exists = true;
    bool common = true;
};

// Frame-rate control: passes dst of every src frames, evenly spread.
struct VxRateCtrl {
    hi_u64 seen = 0;
    hi_u64 passed = 0;
    bool pass(const hi_frame_rate_ctrl &rate);
};

struct VxVpssChn {
    hi_vpss_chn_attr attr{};
    hi_rotation_attr rotation{};
    bool enabled = false;
    VxRateCtrl rate;
    VxFrameQueue user;                // frames for hi_mpi_vpss_get_chn_frame
    std::vector<VxFrameRef> held;     // frames the user got and has not released
    hi_u64 vbFail = 0;
};

struct VxVpssGrp {
    bool exists = false;
    bool started = false;
    hi_vpss_grp_attr attr{};
    hi_vpss_crop_info crop{};
    hi_vpss_grp_param param{};
    hi_u32 delay = 0;
    VxVpssChn chn[HI_VPSS_MAX_PHYS_CHN_NUM];
    VxRateCtrl rate;
    VxStage stage;                    // the group's thread and the sent and bound frames waiting for it
    bool paused = false;              // held by vx_model_vpss_pause: a slow consumer
};

struct VxViChn {
    hi_vi_chn_attr attr{};
    bool attrSet = false;
    bool enabled = false;
    VxRateCtrl rate;
    VxFrameQueue user;
    std::vector<VxFrameRef> held;
    hi_u32 vbFail = 0;
    hi_u32 lost = 0;
};

class VxSensorSource;

struct VxViDev {
    hi_vi_dev_attr attr{};
    bool attrSet = false;
    bool enabled = false;
    std::string source;               // what the virtual sensor shows (see vx_model_vi_source)
    int fps = 30;
    std::shared_ptr<VxSensorSource> sensor; // a file or camera while enabled; null: the test pattern
};

struct VxViPipe {
    bool exists = false;
    bool started = false;
    int dev = -1;                     // the device bound to the pipe
    hi_vi_pipe_attr attr{};
    hi_u32 frameNo = 0;
    VxViChn chn[HI_VI_MAX_CHN_NUM];
    VxStage stage;                    // the sensor's thread
};

// One encoded picture waiting in (or taken from) a channel's stream buffer:
// where its bytes lie in the buffer and the NAL units they hold.
struct VxVencStream {
    hi_u32 seq = 0;
    hi_u64 pts = 0;
    bool key = false;
    int qp = 0;
    hi_u32 offset = 0;                // in the channel's stream buffer
    hi_u32 bytes = 0;
    std::vector<std::pair<int, std::pair<hi_u32, hi_u32>>> nals; // type, (offset in the picture, length)
};

// A VENC channel. Channels that were never created still keep the records
// set on them (the glue configures them that way) but encode nothing.
struct VxVencChn {
    hi_venc_rc_param rc{};
    hi_venc_chn_param param{};
    hi_venc_h264_vui vui264{};
    hi_venc_h265_vui vui265{};
    bool started = false;
    hi_s32 recvPicNum = 0;

    bool exists = false;
    hi_venc_chn_attr attr{};
    hi_u32 generation = 0;            // bumped by every change the encoder must see
    bool idr = false;                 // an IDR picture was asked for
    hi_u32 received = 0;              // pictures taken since start
    VxRateCtrl rate;
    VxStage stage;                    // the encoder's thread and the sent and bound frames waiting for it
    std::deque<VxVencStream> ready;   // streams for hi_mpi_venc_get_stream
    std::vector<VxVencStream> held;   // streams the user got and has not released
    // The stream buffer: a ring in its own region of physical memory; `used`
    // lists the stretches of live streams in the order they were written.
    hi_phys_addr_t bufPhys = 0;
    hi_u32 bufSize = 0;
    std::deque<std::pair<hi_u32, hi_u32>> used;
    hi_u32 seq = 0;
    hi_u32 encoded = 0;
    VxVencStream last;                // the newest picture, for query_status
    hi_u32 discarded = 0;
    hi_u32 bufFull = 0;
    int fd = -1;                      // eventfd counting ready streams
};

// Bytes sent to a VDEC channel and not decoded yet.
struct VxVdecInput {
    std::vector<unsigned char> bytes;
    hi_u64 pts = 0;
    bool end = false;
};

// A VDEC channel: sent stream pieces, the decoded pictures for
// hi_mpi_vdec_get_frame and those the user holds.
struct VxVdecChn {
    bool exists = false;
    bool started = false;
    hi_vdec_chn_attr attr{};
    hi_vdec_chn_param param{};
    std::deque<VxVdecInput> input;
    hi_u32 inputBytes = 0;
    VxFrameQueue user;
    std::vector<VxFrameRef> held;
    std::deque<int> userTypes;        // frame type of each picture in `user`
    hi_u32 received = 0;              // pieces taken since creation
    hi_u32 decoded = 0;               // pictures decoded
    hi_u32 formatErrors = 0;
    hi_u32 vbFail = 0;
    hi_u32 width = 0;
    hi_u32 height = 0;
    hi_u64 latestPts = 0;
    bool busy = false;                // the thread is decoding a piece outside the lock
    hi_vb_pool picPool = HI_VB_INVALID_POOL_ID; // attached pool for pictures (else the common pools)
    int fd = -1;                      // eventfd counting pictures waiting in `user`
    std::unique_ptr<VxWorker> worker;
};

// The stream buffer of an encoder channel that was destroyed or reset while
// its user still held streams in it: the region stays mapped at its physical
// addresses until the last of those streams (`seqs`) is released.
struct VxVencRetired {
    int chn = -1;
    hi_phys_addr_t phys = 0;
    hi_u32 size = 0;
    std::vector<hi_u32> seqs;
};

#define VX_VDEC_CHN_NUM 64

// A VO channel: frames waiting for display (sent or bound) and the one on
// the screen now.
struct VxVoChn {
    hi_vo_chn_attr attr{};
    bool attrSet = false;
    bool enabled = false;
    std::deque<VxFrameRef> queue;
    VxFrameRef shown;
    bool showing = false;
    bool filling = true;              // waiting for the queue to reach the layer's display depth
};

struct VxVoLayer {
    bool attrSet = false;
    bool enabled = false;
    int dev = -1;                     // device named by hi_mpi_vo_bind_layer (-1: the layer's own)
    std::vector<VxVoChn> chn = std::vector<VxVoChn>(HI_VO_MAX_CHN_NUM);
};

// A VO device: its interface timing and, while enabled, the thread that
// composes its layers once per display period and writes the screen file.
struct VxVoDev {
    hi_vo_pub_attr pub{};
    bool pubSet = false;
    bool enabled = false;
    std::string screen;               // where the screen goes (see vx_model_vo_screen)
    bool screenSet = false;           // picked by vx_model_vo_screen, not the environment
    hi_u64 shown = 0;                 // screens composed since enable
    std::unique_ptr<VxWorker> worker;
};

// One operation of a TDE job, run when the job ends.
struct VxTdeOp {
    enum Kind { Blit, Copy, Resize, Fill } kind = Blit;
    hi_tde_surface bg{}, fg{}, dst{};
    hi_tde_rect bgRect{}, fgRect{}, dstRect{};
    hi_tde_opt opt{};
    hi_u32 fill = 0;
};

struct VxState {
    std::vector<std::string> calls;
    std::map<std::string, std::pair<hi_s32, int>> faults;

    bool ptsFixed = false;
    hi_u64 pts = 0;

    bool vbReady = false;
    bool sysReady = false;
    bool vbConfigured = false;
    hi_vb_cfg vbCfg{};
    std::vector<VxPool> pools;
    hi_vb_cfg modCfg[HI_VB_UID_BUTT]{};
    bool modCfgSet[HI_VB_UID_BUTT]{};
    bool modPoolReady[HI_VB_UID_BUTT]{};

    std::map<hi_phys_addr_t, VxRegion> regions;
    hi_phys_addr_t nextPhys = 0x10000000;

    // destination (mod, dev, chn) -> source
    std::map<std::tuple<int, int, int>, hi_mpp_chn> binds;

    std::vector<VxVpssGrp> vpss = std::vector<VxVpssGrp>(HI_VPSS_MAX_GRP_NUM);

    std::vector<VxVencChn> venc = std::vector<VxVencChn>(HI_VENC_MAX_CHN_NUM);
    hi_venc_mod_param vencMod[HI_VENC_MOD_RC + 1]{};
    std::vector<VxVencRetired> vencRetired;

    hi_vdec_mod_param vdecMod{};
    std::vector<VxVdecChn> vdec = std::vector<VxVdecChn>(VX_VDEC_CHN_NUM);
    hi_vi_mod_param viMod{};
    std::vector<VxViDev> viDev = std::vector<VxViDev>(VX_VI_DEV_NUM);
    std::vector<VxViPipe> viPipe = std::vector<VxViPipe>(HI_VI_MAX_PIPE_NUM);
    // Frames a bound receiver had no room for, by receiver (mod, dev, chn).
    std::map<std::tuple<int, int, int>, hi_u64> bindDrops;
    hi_u32 vtth[HI_VO_MAX_DEV_NUM]{};
    hi_vo_bt_param bt[HI_VO_MAX_DEV_NUM]{};
    hi_vo_video_layer_attr layer[HI_VO_MAX_LAYER_NUM]{};
    std::vector<VxVoDev> voDev = std::vector<VxVoDev>(HI_VO_MAX_DEV_NUM);
    std::vector<VxVoLayer> voLayer = std::vector<VxVoLayer>(HI_VO_MAX_LAYER_NUM);

    bool tdeOpen = false;
    std::map<hi_s32, std::vector<VxTdeOp>> tdeJobs;
    hi_s32 nextTdeJob = 1;
    bool haveBlit = false;
    vx_model_blit lastBlit{};

    VxState();
};

struct VxModel {
    std::mutex mutex;
    // Signalled whenever a queue or a state that a waiting call or a worker
    // looks at changes.
    std::condition_variable changed;
    VxState s;
    ~VxModel();
};

VxModel &vxModel();

// Stops @p worker (under @p lock) and joins its thread with the lock let go.
void vxStopWorker(std::unique_lock<std::mutex> &lock, std::unique_ptr<VxWorker> &worker);
// Stops every worker of the model (VI pipes, VPSS groups, encoders,
// decoders, VO devices).
void vxStopAllWorkers(std::unique_lock<std::mutex> &lock);

// The int an enum field of a caller's record holds. Callers may store any
// int there (the interface is C), so the field is never loaded as the enum.
template <typename Enum>
inline int vxInt(const Enum &field)
{
    static_assert(sizeof(Enum) == sizeof(int), "platform enums are int-sized");
    int value;
    std::memcpy(&value, &field, sizeof(value));
    return value;
}

// The common tail of a get call once its object is found: @p nullPtr when
// the caller gave no record, otherwise the stored record copied out.
template <typename Record>
inline hi_s32 vxCopyOut(const Record &stored, Record *out, hi_s32 nullPtr)
{
    if (!out)
        return nullPtr;
    *out = stored;
    return HI_SUCCESS;
}

// The common tail of a set call once its object is found: @p nullPtr when
// the caller gave no record, otherwise the status of @p check (called with
// the new and the stored record); the record is stored only when that is
// HI_SUCCESS.
template <typename Record, typename Check>
inline hi_s32 vxCopyIn(Record &stored, const Record *in, hi_s32 nullPtr, Check check)
{
    if (!in)
        return nullPtr;
    const hi_s32 status = check(*in, static_cast<const Record &>(stored));
    if (status != HI_SUCCESS)
        return status;
    stored = *in;
    return HI_SUCCESS;
}

// A set call that takes any record the caller gives.
template <typename Record>
inline hi_s32 vxCopyIn(Record &stored, const Record *in, hi_s32 nullPtr)
{
    return vxCopyIn(stored, in, nullPtr, [](const Record &, const Record &) -> hi_s32 { return HI_SUCCESS; });
}

// --- frames in VB blocks (model_frame.cpp) ---

// Stride of a frame line: the width rounded up to the default alignment.
hi_u32 vxStride(hi_u32 width);
// Bytes of a frame of this size and pixel format, 0 when the model cannot
// lay the format out (semi-planar 4:2:0 and 4:2:2, 4:0:0).
hi_u64 vxFrameBytes(hi_u32 width, hi_u32 height, int pixelFormat);
// Takes a block from the common pools and fills @p out as the platform
// fills a frame it produced: addresses, strides, pool and module id. The
// caller fills pts and time_ref. False when no pool has a free block.
// A valid @p pool takes the block from that pool instead.
bool vxNewFrame(VxState &s, hi_u32 width, hi_u32 height, int pixelFormat, hi_mod_id mod, VxFrameRef *out,
                hi_vb_pool pool = HI_VB_INVALID_POOL_ID);
// A free block of @p size bytes from the common pools, or from @p pool when
// that is valid (holder count 1).
hi_vb_blk vxTakeBlock(VxState &s, hi_u64 size, hi_vb_pool pool = HI_VB_INVALID_POOL_ID);
// The block holding physical address @p phys, or HI_VB_INVALID_HANDLE.
hi_vb_blk vxBlockAt(const VxState &s, hi_phys_addr_t phys);
// One more holder for a block; one holder fewer (the block is free at 0).
bool vxRef(VxState &s, hi_vb_blk blk);
void vxUnref(VxState &s, hi_vb_blk blk);
// Releases every frame of @p frames.
void vxUnrefAll(VxState &s, std::deque<VxFrameRef> &frames);
void vxUnrefAll(VxState &s, std::vector<VxFrameRef> &frames);
// True when both planes of @p f lie whole inside block @p blk, as its strides say.
bool vxFrameInBlock(const VxState &s, hi_vb_blk blk, const hi_video_frame &f);
// The bytes of @p frame's block, kept alive for pixel work outside the lock.
std::shared_ptr<VxBytes> vxFrameBytesOf(VxState &s, const VxFrameRef &frame, unsigned char **data);
// The platform clock (microseconds) as hi_mpi_sys_get_cur_pts reads it.
hi_u64 vxNow(const VxState &s);
// Puts @p frame (one new reference) at the end of @p queue; when @p depth
// frames are there already the oldest goes (user queues keep the newest).
void vxKeepNewest(VxState &s, VxFrameQueue &queue, hi_u32 depth, const VxFrameRef &frame);
// Hands @p frame to every receiver bound to @p src. A receiver whose queue
// is full loses the frame, and the loss is counted.
void vxDeliver(VxState &s, const hi_mpp_chn &src, const VxFrameRef &frame);
// Moves a frame out of @p user into @p held and copies it to @p out.
void vxHandOut(VxFrameQueue &user, std::vector<VxFrameRef> &held, hi_video_frame_info *out);
// Takes back the frame the user got: false when @p info names none of @p held.
bool vxTakeBack(VxState &s, std::vector<VxFrameRef> &held, const hi_video_frame_info *info);
// Waits until @p ready() or until @p milli_sec passed (-1: no end, 0: no
// wait). True when ready.
template <typename Ready>
bool vxWait(std::unique_lock<std::mutex> &lock, hi_s32 milli_sec, Ready ready)
{
    if (milli_sec < 0) {
        vxModel().changed.wait(lock, ready);
        return true;
    }
    return vxModel().changed.wait_for(lock, std::chrono::milliseconds(milli_sec), ready);
}

// --- VENC (mpi_venc.cpp) ---

// A frame from a binding for encoder channel std::get<2>(@p receiver): into
// its input queue, or counted as lost when the queue is full.
void vxVencReceive(VxState &s, const std::tuple<int, int, int> &receiver, const VxFrameRef &frame);
// Closes the event descriptors of every channel (the model goes back to power-on).
void vxVencCloseAll(VxState &s);

// Counts one whole-frame copy between stages (vx_model_frame_copies); safe
// outside the model's lock.
void vxCountFrameCopy();

// --- VDEC (mpi_vdec.cpp) ---

// Closes the event descriptors of every decoder channel.
void vxVdecCloseAll(VxState &s);

// --- VO (mpi_vo.cpp) ---

// A frame from a binding for VO channel (layer std::get<1>, channel
// std::get<2>) of @p receiver: queued for display, or counted as lost when
// the channel's queue is full. Ignored when the channel is not enabled.
void vxVoReceive(VxState &s, const std::tuple<int, int, int> &receiver, const VxFrameRef &frame);
// True when the VO channel of @p receiver would take a frame now (or drops
// it anyway because it is not enabled).
bool vxVoHasRoom(const VxState &s, const std::tuple<int, int, int> &receiver);

// Formats the arguments of a logged call (printf rules).
std::string vxArgs(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
// "{mod,dev,chn}" or "null".
std::string vxChn(const hi_mpp_chn *chn);
// Logs the call; true with the status to return when a fault is armed for it.
bool vxEnter(VxState &s, const char *function, const std::string &args, hi_s32 *status);

// Region holding [phys, phys + size), or null.
VxRegion *vxRegionAt(VxState &s, hi_phys_addr_t phys, hi_u64 size, hi_u32 *offset);
// Reserves a fresh stretch of physical addresses for @p size bytes.
hi_phys_addr_t vxReserve(VxState &s, hi_u64 size);

// Locks the model, logs the call and returns @p failValue when a fault is
// armed for it. Leaves `s` naming the model's state; `vxStatus` holds the
// armed status for use in @p failValue.
#define VX_CALL(failValue, ...)                                              \
    std::unique_lock<std::mutex> vxLock(vxModel().mutex);                    \
    VxState &s = vxModel().s;                                                \
    {                                                                        \
        hi_s32 vxStatus = 0;                                                 \
        if (vxEnter(s, __func__, vxArgs(__VA_ARGS__), &vxStatus))            \
            return failValue;                                                \
    }

#endif // MODEL_P_H
