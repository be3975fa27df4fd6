# JSON helper.
vexa_folder_files(
    SOURCES vexajson.cpp vexajsontext.cpp
    PUBLIC_HEADERS vexajson.h vexajsontext.h)
