#ifndef VEXAFRAMEWORKLOG_P_H
#define VEXAFRAMEWORKLOG_P_H

//
// Not API: the logging category of the framework services (factory, threads, links, start-up).
//

#include <QLoggingCategory>

// "vexa.framework". Every level is enabled by default, so the diagnostics show as
// they always have; QT_LOGGING_RULES (for example "vexa.framework.debug=false")
// silences or isolates this layer. Fatal messages keep going through qFatal.
Q_DECLARE_LOGGING_CATEGORY(lcVexaFramework)

#endif // VEXAFRAMEWORKLOG_P_H
