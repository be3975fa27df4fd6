# Framework services: Vexa (factory, threads, links, start-up) and VexaNames.
vexa_folder_files(
    SOURCES vexa.cpp vexainputnet_p.cpp vexaframeworklog.cpp vexanames.cpp
    PUBLIC_HEADERS vexa.h vexanames.h Vexa)
