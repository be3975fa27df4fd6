// vexa-inspect: lists the module classes that can be created, and for one
// class what it sends and accepts, its settings, events, signals, slots and
// invokable methods as its meta-object publishes them.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QMetaClassInfo>
#include <QFileInfo>
#include <QMetaMethod>
#include <QMetaObject>
#include <QTextStream>

#include <cstdio>

#include "vexaclassinfo.h"
#include "vexamodulecatalog.h"
#include "vexatoolcommandline.h"
#include "vexaobject.h"

namespace {

enum InspectExit { ExitOk = 0, ExitUnknownClass = 1, ExitUsage = 2, ExitBadLibrary = 3 };

const VexaToolCommandLine commandLine("vexa-inspect", ExitUsage);

int fail(int code, const QString &text)
{
    return commandLine.fail(code, text);
}

QString signature(const QMetaMethod &m)
{
    QStringList params;
    const QList<QByteArray> types = m.parameterTypes();
    const QList<QByteArray> names = m.parameterNames();
    for (int i = 0; i < types.size(); ++i) {
        QString p = QString::fromLatin1(types.at(i));
        if (i < names.size() && !names.at(i).isEmpty())
            p += QLatin1Char(' ') + QString::fromLatin1(names.at(i));
        params << p;
    }
    QString ret = QString::fromLatin1(m.typeName());
    if (ret.isEmpty())
        ret = QStringLiteral("void");
    return QStringLiteral("%1 %2(%3)").arg(ret, QString::fromLatin1(m.name()), params.join(QLatin1String(", ")));
}

const char *access(const QMetaMethod &m)
{
    switch (m.access()) {
    case QMetaMethod::Private: return "private";
    case QMetaMethod::Protected: return "protected";
    default: return "public";
    }
}

void listClasses(QTextStream &out)
{
    const QStringList names = VexaModuleCatalog::classNames();
    out << "Module classes (" << names.size() << "):\n";
    for (const QString &full : names) {
        const QMetaObject *mo = VexaModuleCatalog::find(full);
        QStringList settings;
        for (int i = mo->classInfoOffset(); i < mo->classInfoCount(); ++i) {
            const QString key = QString::fromLatin1(mo->classInfo(i).name());
            if (key.startsWith(QLatin1String("setting:")))
                settings << key.mid(8);
        }
        const VexaClassInfo info(mo);
        out << "  " << VexaModuleCatalog::shortName(full).leftJustified(16) << ' ' << full.leftJustified(20);
        if (!settings.isEmpty())
            out << " settings: " << settings.join(QLatin1String(", "));
        if (info.declaresInterface())
            out << "  [sends: " << VexaClassInfo::kindsText(info.sends()) << "; accepts: "
                << VexaClassInfo::kindsText(info.accepts()) << ']';
        out << '\n';
    }
}

void showClass(QTextStream &out, const QMetaObject *mo, bool all)
{
    QStringList chain;
    for (const QMetaObject *m = mo->superClass(); m; m = m->superClass())
        chain << QString::fromLatin1(m->className());
    out << "Class " << mo->className() << " (create as \"" << VexaModuleCatalog::shortName(QString::fromLatin1(mo->className()))
        << "\"), inherits " << chain.join(QLatin1String(" < ")) << '\n';

    // What links the class can carry: the kinds it sends and the kinds it accepts.
    const VexaClassInfo info(mo);
    out << "\nInterface" << (info.declaresInterface() ? "" : " (not declared: taken as everything)") << ":\n"
        << "    sends          " << VexaClassInfo::kindsText(info.sends()) << '\n'
        << "    accepts        " << VexaClassInfo::kindsText(info.accepts()) << '\n'
        << "    platform       " << (info.usesPlatform() ? "may use the media platform" : "unused") << '\n';
    // Board modules: pictures offered or taken through a VPSS tee instead of packets on V.
    const auto classText = [mo](const char *key) {
        const int i = mo->indexOfClassInfo(key);
        return i < 0 ? QString() : QString::fromLatin1(mo->classInfo(i).value());
    };
    if (classText("videoForm") == QLatin1String("tee"))
        out << "    video out      pictures through a tee (link an Encoder, a Display or an Overlay)\n";
    if (classText("videoInput") == QLatin1String("tee"))
        out << "    video in       a channel of a tee (link a Capture, a Decoder or an Overlay)\n";
    if (mo->indexOfMethod("checkSetup(QVariantMap,QVariantMap)") >= 0)
        out << "    checks         its settings before start (checkSetup)\n";

    out << "\nSettings" << (info.declaresSettings() ? "" : " (none declared: keys are not checked)") << ":\n";
    for (const VexaClassInfo::Setting &st : info.settings()) {
        QString type = VexaClassInfo::typeText(st);
        if (st.defaultValue.isValid())
            type += QStringLiteral(" = %1").arg(st.defaultValue.toString());
        out << "    " << st.name.leftJustified(14) << ' ' << type.leftJustified(28) << ' ' << st.meaning
            << (st.base ? " (every module)" : "") << '\n';
    }

    QStringList events;
    for (int i = 0; i < mo->classInfoCount(); ++i) {
        const QString key = QString::fromLatin1(mo->classInfo(i).name());
        if (key.startsWith(QLatin1String("event:")))
            events << QStringLiteral("    %1 %2").arg(key.mid(6).leftJustified(14), QString::fromUtf8(mo->classInfo(i).value()));
    }
    if (!events.isEmpty())
        out << "\nEvents:\n" << events.join(QLatin1Char('\n')) << '\n';

    out << "\nConstructors:\n";
    for (int i = 0; i < mo->constructorCount(); ++i)
        out << "    " << mo->constructor(i).methodSignature() << '\n';

    // Methods grouped by the class that declares them, own class first.
    const QMetaObject *stopAt = all ? nullptr : &QObject::staticMetaObject;
    for (const QMetaObject *m = mo; m && m != stopAt; m = m->superClass()) {
        const int begin = m->methodOffset();
        const int end = m->superClass() ? m->methodOffset() + (m->methodCount() - m->methodOffset()) : m->methodCount();
        struct Group { QMetaMethod::MethodType type; const char *title; } groups[] = {
            {QMetaMethod::Signal, "Signals"}, {QMetaMethod::Slot, "Slots"}, {QMetaMethod::Method, "Invokable methods"}};
        bool header = false;
        for (const Group &g : groups) {
            QStringList lines;
            for (int i = begin; i < end; ++i) {
                const QMetaMethod mm = m->method(i);
                if (mm.methodType() != g.type)
                    continue;
                // The base class's private slots are its own plumbing, not
                // part of what a pipeline or a module author calls.
                if (!all && m == &VexaObject::staticMetaObject && mm.access() == QMetaMethod::Private)
                    continue;
                QString line = QStringLiteral("    %1").arg(signature(mm));
                if (g.type != QMetaMethod::Signal && mm.access() != QMetaMethod::Public)
                    line += QStringLiteral("  [%1]").arg(QString::fromLatin1(access(mm)));
                lines << line;
            }
            if (lines.isEmpty())
                continue;
            if (!header) {
                out << "\nDeclared by " << m->className() << ":\n";
                header = true;
            }
            out << "  " << g.title << ":\n" << lines.join(QLatin1Char('\n')) << '\n';
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vexa-inspect"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Lists the module classes that can be created, or describes one class.\n\n"
        "Exit codes: 0 done, 1 unknown class, 2 wrong command line, 3 module library not loadable."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("class"), QStringLiteral("Class to describe (\"InputFile\" or \"VexaInputFile\")."), QStringLiteral("[class]"));
    const QCommandLineOption libOpt({QStringLiteral("l"), QStringLiteral("library")},
        QStringLiteral("Load a module library (repeatable)."), QStringLiteral("file"));
    const QCommandLineOption allOpt(QStringLiteral("all"),
        QStringLiteral("Also list the methods declared by QObject and the base class's private slots."));
    parser.addOptions({libOpt, allOpt});
    if (const int status = commandLine.parse(parser); status >= 0)
        return status;
    const QStringList positional = parser.positionalArguments();
    if (positional.size() > 1)
        return fail(ExitUsage, QStringLiteral("at most one class name expected"));

    VexaModuleCatalog::registerBuiltIn();
    QString error;
    for (const QString &lib : parser.values(libOpt)) {
        if (!VexaModuleCatalog::loadLibrary(QFileInfo(lib).absoluteFilePath(), &error))
            return fail(ExitBadLibrary, QStringLiteral("cannot load module library %1: %2").arg(lib, error));
    }

    QTextStream out(stdout);
    if (positional.isEmpty()) {
        listClasses(out);
        return ExitOk;
    }
    const QMetaObject *mo = VexaModuleCatalog::find(positional.first());
    if (!mo)
        return fail(ExitUnknownClass, QStringLiteral("unknown module class \"%1\" (run vexa-inspect without arguments for the list)")
                                          .arg(positional.first()));
    showClass(out, mo, parser.isSet(allOpt));
    return ExitOk;
}
