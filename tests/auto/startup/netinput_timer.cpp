// A stand-in for the network-input module library: it defines the static
// timer thread that the interrupt handler stops, with default visibility.

#include <QThread>

class __attribute__((visibility("default"))) VexaInputNet
{
public:
    static QThread timerThread;
};

QThread VexaInputNet::timerThread;

extern "C" __attribute__((visibility("default"))) QThread *netInputTimer()
{
    return &VexaInputNet::timerThread;
}
