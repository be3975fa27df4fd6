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
