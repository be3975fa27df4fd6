#include <QtTest>

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
    void init() { vx_model_reset(); }

    // VB comes up before SYS and goes down after it; a destination takes one
    // source; a SYS restart forgets every binding.
    void startOrderAndBinding()
    {
        const hi_mpp_chn vi = {HI_ID_VI, 0, 0}, vi2 = {HI_ID_VI, 0, 1}, vpss = {HI_ID_VPSS, 4, 0};
        QCOMPARE(hi_mpi_sys_init(), HI_ERR_SYS_NOT_PERM);
        QCOMPARE(hi_mpi_sys_bind(&vi, &vpss), HI_ERR_SYS_NOT_READY);
        QCOMPARE(vx_model_boot(), 0);
        QCOMPARE(hi_mpi_vb_exit(), HI_ERR_VB_NOT_PERM);
        QCOMPARE(hi_mpi_sys_bind(&vi, &vpss), 0);
        QCOMPARE(hi_mpi_sys_bind(&vi2, &vpss), HI_ERR_SYS_EXIST);
        QCOMPARE(hi_mpi_sys_unbind(&vi2, &vpss), HI_ERR_SYS_UNEXIST);
        QCOMPARE(hi_mpi_sys_exit(), 0);
        QCOMPARE(hi_mpi_sys_init(), 0);
        hi_mpp_chn src;
        QCOMPARE(hi_mpi_sys_get_bind_by_dst(&vpss, &src), HI_ERR_SYS_UNEXIST);
    }

    // Blocks come from the smallest pool that fits, and one mapping sees
    // what another wrote.
    void blocks()
    {
        hi_vb_cfg cfg = {2, {{8192, 1, {}, {}}, {1024, 2, {}, {}}}};
        QCOMPARE(vx_model_boot(&cfg), 0);
        const hi_vb_blk a = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 1000, nullptr);
        const hi_vb_blk b = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 1000, nullptr);
        const hi_vb_blk c = hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 1000, nullptr);
        QCOMPARE(QList<hi_vb_pool>({hi_mpi_vb_handle_to_pool_id(a), hi_mpi_vb_handle_to_pool_id(b),
                                    hi_mpi_vb_handle_to_pool_id(c)}),
                 QList<hi_vb_pool>({1, 1, 0}));
        QCOMPARE(hi_mpi_vb_get_blk(HI_VB_INVALID_POOL_ID, 10, nullptr), HI_VB_INVALID_HANDLE);
        const hi_phys_addr_t pa = hi_mpi_vb_handle_to_phys_addr(a);
        static_cast<char *>(hi_mpi_sys_mmap(pa, 1024))[5] = 42;
        QCOMPARE(static_cast<char *>(hi_mpi_sys_mmap(pa + 5, 1))[0], char(42));
        QCOMPARE(hi_mpi_sys_mmap(pa, 4096), nullptr); // past the pool
    }

    // A group's maximum is fixed at creation and no channel may exceed it.
    void vpssRules()
    {
        QCOMPARE(vx_model_boot(), 0);
        hi_vpss_grp_attr attr = {};
        QCOMPARE(hi_mpi_vpss_get_grp_attr(9, &attr), int(0xA0078009)); // the "no such group" status
        attr.max_width = 1920;
        attr.max_height = 1080;
        attr.pixel_format = HI_PIXEL_FORMAT_YVU_SEMIPLANAR_420;
        attr.frame_rate = {-1, -1};
        QCOMPARE(hi_mpi_vpss_create_grp(9, &attr), 0);
        attr.max_width = 3840;
        QCOMPARE(hi_mpi_vpss_set_grp_attr(9, &attr), HI_ERR_VPSS_NOT_SUPPORT);
        hi_vpss_chn_attr chn;
        QCOMPARE(hi_mpi_vpss_get_chn_attr(9, 0, &chn), 0);
        chn.width = 2560; // wider than the group
        chn.height = 1080;
        QCOMPARE(hi_mpi_vpss_set_chn_attr(9, 0, &chn), HI_ERR_VPSS_ILLEGAL_PARAM);
    }

    // An injected fault lasts its count, has no effect and is logged.
    void faults()
    {
        QCOMPARE(vx_model_boot(), 0);
        hi_u64 pts = 0;
        vx_model_set_cur_pts(77);
        vx_model_fail("hi_mpi_sys_get_cur_pts", HI_ERR_SYS_BUSY, 2);
        for (int i = 0; i < 2; ++i)
            QCOMPARE(hi_mpi_sys_get_cur_pts(&pts), HI_ERR_SYS_BUSY);
        QCOMPARE(pts, 0ull);
        QCOMPARE(hi_mpi_sys_get_cur_pts(&pts), 0);
        QCOMPARE(pts, 77ull);
        QCOMPARE(vx_model_calls().size(), size_t(3));
    }
};

QTEST_GUILESS_MAIN(tst_MpiModel)
#include "tst_mpimodel.moc"
