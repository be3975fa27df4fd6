#ifndef VEXAMODULECATALOG_H
#define VEXAMODULECATALOG_H

#include <QString>
#include <QStringList>

struct QMetaObject;

/**
 * The module classes a tool can create: the example modules linked into the
 * tools plus those of module libraries loaded by path. A class counts when
 * the meta-type system knows its bare name (what Vexa::create looks up), its
 * meta-object derives from VexaObject and it has an invokable constructor
 * callable without arguments.
 * Thread: main thread only.
 */
class VexaModuleCatalog
{
public:
    /** Registers the example modules; call once at start-up. */
    static void registerBuiltIn();
    /**
     * Loads the module library at @p path and calls its exported
     * "vexaRegisterModules" when it has one (libraries may also register
     * from a static initialiser). False with @p error set when it cannot be
     * loaded.
     */
    static bool loadLibrary(const QString &path, QString *error);
    /** Full class names ("VexaInputFile") of every creatable module class, sorted. */
    static QStringList classNames();
    /** The meta-object of @p name ("InputFile" or "VexaInputFile"), or null when not creatable. */
    static const QMetaObject *find(const QString &name);
    /** "InputFile" for "VexaInputFile". */
    static QString shortName(const QString &fullName);
};

#endif // VEXAMODULECATALOG_H
