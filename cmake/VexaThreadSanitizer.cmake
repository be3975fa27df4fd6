# ThreadSanitizer build (VEXA_TSAN): every executable gets the library that
# annotates Qt's locks and event hand-over (instruments/tsan) as its first
# dependency, so that the dynamic linker binds Qt's lock calls to it.

# Executables defined in @p dir and the folders below it.
function(vexa_collect_executables dir out)
    set(found)
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(t IN LISTS targets)
        get_target_property(type ${t} TYPE)
        if(type STREQUAL "EXECUTABLE")
            list(APPEND found ${t})
        endif()
    endforeach()
    get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
    foreach(sub IN LISTS subdirs)
        vexa_collect_executables(${sub} sub_found)
        list(APPEND found ${sub_found})
    endforeach()
    set(${out} ${found} PARENT_SCOPE)
endfunction()

function(vexa_tsan_annotate_executables)
    vexa_collect_executables(${PROJECT_SOURCE_DIR} executables)
    foreach(t IN LISTS executables)
        get_target_property(libs ${t} LINK_LIBRARIES)
        if(NOT libs)
            set(libs)
        endif()
        set_target_properties(${t} PROPERTIES LINK_LIBRARIES "VexaTsanQt;${libs}")
    endforeach()
endfunction()
