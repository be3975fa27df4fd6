# Media platform glue: VexaHi, the VPSS tees and the vx_mpi helpers (one
# source file per platform module they drive).
vexa_folder_files(
    SOURCES hivpss.cpp vexahi.cpp vexatee.cpp vexateechn.cpp
            vx_mpi_sys.cpp vx_mpi_vdec.cpp vx_mpi_venc.cpp vx_mpi_vi.cpp vx_mpi_vo.cpp
            vx_mpi_vpss.cpp vx_tde.cpp
    PUBLIC_HEADERS hivpss.h vexahi.h vexatee.h vexateechn.h vx_mpi.h vx_mpp_chn.h)
