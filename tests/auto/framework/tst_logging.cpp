// Diagnostics go through one logging category per layer with their texts
// unchanged and show by default.

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

// Runs @p trigger and returns what was logged.
QList<Line> logged(const std::function<void()> &trigger)
{
    captured.clear();
    const QtMessageHandler previous = qInstallMessageHandler(capture);
    trigger();
    qInstallMessageHandler(previous);
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

        // Shown by default, once, in its layer's category at its level:
        // logging rules on that category's name then silence it or keep it.
        int found = 0;
        for (const Line &line : logged(run)) {
            if (line.text == text) {
                QCOMPARE(line.category, category);
                QCOMPARE(line.level, level);
                ++found;
            }
        }
        QCOMPARE(found, 1);
    }
};

QTEST_GUILESS_MAIN(tst_Logging)
#include "tst_logging.moc"
