#ifndef VEXALOG_P_H
#define VEXALOG_P_H

//
// Not API: the library's logging categories, one per layer that logs.
//

#include <QLoggingCategory>

// "vexa.core" (module objects), "vexa.framework" (factory, threads, links,
// start-up) and "vexa.platform" (the media platform glue). Every level is
// enabled by default, so the diagnostics show as they always have;
// QT_LOGGING_RULES (for example "vexa.core.debug=false") silences or
// isolates a layer. The library's own misuse messages (a call without the
// tee channel or the channel it needs) are warnings. Fatal messages keep
// going through qFatal.
Q_DECLARE_LOGGING_CATEGORY(lcVexaCore)
Q_DECLARE_LOGGING_CATEGORY(lcVexaFramework)
Q_DECLARE_LOGGING_CATEGORY(lcVexaPlatform)

#endif // VEXALOG_P_H
