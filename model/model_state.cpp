// Shared state of the software model, its call log, fault injection and the
// controls declared in vx_mpi_model.h.

#include <atomic>
#include "model_p.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

VxState::VxState()
{
    // What the platform reports for a fresh encoder channel before anyone
    // changed it: three stream buffers.
    for (VxVencChn &chn : venc)
        chn.param.max_stream_cnt = 3;
    vdecMod.vb_src = HI_VB_SRC_MOD;
    for (int i = 0; i <= HI_VENC_MOD_RC; ++i)
        vencMod[i].mod_type = static_cast<hi_venc_mod_type>(i);
}

VxModel &vxModel()
{
    static VxModel model;
    return model;
}

std::string vxArgs(const char *fmt, ...)
{
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    return buf;
}

std::string vxChn(const hi_mpp_chn *chn)
{
    if (!chn)
        return "null";
    return vxArgs("{%d,%d,%d}", vxInt(chn->mod_id), chn->dev_id, chn->chn_id);
}

bool vxEnter(VxState &s, const char *function, const std::string &args, hi_s32 *status)
{
    s.calls.push_back(std::string(function) + "(" + args + ")");
    auto it = s.faults.find(function);
    if (it == s.faults.end())
        return false;
    *status = it->second.first;
    if (it->second.second > 0 && --it->second.second == 0)
        s.faults.erase(it);
    return true;
}

VxRegion *vxRegionAt(VxState &s, hi_phys_addr_t phys, hi_u64 size, hi_u32 *offset)
{
    auto it = s.regions.upper_bound(phys);
    if (it == s.regions.begin())
        return nullptr;
    --it;
    const hi_u64 off = phys - it->first;
    if (off + size > it->second.size())
        return nullptr;
    if (offset)
        *offset = static_cast<hi_u32>(off);
    return &it->second;
}

hi_phys_addr_t vxReserve(VxState &s, hi_u64 size)
{
    const hi_phys_addr_t phys = s.nextPhys;
    // Page-aligned, with a guard page so that neighbours never touch.
    const hi_u64 span = ((size + 0xfff) & ~static_cast<hi_u64>(0xfff)) + 0x1000;
    s.nextPhys = static_cast<hi_phys_addr_t>(s.nextPhys + span);
    return phys;
}

VxModel::~VxModel()
{
    // Threads still running at exit are stopped before the state goes.
    std::unique_lock<std::mutex> lock(mutex);
    vxStopAllWorkers(lock);
}

void vxStopWorker(std::unique_lock<std::mutex> &lock, std::unique_ptr<VxWorker> &worker)
{
    if (!worker)
        return;
    std::unique_ptr<VxWorker> gone = std::move(worker);
    gone->stop = true;
    vxModel().changed.notify_all();
    lock.unlock();
    gone->thread.join();
    lock.lock();
}

void vxStopAllWorkers(std::unique_lock<std::mutex> &lock)
{
    VxState &s = vxModel().s;
    // Stopping one may let another call start one: repeat until none runs.
    for (bool again = true; again;) {
        again = false;
        for (size_t i = 0; i < s.viPipe.size(); ++i) {
            if (s.viPipe[i].stage.running()) {
                s.viPipe[i].started = false;
                s.viPipe[i].stage.stop(s, lock);
                again = true;
            }
        }
        for (size_t i = 0; i < s.vpss.size(); ++i) {
            if (s.vpss[i].stage.running()) {
                s.vpss[i].started = false;
                s.vpss[i].stage.stop(s, lock);
                again = true;
            }
        }
        for (size_t i = 0; i < s.venc.size(); ++i) {
            if (s.venc[i].stage.running()) {
                s.venc[i].started = false;
                s.venc[i].stage.stop(s, lock);
                again = true;
            }
        }
        for (size_t i = 0; i < s.vdec.size(); ++i) {
            if (s.vdec[i].worker) {
                vxStopWorker(lock, s.vdec[i].worker);
                again = true;
            }
        }
        for (size_t i = 0; i < s.voDev.size(); ++i) {
            if (s.voDev[i].worker) {
                vxStopWorker(lock, s.voDev[i].worker);
                again = true;
            }
        }
    }
}

