#ifndef PIPELINE_H
#define PIPELINE_H

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

/** One module of a pipeline file. */
struct PipelineModule {
    QString className;  // as written: "InputFile" or "VexaInputFile"
    QString name;
    QVariantMap settings;
    QString thread;     // worker thread name; empty: a thread of the module's own
};

/** One link of a pipeline file; kind is 'A', 'V' or 'E'. */
struct PipelineLink {
    QString from;
    QString to;
    QChar kind;
};

/**
 * A pipeline file: modules with names and settings, links between them, an
 * optional board file and optional module libraries. Paths in "board" and
 * "libraries" are taken relative to the file's folder.
 */
struct Pipeline {
    QString fileName;
    QString description;
    QString board;          // absolute, or empty
    QStringList libraries;  // absolute
    QList<PipelineModule> modules;
    QList<PipelineLink> links;
    /** The --set assignment behind a setting, by "module.key", for messages. */
    QHash<QString, QString> overrides;

    /**
     * Reads and checks the structure of @p text (the content of @p fileName).
     * Fails with a message naming the file, and for malformed JSON its line
     * and column.
     */
    static bool parse(const QByteArray &text, const QString &fileName, Pipeline *out, QString *error);

    /** Applies one "--set module.key=value" override; the value is JSON when it parses as such, else text. */
    bool applyOverride(const QString &assignment, QString *error);

    /** Checks that every class can be created. Call after the module libraries are loaded. */
    bool checkClasses(QStringList *errors) const;
    /**
     * Checks every setting against what its class declares: unknown keys,
     * wrong types and values outside the allowed set fail with the module,
     * the key and the expected type. Call after checkClasses().
     */
    bool checkSettings(QStringList *errors) const;
    /**
     * Checks that each link carries a kind its sender sends and its receiver
     * accepts, that the pipeline has a source, and that every output (a
     * class that takes audio or video and sends neither) has an audio or
     * video link into it. Call after checkClasses().
     */
    bool checkLinks(QStringList *errors) const;
    /**
     * Checks the files the run would write: an output that is also an input
     * (same file by any path) is refused; an existing output is refused
     * unless @p overwrite. Call after checkSettings().
     */
    bool checkOutputs(bool overwrite, QStringList *errors) const;

    /**
     * Checks that FFmpeg has a muxer for every module that writes a
     * container: the setting "format" when given, else the extension of the
     * module's output file. Call after checkSettings().
     */
    bool checkContainers(QStringList *errors) const;
    int indexOf(const QString &moduleName) const;
    /** Module indexes, upstream first (along A and V links); modules on a cycle keep file order at the end. */
    QList<int> upstreamOrder() const;
    /**
     * The sources, whose "eos" ends a run: modules whose class sends audio or
     * video and that receive no A or V link.
     */
    QList<int> sources() const;
};

#endif // PIPELINE_H
