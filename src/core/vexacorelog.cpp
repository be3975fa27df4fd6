#include "vexacorelog_p.h"

Q_LOGGING_CATEGORY(lcVexaCore, "vexa.core")