static std::atomic<unsigned long long> frameCopies{0};

void vxCountFrameCopy()
{
    frameCopies.fetch_add(1, std::memory_order_relaxed);
}

unsigned long long vx_model_frame_copies()
{
    return frameCopies.load(std::memory_order_relaxed);
}

void vx_model_reset()
{
    std::unique_lock<std::mutex> lock(vxModel().mutex);
    vxStopAllWorkers(lock);
    vxVencCloseAll(vxModel().s);
    vxVdecCloseAll(vxModel().s);
    vxModel().s = VxState();
    frameCopies = 0;
}

void vx_model_clear_calls()
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    vxModel().s.calls.clear();
}

std::vector<std::string> vx_model_calls()
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    return vxModel().s.calls;
}

void vx_model_fail(const char *function, hi_s32 status, int times)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    if (times == 0)
        vxModel().s.faults.erase(function);
    else
        vxModel().s.faults[function] = std::make_pair(status, times);
}

void vx_model_set_cur_pts(hi_u64 pts)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    vxModel().s.ptsFixed = true;
    vxModel().s.pts = pts;
}

void vx_model_use_clock()
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    vxModel().s.ptsFixed = false;
}

bool vx_model_vpss_grp_exists(hi_vpss_grp grp)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    return grp >= 0 && grp < HI_VPSS_MAX_GRP_NUM && vxModel().s.vpss[grp].exists;
}

bool vx_model_vpss_grp_started(hi_vpss_grp grp)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    return grp >= 0 && grp < HI_VPSS_MAX_GRP_NUM && vxModel().s.vpss[grp].started;
}

bool vx_model_vpss_chn_enabled(hi_vpss_grp grp, hi_vpss_chn chn)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    return grp >= 0 && grp < HI_VPSS_MAX_GRP_NUM && chn >= 0 && chn < HI_VPSS_MAX_PHYS_CHN_NUM
        && vxModel().s.vpss[grp].chn[chn].enabled;
}

int vx_model_vb_free_blocks(hi_vb_pool pool)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    const VxState &s = vxModel().s;
    if (pool >= s.pools.size())
        return -1;
    if (!s.pools[pool].exists)
        return -1;
    int n = 0;
    for (int refs : s.pools[pool].refs)
        n += refs == 0 ? 1 : 0;
    return n;
}

int vx_model_mmz_count()
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    int n = 0;
    for (const auto &r : vxModel().s.regions)
        n += r.second.mmz ? 1 : 0;
    return n;
}

bool vx_model_venc_started(hi_venc_chn chn, hi_s32 *recvPicNum)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    if (chn < 0 || chn >= HI_VENC_MAX_CHN_NUM || !vxModel().s.venc[chn].started)
        return false;
    if (recvPicNum)
        *recvPicNum = vxModel().s.venc[chn].recvPicNum;
    return true;
}

bool vx_model_vpss_pause(hi_vpss_grp grp, bool paused)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    if (grp < 0 || grp >= HI_VPSS_MAX_GRP_NUM || !vxModel().s.vpss[grp].exists)
        return false;
    vxModel().s.vpss[grp].paused = paused;
    vxModel().changed.notify_all();
    return true;
}

unsigned long long vx_model_bind_drops(const hi_mpp_chn *dst)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    if (!dst)
        return 0;
    auto it = vxModel().s.bindDrops.find(std::make_tuple(vxInt(dst->mod_id), dst->dev_id, dst->chn_id));
    return it == vxModel().s.bindDrops.end() ? 0 : it->second;
}

bool vx_model_last_blit(vx_model_blit *out)
{
    std::lock_guard<std::mutex> guard(vxModel().mutex);
    if (!vxModel().s.haveBlit || !out)
        return false;
    *out = vxModel().s.lastBlit;
    return true;
}
