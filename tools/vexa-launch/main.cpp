// vexa-launch: runs a pipeline described in a JSON file.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <unistd.h>

#include "launcher.h"
#include "pipeline.h"
#include "vexa.h"
#include "vexaclassinfo.h"
#include "vexamedia.h"
#include "vexamodulecatalog.h"
#include "vexanames.h"
#include "vexatoolcommandline.h"

namespace {

// Board file for a PC: the software model of the media platform.
const char *const pcBoard = ":/vexa-launch/pc-board.json";

// The log levels of -loglevel, least first; lines of a level above the one
// chosen are left out. The default shows everything.
enum LogLevel { LogQuiet, LogError, LogWarning, LogInfo, LogDebug };
const char *const logLevelNames[] = {"quiet", "error", "warning", "info", "debug"};
int logLevel = LogDebug;

void messageHandler(QtMsgType type, const QMessageLogContext &, const QString &msg)
{
    const int level = type == QtDebugMsg ? LogDebug
                    : type == QtInfoMsg ? LogInfo
                    : type == QtWarningMsg ? LogWarning
                    : type == QtFatalMsg ? LogQuiet : LogError;
    if (level > logLevel)
        return;
    // On a terminal, clear the progress line first; the next period redraws it.
    static const bool tty = isatty(fileno(stderr));
    fprintf(stderr, "%s%s\n", tty ? "\r\033[K" : "", qPrintable(msg));
    fflush(stderr);
    if (type == QtFatalMsg)
        abort();
}

const VexaToolCommandLine commandLine("vexa-launch", ExitUsage);

int fail(int code, const QString &text)
{
    return commandLine.fail(code, text);
}

// Every error found, one line each; the status is a usage error only when
// each of them comes from --set.
int failAll(const QStringList &errors)
{
    bool fromSet = true;
    for (const QString &e : errors)
        fromSet = fromSet && e.startsWith(QLatin1String("--set"));
    for (int i = 0; i + 1 < errors.size(); ++i)
        fprintf(stderr, "vexa-launch: %s\n", qPrintable(errors.at(i)));
    return fail(fromSet ? ExitUsage : ExitBadPipeline, errors.last());
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vexa-launch"));
    qInstallMessageHandler(messageHandler);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Runs the pipeline described in a JSON file until every source has ended,\n"
        "the duration has passed or Ctrl-C is pressed.\n\n"
        "Settings are checked against what each module class declares (see\n"
        "vexa-inspect CLASS) before anything starts, as are the links and the files\n"
        "the run would write: an output that is an input is refused, an existing\n"
        "output is replaced only with -y (or the module's \"overwrite\" setting).\n\n"
        "Exit codes: 0 done, 2 wrong command line, 3 invalid pipeline file (or\n"
        "board file, module library, refused output), 4 a module reported an error,\n"
        "5 packets were dropped or rejected that the pipeline did not ask to drop,\n"
        "128 + signal when stopped by a signal (130 Ctrl-C, 143 SIGTERM, 129 SIGHUP)."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("pipeline"), QStringLiteral("Pipeline file (JSON)."));
    const QCommandLineOption setOpt(QStringLiteral("set"),
        QStringLiteral("Override a module setting: module.key=value (value read as JSON when it parses)."),
        QStringLiteral("module.key=value"));
    const QCommandLineOption durationOpt({QStringLiteral("d"), QStringLiteral("duration")},
        QStringLiteral("Stop after this many seconds."), QStringLiteral("seconds"));
    const QCommandLineOption boardOpt(QStringLiteral("board"),
        QStringLiteral("Board file (replaces the pipeline's \"board\")."), QStringLiteral("file"));
    const QCommandLineOption libOpt({QStringLiteral("l"), QStringLiteral("library")},
        QStringLiteral("Load a module library (repeatable)."), QStringLiteral("file"));
    const QCommandLineOption graphOpt(QStringLiteral("graph"),
        QStringLiteral("Write the pipeline graph as Graphviz DOT (and SVG beside it when dot is installed)."),
        QStringLiteral("file.dot"));
    const QCommandLineOption checkOpt(QStringLiteral("check"),
        QStringLiteral("Only validate the pipeline file (and write the graph)."));
    const QCommandLineOption intervalOpt(QStringLiteral("interval"),
        QStringLiteral("Progress period in milliseconds (default 1000)."), QStringLiteral("ms"), QStringLiteral("1000"));
    const QCommandLineOption quietOpt({QStringLiteral("q"), QStringLiteral("quiet")},
        QStringLiteral("No progress, no informational or debug lines (errors still shown), and\n"
                       "no line of FFmpeg's own."));
    const QCommandLineOption logLevelOpt({QStringLiteral("v"), QStringLiteral("loglevel")},
        QStringLiteral("What the run prints on stderr, for the tool, the modules and FFmpeg alike:\n"
                       "quiet (nothing while running), error, warning, info (progress, no debug\n"
                       "lines) or debug (everything; the default, with FFmpeg at its own default).\n"
                       "-loglevel works too."),
        QStringLiteral("level"));
    const QCommandLineOption noPlatformOpt(QStringLiteral("no-platform"),
        QStringLiteral("Do not bring up the media platform (the default when every module\n"
                       "class declares that it does not use it)."));
    const QCommandLineOption overwriteOpt(QStringLiteral("y"),
        QStringLiteral("Replace existing output files (sets \"overwrite\" on every module that has it)."));
    parser.addOptions({setOpt, durationOpt, boardOpt, libOpt, graphOpt, checkOpt, intervalOpt, quietOpt, logLevelOpt,
                       noPlatformOpt, overwriteOpt});

