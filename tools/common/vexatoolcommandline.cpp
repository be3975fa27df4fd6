#include "vexatoolcommandline.h"

#include <cstdio>

#include <QCoreApplication>

VexaToolCommandLine::VexaToolCommandLine(const char *tool, int usageStatus)
    : tool(tool)
    , usageStatus(usageStatus)
{
}

int VexaToolCommandLine::parse(QCommandLineParser &parser) const
{
    return parse(parser, QCoreApplication::arguments());
}

int VexaToolCommandLine::parse(QCommandLineParser &parser, const QStringList &arguments) const
{
    if (!parser.parse(arguments))
        return fail(usageStatus, parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return 0;
    }
    return -1;
}

int VexaToolCommandLine::fail(int status, const QString &text) const
{
    std::fprintf(stderr, "%s: %s\n", tool, qPrintable(text));
    if (status == usageStatus)
        std::fprintf(stderr, "Try '%s --help'.\n", tool);
    return status;
}
