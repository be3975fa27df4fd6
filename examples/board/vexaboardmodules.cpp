#include "vexaboardmodules.h"

#include <QMetaType>

#include "vexacapture.h"
#include "vexadecoder.h"
#include "vexadisplay.h"
#include "vexaencoder.h"
#include "vexaoverlay.h"

QStringList vexaRegisterBoardModules()
{
    qRegisterMetaType<VexaCapture *>("VexaCapture");
    qRegisterMetaType<VexaEncoder *>("VexaEncoder");
    qRegisterMetaType<VexaDecoder *>("VexaDecoder");
    qRegisterMetaType<VexaDisplay *>("VexaDisplay");
    qRegisterMetaType<VexaOverlay *>("VexaOverlay");
    return {QStringLiteral("VexaCapture"), QStringLiteral("VexaEncoder"), QStringLiteral("VexaDecoder"),
            QStringLiteral("VexaDisplay"), QStringLiteral("VexaOverlay")};
}

int vexaRegisterModules()
{
    return vexaRegisterBoardModules().size();
}
