# Module objects: VexaObject and its records.
vexa_folder_files(
    SOURCES vexaobject.cpp vexacorelog.cpp
    PUBLIC_HEADERS vexaobject.h VexaObject)
