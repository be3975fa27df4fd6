# Run by CTest in script mode; see CMakeLists.txt beside this file.
set(prefix ${VEXA_WORK_DIR}/prefix)
set(build ${VEXA_WORK_DIR}/consumer-build)
file(REMOVE_RECURSE ${VEXA_WORK_DIR})

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
    endif()
    set(run_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${VEXA_BUILD_DIR} --prefix ${prefix})

foreach(f lib/libVexaBase.so.1 include/VexaBase/VexaObject include/VexaBase/Vexa
          include/VexaBase/vexabase_export.h lib/pkgconfig/VexaBase.pc
          lib/cmake/VexaBase/VexaBaseConfig.cmake)
    if(NOT EXISTS ${prefix}/${f})
        message(FATAL_ERROR "not installed: ${f}")
    endif()
endforeach()

set(config_args -S ${VEXA_CONSUMER_SOURCE} -B ${build} -DCMAKE_PREFIX_PATH=${prefix})
if(VEXA_SANITIZE)
    # A sanitized library needs the sanitizer runtime first in the program.
    list(APPEND config_args "-DCMAKE_CXX_FLAGS=-fsanitize=address,undefined"
                            "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=address,undefined")
elseif(VEXA_TSAN)
    list(APPEND config_args "-DCMAKE_CXX_FLAGS=-fsanitize=thread"
                            "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread")
endif()
if(VEXA_TOOLCHAIN_FILE)
    list(APPEND config_args -DCMAKE_TOOLCHAIN_FILE=${VEXA_TOOLCHAIN_FILE})
endif()
run(${CMAKE_COMMAND} ${config_args})
run(${CMAKE_COMMAND} --build ${build})
run(${VEXA_EMULATOR} ${build}/vexa-consumer)
if(NOT run_output MATCHES "VexaBase 3.5.1 build 29856")
    message(FATAL_ERROR "unexpected consumer output: ${run_output}")
endif()

file(READ ${prefix}/lib/pkgconfig/VexaBase.pc pc)
if(NOT pc MATCHES "Version: 3.5.1" OR NOT pc MATCHES "-lVexaBase")
    message(FATAL_ERROR "VexaBase.pc is not as expected:\n${pc}")
endif()

# The two package descriptions declare the same public dependencies, and
# FFmpeg, private to the shared library, in neither.
file(READ ${prefix}/lib/cmake/VexaBase/VexaBaseTargets.cmake targets)
file(READ ${prefix}/lib/cmake/VexaBase/VexaBaseConfig.cmake config)
foreach(text IN ITEMS "${pc}" "${targets}" "${config}")
    if(text MATCHES "FFMPEG|libav")
        message(FATAL_ERROR "an installed package description names FFmpeg:\n${text}")
    endif()
endforeach()
if(NOT pc MATCHES "Requires: Qt5Core" OR NOT config MATCHES "find_dependency\\(Qt5Core")
    message(FATAL_ERROR "Qt5Core is not declared by both package descriptions")
endif()

# The same consumer built from pkg-config's flags alone (native builds: a
# cross build has no target pkg-config set up for it).
if(NOT VEXA_TOOLCHAIN_FILE AND VEXA_CXX)
    find_program(pkg_config pkg-config REQUIRED)
    set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
    run(${pkg_config} --cflags --libs VexaBase)
    separate_arguments(pc_flags UNIX_COMMAND "${run_output}")
    set(pc_build_flags -std=c++17 -fPIC)
    if(VEXA_SANITIZE)
        list(APPEND pc_build_flags -fsanitize=address,undefined)
    endif()
    run(${VEXA_CXX} ${pc_build_flags} ${VEXA_CONSUMER_SOURCE}/main.cpp ${pc_flags}
        -Wl,-rpath,${prefix}/lib -o ${build}/vexa-consumer-pc)
    run(${build}/vexa-consumer-pc)
    if(NOT run_output MATCHES "VexaBase 3.5.1 build 29856")
        message(FATAL_ERROR "unexpected output of the pkg-config consumer: ${run_output}")
    endif()
endif()
