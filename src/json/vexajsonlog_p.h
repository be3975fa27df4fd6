#ifndef VEXAJSONLOG_P_H
#define VEXAJSONLOG_P_H

//
// Not API: the logging category of the JSON helper.
//

#include <QLoggingCategory>

// "vexa.json". Every level is enabled by default, so the diagnostics show as
// they always have; QT_LOGGING_RULES (for example "vexa.json.debug=false")
// silences or isolates this layer. Fatal messages keep going through qFatal.
Q_DECLARE_LOGGING_CATEGORY(lcVexaJson)

#endif // VEXAJSONLOG_P_H
