#ifndef VEXACLASSINFO_H
#define VEXACLASSINFO_H

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include "vexabase_export.h"

struct QMetaObject;

/**
 * What a module class declares about itself in its meta-object, read without
 * creating an object: its settings and which of audio, video and events it
 * sends and accepts. Tools use it to check a pipeline before anything starts.
 *
 * A class declares a setting with
 *     Q_CLASSINFO("setting:NAME", "TYPE[(A|B|...)][=DEFAULT]; one-line meaning")
 * where TYPE is bool, int, number, string, input (a file the module reads),
 * output (a file the module writes) or enum (one of the listed words). A
 * value without a recognised "TYPE; " part declares a setting of type "any"
 * whose meaning is the whole text. It declares its interface with
 *     Q_CLASSINFO("sends", "audio video events")
 *     Q_CLASSINFO("accepts", "events")
 * ("none" for nothing). A class that declares no interface is taken to send
 * and accept everything; one that declares no setting is not checked. A class
 * that works without the media platform (files, network) says so with
 *     Q_CLASSINFO("platform", "unused")
 * so that a pipeline of such classes alone need not bring the platform up.
 * The base settings "bufLenA", "bufLenV", "memSize" and "debugLevel" belong
 * to every class's list.
 *
 * Thread: reentrant.
 */
class VEXABASE_EXPORT VexaClassInfo
{
public:
    struct Setting {
        QString name;
        QString type;           // bool, int, number, string, input, output, enum or any
        QVariant defaultValue;  // invalid when none is declared
        QStringList allowed;    // the words of an enum
        QString meaning;
        bool base = false;      // one of the base class's settings
    };

    /** Media kinds of an interface, or-ed together. */
    enum Kind { Audio = 1, Video = 2, Events = 4, AllKinds = 7 };

    /** Reads the declarations of @p metaObject and its base classes; a null one declares nothing. */
    explicit VexaClassInfo(const QMetaObject *metaObject);

    /** True when the class (or a base class below VexaObject) declares at least one setting. */
    bool declaresSettings() const { return declared; }
    /** The class's own settings in declaration order, then the base settings. */
    QList<Setting> settings() const { return list; }
    /** The setting called @p name, or null. */
    const Setting *setting(const QString &name) const;

    /**
     * Checks @p value for the setting @p key. Returns an empty string when it
     * is acceptable, else what is wrong ("unknown setting (known: ...)",
     * "expected bool, got the string \"no\"", ...). Classes that declare no
     * setting accept every key.
     */
    QString check(const QString &key, const QVariant &value) const;

    /** Kinds the class sends and accepts (AllKinds when not declared). */
    int sends() const { return sendKinds; }
    int accepts() const { return acceptKinds; }
    bool declaresInterface() const { return interfaceDeclared; }
    /** False when the class declares that it does not use the media platform. */
    bool usesPlatform() const { return platform; }
    /** "audio, video, events" or "none". */
    static QString kindsText(int kinds);
    /** The kind of a link letter 'A', 'V' or 'E'; 0 for any other. */
    static int kindOfLink(QChar letter);

    /** "bool", "one of wait, drop", "input file path", ... for messages and listings. */
    static QString typeText(const Setting &s);

private:
    bool declared = false;
    bool interfaceDeclared = false;
    int sendKinds = AllKinds;
    int acceptKinds = AllKinds;
    bool platform = true;
    QList<Setting> list;
};

#endif // VEXACLASSINFO_H