    // "-loglevel", as ffmpeg spells it, would otherwise read as -l oglevel.
    QStringList arguments = QCoreApplication::arguments();
    for (int i = 1; i < arguments.size() && arguments.at(i) != QLatin1String("--"); ++i) {
        if (arguments.at(i) == QLatin1String("-loglevel"))
            arguments[i] = QStringLiteral("--loglevel");
    }
    if (const int status = commandLine.parse(parser, arguments); status >= 0)
        return status;
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 1)
        return fail(ExitUsage, positional.isEmpty() ? QStringLiteral("no pipeline file given")
                                                    : QStringLiteral("one pipeline file expected, got %1").arg(positional.size()));

    LaunchOptions options;
    bool ok = true;
    if (parser.isSet(durationOpt)) {
        options.duration = parser.value(durationOpt).toDouble(&ok);
        if (!ok || options.duration <= 0)
            return fail(ExitUsage, QStringLiteral("--duration expects a positive number of seconds, not \"%1\"").arg(parser.value(durationOpt)));
    }
    options.interval = parser.value(intervalOpt).toInt(&ok);
    if (!ok || options.interval <= 0)
        return fail(ExitUsage, QStringLiteral("--interval expects a positive number of milliseconds, not \"%1\"").arg(parser.value(intervalOpt)));
    options.quiet = parser.isSet(quietOpt);
    options.platform = !parser.isSet(noPlatformOpt);
    options.graph = parser.value(graphOpt);
    if (options.quiet) {
        logLevel = LogError;
        VexaMedia::setLibraryLogLevel(QStringLiteral("quiet"));
    }
    if (parser.isSet(logLevelOpt)) {
        const QString level = parser.value(logLevelOpt);
        int chosen = -1;
        for (int i = LogQuiet; i <= LogDebug; ++i) {
            if (level == QLatin1String(logLevelNames[i]))
                chosen = i;
        }
        if (chosen < 0)
            return fail(ExitUsage, QStringLiteral("--loglevel expects quiet, error, warning, info or debug, not \"%1\"").arg(level));
        logLevel = chosen;
        // -q and a level: the level decides for the tool, -q keeps FFmpeg quiet.
        if (!options.quiet)
            VexaMedia::setLibraryLogLevel(level);
        options.quiet = options.quiet || logLevel < LogInfo;
        options.silent = logLevel == LogQuiet;
    }

    const QString path = positional.first();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(ExitBadPipeline, QStringLiteral("cannot read pipeline file %1: %2").arg(path, file.errorString()));
    Pipeline pipeline;
    QString error;
    if (!Pipeline::parse(file.readAll(), path, &pipeline, &error))
        return fail(ExitBadPipeline, error);
    for (const QString &assignment : parser.values(setOpt)) {
        if (!pipeline.applyOverride(assignment, &error))
            return fail(ExitUsage, error);
    }

    VexaModuleCatalog::registerBuiltIn();
    QStringList libraries = pipeline.libraries;
    for (const QString &lib : parser.values(libOpt))
        libraries << QFileInfo(lib).absoluteFilePath();
    for (const QString &lib : qAsConst(libraries)) {
        if (!VexaModuleCatalog::loadLibrary(lib, &error))
            return fail(ExitBadPipeline, QStringLiteral("cannot load module library %1: %2").arg(lib, error));
    }
    // Every error of the file is reported, not just the first.
    QStringList errors;
    const bool classesKnown = pipeline.checkClasses(&errors);
    pipeline.checkSettings(&errors);
    if (classesKnown)
        pipeline.checkLinks(&errors);
    pipeline.checkContainers(&errors);

    QString board = pipeline.board;
    if (parser.isSet(boardOpt))
        board = QFileInfo(parser.value(boardOpt)).absoluteFilePath();
    if (!board.isEmpty() && !QFileInfo(board).isFile())
        errors << QStringLiteral("board file %1 does not exist").arg(board);
    if (!errors.isEmpty())
        return failAll(errors);

    if (parser.isSet(checkOpt)) {
        if (!options.graph.isEmpty() && !Launcher::writeGraph(pipeline, options.graph, {}, {}, &error))
            return fail(ExitBadPipeline, error);
        fprintf(stdout, "%s: valid, %d modules, %d links\n", qPrintable(path),
                int(pipeline.modules.size()), int(pipeline.links.size()));
        return ExitOk;
    }

    if (!pipeline.checkOutputs(parser.isSet(overwriteOpt), &errors))
        return failAll(errors);
    if (parser.isSet(overwriteOpt)) {
        for (PipelineModule &m : pipeline.modules) {
            const VexaClassInfo info(VexaModuleCatalog::find(m.className));
            const VexaClassInfo::Setting *s = info.setting(QStringLiteral("overwrite"));
            if (s && s->type == QLatin1String("bool"))
                m.settings.insert(QStringLiteral("overwrite"), true);
        }
    }

    // The media platform is brought up only for classes that may use it.
    bool platformUsed = false;
    for (const PipelineModule &m : qAsConst(pipeline.modules))
        platformUsed = platformUsed || VexaClassInfo(VexaModuleCatalog::find(m.className)).usesPlatform();
    options.platform = options.platform && platformUsed;

    // Everything the framework would treat as fatal has been checked above.
    if (board.isEmpty() && !QFileInfo::exists(VexaNames::boardFile()))
        board = QString::fromLatin1(pcBoard);
    if (!board.isEmpty() && (!Vexa::setConfig(board) || Vexa::Config.isEmpty()))
        return fail(ExitBadPipeline, QStringLiteral("board file %1 does not hold a JSON object").arg(board));
    // No example module opens a device: the device layer's libraries would
    // only lengthen the start.
    Vexa::setDevicesOnDemand(true);
    Vexa::init(options.platform);
    // The framework's SIGINT handler ends the process at once; files being
    // written need an orderly stop instead.
    if (!Launcher::installInterruptHandler())
        return fail(ExitModuleError, QStringLiteral("cannot install the Ctrl-C handler"));

    Launcher launcher(pipeline, options);
    int code = ExitOk;
    QObject::connect(&launcher, &Launcher::finished, &app, [&code](int c) {
        code = c;
        QCoreApplication::exit(c);
    }, Qt::QueuedConnection);
    if (!launcher.start())
        return launcher.exitCode();
    app.exec();
    return code;
}
