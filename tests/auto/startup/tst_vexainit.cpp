// Start-up of the framework: banner, record registration, board file,
// video-buffer pools and media system, configuration, version, the fatal
// paths and the SIGINT handler, checked against the software platform's
// state and call log.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>

#include <QDir>
#include <QMetaType>
#include <QTemporaryDir>
#include <QtTest>

#include "hi_mpi_vb.h"
#include "hi_mpi_vdec.h"
#include "hi_mpi_venc.h"
#include "hi_mpi_vi.h"
#include "vx_mpi_model.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include "vexatest.h"
#include <Vexa>
#include <VexaObject>
#include <vexahi.h>
#include <vexajson.h>

namespace {

QStringList callNames()
{
    QStringList names;
    for (const std::string &call : vx_model_calls())
        names << QString::fromStdString(call).section(QLatin1Char('('), 0, 0);
    return names;
}

QVariantMap pool(int cnt, int size)
{
    return QVariantMap{{"cnt", cnt}, {"size", size}};
}

QVariantList pools(int n, int size = 4096)
{
    QVariantList list;
    for (int i = 0; i < n; ++i)
        list << pool(1, size);
    return list;
}

// Child modes: each ends its own process.
int childMode(const QString &mode, const QString &arg)
{
    if (mode == QLatin1String("--config-empty")) {
        Vexa::getConfig();
        return 0;
    }
    if (mode == QLatin1String("--devices")) {
        // Whether FFmpeg's device layer is registered after init, and after
        // initDevices() (lavfi is one of its inputs).
        const bool onDemand = arg == QLatin1String("on-demand");
        Vexa::setDevicesOnDemand(onDemand);
        Vexa::init(false);
        const bool atInit = av_find_input_format("lavfi") != nullptr;
        const bool loaded = Vexa::initDevices();
        std::printf("%d %d %d\n", int(atInit), int(loaded), int(av_find_input_format("lavfi") != nullptr));
        return 0;
    }
    if (mode == QLatin1String("--init-fails")) {
        vx_model_fail("hi_mpi_sys_init", 0xA0028010, -1);
        Vexa::setConfig(arg);
        Vexa::init(true);
        return 0;
    }
    return 2;
}

} // namespace

