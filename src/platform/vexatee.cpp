#include "vexatee.h"

#include <QMutexLocker>

#include "vexahi.h"
#include "vexalog_p.h"
#include "vexateechn.h"

QMutex VexaTee::mutex;
unsigned char *VexaTee::ids = nullptr;

static const int kTeeIds = 256;

VexaTee::VexaTee(QObject *parent)
    : QObject(parent)
{
    QMutexLocker locker(&mutex);
    if (!ids)
        ids = new unsigned char[kTeeIds]();
    for (int id = 0; id < kTeeIds; ++id) {
        if (!ids[id]) {
            ids[id] = 1;
            teeId = id;
            return;
        }
    }
    qCDebug(lcVexaPlatform, "VexaTee: all %d tee ids are taken", kTeeIds);
}

VexaTee::~VexaTee()
{
    QMutexLocker locker(&mutex);
    if (teeId >= 0)
        ids[teeId] = 0;
    qDeleteAll(vpssList);
    vpssList.clear();
}

int VexaTee::getId()
{
    return teeId;
}

void VexaTee::setSource(int mod, int dev, int chn)
{
    source.mod_id = mod;
    source.dev_id = dev;
    source.chn_id = chn;
}

void VexaTee::setSource(vx_mpp_chn src)
{
    setSource(src.mod_id, src.dev_id, src.chn_id);
}

vx_mpp_chn VexaTee::getSource()
{
    return source;
}

void VexaTee::unbind()
{
}

// Creates a group and appends it. Called with mutex held.
HiVpss *VexaTee::addGroup(bool withFilters)
{
    HiVpss *group = new HiVpss();
    if (withFilters) {
        if (wantNR)
            group->enableNR();
        if (wantDIE)
            group->enableDIE();
    }
    group->setParam(procParam);
    vpssList.append(group);
    return group;
}

// Feeds a new group: from the source, or for a tee without one, from
// channel 0 of the first group. A sourceless tee's first group is left for
// the caller to bind. Called with mutex held.
void VexaTee::bindInput(HiVpss *group)
{
    if (source.mod_id != HI_ID_BUTT) {
        VexaHi::bind(source.mod_id, source.dev_id, source.chn_id, HI_ID_VPSS, group->getId(), 0);
    } else if (vpssList.size() >= 2) {
        VexaHi::bind(HI_ID_VPSS, vpssList.first()->getId(), 0, HI_ID_VPSS, group->getId(), 0);
    }
}

static VexaTeeChn *makeChn(HiVpss *group, int chn)
{
    VexaTeeChn *out = new VexaTeeChn();
    out->chn = chn;
    out->vpss = group;
    return out;
}

VexaTeeChn *VexaTee::newChn(bool userMode, bool shareFirst)
{
    VexaTeeChn *out = nullptr;
    {
        QMutexLocker locker(&mutex);
        if (shareFirst && !vpssList.isEmpty())
            return makeChn(vpssList.first(), 0);
        if (!shareFirst) {
            for (HiVpss *group : qAsConst(vpssList)) {
                const int chn = group->newChn(userMode);
                if (chn != -1)
                    return makeChn(group, chn);
            }
        }

        HiVpss *group = addGroup(true);
        out = makeChn(group, shareFirst ? 0 : group->newChn(userMode));
        bindInput(group);
    }
    // Outside the lock: a slot may well call back into the tee.
    emit newVpss();
    return out;
}

VexaTeeChn *VexaTee::newChnIPC()
{
    VexaTeeChn *out = nullptr;
    {
        QMutexLocker locker(&mutex);
        for (HiVpss *group : qAsConst(vpssList)) {
            if (!group->chns[0].enabled) {
                group->enableChn(0, false);
                return makeChn(group, 0);
            }
        }

        HiVpss *group = addGroup(false);
        group->enableChn(0, false);
        out = makeChn(group, 0);
        bindInput(group);
    }
    emit newVpss();
    return out;
}

void VexaTee::setMax(int width, int height)
{
    QMutexLocker locker(&mutex);
    for (HiVpss *group : qAsConst(vpssList))
        group->setMax(width, height);
}

void VexaTee::updateParam()
{
    QMutexLocker locker(&mutex);
    for (HiVpss *group : qAsConst(vpssList))
        group->setParam(procParam);
}
