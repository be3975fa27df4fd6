#ifndef VEXACORELOG_P_H
#define VEXACORELOG_P_H

//
// Not API: the logging category of the module objects.
//

#include <QLoggingCategory>

// "vexa.core". Every level is enabled by default, so the diagnostics show as
// they always have; QT_LOGGING_RULES (for example "vexa.core.debug=false")
// silences or isolates this layer. Fatal messages keep going through qFatal.
Q_DECLARE_LOGGING_CATEGORY(lcVexaCore)

#endif // VEXACORELOG_P_H
