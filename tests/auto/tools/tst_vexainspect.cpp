// vexa-inspect: the class list, one class's published interface, and the
// exit codes for unknown classes, bad options and libraries.

#include <QRegularExpression>
#include <QtTest>

#include "vexatest.h"

class tst_VexaInspect : public QObject
{
    Q_OBJECT

private slots:
    void output_data();
    void output();
};

void tst_VexaInspect::output_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("expected");   // regular expressions on stdout + stderr
    QTest::addColumn<QStringList>("unexpected");

    QTest::newRow("list") << QStringList() << 0
        << QStringList{"Module classes \\(3\\)", "InputFile\\s+VexaInputFile\\s+settings: path, loop, realtime",
                       "OutputFile\\s+VexaOutputFile", "PacketStats\\s+VexaPacketStats"}
        << QStringList{"VexaObject\\b\\s*\\n"};
    // Loading the library the tool already knows registers nothing twice.
    QTest::newRow("list with library") << QStringList{"-l", VEXA_EXAMPLE_MODULES} << 0
        << QStringList{"Module classes \\(3\\)"} << QStringList();
    QTest::newRow("one class") << QStringList{"InputFile"} << 0
        << QStringList{"Class VexaInputFile \\(create as \"InputFile\"\\), inherits VexaObject < QObject",
                       "Settings:\\n\\s+path\\s+media file to read",
                       "Events:\\n\\s+eos",
                       "VexaInputFile\\(QObject\\*\\)",
                       "Declared by VexaInputFile:\\n  Invokable methods:\\n\\s+QVariant stats\\(\\)",
                       "Declared by VexaObject:\\n  Signals:\\n\\s+void newEvent\\(QString type, QVariant msg\\)",
                       "void newPacketV\\(Packet pkt\\)",
                       "void onNewPacketV\\(Packet\\)",
                       "void onStart\\(\\)  \\[private\\]"}
        << QStringList{"Declared by QObject"};
    QTest::newRow("full class name, with QObject") << QStringList{"VexaOutputFile", "--all"} << 0
        << QStringList{"Class VexaOutputFile", "Declared by QObject:", "void deleteLater\\(\\)"} << QStringList();
    QTest::newRow("unknown class") << QStringList{"NoSuchModule"} << 1
        << QStringList{"vexa-inspect: unknown module class \"NoSuchModule\""} << QStringList();
    QTest::newRow("base class is not a module") << QStringList{"VexaObject"} << 1
        << QStringList{"unknown module class \"VexaObject\""} << QStringList();
    QTest::newRow("unknown option") << QStringList{"--bogus"} << 2 << QStringList{"Unknown option 'bogus'"} << QStringList();
    QTest::newRow("two classes") << QStringList{"InputFile", "OutputFile"} << 2
        << QStringList{"at most one class name expected"} << QStringList();
    QTest::newRow("missing library") << QStringList{"-l", "/no/such/libmodules.so"} << 3
        << QStringList{"cannot load module library /no/such/libmodules\\.so"} << QStringList();
}

void tst_VexaInspect::output()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QStringList, expected);
    QFETCH(QStringList, unexpected);

    QProcess proc;
    QVERIFY(VexaTest::run(proc, VEXA_INSPECT, args));
    const QString text = QString::fromUtf8(proc.readAllStandardOutput() + proc.readAllStandardError());
    QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
    QVERIFY2(proc.exitCode() == exitCode, qPrintable(text));
    for (const QString &re : expected)
        QVERIFY2(QRegularExpression(re).match(text).hasMatch(), qPrintable(re + "\n--- in ---\n" + text));
    for (const QString &re : unexpected)
        QVERIFY2(!QRegularExpression(re).match(text).hasMatch(), qPrintable(re + "\n--- in ---\n" + text));
}

QTEST_GUILESS_MAIN(tst_VexaInspect)
#include "tst_vexainspect.moc"
