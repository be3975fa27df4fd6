// SYS module of the software model: init and exit, bindings, the PTS clock
// and media memory (MMZ) with its mappings.

#include "hi_mpi_sys.h"

#include <ctime>
#include <new>
#include <utility>

#include "model_p.h"

hi_s32 hi_mpi_sys_init(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    // SYS sits on top of the VB pools: they must be up first.
    if (!s.vbReady)
        return HI_ERR_SYS_NOT_PERM;
    if (s.sysReady)
        return HI_ERR_SYS_BUSY;
    s.sysReady = true;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_sys_exit(hi_void)
{
    VX_CALL(vxStatus, "%s", "");
    // Leaving SYS drops every binding, as on the board.
    s.sysReady = false;
    s.binds.clear();
    return HI_SUCCESS;
}

static bool validChn(const hi_mpp_chn *chn)
{
    return vxInt(chn->mod_id) >= 0 && vxInt(chn->mod_id) < HI_ID_BUTT && chn->dev_id >= 0 && chn->chn_id >= 0;
}

static std::tuple<int, int, int> key(const hi_mpp_chn *chn)
{
    return std::make_tuple(vxInt(chn->mod_id), chn->dev_id, chn->chn_id);
}

hi_s32 hi_mpi_sys_bind(const hi_mpp_chn *src_chn, const hi_mpp_chn *dst_chn)
{
    VX_CALL(vxStatus, "%s,%s", vxChn(src_chn).c_str(), vxChn(dst_chn).c_str());
    if (!src_chn || !dst_chn)
        return HI_ERR_SYS_NULL_PTR;
    if (!s.sysReady)
        return HI_ERR_SYS_NOT_READY;
    if (!validChn(src_chn) || !validChn(dst_chn))
        return HI_ERR_SYS_ILLEGAL_PARAM;
    // A receiver has one source: a second bind must be preceded by an unbind.
    if (s.binds.count(key(dst_chn)))
        return HI_ERR_SYS_EXIST;
    s.binds[key(dst_chn)] = *src_chn;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_sys_unbind(const hi_mpp_chn *src_chn, const hi_mpp_chn *dst_chn)
{
    VX_CALL(vxStatus, "%s,%s", vxChn(src_chn).c_str(), vxChn(dst_chn).c_str());
    if (!src_chn || !dst_chn)
        return HI_ERR_SYS_NULL_PTR;
    if (!s.sysReady)
        return HI_ERR_SYS_NOT_READY;
    auto it = s.binds.find(key(dst_chn));
    if (it == s.binds.end() || key(&it->second) != key(src_chn))
        return HI_ERR_SYS_UNEXIST;
    s.binds.erase(it);
    return HI_SUCCESS;
}

hi_s32 hi_mpi_sys_get_bind_by_dst(const hi_mpp_chn *dst_chn, hi_mpp_chn *src_chn)
{
    VX_CALL(vxStatus, "%s", vxChn(dst_chn).c_str());
    if (!src_chn || !dst_chn)
        return HI_ERR_SYS_NULL_PTR;
    if (!s.sysReady)
        return HI_ERR_SYS_NOT_READY;
    auto it = s.binds.find(key(dst_chn));
    if (it == s.binds.end())
        return HI_ERR_SYS_UNEXIST;
    *src_chn = it->second;
    return HI_SUCCESS;
}

hi_s32 hi_mpi_sys_get_cur_pts(hi_u64 *cur_pts)
{
    VX_CALL(vxStatus, "%s", "");
    if (!cur_pts)
        return HI_ERR_SYS_NULL_PTR;
    *cur_pts = vxNow(s);
    return HI_SUCCESS;
}

static hi_void *mapRegion(VxState &s, hi_phys_addr_t phys_addr, hi_u32 size)
{
    hi_u32 offset = 0;
    VxRegion *region = size ? vxRegionAt(s, phys_addr, size, &offset) : nullptr;
    return region ? region->data() + offset : nullptr;
}

hi_void *hi_mpi_sys_mmap(hi_phys_addr_t phys_addr, hi_u32 size)
{
    VX_CALL(nullptr, "0x%x,%u", phys_addr, size);
    return mapRegion(s, phys_addr, size);
}

hi_void *hi_mpi_sys_mmap_cached(hi_phys_addr_t phys_addr, hi_u32 size)
{
    VX_CALL(nullptr, "0x%x,%u", phys_addr, size);
    return mapRegion(s, phys_addr, size);
}

hi_s32 hi_mpi_sys_munmap(const hi_void *virt_addr, hi_u32 size)
{
    VX_CALL(vxStatus, "%s,%u", virt_addr ? "virt" : "null", size);
    if (!virt_addr)
        return HI_ERR_SYS_NULL_PTR;
    const unsigned char *p = static_cast<const unsigned char *>(virt_addr);
    for (const auto &r : s.regions) {
        const unsigned char *begin = r.second.data();
        if (p >= begin && p + size <= begin + r.second.size())
            return HI_SUCCESS;
    }
    return HI_ERR_SYS_ILLEGAL_PARAM;
}

static hi_s32 mmzAlloc(VxState &s, hi_phys_addr_t *phys_addr, hi_void **virt_addr, hi_u32 len)
{
    if (!phys_addr || !virt_addr)
        return HI_ERR_SYS_NULL_PTR;
    if (!s.sysReady)
        return HI_ERR_SYS_NOT_READY;
    if (len == 0)
        return HI_ERR_SYS_ILLEGAL_PARAM;
    VxRegion region;
    try {
        region.mem->assign(len, 0);
    } catch (const std::bad_alloc &) {
        return HI_ERR_SYS_NO_MEM; // the host ran out where the board's zone would
    }
    region.mmz = true;
    const hi_phys_addr_t phys = vxReserve(s, len);
    s.regions[phys] = std::move(region);
    *phys_addr = phys;
    *virt_addr = s.regions[phys].data();
    return HI_SUCCESS;
}

hi_s32 hi_mpi_sys_mmz_alloc(hi_phys_addr_t *phys_addr, hi_void **virt_addr,
                            const hi_char *mmb, const hi_char *zone, hi_u32 len)
{
    VX_CALL(vxStatus, "%s,%s,%u", mmb ? mmb : "null", zone ? zone : "null", len);
    return mmzAlloc(s, phys_addr, virt_addr, len);
}

hi_s32 hi_mpi_sys_mmz_alloc_cached(hi_phys_addr_t *phys_addr, hi_void **virt_addr,
                                   const hi_char *mmb, const hi_char *zone, hi_u32 len)
{
    VX_CALL(vxStatus, "%s,%s,%u", mmb ? mmb : "null", zone ? zone : "null", len);
    return mmzAlloc(s, phys_addr, virt_addr, len);
}

hi_s32 hi_mpi_sys_mmz_free(hi_phys_addr_t phys_addr, const hi_void *virt_addr)
{
    VX_CALL(vxStatus, "0x%x,%s", phys_addr, virt_addr ? "virt" : "null");
    auto it = s.regions.find(phys_addr);
    if (it == s.regions.end() || !it->second.mmz)
        return HI_ERR_SYS_ILLEGAL_PARAM;
    // A virtual address, when given, must be the one handed out with the block.
    if (virt_addr && virt_addr != it->second.data())
        return HI_ERR_SYS_ILLEGAL_PARAM;
    s.regions.erase(it);
    return HI_SUCCESS;
}
