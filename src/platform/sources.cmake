# Media platform glue: VexaHi, the VPSS tees and the vx_mpi helpers (one
# source file per platform module they drive).
list(APPEND VEXA_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/hivpss.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexahi.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexaplatformlog.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexatee.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexateechn.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_sys.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_vdec.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_venc.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_vi.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_vo.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_vpss.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_tde.cpp)
list(APPEND VEXA_PUBLIC_HEADERS
    ${CMAKE_CURRENT_LIST_DIR}/hivpss.h
    ${CMAKE_CURRENT_LIST_DIR}/vexahi.h
    ${CMAKE_CURRENT_LIST_DIR}/vexatee.h
    ${CMAKE_CURRENT_LIST_DIR}/vexateechn.h
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi.h
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpp_chn.h)
