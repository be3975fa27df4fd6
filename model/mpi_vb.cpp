// VB module of the software model: pool configuration, common, module and
// created pools, and blocks with their holders. Block handles encode the
// pool and the block index; a block is free again when its last holder
// released it.

#include "hi_mpi_vb.h"

#include <cstring>
#include <new>
#include <utility>

#include "hi_mpi_sys.h"
#include "model_p.h"

static bool validCfg(const hi_vb_cfg *cfg)
{
    if (cfg->max_pool_cnt > HI_VB_MAX_COMMON_POOLS)
        return false;
    for (hi_u32 i = 0; i < cfg->max_pool_cnt; ++i) {
        const hi_vb_pool_cfg &pool = cfg->common_pool[i];
        if (pool.blk_cnt > 0 && pool.blk_size == 0)
            return false;
        if (pool.blk_size * pool.blk_cnt > 0x40000000u) // the board has far less
            return false;
    }
    return true;
}

// Adds a pool of @p cfg's blocks, backed by host memory. False when the
// host has no memory for it.
static bool makePool(VxState &s, const hi_vb_pool_cfg &cfg, bool common)
{
    VxPool pool;
    pool.blkSize = cfg.blk_size;
    pool.refs.assign(cfg.blk_cnt, 0);
    pool.common = common;
    const hi_u64 bytes = cfg.blk_size * cfg.blk_cnt;
    if (bytes) {
        VxRegion region;
        try {
            region.mem->assign(static_cast<size_t>(bytes), 0);
        } catch (const std::bad_alloc &) {
            return false;
        }
        pool.base = vxReserve(s, bytes);
        s.regions[pool.base] = std::move(region);
    }
    s.pools.push_back(pool);
    return true;
}

