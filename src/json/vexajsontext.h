#ifndef VEXAJSONTEXT_H
#define VEXAJSONTEXT_H

#include <QByteArray>
#include <QJsonDocument>

#include "vexabase_export.h"

/**
 * Reads JSON text into a QJsonDocument exactly as QJsonDocument::fromJson()
 * does, without the memory Qt 5.15's reader loses when a key appears twice
 * in one object and its first value is an array or an object. The reader
 * keeps the last value of such a key; the members it would drop are taken
 * out of the text first, so the document is the same and nothing leaks.
 * Stateless. Thread: reentrant.
 */
class VEXABASE_EXPORT VexaJsonText
{
public:
    /**
     * The document of @p text, as QJsonDocument::fromJson(text, error);
     * an error's offset counts in @p text as given.
     */
    static QJsonDocument parse(const QByteArray &text, QJsonParseError *error = nullptr);

    /**
     * @p text without the members that a later member of the same key in
     * the same object overrides, when one of those holds an array or an
     * object; @p text itself when there is none. In text that is not
     * well-formed, the objects that close before the scan stops are
     * rewritten so (the reader reads those before it reports the error).
     * Each removed range, as offset and length in @p text, goes into
     * @p removed when given.
     */
    static QByteArray withoutOverriddenMembers(const QByteArray &text, QVector<QPair<int, int>> *removed = nullptr);
};

#endif // VEXAJSONTEXT_H
