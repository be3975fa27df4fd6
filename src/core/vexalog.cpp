#include "vexalog_p.h"

Q_LOGGING_CATEGORY(lcVexaCore, "vexa.core")
Q_LOGGING_CATEGORY(lcVexaFramework, "vexa.framework")
Q_LOGGING_CATEGORY(lcVexaPlatform, "vexa.platform")
