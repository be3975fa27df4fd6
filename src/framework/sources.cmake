list(APPEND VEXA_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/vexa.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexainputnet_p.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexaframeworklog.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexanames.cpp)
list(APPEND VEXA_PUBLIC_HEADERS
    ${CMAKE_CURRENT_LIST_DIR}/vexa.h
    ${CMAKE_CURRENT_LIST_DIR}/vexanames.h
    ${CMAKE_CURRENT_LIST_DIR}/Vexa)
