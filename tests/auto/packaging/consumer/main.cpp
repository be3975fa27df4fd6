// A module-library-sized consumer of the installed package.
#include <cstdio>

#include <Vexa>
#include <VexaObject>
#include <vexajson.h>

int main()
{
    const QVariantMap version = Vexa::getVersion();
    VexaObject::Packet packet;
    std::printf("VexaBase %s build %d %s altPts %lld\n", qPrintable(version.value("version").toString()),
                version.value("build").toInt(), qPrintable(Json::encode(QVariantMap{{"k", 1}})),
                static_cast<long long>(packet.altPts));
    return 0;
}
