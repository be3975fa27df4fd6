#ifndef VEXATEE_H
#define VEXATEE_H

#include <QList>
#include <QMutex>
#include <QObject>

#include "hi_common.h"
#include "hivpss.h"
#include "vexabase_export.h"
#include "vx_mpp_chn.h"

class VexaTeeChn;

/**
 * Splits one video source into any number of processed outputs. Behind the
 * tee lie VPSS groups (HiVpss) of four channels each; when their channels
 * are used up the tee creates a further group, fed from the tee's source or,
 * for a tee without source, from channel 0 of its first group.
 *
 * Tees are made, found and destroyed through VexaHi::newTee, getTee and
 * delTee. The tee owns its groups; the VexaTeeChn outputs belong to the
 * modules that asked for them and must be destroyed before the tee.
 *
 * Thread: the methods are thread-safe (VexaTee::mutex, shared by all tees
 * and channels).
 */
class VEXABASE_EXPORT VexaTee : public QObject
{
    Q_OBJECT

public:
    /** Takes the first free tee id (0-255); -1 when all are taken. Creates no group yet. */
    explicit VexaTee(QObject *parent = nullptr);
    /** Frees the id and destroys the groups. */
    ~VexaTee() override;

    int getId();
    void setSource(int mod, int dev, int chn);
    void setSource(vx_mpp_chn src);
    vx_mpp_chn getSource();
    /** Does nothing: the groups' inputs stay bound until the groups go. */
    void unbind();

    /**
     * A new output: the first free channel of the tee's groups, or channel 0
     * of a new group (which is then bound to the source). With
     * @p shareFirst, channel 0 of the first group is handed out again
     * without being enabled. Null only when no VexaTeeChn could be made.
     */
    VexaTeeChn *newChn(bool userMode = false, bool shareFirst = false);
    /** As newChn, but one output per group: channel 0 of each, in auto mode. */
    VexaTeeChn *newChnIPC();

    /** Grows every group to at least @p width x @p height (HiVpss::setMax). */
    void setMax(int width, int height);
    /** Hands procParam to every group (HiVpss::setParam). */
    void updateParam();

    int maxWidth = HiVpss::defaultWidth;
    int maxHeight = HiVpss::defaultHeight;
    /** Processing level given to every group; applied by newChn and updateParam. */
    int procParam = 0;
    int spare = 0; // kept for the record's layout; not used
    /** Noise reduction and de-interlacing for groups that newChn creates. */
    bool wantNR = false;
    bool wantDIE = false;
    /** The groups, in order of creation. Guarded by mutex. */
    QList<HiVpss *> vpssList;
    int teeId = -1;
    /** Module 87: no source. */
    vx_mpp_chn source = {HI_ID_BUTT, -1, -1};

    /** Guards the id table, every tee's group list and channel creation. Taken after VexaHi::lockTee. */
    static QMutex mutex;
    /** One byte per tee id, nonzero while taken; allocated on first use. Guarded by mutex. */
    static unsigned char *ids;

signals:
    /** A group was added to the tee. Emitted after mutex is released, so a slot may call the tee. */
    void newVpss();

private:
    HiVpss *addGroup(bool withFilters);
    void bindInput(HiVpss *group);
};

#endif // VEXATEE_H
