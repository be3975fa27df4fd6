#include "vexathreaduses_p.h"

QMutex VexaThreadUses::mutex;
QHash<const VexaObject *, QStringList> VexaThreadUses::uses;

void VexaThreadUses::took(const VexaObject *obj, const QString &name)
{
    QMutexLocker locker(&mutex);
    uses[obj].append(name);
}

QStringList VexaThreadUses::takeAll(const VexaObject *obj)
{
    QMutexLocker locker(&mutex);
    return uses.take(obj);
}
