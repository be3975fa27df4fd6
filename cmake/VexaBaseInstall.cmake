# Installation of libVexaBase: library, public headers, CMake package
# (find_package(VexaBase) -> VexaBase::VexaBase) and VexaBase.pc.
include(CMakePackageConfigHelpers)

set(VEXA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VexaBase)

install(TARGETS VexaBase ${VEXA_MPI_TARGET}
    EXPORT VexaBaseTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VexaBase)
install(FILES ${VEXA_PUBLIC_HEADERS} ${CMAKE_CURRENT_BINARY_DIR}/vexabase_export.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VexaBase)
install(EXPORT VexaBaseTargets
    NAMESPACE VexaBase::
    DESTINATION ${VEXA_CMAKE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VexaBaseConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/VexaBaseConfig.cmake
    INSTALL_DESTINATION ${VEXA_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VexaBaseConfigVersion.cmake
    VERSION ${PROJECT_VERSION}
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/VexaBaseConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/VexaBaseConfigVersion.cmake
    DESTINATION ${VEXA_CMAKE_DIR})

# The platform library as pkg-config spells it: the installed software
# model, or the chip SDK where it lies.
if(VEXA_PLATFORM STREQUAL "model")
    set(VEXA_PC_PLATFORM_LIBS "-lVexaMpiModel")
    set(VEXA_PC_PLATFORM_CFLAGS "-I\${includedir}/mpi")
else()
    set(VEXA_PC_PLATFORM_LIBS "-L${VEXA_SDK_DIR}/lib")
    foreach(lib IN LISTS VEXA_SDK_LIBS)
        string(APPEND VEXA_PC_PLATFORM_LIBS " -l${lib}")
    endforeach()
    set(VEXA_PC_PLATFORM_CFLAGS "-I${VEXA_SDK_DIR}/include")
endif()
file(RELATIVE_PATH VEXA_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" VEXA_PC_TO_PREFIX "${VEXA_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/VexaBase.pc.in ${CMAKE_CURRENT_BINARY_DIR}/VexaBase.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VexaBase.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