class tst_VexaInit : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;

    QString writeBoard(const QVariantMap &board, const QString &name = QStringLiteral("board.json"))
    {
        const QString path = dir.filePath(name);
        Json::saveFile(board, path);
        return path;
    }

    void useBoard(const QVariantMap &videoBuffer)
    {
        QVERIFY(Vexa::setConfig(writeBoard(QVariantMap{{"videoBuffer", videoBuffer}})));
        vx_model_reset();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
    }

    void init()
    {
        vx_model_reset();
    }

    // Without a board file and on the short path, init prints the version,
    // registers the records and touches no platform call; the build number
    // is reported as a number.
    void initShortPath()
    {
        QTest::ignoreMessage(QtDebugMsg, "VexaSDK 3.5.1 build 20241031_29856");
        QCOMPARE(QMetaType::type("StreamInfo"), 0);
        QVERIFY(Vexa::init(false));
        QVERIFY(QMetaType::type("Packet") != 0);
        QCOMPARE(QMetaType::type("Packet"), qMetaTypeId<VexaObject::Packet>());
        QCOMPARE(QMetaType::type("StreamInfo"), qMetaTypeId<VexaObject::StreamInfo>());
        QCOMPARE(callNames(), QStringList());
        QCOMPARE(Vexa::getVersion(), (QVariantMap{{"build", 29856}, {"date", "20241031"}, {"version", "3.5.1"}}));
        QCOMPARE(Vexa::getVersion().value("build").userType(), int(QMetaType::Int));
    }

    void setConfig()
    {
        const QString board = writeBoard(QVariantMap{{"board", "x"}});
        QVERIFY(Vexa::setConfig(board));
        QCOMPARE(Vexa::getConfig().value("board").toString(), QStringLiteral("x"));
        // A missing file changes nothing.
        QVERIFY(!Vexa::setConfig(dir.filePath("missing.json")));
        QCOMPARE(Vexa::getConfig().value("board").toString(), QStringLiteral("x"));
        // A file that is no JSON object empties the configuration.
        QFile list(dir.filePath("list.json"));
        QVERIFY(list.open(QIODevice::WriteOnly));
        list.write("[1, 2]");
        list.close();
        QVERIFY(Vexa::setConfig(list.fileName()));
        QVERIFY(Vexa::Config.isEmpty());
    }

    // The whole start-up sequence, in order, from a board file with both pool lists.
    void initSysSequence()
    {
        useBoard(QVariantMap{{"sys", QVariantList{pool(3, 65536), pool(2, 4096)}}, {"dec", QVariantList{pool(4, 8192)}}});
        QTest::ignoreMessage(QtDebugMsg, "init done");
        QVERIFY(Vexa::initSys());

        QStringList expected{"hi_mpi_sys_exit"};
        for (int uid = 0; uid <= 26; ++uid)
            expected << "hi_mpi_vb_exit_mod_common_pool";
        expected << "hi_mpi_vb_exit" << "hi_mpi_vb_set_cfg" << "hi_mpi_vb_init" << "hi_mpi_sys_init"
                 << "hi_mpi_venc_get_mod_param" << "hi_mpi_venc_set_mod_param"
                 << "hi_mpi_venc_get_mod_param" << "hi_mpi_venc_set_mod_param"
                 << "hi_mpi_vi_get_mod_param" << "hi_mpi_vi_set_mod_param"
                 << "hi_mpi_vb_set_mod_pool_cfg" << "hi_mpi_vb_init_mod_common_pool";
        QCOMPARE(callNames(), expected);
        const std::vector<std::string> calls = vx_model_calls();
        const auto call = [&calls](size_t i) { return QString::fromStdString(calls.at(i)); };
        QCOMPARE(QStringList({call(1), call(27), call(38), call(39)}),
                 QStringList({"hi_mpi_vb_exit_mod_common_pool(0)", "hi_mpi_vb_exit_mod_common_pool(26)",
                              "hi_mpi_vb_set_mod_pool_cfg(4,1)", "hi_mpi_vb_init_mod_common_pool(4)"}));

        hi_vb_cfg cfg;
        QCOMPARE(hi_mpi_vb_get_cfg(&cfg), 0);
        QCOMPARE(QList<quint64>({cfg.max_pool_cnt, cfg.common_pool[0].blk_cnt, cfg.common_pool[0].blk_size,
                                 cfg.common_pool[1].blk_cnt, cfg.common_pool[2].blk_size}),
                 QList<quint64>({2, 3, 65536, 2, 0}));

        // Encoder module types share no single stream buffer; VI reports no error frames.
        for (hi_venc_mod_type type : {HI_VENC_MOD_H264, HI_VENC_MOD_H265}) {
            hi_venc_mod_param venc;
            std::memset(&venc, 0, sizeof venc);
            venc.mod_type = type;
            QCOMPARE(hi_mpi_venc_get_mod_param(&venc), 0);
            QCOMPARE(type == HI_VENC_MOD_H264 ? venc.h264_mod_param.one_stream_buf : venc.h265_mod_param.one_stream_buf, 0u);
        }
        hi_vi_mod_param vi;
        QCOMPARE(hi_mpi_vi_get_mod_param(&vi), 0);
        QCOMPARE(vi.detect_err_frame, -1);
    }

    // Decoder buffers: module pools when the board lists them, private ones otherwise.
    void decoderPools_data()
    {
        QTest::addColumn<QVariantMap>("videoBuffer");
        QTest::addColumn<bool>("modPools");
        QTest::addColumn<bool>("privateSource");
        QTest::newRow("dec list") << QVariantMap{{"sys", pools(1)}, {"dec", pools(2)}} << true << false;
        QTest::newRow("no dec key") << QVariantMap{{"sys", pools(1)}} << false << true;
        QTest::newRow("empty dec list") << QVariantMap{{"sys", pools(1)}, {"dec", QVariantList()}} << false << true;
        QTest::newRow("no videoBuffer") << QVariantMap() << false << false;
    }

    void decoderPools()
    {
        QFETCH(QVariantMap, videoBuffer);
        QFETCH(bool, modPools);
        QFETCH(bool, privateSource);
        useBoard(videoBuffer);
        QTest::ignoreMessage(QtDebugMsg, "init done");
        QVERIFY(Vexa::initSys());
        const QStringList names = callNames();
        QCOMPARE(names.contains("hi_mpi_vb_set_mod_pool_cfg"), modPools);
        QCOMPARE(names.contains("hi_mpi_vdec_set_mod_param"), privateSource);
        hi_vdec_mod_param vdec;
        QCOMPARE(hi_mpi_vdec_get_mod_param(&vdec), 0);
        QCOMPARE(vdec.vb_src == HI_VB_SRC_PRIVATE, privateSource);
        if (videoBuffer.isEmpty()) {
            hi_vb_cfg cfg;
            QCOMPARE(hi_mpi_vb_get_cfg(&cfg), 0);
            QCOMPARE(cfg.max_pool_cnt, 0u);
        }
    }

    // The pool record holds 16 pools: a longer list is cut there and said so.
    void tooManyPools()
    {
        useBoard(QVariantMap{{"sys", pools(17)}, {"dec", pools(18)}});
        QTest::ignoreMessage(QtDebugMsg, "videoBuffer \"sys\" lists 17 pools; the first 16 are used");
        QTest::ignoreMessage(QtDebugMsg, "videoBuffer \"dec\" lists 18 pools; the first 16 are used");
        QTest::ignoreMessage(QtDebugMsg, "init done");
        QVERIFY(Vexa::initSys());
        hi_vb_cfg cfg;
        QCOMPARE(hi_mpi_vb_get_cfg(&cfg), 0);
        QCOMPARE(cfg.max_pool_cnt, 16u);
        const std::vector<std::string> calls = vx_model_calls();
        QVERIFY(std::find(calls.begin(), calls.end(), "hi_mpi_vb_set_mod_pool_cfg(4,16)") != calls.end());
    }

    // Each checked step fails with its own message; a failed VB configuration is survived.
    void failures_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("result");
        QTest::addColumn<QString>("lastCall");
        QTest::newRow("exit mod pool") << "hi_mpi_vb_exit_mod_common_pool" << "HI_MPI_VB_ExitModCommPool failed 0xa001800d"
                                       << false << "hi_mpi_vb_exit_mod_common_pool";
        QTest::newRow("vb init") << "hi_mpi_vb_init" << "HI_MPI_VB_Init failed!" << false << "hi_mpi_vb_init";
        QTest::newRow("sys init") << "hi_mpi_sys_init" << "HI_MPI_SYS_Init failed!" << false << "hi_mpi_sys_init";
        QTest::newRow("vb config") << "hi_mpi_vb_set_cfg" << "HI_MPI_VB_SetConf failed! 0xa001800d" << true
                                   << "hi_mpi_vb_init_mod_common_pool";
    }

    void failures()
    {
        QFETCH(QString, function);
        QFETCH(QString, message);
        QFETCH(bool, result);
        QFETCH(QString, lastCall);
        useBoard(QVariantMap{{"sys", pools(1)}});
        // An earlier run leaves VB configured, so a refused configuration still lets VB start.
        QCOMPARE(vx_model_boot(), 0);
        vx_model_clear_calls();
        vx_model_fail(function.toLatin1().constData(), hi_s32(0xA001800D));
        QTest::ignoreMessage(QtDebugMsg, qPrintable(message));
        if (result)
            QTest::ignoreMessage(QtDebugMsg, "init done");
        QCOMPARE(Vexa::initSys(), result);
        QCOMPARE(callNames().last(), lastCall);
        if (result)
            QVERIFY(callNames().contains("hi_mpi_vb_init"));
    }

    // Fatal paths and the SIGINT handler end a process of their own.
    void fatal_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QStringList>("messages");
        QTest::newRow("empty configuration") << "--config-empty" << QStringList{"Config file didn't load"};
        QTest::newRow("init fails") << "--init-fails" << QStringList{"HI_MPI_SYS_Init failed!", "init system failed"};
    }
    void fatal()
    {
        QFETCH(QString, mode);
        QFETCH(QStringList, messages);
        QProcess child;
        QVERIFY(VexaTest::runSelf(child, {mode, writeBoard(QVariantMap{{"videoBuffer", QVariantMap{{"sys", pools(1)}}}})}));
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        const QByteArray err = child.readAllStandardError();
        for (const QString &m : messages)
            QVERIFY2(err.contains(m.toUtf8()), err.constData());
    }

    // The device layer is registered at init, or later when asked for.
    void devices_data()
    {
        QTest::addColumn<QString>("when");
        QTest::addColumn<QByteArray>("output");
        QTest::newRow("at init") << "default" << QByteArray("1 1 1");
        QTest::newRow("on demand") << "on-demand" << QByteArray("0 1 1");
    }
    void devices()
    {
        QFETCH(QString, when);
        QFETCH(QByteArray, output);
        QProcess child;
        QVERIFY(VexaTest::runSelf(child, {QStringLiteral("--devices"), when}));
        QCOMPARE(child.exitCode(), 0);
        QCOMPARE(child.readAllStandardOutput().trimmed(), output);
    }

    // The interrupt handler stops the network-input timer thread, whichever
    // way its module library came in, frees the media memory and ends the
    // process with status 0.
    void sigint_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QByteArray>("output");
        const QString plain = QStringLiteral(VEXA_SIGINT_CHILD);
        QTest::newRow("linked") << QStringLiteral(VEXA_SIGINT_CHILD_LINKED) << "linked" << QByteArray("mmz left 0, timer stopped");
        QTest::newRow("QLibrary") << plain << "qlibrary" << QByteArray("mmz left 0, timer stopped");
        QTest::newRow("dlopen") << plain << "dlopen" << QByteArray("mmz left 0, timer stopped");
        QTest::newRow("no module") << plain << "none" << QByteArray("mmz left 0, timer absent");
        QTest::newRow("registered thread") << plain << "registered" << QByteArray("mmz left 0, timer stopped");
    }
    void sigint()
    {
        QFETCH(QString, program);
        QFETCH(QString, mode);
        QFETCH(QByteArray, output);
        const QString board = writeBoard(QVariantMap{{"videoBuffer", QVariantMap{{"sys", pools(1)}}}});
        QProcess child;
        QVERIFY(VexaTest::run(child, program, {mode, board, QStringLiteral(VEXA_NETINPUT_TIMER_LIB)}));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        QCOMPARE(child.readAllStandardOutput().trimmed(), output);
    }
};

int main(int argc, char **argv)
{
    if (argc >= 2 && QByteArray(argv[1]).startsWith("--") && QByteArray(argv[1]) != "--") {
        const QString mode = QString::fromLocal8Bit(argv[1]);
        if (mode == "--config-empty" || mode == "--init-fails" || mode == "--devices")
            return childMode(mode, argc >= 3 ? QString::fromLocal8Bit(argv[2]) : QString());
    }
    QCoreApplication app(argc, argv);
    tst_VexaInit test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_vexainit.moc"
