#ifndef LAUNCHER_H
#define LAUNCHER_H

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <QVariantMap>

#include "pipeline.h"

class QSocketNotifier;
class VexaObject;

/** Exit codes of vexa-launch. */
enum LaunchExit {
    ExitOk = 0,
    ExitUsage = 2,          // wrong command line
    ExitBadPipeline = 3,    // pipeline file unreadable or invalid, library or board missing, output refused
    ExitModuleError = 4,    // a module reported "error" while running
    ExitDataLost = 5,       // packets were dropped or rejected that the pipeline did not ask to drop
    ExitSignal = 128,       // plus the signal number: 130 Ctrl-C (SIGINT), 143 SIGTERM, 129 SIGHUP
    ExitInterrupted = 130,
};

struct LaunchOptions {
    double duration = 0;        // seconds; 0: until every source sent "eos"
    int interval = 1000;        // progress period, ms
    bool quiet = false;         // no progress, informational or debug lines
    bool silent = false;        // not even errors (log level quiet): the exit status tells
    bool platform = true;       // bring up the media platform (Vexa::init(true))
    QString graph;              // DOT file to write, or empty
};

/**
 * Runs one pipeline: creates, links and starts the modules, shows progress,
 * and stops and destroys them in order when the run ends.
 * Thread: main thread.
 */
class Launcher : public QObject
{
    Q_OBJECT

public:
    Launcher(const Pipeline &pipeline, const LaunchOptions &options, QObject *parent = nullptr);

    /** Starts everything; false (with the exit code set) when a module cannot be created. */
    bool start();
    /** Exit code once the run has ended. */
    int exitCode() const { return code; }

    /** Writes the pipeline as Graphviz DOT (and SVG when "dot" is installed). */
    static bool writeGraph(const Pipeline &pipeline, const QString &path,
                           const QHash<QString, QString> &states, const QHash<QString, QVariantMap> &stats,
                           QString *message);

    /**
     * Takes SIGINT over from the framework and handles SIGTERM and SIGHUP
     * alike: the first ends the run in order, with the exit code 128 +
     * signal; a second one leaves that stop going (the outputs still finish
     * their files); the third ends the process at once. The handler only
     * writes into a pipe; a watcher thread counts the signals.
     */
    static bool installInterruptHandler();

signals:
    void finished(int code);

private:
    void onModuleEvent(const QString &module, const QString &type, const QVariant &value);
    void showProgress(bool last);
    void shutdown(int exitCode, const QString &why);
    /** Reports the packets each module lost without being asked to; true when any. */
    bool reportLosses();
    void deliverModuleEvents();
    QVariantMap statsOf(VexaObject *obj, bool running);
    void graphNow();
    /** One line on stderr; informational lines are left out with --quiet. */
    void message(const QString &text, bool error = false);

    Pipeline pipeline;
    LaunchOptions options;
    QList<VexaObject *> objects;        // index as in pipeline.modules
    QSet<int> sourcesLeft;
    QTimer progressTimer;
    QTimer durationTimer;
    QElapsedTimer clock;
    QHash<int, qint64> lastPackets;
    qint64 lastTick = 0;
    bool tty = false;
    bool progressShown = false;
    bool stopping = false;
    int code = ExitOk;
    QSocketNotifier *interruptNotifier = nullptr;
};

#endif // LAUNCHER_H
