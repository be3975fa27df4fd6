#ifndef VEXAINTERRUPTTHREADS_P_H
#define VEXAINTERRUPTTHREADS_P_H

//
// Not API: the threads the SIGINT handler stops before the process exits.
//

// Module libraries own static threads (the network input's timer thread)
// whose QThread objects are destroyed at exit, which aborts the process
// while they still run. A library registers such a thread with
// Vexa::addInterruptThread(). For libraries that do not, the handler also
// looks for VexaInputNet::timerThread by its linker name: referenced weakly,
// so that the base library links without the module, and looked up at run
// time when the module library was opened later with global symbols
// (QLibrary with ExportExternalSymbolsHint, dlopen with RTLD_GLOBAL); one
// opened with local symbols is not seen.

class QThread;

// Registered threads, up to a fixed number (the handler reads them without
// locking); false when every place is taken.
bool vexaAddInterruptThread(QThread *thread);
void vexaRemoveInterruptThread(QThread *thread);

// Quits every registered thread, and the network input's timer thread when
// a loaded library defines it without registering it, and waits up to
// about a second for each. False when one is still running (or the caller
// is one of them): the process must then end without running static
// destructors.
bool vexaStopInterruptThreads();

#endif // VEXAINTERRUPTTHREADS_P_H
