// Diagnostics go through one logging category per layer with their texts
// unchanged, show by default, and logging rules silence one layer or keep
// it alone.

#include <QLoggingCategory>
#include <QtTest>

#include <functional>

#include "vexahi.h"
#include "vexaprobe.h"
#include "vx_mpi_model.h"

namespace {

struct Line {
    QString category;
    QString text;
    QString level;
};
QList<Line> captured;

void capture(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtDebugMsg || type == QtWarningMsg)
        captured.append(Line{QString::fromLatin1(context.category), text,
                             QLatin1String(type == QtDebugMsg ? "debug" : "warning")});
}

// Runs @p trigger with the filter @p rules and returns what was logged.
QList<Line> logged(const QString &rules, const std::function<void()> &trigger)
{
    QLoggingCategory::setFilterRules(rules);
    captured.clear();
    const QtMessageHandler previous = qInstallMessageHandler(capture);
    trigger();
    qInstallMessageHandler(previous);
    QLoggingCategory::setFilterRules(QString());
    return captured;
}

} // namespace

class tst_Logging : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        registerProbe();
        vx_model_reset();
    }

    void categories_data()
    {
        QTest::addColumn<QString>("trigger");
        QTest::addColumn<QString>("category");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("level");

        QTest::newRow("framework") << "initSys" << "vexa.framework" << "init done" << "debug";
        // A call without the tee channel it needs is the caller's mistake: a warning.
        QTest::newRow("platform glue misuse") << "bindFromTee" << "vexa.platform" << "VexaHi::bindFromTee: no tee channel" << "warning";
        QTest::newRow("platform bring-up") << "initSysFails" << "vexa.platform" << "HI_MPI_SYS_Init failed!" << "debug";
        QTest::newRow("core") << "queueFull" << "vexa.core" << "[log_probe] bufA full 1" << "debug";
    }
    void categories()
    {
        QFETCH(QString, trigger);
        QFETCH(QString, category);
        QFETCH(QString, text);
        QFETCH(QString, level);

        const QMap<QString, std::function<void()>> triggers{
            {"initSys", [] { Vexa::initSys(); }},
            {"bindFromTee", [] { VexaHi::bindFromTee(nullptr, 0, 0, 0); }},
            {"initSysFails",
             [] {
                 vx_model_fail("hi_mpi_sys_init", -1);
                 Vexa::initSys();
             }},
            {"queueFull",
             [] {
                 VexaProbe *p = makeProbe(QStringLiteral("log_probe"), QStringLiteral("main"));
                 p->start(QVariantMap{{"bufLenA", 1}});
                 Vexa::debug = true;
                 p->bufferPacketA(VexaObject::Packet());
                 Vexa::debug = false;
                 p->destroy();
                 QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
             }},
        };
        const std::function<void()> run = triggers.value(trigger);
        QVERIFY(run);

        // Rules (one a line, as setFilterRules takes them) and whether the
        // line shows under them: by default, with its layer silenced, with
        // its layer kept alone, with every layer silenced.
        const QString own = category + QStringLiteral(".") + level + QStringLiteral("=");
        const QString all = QStringLiteral("vexa.*.") + level + QStringLiteral("=false");
        const QList<QPair<QString, bool>> cases{
            {QString(), true},
            {own + QStringLiteral("false"), false},
            {all + QLatin1Char('\n') + own + QStringLiteral("true"), true},
            {all, false},
        };
        for (const auto &rule : cases) {
            const QList<Line> lines = logged(rule.first, run);
            int found = 0;
            for (const Line &line : lines) {
                if (line.text == text) {
                    QCOMPARE(line.category, category);
                    QCOMPARE(line.level, level);
                    ++found;
                }
            }
            QVERIFY2(found == (rule.second ? 1 : 0), qPrintable(rule.first));
        }
    }
};

QTEST_GUILESS_MAIN(tst_Logging)
#include "tst_logging.moc"
