# JSON helper.
vexa_folder_files(
    SOURCES vexajson.cpp vexajsonlog.cpp
    PUBLIC_HEADERS vexajson.h)
