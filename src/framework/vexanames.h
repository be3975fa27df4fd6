#ifndef VEXANAMES_H
#define VEXANAMES_H

#include <QByteArray>
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
    /**
     * The name the factory generates for the @p count-th object of the
     * class @p fullName: "%s_%d" with every "Vexa" taken out of it, not only
     * the leading prefix ("VexaEncoder" gives "Encoder_1", "VexaVexaTest"
     * gives "Test_1"). Object names have always been made this way and
     * applications find objects by them, so it stays apart from
     * shortClassName(), which the tools use to name classes.
     */
    static QString generatedObjectName(const QByteArray &fullName, int count);
    /** "/vexa/config/board.json": the board file Vexa::init loads when no configuration was set. */
    static QString boardFile();
};

#endif // VEXANAMES_H
