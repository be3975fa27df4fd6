#ifndef VEXATHREADUSES_P_H
#define VEXATHREADUSES_P_H

//
// Not API: which worker-thread uses each module object's start() took, so
// that destroy() gives back exactly those.
//

#include <QHash>
#include <QMutex>
#include <QStringList>

class VexaObject;

class VexaThreadUses
{
public:
    /** Records that @p obj's start() took one use of the registry thread @p name. */
    static void took(const VexaObject *obj, const QString &name);
    /** Every use @p obj took and has not given back, forgotten here; one entry per use. */
    static QStringList takeAll(const VexaObject *obj);

private:
    struct Table {
        QMutex mutex;
        QHash<const VexaObject *, QStringList> uses;
    };
    static Table &table();
};

#endif // VEXATHREADUSES_P_H
