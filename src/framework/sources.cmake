# Framework services: Vexa (factory, threads, links, start-up), VexaNames and
# the per-class declarations of settings and interfaces (VexaClassInfo).
vexa_folder_files(
    SOURCES vexa.cpp vexaclassinfo.cpp vexainterruptthreads.cpp vexanames.cpp
    PUBLIC_HEADERS vexa.h vexanames.h Vexa vexaclassinfo.h VexaClassInfo)
