#include "vexamodulecatalog.h"

#include <QLibrary>
#include <QMetaObject>
#include <QMetaType>

#include "vexaboardmodules.h"
#include "vexaexamplemodules.h"
#include "vexanames.h"
#include "vexaobject.h"

namespace {

bool isModule(const QMetaObject *mo)
{
    for (const QMetaObject *m = mo; m; m = m->superClass()) {
        if (m == &VexaObject::staticMetaObject)
            return mo != &VexaObject::staticMetaObject;
    }
    return false;
}

bool creatable(const QMetaObject *mo)
{
    const QByteArray ctor = QByteArray(mo->className()) + "()";
    return mo->indexOfConstructor(ctor.constData()) >= 0;
}

} // namespace

void VexaModuleCatalog::registerBuiltIn()
{
    vexaRegisterExampleModules();
    vexaRegisterBoardModules();
}

bool VexaModuleCatalog::loadLibrary(const QString &path, QString *error)
{
    // Never unloaded: the classes it registered stay in use until exit.
    QLibrary lib(path);
    lib.setLoadHints(QLibrary::ExportExternalSymbolsHint);
    if (!lib.load()) {
        *error = lib.errorString();
        return false;
    }
    using Register = int (*)();
    if (auto fn = reinterpret_cast<Register>(lib.resolve("vexaRegisterModules")))
        fn();
    return true;
}

QStringList VexaModuleCatalog::classNames()
{
    QStringList names;
    for (int id = QMetaType::User; QMetaType::isRegistered(id); ++id) {
        if (!(QMetaType::typeFlags(id) & QMetaType::PointerToQObject))
            continue;
        const QMetaObject *mo = QMetaType::metaObjectForType(id);
        if (!mo || !isModule(mo) || !creatable(mo))
            continue;
        const QString name = QString::fromLatin1(mo->className());
        // Only classes registered under their bare name are found by the factory.
        if (QMetaType::type(mo->className()) == 0 || names.contains(name))
            continue;
        names << name;
    }
    names.sort();
    return names;
}

const QMetaObject *VexaModuleCatalog::find(const QString &name)
{
    const QByteArray full = VexaNames::fullClassName(name).toLatin1();
    const int id = QMetaType::type(full.constData());
    if (id == 0 || !(QMetaType::typeFlags(id) & QMetaType::PointerToQObject))
        return nullptr;
    const QMetaObject *mo = QMetaType::metaObjectForType(id);
    if (!mo || !isModule(mo) || !creatable(mo))
        return nullptr;
    return mo;
}

QString VexaModuleCatalog::shortName(const QString &fullName)
{
    return VexaNames::shortClassName(fullName);
}
