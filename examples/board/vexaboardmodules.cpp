#include "vexaboardmodules.h"

#include <QMetaType>

#include "vexacapture.h"
#include "vexadecoder.h"
#include "vexaencoder.h"

QStringList vexaRegisterBoardModules()
{
    qRegisterMetaType<VexaCapture *>("VexaCapture");
    qRegisterMetaType<VexaEncoder *>("VexaEncoder");
    qRegisterMetaType<VexaDecoder *>("VexaDecoder");
    return {QStringLiteral("VexaCapture"), QStringLiteral("VexaEncoder"), QStringLiteral("VexaDecoder")};
}

int vexaRegisterModules()
{
    return vexaRegisterBoardModules().size();
}
