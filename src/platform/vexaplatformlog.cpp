#include "vexaplatformlog_p.h"

Q_LOGGING_CATEGORY(lcVexaPlatform, "vexa.platform")
