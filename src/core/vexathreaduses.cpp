#include "vexathreaduses_p.h"

// Never destroyed: threads that ended without being joined may have used it
// last, and objects may still be deleted while the process exits.
VexaThreadUses::Table &VexaThreadUses::table()
{
    static Table *t = new Table;
    return *t;
}

void VexaThreadUses::took(const VexaObject *obj, const QString &name)
{
    Table &t = table();
    QMutexLocker locker(&t.mutex);
    t.uses[obj].append(name);
}

QStringList VexaThreadUses::takeAll(const VexaObject *obj)
{
    Table &t = table();
    QMutexLocker locker(&t.mutex);
    return t.uses.take(obj);
}
