#include "vexaexamplemodules.h"

#include <QMetaType>

#include "vexaexamples_p.h"

#include "vexainputfile.h"
#include "vexaoutputfile.h"
#include "vexapacketstats.h"

Q_LOGGING_CATEGORY(lcExamples, "vexa.examples", QtDebugMsg)

QStringList vexaRegisterExampleModules()
{
    // The bare class name maps to the pointer type: that is what the factory
    // looks up.
    qRegisterMetaType<VexaInputFile *>("VexaInputFile");
    qRegisterMetaType<VexaOutputFile *>("VexaOutputFile");
    qRegisterMetaType<VexaPacketStats *>("VexaPacketStats");
    return {QStringLiteral("VexaInputFile"), QStringLiteral("VexaOutputFile"), QStringLiteral("VexaPacketStats")};
}

int vexaRegisterModules()
{
    return vexaRegisterExampleModules().size();
}
