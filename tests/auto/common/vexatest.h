#ifndef VEXATEST_H
#define VEXATEST_H

// Helpers shared by the QtTest executables.

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QTest>

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

// How much of a stress test's native size to run: VEXA_STRESS_SCALE, else
// a tenth under a cross build's emulator and the whole size natively. The
// sanitizer runs set 0.2 (scripts/run-tests.sh).
inline double stressScale()
{
    bool ok = false;
    const double scale = qEnvironmentVariable("VEXA_STRESS_SCALE").toDouble(&ok);
    if (ok && scale > 0)
        return scale;
    return emulator().isEmpty() ? 1.0 : 0.1;
}

// Starts @p program with @p args, through the emulator in a cross build.
inline bool start(QProcess &proc, const QString &program, const QStringList &args, int timeoutMs = 30000)
{
    QStringList cmd = emulator();
    cmd << program << args;
    const QString exe = cmd.takeFirst();
    proc.start(exe, cmd);
    return proc.waitForStarted(timeoutMs);
}

// Starts @p program and waits for it to end (at most @p timeoutMs). Returns
// false when it did not start or did not end in time; exit status, code and
// output are read from @p proc afterwards.
inline bool run(QProcess &proc, const QString &program, const QStringList &args, int timeoutMs = 60000)
{
    if (!start(proc, program, args, timeoutMs))
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

// Collects the running @p proc's stderr into @p err until it holds @p count
// matches of @p re; false when the process ended or the time ran out first.
inline bool waitForMatches(QProcess &proc, const QRegularExpression &re, int count, int timeoutMs, QByteArray *err)
{
    return QTest::qWaitFor([&] {
        proc.waitForReadyRead(100);
        *err += proc.readAllStandardError();
        int found = 0;
        for (auto it = re.globalMatch(QString::fromUtf8(*err)); it.hasNext(); it.next())
            ++found;
        return found >= count || proc.state() != QProcess::Running;
    }, timeoutMs) && proc.state() == QProcess::Running;
}

// A pipeline of two modules, "in" feeding "out" audio and video; the
// settings are the members of each module's settings object.
inline QByteArray pipeline(const QString &in, const QString &inSettings, const QString &out, const QString &outSettings)
{
    return QStringLiteral(R"({"modules": [{"class": "%1", "name": "in", "settings": {%2}},)"
                          R"( {"class": "%3", "name": "out", "settings": {%4}}],)"
                          R"( "links": [{"from": "in", "to": "out", "kind": "AV"}]})")
        .arg(in, inSettings, out, outSettings).toUtf8();
}

// Writes @p content to @p path (replacing it) and returns the path.
inline QString writeFile(const QString &path, const QByteArray &content)
{
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(content);
    return path;
}

// The packet rows of a framemd5 file, comments left out: stream, dts, pts,
// duration, size, hash.
inline QList<QStringList> frameMd5(const QString &path)
{
    QList<QStringList> rows;
    QFile f(path);
    if (f.open(QIODevice::ReadOnly | QIODevice::Text))
        for (const QString &line : QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            if (!line.startsWith(QLatin1Char('#')))
                rows << line.split(QLatin1Char(',')).replaceInStrings(QRegularExpression("^\\s+|\\s+$"), QString());
    return rows;
}

} // namespace VexaTest

#endif // VEXATEST_H
