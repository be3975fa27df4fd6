#include "vexaexamplemodules.h"

#include <QMetaType>

#include "vexaexamples_p.h"

#include "vexainputfile.h"
#include "vexainputnet.h"
#include "vexaoutputfile.h"
#include "vexaoutputnet.h"
#include "vexapacketstats.h"
#ifdef VEXA_HAVE_RTSP_SERVER
#include "vexartspserver.h"
#endif

Q_LOGGING_CATEGORY(lcExamples, "vexa.examples", QtDebugMsg)

QStringList vexaRegisterExampleModules()
{
    // The bare class name maps to the pointer type: that is what the factory
    // looks up.
    qRegisterMetaType<VexaInputFile *>("VexaInputFile");
    qRegisterMetaType<VexaOutputFile *>("VexaOutputFile");
    qRegisterMetaType<VexaPacketStats *>("VexaPacketStats");
    qRegisterMetaType<VexaInputNet *>("VexaInputNet");
    qRegisterMetaType<VexaOutputNet *>("VexaOutputNet");
    QStringList names{QStringLiteral("VexaInputFile"), QStringLiteral("VexaOutputFile"), QStringLiteral("VexaPacketStats"),
                      QStringLiteral("VexaInputNet"), QStringLiteral("VexaOutputNet")};
#ifdef VEXA_HAVE_RTSP_SERVER
    // Built only where the RTSP server library is installed.
    qRegisterMetaType<VexaRtspServer *>("VexaRtspServer");
    names << QStringLiteral("VexaRtspServer");
#endif
    return names;
}

int vexaRegisterModules()
{
    return vexaRegisterExampleModules().size();
}
