#ifndef VEXAINPUTNET_P_H
#define VEXAINPUTNET_P_H

//
// Not API: the SIGINT handler's view of the network-input module.
//

// The network-input module (a module library of its own) owns a static timer
// thread that must stop before the process exits on SIGINT:
//     class VexaInputNet : public VexaObject { ... static QThread timerThread; };
//     QThread VexaInputNet::timerThread;
// The base library refers to that symbol weakly, so it links without the
// module and the handler works either way. For the reference to resolve, the
// module library must define the member with default visibility and be
// linked into the application (a library opened later with dlopen() and
// RTLD_LOCAL is not seen).

// Quits VexaInputNet::timerThread when a loaded module library defines it.
void vexaQuitNetTimer();

#endif // VEXAINPUTNET_P_H
