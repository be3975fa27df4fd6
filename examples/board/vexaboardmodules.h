#ifndef VEXABOARDMODULES_H
#define VEXABOARDMODULES_H

#include <QStringList>

#include "vexaboardmodules_export.h"

/**
 * Registers the board module classes (VexaCapture, VexaEncoder,
 * VexaDecoder, VexaDisplay, VexaOverlay) under their class names, so that Vexa::create("Capture")
 * finds them. Returns the class names. Thread: the main thread, before
 * modules are created; repeated calls are harmless.
 */
VEXABOARDMODULES_EXPORT QStringList vexaRegisterBoardModules();

/** The entry point tools look up in a module library loaded by path. */
extern "C" VEXABOARDMODULES_EXPORT int vexaRegisterModules();

#endif // VEXABOARDMODULES_H
