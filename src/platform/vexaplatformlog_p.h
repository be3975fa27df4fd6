#ifndef VEXAPLATFORMLOG_P_H
#define VEXAPLATFORMLOG_P_H

//
// Not API: the logging category of the media platform glue.
//

#include <QLoggingCategory>

// "vexa.platform". Every level is enabled by default, so the diagnostics show as
// they always have; QT_LOGGING_RULES (for example "vexa.platform.debug=false")
// silences or isolates this layer. Fatal messages keep going through qFatal.
Q_DECLARE_LOGGING_CATEGORY(lcVexaPlatform)

#endif // VEXAPLATFORMLOG_P_H
