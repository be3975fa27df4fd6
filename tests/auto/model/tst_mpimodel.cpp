#include <QtTest>

#include <cstring>

#include "hi_mpi_sys.h"
#include "hi_mpi_vb.h"
#include "hi_mpi_vpss.h"
#include "vx_mpi_model.h"

// The platform rules of the software model that the glue's tests lean on:
// if the model let these through, those tests would prove nothing.
class tst_MpiModel : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void startOrder();
    void bindRules();
    void blocks();
    void mediaMemory();
    void vpssRules();
    void faults();
};

static hi_vb_cfg twoPools()
{
    hi_vb_cfg cfg;
    std::memset(&cfg, 0, sizeof(cfg));
    cfg.max_pool_cnt = 2;
    cfg.common_pool[0].blk_size = 8192;
    cfg.common_pool[0].blk_cnt = 1;
    cfg.common_pool[1].blk_size = 1024;
    cfg.common_pool[1].blk_cnt = 2;
    return cfg;
}

void tst_MpiModel::init()
{
    vx_model_reset();
}

void tst_MpiModel::startOrder()
{
    const hi_vb_cfg cfg = twoPools();
    QCOMPARE(hi_mpi_sys_init(), HI_ERR_SYS_NOT_PERM); // VB first
    QCOMPARE(hi_mpi_vb_set_cfg(&cfg), 0);
    QCOMPARE(hi_mpi_vb_init(), 0);
    QCOMPARE(hi_mpi_sys_init(), 0);
    QCOMPARE(hi_mpi_vb_exit(), HI_ERR_VB_NOT_PERM);
    QCOMPARE(hi_mpi_vb_exit_mod_common_pool(HI_VB_UID_VDEC), HI_ERR_VB_NOT_PERM);
    QCOMPARE(hi_mpi_sys_exit(), 0);
    QCOMPARE(hi_mpi_vb_exit_mod_common_pool(HI_VB_UID_VDEC), 0);
    QCOMPARE(hi_mpi_vb_exit(), 0);

    hi_vb_cfg tooMany = cfg;
    tooMany.max_pool_cnt = 17;
    QCOMPARE(hi_mpi_vb_set_cfg(&tooMany), HI_ERR_VB_ILLEGAL_PARAM);
}

void tst_MpiModel::bindRules()
{
    const hi_mpp_chn vi = {HI_ID_VI, 0, 0};
    const hi_mpp_chn vi2 = {HI_ID_VI, 0, 1};
    const hi_mpp_chn vpss = {HI_ID_VPSS, 4, 0};
    QCOMPARE(hi_mpi_sys_bind(&vi, &vpss), HI_ERR_SYS_NOT_READY);
    QCOMPARE(vx_model_boot(), 0);

    QCOMPARE(hi_mpi_sys_bind(&vi, &vpss), 0);
    QCOMPARE(hi_mpi_sys_bind(&vi2, &vpss), HI_ERR_SYS_EXIST);
    QCOMPARE(hi_mpi_sys_unbind(&vi2, &vpss), HI_ERR_SYS_UNEXIST);
    hi_mpp_chn src;
    QCOMPARE(hi_mpi_sys_get_bind_by_dst(&vpss, &src), 0);
    QCOMPARE(src.chn_id, 0);

    QCOMPARE(hi_mpi_sys_exit(), 0);
    QCOMPARE(hi_mpi_sys_init(), 0);
    QCOMPARE(hi_mpi_sys_get_bind_by_dst(&vpss, &src), HI_ERR_SYS_UNEXIST);
}

void tst_MpiModel::blocks()
{
    const hi_vb_cfg cfg = twoPools();
    QCOMPARE(vx_model_boot(&cfg), 0);

    // The smallest blocks that fit, then the larger pool, then nothing.
    const hi_vb_blk a = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 1000, nullptr);
    const hi_vb_blk b = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 1000, nullptr);
    const hi_vb_blk c = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 1000, nullptr);
    QCOMPARE(hi_mpi_vb_handle_to_pool_id(a), 1u);
    QCOMPARE(hi_mpi_vb_handle_to_pool_id(b), 1u);
    QCOMPARE(hi_mpi_vb_handle_to_pool_id(c), 0u);
    QCOMPARE(hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 10, nullptr), HI_VB_INVALID_HANDLE);
    QCOMPARE(vx_model_vb_free_blocks(1), 0);

    // Blocks of one pool do not overlap, and what is written through one
    // mapping is read through another.
    const hi_phys_addr_t pa = hi_mpi_vb_handle_to_phys_addr(a);
    QCOMPARE(hi_mpi_vb_handle_to_phys_addr(b), pa + 1024);
    static_cast<char *>(hi_mpi_sys_mmap(pa, 1024))[5] = 42;
    QCOMPARE(static_cast<char *>(hi_mpi_sys_mmap(pa + 5, 1))[0], char(42));
    QCOMPARE(hi_mpi_sys_mmap(pa, 4096), nullptr); // past the pool

    QCOMPARE(hi_mpi_vb_release_blk(a), 0);
    QCOMPARE(hi_mpi_vb_release_blk(a), HI_ERR_VB_ILLEGAL_PARAM);
    QCOMPARE(hi_mpi_vb_handle_to_pool_id(a), HI_VB_INVALID_POOL_ID);
    QCOMPARE(vx_model_vb_free_blocks(1), 1);
}

