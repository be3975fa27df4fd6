#include "vexaboardmodules.h"

#include <QMetaType>

#include "vexacapture.h"
#include "vexadecoder.h"
#include "vexadisplay.h"
#include "vexaencoder.h"

QStringList vexaRegisterBoardModules()
{
    qRegisterMetaType<VexaCapture *>("VexaCapture");
    qRegisterMetaType<VexaEncoder *>("VexaEncoder");
    qRegisterMetaType<VexaDecoder *>("VexaDecoder");
    qRegisterMetaType<VexaDisplay *>("VexaDisplay");
    return {QStringLiteral("VexaCapture"), QStringLiteral("VexaEncoder"), QStringLiteral("VexaDecoder"),
            QStringLiteral("VexaDisplay")};
}

int vexaRegisterModules()
{
    return vexaRegisterBoardModules().size();
}
