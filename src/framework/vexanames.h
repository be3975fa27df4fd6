#ifndef VEXANAMES_H
#define VEXANAMES_H

#include <QString>

#include "vexabase_export.h"

/**
 * The names the framework fixes: the prefix every module class carries and
 * the place of the board file. The factory, the tools and module libraries
 * read them here rather than spelling them out again.
 * Thread: reentrant.
 */
class VEXABASE_EXPORT VexaNames
{
public:
    /** "Vexa": the prefix of every module class name ("VexaEncoder"). */
    static QString classPrefix();
    /**
     * The class name as the meta-type system knows it: @p className with the
     * prefix put in front unless it starts with it already ("Encoder" and
     * "VexaEncoder" both give "VexaEncoder"). This is the lookup rule of
     * Vexa::create.
     */
    static QString fullClassName(const QString &className);
    /**
     * The name a class is created as: @p fullName without one leading
     * prefix ("VexaEncoder" gives "Encoder"); a name without the prefix is
     * returned unchanged.
     */
    static QString shortClassName(const QString &fullName);
    /** "/vexa/config/board.json": the board file Vexa::init loads when no configuration was set. */
    static QString boardFile();
};

#endif // VEXANAMES_H