void tst_MpiModel::mediaMemory()
{
    QCOMPARE(vx_model_boot(), 0);
    hi_phys_addr_t phys = 0;
    hi_void *virt = nullptr;
    QCOMPARE(hi_mpi_sys_mmz_alloc(&phys, &virt, "a", nullptr, 100), 0);
    int other = 0;
    QCOMPARE(hi_mpi_sys_mmz_free(phys, &other), HI_ERR_SYS_ILLEGAL_PARAM);
    QCOMPARE(vx_model_mmz_count(), 1);
    QCOMPARE(hi_mpi_sys_mmz_free(phys, virt), 0);
    QCOMPARE(hi_mpi_sys_mmz_free(phys, virt), HI_ERR_SYS_ILLEGAL_PARAM);
    QCOMPARE(vx_model_mmz_count(), 0);
}

void tst_MpiModel::vpssRules()
{
    QCOMPARE(vx_model_boot(), 0);
    hi_vpss_grp_attr attr;
    std::memset(&attr, 0, sizeof(attr));
    QCOMPARE(hi_mpi_vpss_get_grp_attr(9, &attr), int(0xA0078009)); // the "no such group" status
    attr.max_width = 1920;
    attr.max_height = 1080;
    attr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
    attr.frame_rate = {-1, -1};
    QCOMPARE(hi_mpi_vpss_create_grp(9, &attr), 0);
    QCOMPARE(hi_mpi_vpss_create_grp(9, &attr), HI_ERR_VPSS_EXIST);

    attr.max_width = 3840;
    QCOMPARE(hi_mpi_vpss_set_grp_attr(9, &attr), HI_ERR_VPSS_NOT_SUPPORT); // fixed at creation
    QCOMPARE(hi_mpi_vpss_enable_chn(9, 0), HI_ERR_VPSS_NOT_PERM);         // no attribute yet
    hi_vpss_chn_attr chn;
    QCOMPARE(hi_mpi_vpss_get_chn_attr(9, 0, &chn), 0);
    chn.width = 2560; // wider than the group
    chn.height = 1080;
    QCOMPARE(hi_mpi_vpss_set_chn_attr(9, 0, &chn), HI_ERR_VPSS_ILLEGAL_PARAM);
    QCOMPARE(hi_mpi_vpss_get_chn_attr(9, 4, &chn), HI_ERR_VPSS_INVALID_CHN_ID);

    QCOMPARE(hi_mpi_vpss_start_grp(9), 0);
    QCOMPARE(hi_mpi_vpss_destroy_grp(9), HI_ERR_VPSS_NOT_PERM);
    QCOMPARE(hi_mpi_vpss_stop_grp(9), 0);
    QCOMPARE(hi_mpi_vpss_destroy_grp(9), 0);
}

void tst_MpiModel::faults()
{
    QCOMPARE(vx_model_boot(), 0);
    hi_u64 pts = 0;
    vx_model_set_cur_pts(77);
    vx_model_fail("hi_mpi_sys_get_cur_pts", HI_ERR_SYS_BUSY, 2);
    QCOMPARE(hi_mpi_sys_get_cur_pts(&pts), HI_ERR_SYS_BUSY);
    QCOMPARE(hi_mpi_sys_get_cur_pts(&pts), HI_ERR_SYS_BUSY);
    QCOMPARE(pts, 0ull);
    QCOMPARE(hi_mpi_sys_get_cur_pts(&pts), 0);
    QCOMPARE(pts, 77ull);

    vx_model_fail("hi_mpi_sys_mmap", 0, -1);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(hi_mpi_sys_mmap(0x10000000, 1), nullptr);
    const std::vector<std::string> calls = vx_model_calls();
    QCOMPARE(calls.size(), size_t(6));
    QCOMPARE(QString::fromStdString(calls.back()), QString("hi_mpi_sys_mmap(0x10000000,1)"));
}

QTEST_GUILESS_MAIN(tst_MpiModel)
#include "tst_mpimodel.moc"
