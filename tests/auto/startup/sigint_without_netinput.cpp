// The SIGINT handler in a process where no module library defines the
// network-input timer thread: it must still free media memory and exit 0.

#include <csignal>
#include <cstdlib>
#include <unistd.h>

#include <QCoreApplication>
#include <QTemporaryDir>

#include "vx_mpi_model.h"

#include <Vexa>
#include <vexahi.h>
#include <vexajson.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    const QString board = dir.filePath("board.json");
    Json::saveFile(QVariantMap{{"videoBuffer", QVariantMap{{"sys", QVariantList{QVariantMap{{"cnt", 1}, {"size", 4096}}}}}}}, board);
    Vexa::setConfig(board);
    Vexa::init(true);
    unsigned int phys = 0;
    void *virt = nullptr;
    if (VexaHi::mmzAlloc(&phys, &virt, 4096, false, "a", nullptr) != 0 || vx_model_mmz_count() != 1)
        return 2;
    std::atexit([] { _exit(vx_model_mmz_count() == 0 ? 0 : 1); });
    std::raise(SIGINT);
    return 3; // not reached: the handler exits
}
