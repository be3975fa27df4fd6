#ifndef VEXAEXAMPLEMODULES_H
#define VEXAEXAMPLEMODULES_H

#include <QStringList>

#include "vexaexamplemodules_export.h"

/**
 * Registers the example module classes (VexaInputFile, VexaOutputFile,
 * VexaPacketStats, VexaInputNet, VexaOutputNet, and VexaRtspServer where it
 * is built) with the meta-type system under their class names, so
 * that Vexa::create("InputFile") finds them. Returns the class names.
 * Thread: call from the main thread before creating modules; repeated calls
 * are harmless.
 */
VEXAEXAMPLEMODULES_EXPORT QStringList vexaRegisterExampleModules();

/**
 * The entry point that tools look up in a module library loaded by path
 * (QLibrary::resolve("vexaRegisterModules")): registers the library's
 * classes and returns how many.
 */
extern "C" VEXAEXAMPLEMODULES_EXPORT int vexaRegisterModules();

#endif // VEXAEXAMPLEMODULES_H
