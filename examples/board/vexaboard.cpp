#include "vexaboard.h"

#include <QList>
#include <QMutex>

#include <bitset>

#include "hivpss.h"
#include "vexahi.h"
#include "vexatee.h"
#include "vexateechn.h"

namespace {
// The platform has 64 encoder and 64 decoder channels per process here.
constexpr int kChannels = 64;
QMutex channelLock;
std::bitset<kChannels> used[2];
} // namespace

int VexaBoard::takeChannel(Unit unit, int wanted)
{
    QMutexLocker locker(&channelLock);
    std::bitset<kChannels> &set = used[unit];
    if (wanted >= 0) {
        if (wanted >= kChannels || set.test(size_t(wanted)))
            return -1;
        set.set(size_t(wanted));
        return wanted;
    }
    for (int i = 0; i < kChannels; ++i) {
        if (!set.test(size_t(i))) {
            set.set(size_t(i));
            return i;
        }
    }
    return -1;
}

void VexaBoard::releaseChannel(Unit unit, int chn)
{
    QMutexLocker locker(&channelLock);
    if (chn >= 0 && chn < kChannels)
        used[unit].reset(size_t(chn));
}

int VexaBoard::channelsInUse(Unit unit)
{
    QMutexLocker locker(&channelLock);
    return int(used[unit].count());
}

QVariantMap VexaBoard::pictureParams(int tee, int width, int height, int fps)
{
    return QVariantMap{{"kind", "video"}, {"tee", tee}, {"width", width}, {"height", height}, {"fps", fps}};
}

void VexaBoard::releasePictureTee(VexaTee *&tee)
{
    if (!tee)
        return;
    // Group inputs are bound to the module's channel: clear them before the groups go.
    QList<int> groups;
    {
        QMutexLocker locker(&VexaTee::mutex);
        for (HiVpss *group : qAsConst(tee->vpssList))
            groups << group->getId();
    }
    for (int group : qAsConst(groups))
        VexaHi::bind(HI_ID_BUTT, 0, 0, HI_ID_VPSS, group, 0);
    VexaHi::delTee(tee);
    tee = nullptr;
}

void VexaBoard::releaseTeeChn(VexaTeeChn *&chn)
{
    if (!chn)
        return;
    QMutexLocker locker(&VexaTee::mutex);
    delete chn;
    chn = nullptr;
}
