list(APPEND VEXA_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/vexaobject.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexadelivery.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexalinktable.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vexathreaduses.cpp)
list(APPEND VEXA_PUBLIC_HEADERS ${CMAKE_CURRENT_LIST_DIR}/vexaobject.h ${CMAKE_CURRENT_LIST_DIR}/VexaObject)
