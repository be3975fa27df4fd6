// The board file through Vexa::setConfig and the platform start-up
// (Vexa::initSys) on the software model, with one platform call made to fail.
// Input: one character choosing the failing call ('0' or anything outside
// the list below: none), then the board file. The start-up must end with
// true or false, never crash, and a second start-up with no fault must
// bring the platform up whenever the first did.

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

#include <Vexa>

#include "fuzzsupport.h"
#include "vx_mpi_model.h"

namespace {

// The platform calls of the start-up, in the order it makes them.
const char *const startupCalls[] = {
    "hi_mpi_sys_exit",
    "hi_mpi_vb_exit_mod_common_pool",
    "hi_mpi_vb_exit",
    "hi_mpi_vb_set_cfg",
    "hi_mpi_vb_init",
    "hi_mpi_sys_init",
    "hi_mpi_venc_get_mod_param",
    "hi_mpi_venc_set_mod_param",
    "hi_mpi_vi_get_mod_param",
    "hi_mpi_vi_set_mod_param",
    "hi_mpi_vb_set_mod_pool_cfg",
    "hi_mpi_vdec_get_mod_param",
    "hi_mpi_vdec_set_mod_param",
    "hi_mpi_vb_init_mod_common_pool",
};
constexpr int startupCallCount = int(sizeof startupCalls / sizeof startupCalls[0]);

QString boardPath;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietMessages();
    static QTemporaryDir dir;
    boardPath = dir.filePath(QStringLiteral("board.json"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const int fault = int(data[0]) - '1';  // '1' is the first call of the list
    {
        QFile f(boardPath);
        FUZZ_CHECK(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(FuzzSupport::bytes(data + 1, size - 1));
    }

    vx_model_reset();
    FUZZ_CHECK(Vexa::setConfig(boardPath));
    if (fault >= 0 && fault < startupCallCount)
        vx_model_fail(startupCalls[fault], -1, 1);
    Vexa::initSys();

    // The platform comes back from whatever the failed start-up left.
    const bool up = Vexa::initSys();
    vx_model_reset();
    const bool upFresh = Vexa::initSys();
    FUZZ_CHECK(up == upFresh);
    vx_model_reset();
    return 0;
}