hi_s32 hi_mpi_vb_set_cfg(const hi_vb_cfg *vb_cfg)
{
    VX_CALL(vxStatus, "%d", vb_cfg ? static_cast<int>(vb_cfg->max_pool_cnt) : -1);
    if (!vb_cfg)
        return HI_ERR_VB_NULL_PTR;
    if (s.vbReady)
        return HI_ERR_VB_BUSY;
    if (!validCfg(vb_cfg))
        return HI_ERR_VB_ILLEGAL_PARAM;
    s.vbCfg = *vb_cfg;
    s.vbConfigured = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vb_get_cfg(hi_vb_cfg *vb_cfg)
{
    VX_CALL(vxStatus, "%s", "");
    if (!vb_cfg)
        return HI_ERR_VB_NULL_PTR;
    if (!s.vbConfigured)
        return HI_ERR_VB_NOT_READY;
    *vb_cfg = s.vbCfg;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vb_init(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    if (s.vbReady)
        return HI_ERR_VB_BUSY;
    if (!s.vbConfigured)
        return HI_ERR_VB_NOT_READY;
    s.pools.clear();
    for (hi_u32 i = 0; i < s.vbCfg.max_pool_cnt; ++i) {
        if (!makePool(s, s.vbCfg.common_pool[i], true)) {
            for (const VxPool &made : s.pools)
                s.regions.erase(made.base);
            s.pools.clear();
            return HI_ERR_VB_NO_MEM;
        }
    }
    s.vbReady = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vb_exit(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    // The pools cannot go while SYS still runs on them.
    if (s.sysReady)
        return HI_ERR_VB_NOT_PERM;
    for (const VxPool &pool : s.pools) {
        if (pool.exists)
            s.regions.erase(pool.base);
    }
    s.pools.clear();
    s.vbReady = false;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vb_set_mod_pool_cfg(hi_vb_uid vb_uid, const hi_vb_cfg *vb_cfg)
{
    VX_CALL(vxStatus, "%d,%d", vxInt(vb_uid), vb_cfg ? static_cast<int>(vb_cfg->max_pool_cnt) : -1);
    if (!vb_cfg)
        return HI_ERR_VB_NULL_PTR;
    if (vxInt(vb_uid) < 0 || vxInt(vb_uid) >= HI_VB_UID_BUTT || !validCfg(vb_cfg))
        return HI_ERR_VB_ILLEGAL_PARAM;
    if (s.modPoolReady[vb_uid])
        return HI_ERR_VB_BUSY;
    s.modCfg[vb_uid] = *vb_cfg;
    s.modCfgSet[vb_uid] = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vb_init_mod_common_pool(hi_vb_uid vb_uid)
{
    VX_CALL(vxStatus, "%d", vxInt(vb_uid));
    if (vxInt(vb_uid) < 0 || vxInt(vb_uid) >= HI_VB_UID_BUTT)
        return HI_ERR_VB_ILLEGAL_PARAM;
    if (!s.sysReady)
        return HI_ERR_VB_NOT_PERM;
    if (!s.modCfgSet[vb_uid])
        return HI_ERR_VB_NOT_READY;
    s.modPoolReady[vb_uid] = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_vb_exit_mod_common_pool(hi_vb_uid vb_uid)
{
    VX_CALL(vxStatus, "%d", vxInt(vb_uid));
    if (vxInt(vb_uid) < 0 || vxInt(vb_uid) >= HI_VB_UID_BUTT)
        return HI_ERR_VB_ILLEGAL_PARAM;
    // Module pools go down only after SYS.
    if (s.sysReady)
        return HI_ERR_VB_NOT_PERM;
    s.modPoolReady[vb_uid] = false;
    return HI_SUCCESS;
}

static hi_vb_blk makeHandle(hi_u32 pool, hi_u32 index)
{
    return (pool << 16) | index;
}

// A free block of at least @p blk_size bytes from @p pool, or from the common
// pool with the smallest blocks that fit when @p pool is the invalid id.
static hi_vb_blk takeBlock(VxState &s, hi_vb_pool pool, hi_u64 blk_size)
{
    hi_u32 best = HI_VB_INVALID_POOL_ID;
    for (hi_u32 i = 0; i < s.pools.size(); ++i) {
        const VxPool &p = s.pools[i];
        if (!p.exists || (pool == HI_VB_INVALID_POOL_ID ? !p.common : pool != i))
            continue;
        if (p.blkSize < blk_size)
            continue;
        bool hasFree = false;
        for (int refs : p.refs)
            hasFree = hasFree || refs == 0;
        if (hasFree && (best == HI_VB_INVALID_POOL_ID || p.blkSize < s.pools[best].blkSize))
            best = i;
    }
    if (best == HI_VB_INVALID_POOL_ID)
        return HI_VB_INVALID_HANDLE;
    VxPool &p = s.pools[best];
    for (hi_u32 index = 0; index < p.refs.size(); ++index) {
        if (p.refs[index] == 0) {
            p.refs[index] = 1;
            // A block comes out zeroed, so a test sees what was written to it.
            std::memset(s.regions[p.base].data() + index * p.blkSize, 0, p.blkSize);
            return makeHandle(best, index);
        }
    }
    return HI_VB_INVALID_HANDLE;
}

hi_vb_pool hi_mpi_vb_create_pool(const hi_vb_pool_cfg *vb_pool_cfg)
{
    VX_CALL(HI_VB_INVALID_POOL_ID, "%llu,%u", vb_pool_cfg ? vb_pool_cfg->blk_size : 0ull,
            vb_pool_cfg ? vb_pool_cfg->blk_cnt : 0u);
    if (!vb_pool_cfg || vb_pool_cfg->blk_size == 0 || vb_pool_cfg->blk_cnt == 0
        || vb_pool_cfg->blk_cnt > 0xffff || vb_pool_cfg->blk_size * vb_pool_cfg->blk_cnt > 0x40000000u
        || s.pools.size() >= HI_VB_MAX_POOLS)
        return HI_VB_INVALID_POOL_ID;
    if (!makePool(s, *vb_pool_cfg, false))
        return HI_VB_INVALID_POOL_ID;
    return static_cast<hi_vb_pool>(s.pools.size() - 1);
}

hi_s32 hi_mpi_vb_destroy_pool(hi_vb_pool pool)
{
    VX_CALL(vxStatus, "%u", pool);
    // Only pools made with create_pool go this way; the common pools go with vb_exit.
    if (pool >= s.pools.size() || !s.pools[pool].exists || s.pools[pool].common)
        return HI_ERR_VB_ILLEGAL_PARAM;
    VxPool &p = s.pools[pool];
    for (int refs : p.refs) {
        if (refs)
            return HI_ERR_VB_BUSY; // a block still has holders
    }
    s.regions.erase(p.base);
    p.exists = false;
    p.refs.clear();
    return HI_SUCCESS;
}

hi_vb_blk hi_mpi_vb_get_blk(hi_vb_pool pool, hi_u64 blk_size, const hi_char *mmz_name)
{
    VX_CALL(HI_VB_INVALID_HANDLE, "%d,%llu,%s", static_cast<int>(pool), blk_size, mmz_name ? mmz_name : "null");
    if (!s.vbReady)
        return HI_VB_INVALID_HANDLE;
    return takeBlock(s, pool, blk_size);
}

hi_vb_blk vxTakeBlock(VxState &s, hi_u64 blk_size, hi_vb_pool pool)
{
    return takeBlock(s, pool, blk_size);
}

static VxPool *poolOf(VxState &s, hi_vb_blk blk, hi_u32 *index)
{
    if (blk == HI_VB_INVALID_HANDLE)
        return nullptr;
    const hi_u32 pool = blk >> 16;
    *index = blk & 0xffff;
    if (pool >= s.pools.size() || !s.pools[pool].exists || *index >= s.pools[pool].refs.size()
        || s.pools[pool].refs[*index] == 0)
        return nullptr;
    return &s.pools[pool];
}

bool vxRef(VxState &s, hi_vb_blk blk)
{
    hi_u32 index = 0;
    VxPool *pool = poolOf(s, blk, &index);
    if (!pool)
        return false;
    ++pool->refs[index];
    return true;
}

void vxUnref(VxState &s, hi_vb_blk blk)
{
    hi_u32 index = 0;
    VxPool *pool = poolOf(s, blk, &index);
    if (pool)
        --pool->refs[index];
}

hi_vb_blk vxBlockAt(const VxState &s, hi_phys_addr_t phys)
{
    for (hi_u32 i = 0; i < s.pools.size(); ++i) {
        const VxPool &p = s.pools[i];
        if (!p.exists || p.refs.empty() || phys < p.base || phys >= p.base + p.blkSize * p.refs.size())
            continue;
        const hi_u32 index = static_cast<hi_u32>((phys - p.base) / p.blkSize);
        return p.refs[index] ? makeHandle(i, index) : HI_VB_INVALID_HANDLE;
    }
    return HI_VB_INVALID_HANDLE;
}

hi_s32 hi_mpi_vb_release_blk(hi_vb_blk vb_blk)
{
    VX_CALL(vxStatus, "%u", vb_blk);
    hi_u32 index = 0;
    VxPool *pool = poolOf(s, vb_blk, &index);
    if (!pool)
        return HI_ERR_VB_ILLEGAL_PARAM;
    --pool->refs[index];
    vxModel().changed.notify_all();
    return HI_SUCCESS;
}

hi_vb_blk hi_mpi_vb_phys_addr_to_handle(hi_phys_addr_t phys_addr)
{
    VX_CALL(HI_VB_INVALID_HANDLE, "0x%x", phys_addr);
    return vxBlockAt(s, phys_addr);
}

hi_s32 hi_mpi_vb_inquire_user_cnt(hi_vb_blk vb_blk)
{
    VX_CALL(vxStatus, "%u", vb_blk);
    hi_u32 index = 0;
    VxPool *pool = poolOf(s, vb_blk, &index);
    return pool ? pool->refs[index] : HI_ERR_VB_ILLEGAL_PARAM;
}

hi_vb_pool hi_mpi_vb_handle_to_pool_id(hi_vb_blk vb_blk)
{
    VX_CALL(HI_VB_INVALID_POOL_ID, "%u", vb_blk);
    hi_u32 index = 0;
    return poolOf(s, vb_blk, &index) ? vb_blk >> 16 : HI_VB_INVALID_POOL_ID;
}

hi_phys_addr_t hi_mpi_vb_handle_to_phys_addr(hi_vb_blk vb_blk)
{
    VX_CALL(0, "%u", vb_blk);
    hi_u32 index = 0;
    VxPool *pool = poolOf(s, vb_blk, &index);
    return pool ? static_cast<hi_phys_addr_t>(pool->base + index * pool->blkSize) : 0;
}

hi_s32 vx_model_boot(const hi_vb_cfg *cfg)
{
    hi_vb_cfg fallback;
    std::memset(&fallback, 0, sizeof(fallback));
    fallback.max_pool_cnt = 1;
    fallback.common_pool[0].blk_size = 1920 * 1088 * 3 / 2;
    fallback.common_pool[0].blk_cnt = 8;

    size_t logged = vx_model_calls().size();
    hi_s32 ret = hi_mpi_vb_set_cfg(cfg ? cfg : &fallback);
    if (ret == HI_SUCCESS)
        ret = hi_mpi_vb_init();
    if (ret == HI_SUCCESS)
        ret = hi_mpi_sys_init();

    std::lock_guard<std::mutex> guard(vxModel().mutex);
    std::vector<std::string> &calls = vxModel().s.calls;
    if (calls.size() >= logged)
        calls.resize(logged);
    return ret;
}
