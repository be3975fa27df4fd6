#include "vexaframeworklog_p.h"

Q_LOGGING_CATEGORY(lcVexaFramework, "vexa.framework")
