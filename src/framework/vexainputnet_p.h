#ifndef VEXAINPUTNET_P_H
#define VEXAINPUTNET_P_H

//
// Not API: the SIGINT handler's view of the network-input module.
//

// The network-input module (a module library of its own) owns a static timer
// thread that must stop before the process exits on SIGINT:
//     class VexaInputNet : public VexaObject { ... static QThread timerThread; };
//     QThread VexaInputNet::timerThread;   // default visibility
// The base library refers to that symbol weakly, so it links without the
// module, and looks it up by name when the module library was opened later
// with global symbols (QLibrary with ExportExternalSymbolsHint, dlopen with
// RTLD_GLOBAL). A library opened with local symbols is not seen.

// Quits VexaInputNet::timerThread when a loaded module library defines it and
// waits up to about a second for it to finish. False when it is still
// running (or the caller is that thread): the process must then end without
// running static destructors.
bool vexaStopNetTimer();

#endif // VEXAINPUTNET_P_H
