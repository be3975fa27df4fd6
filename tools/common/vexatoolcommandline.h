#ifndef VEXATOOLCOMMANDLINE_H
#define VEXATOOLCOMMANDLINE_H

#include <QCommandLineParser>
#include <QString>

/**
 * The command-line conventions the tools share: messages go to standard
 * error as "<tool>: <text>", a usage error adds a pointer to --help, and
 * --help prints the help text to standard output.
 */
class VexaToolCommandLine
{
public:
    /** @p tool names the program in messages; @p usageStatus is its exit status for a wrong command line. */
    VexaToolCommandLine(const char *tool, int usageStatus);

    /**
     * Parses the application's arguments with @p parser (options already
     * added). Returns -1 when the tool is to go on, otherwise the status to
     * exit with: 0 after printing the help, the usage status after a
     * message.
     */
    int parse(QCommandLineParser &parser) const;
    /** As parse(), with @p arguments (program name first) instead of the application's. */
    int parse(QCommandLineParser &parser, const QStringList &arguments) const;

    /** Prints @p text as the tool's message and returns @p status. */
    int fail(int status, const QString &text) const;

private:
    const char *tool;
    int usageStatus;
};

#endif // VEXATOOLCOMMANDLINE_H
