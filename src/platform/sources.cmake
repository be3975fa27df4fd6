# Media platform glue: VexaHi, the VPSS tees and the vx_mpi helpers.
list(APPEND VEXA_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/hivpss.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexahi.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexaplatformlog.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexatee.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexateechn.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_dev.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_sys.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi_venc.cpp)
list(APPEND VEXA_PUBLIC_HEADERS
    ${CMAKE_CURRENT_LIST_DIR}/hivpss.h
    ${CMAKE_CURRENT_LIST_DIR}/vexahi.h
    ${CMAKE_CURRENT_LIST_DIR}/vexatee.h
    ${CMAKE_CURRENT_LIST_DIR}/vexateechn.h
    ${CMAKE_CURRENT_LIST_DIR}/vx_mpi.h)
