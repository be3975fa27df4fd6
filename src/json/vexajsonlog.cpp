#include "vexajsonlog_p.h"

Q_LOGGING_CATEGORY(lcVexaJson, "vexa.json")
