#ifndef VEXATEST_H
#define VEXATEST_H

// Helpers shared by the QtTest executables.

#include <QCoreApplication>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace VexaTest {

// The emulator that runs target programs in a cross build ("qemu-arm -L
// <sysroot>"), empty in a native build. Set by tests/CMakeLists.txt.
inline QStringList emulator()
{
#ifdef VEXA_TEST_EMULATOR
    return QString::fromUtf8(VEXA_TEST_EMULATOR).split(QLatin1Char(';'), Qt::SkipEmptyParts);
#else
    return {};
#endif
}

// Starts @p program with @p args, through the emulator in a cross build, and
// waits for it to end (at most @p timeoutMs). Returns false when it did not
// start or did not end in time; exit status, code and output are read from
// @p proc afterwards.
inline bool run(QProcess &proc, const QString &program, const QStringList &args, int timeoutMs = 60000)
{
    QStringList cmd = emulator();
    cmd << program << args;
    const QString exe = cmd.takeFirst();
    proc.start(exe, cmd);
    if (!proc.waitForStarted(timeoutMs))
        return false;
    if (!proc.waitForFinished(timeoutMs)) {
        proc.kill();
        proc.waitForFinished();
        return false;
    }
    return true;
}

// Re-runs this test executable with @p args (for fatal paths that must end
// a process of their own).
inline bool runSelf(QProcess &proc, const QStringList &args, int timeoutMs = 60000)
{
    return run(proc, QCoreApplication::applicationFilePath(), args, timeoutMs);
}

} // namespace VexaTest

#endif // VEXATEST_H
