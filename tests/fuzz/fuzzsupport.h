#ifndef FUZZSUPPORT_H
#define FUZZSUPPORT_H

// Shared by the fuzz targets: a way to stop on a broken invariant that the
// fuzzer records as a crash, and quiet diagnostics.

#include <QByteArray>
#include <QtGlobal>

#include <cstdio>
#include <cstdlib>

// Ends the run with a report the fuzzer keeps as a crashing input.
#define FUZZ_CHECK(cond)                                                                 \
    do {                                                                                 \
        if (!(cond)) {                                                                   \
            std::fprintf(stderr, "fuzz check failed: %s (%s:%d)\n", #cond, __FILE__, __LINE__); \
            std::abort();                                                                \
        }                                                                                \
    } while (0)

namespace FuzzSupport {

// Drops debug and warning output (a malformed input makes plenty); fatal
// messages still end the process, and the fuzzer reports them.
inline void quietMessages()
{
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &msg) {
        if (type == QtFatalMsg) {
            std::fprintf(stderr, "fatal: %s\n", qPrintable(msg));
            std::abort();
        }
    });
}

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), int(qMin<size_t>(size, 1 << 20)));
}

} // namespace FuzzSupport

#endif // FUZZSUPPORT_H
