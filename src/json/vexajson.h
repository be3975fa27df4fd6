#ifndef VEXAJSON_H
#define VEXAJSON_H

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include "vexabase_export.h"

/**
 * Conversions between Qt variants and JSON text, a one-level merge of
 * settings maps, and JSON files. Stateless. Thread: reentrant.
 */
class VEXABASE_EXPORT Json
{
public:
    Json();

    /** JSON text of a map (object) or a list (array); an empty string for anything else. */
    static QString encode(QVariant value, bool indented = false);
    /** The parsed document as a map or a list; an invalid QVariant on a parse error. */
    static QVariant decode(const QString &text);
    /** base overlaid with overlay, one level deep: overlay's values replace base's whole. */
    static QVariantMap join(QVariantMap base, QVariantMap overlay);
    /** decode() of the file's content; an invalid QVariant when it is missing, unreadable or not JSON. */
    static QVariant loadFile(QString path);
    /**
     * Writes encode(value, true) over the file at @p path. Always returns true,
     * even when the file could not be opened or written: callers that need
     * certainty check the file themselves.
     */
    static bool saveFile(QVariant value, QString path);
};

#endif // VEXAJSON_H
