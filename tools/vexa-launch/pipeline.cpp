#include "pipeline.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QMetaClassInfo>
#include <QSet>

#include <cmath>
#include <sys/stat.h>

#include "vexaclassinfo.h"
#include "vexajsontext.h"
#include "vexamedia.h"
#include "vexamodulecatalog.h"

namespace {

// JSON numbers arrive as doubles; modules read settings with toInt(), so
// whole numbers become integers.
QVariant normalised(const QVariant &v)
{
    if (v.userType() == QMetaType::Double) {
        const double d = v.toDouble();
        if (std::floor(d) == d && std::fabs(d) < 9.0e15) {
            if (d >= -2147483648.0 && d <= 2147483647.0)
                return int(d);
            return qint64(d);
        }
        return v;
    }
    if (v.userType() == QMetaType::QVariantMap) {
        QVariantMap m = v.toMap();
        for (auto it = m.begin(); it != m.end(); ++it)
            it.value() = normalised(it.value());
        return m;
    }
    if (v.userType() == QMetaType::QVariantList) {
        QVariantList l = v.toList();
        for (QVariant &e : l)
            e = normalised(e);
        return l;
    }
    return v;
}

bool checkKeys(const QJsonObject &o, const QStringList &allowed, const QString &where, QString *error)
{
    for (auto it = o.begin(); it != o.end(); ++it) {
        if (!allowed.contains(it.key())) {
            *error = QStringLiteral("%1: unknown key \"%2\" (expected one of: %3)")
                         .arg(where, it.key(), allowed.join(QLatin1String(", ")));
            return false;
        }
    }
    return true;
}

QString resolved(const QString &path, const QString &fileName)
{
    if (QDir::isAbsolutePath(path))
        return QDir::cleanPath(path);
    return QDir::cleanPath(QFileInfo(fileName).absoluteDir().filePath(path));
}

VexaClassInfo classInfo(const PipelineModule &m)
{
    return VexaClassInfo(VexaModuleCatalog::find(m.className));
}

// A class's Q_CLASSINFO text of @p key, empty when it has none. "videoForm"
// "tee" says that the class offers pictures through a tee on V rather than
// packets; "videoInput" "tee" that it takes a channel of such a tee.
QString classText(const PipelineModule &m, const char *key)
{
    const QMetaObject *mo = VexaModuleCatalog::find(m.className);
    const int i = mo ? mo->indexOfClassInfo(key) : -1;
    return i < 0 ? QString() : QString::fromLatin1(mo->classInfo(i).value());
}

// What a class's own checkSetup(settings, links) finds wrong with @p m (a
// size its platform channel cannot do, more inputs than it has channels),
// asked of a short-lived object that is never started.
QString setupProblem(const PipelineModule &m, const QVariantMap &links)
{
    const QMetaObject *mo = VexaModuleCatalog::find(m.className);
    if (!mo || mo->indexOfMethod("checkSetup(QVariantMap,QVariantMap)") < 0)
        return QString();
    QObject *probe = mo->newInstance();
    if (!probe)
        return QString();
    QString problem;
    QMetaObject::invokeMethod(probe, "checkSetup", Qt::DirectConnection, Q_RETURN_ARG(QString, problem),
                              Q_ARG(QVariantMap, m.settings), Q_ARG(QVariantMap, links));
    delete probe;
    return problem;
}

// True when a and b name one file: the same device and inode when both
// exist, else the same absolute path.
bool sameFile(const QString &a, const QString &b)
{
    struct stat sa, sb;
    if (::stat(QFile::encodeName(a).constData(), &sa) == 0 && ::stat(QFile::encodeName(b).constData(), &sb) == 0)
        return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
    return QDir::cleanPath(QFileInfo(a).absoluteFilePath()) == QDir::cleanPath(QFileInfo(b).absoluteFilePath());
}

// Letters, digits, '_' and '-' only (a module name is also a thread name
// and a key in messages).
bool isModuleName(const QString &name)
{
    if (name.isEmpty())
        return false;
    for (const QChar c : name) {
        const ushort u = c.unicode();
        const bool ok = (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') || (u >= '0' && u <= '9')
                || u == '_' || u == '-';
        if (!ok)
            return false;
    }
    return true;
}

// The parts of a pipeline file, each checked on its own ---------------------

// The document's top-level object; false with the line and column of
// malformed JSON.
bool parseTop(const QByteArray &text, const QString &fileName, QJsonObject *top, QString *error)
{
    QJsonParseError pe;
    const QJsonDocument doc = VexaJsonText::parse(text, &pe);
    if (pe.error != QJsonParseError::NoError) {
        const int offset = qBound(0, pe.offset, text.size());
        const QByteArray before = text.left(offset);
        const int line = before.count('\n') + 1;
        const int column = offset - (before.lastIndexOf('\n') + 1) + 1;
        *error = QStringLiteral("%1:%2:%3: malformed JSON: %4").arg(fileName).arg(line).arg(column).arg(pe.errorString());
        return false;
    }
    if (!doc.isObject()) {
        *error = QStringLiteral("%1: the top level must be a JSON object").arg(fileName);
        return false;
    }
    *top = doc.object();
    return checkKeys(*top, {"description", "board", "libraries", "modules", "links"}, fileName, error);
}

// "description", "board" and "libraries".
bool parseHeader(const QJsonObject &top, Pipeline &p, QString *error)
{
    const QString &fileName = p.fileName;
    if (top.contains("description")) {
        if (!top.value("description").isString()) {
            *error = QStringLiteral("%1: \"description\" must be a string").arg(fileName);
            return false;
        }
        p.description = top.value("description").toString();
    }
    if (top.contains("board")) {
        if (!top.value("board").isString() || top.value("board").toString().isEmpty()) {
            *error = QStringLiteral("%1: \"board\" must be the path of a board file").arg(fileName);
            return false;
        }
        p.board = resolved(top.value("board").toString(), fileName);
    }
    if (top.contains("libraries")) {
        const QJsonValue v = top.value("libraries");
        if (!v.isArray()) {
            *error = QStringLiteral("%1: \"libraries\" must be an array of paths").arg(fileName);
            return false;
        }
        const QJsonArray libs = v.toArray();
        for (int i = 0; i < libs.size(); ++i) {
            if (!libs.at(i).isString() || libs.at(i).toString().isEmpty()) {
                *error = QStringLiteral("%1: libraries[%2] must be a path").arg(fileName).arg(i);
                return false;
            }
            p.libraries << resolved(libs.at(i).toString(), fileName);
        }
    }
    return true;
}

// One entry of "modules", described in messages as @p where.
bool parseModule(const QJsonValue &value, const QString &where, Pipeline &p, QString *error)
{
    if (!value.isObject()) {
        *error = where + QStringLiteral(" must be an object");
        return false;
    }
    const QJsonObject m = value.toObject();
    if (!checkKeys(m, {"class", "name", "settings", "thread", "comment"}, where, error))
        return false;
    PipelineModule mod;
    if (!m.value("class").isString() || m.value("class").toString().isEmpty()) {
        *error = where + QStringLiteral(": \"class\" must be a class name");
        return false;
    }
    mod.className = m.value("class").toString();
    if (!m.value("name").isString() || !isModuleName(m.value("name").toString())) {
        *error = where + QStringLiteral(": \"name\" must be a name of letters, digits, '_' and '-'");
        return false;
    }
    mod.name = m.value("name").toString();
    if (p.indexOf(mod.name) >= 0) {
        *error = QStringLiteral("%1: module name \"%2\" is used twice").arg(where, mod.name);
        return false;
    }
    if (m.contains("thread")) {
        // The launcher's own thread must stay free for signals and events.
        const QString thread = m.value("thread").toString();
        if (!m.value("thread").isString() || !isModuleName(thread) || thread == QLatin1String("main")) {
            *error = QStringLiteral("%1 (\"%2\"): \"thread\" must be a name of letters, digits, '_' and '-' other than \"main\"")
                         .arg(where, mod.name);
            return false;
        }
        mod.thread = thread;
    }
    if (m.contains("settings")) {
        if (!m.value("settings").isObject()) {
            *error = QStringLiteral("%1 (\"%2\"): \"settings\" must be an object").arg(where, mod.name);
            return false;
        }
        mod.settings = normalised(m.value("settings").toObject().toVariantMap()).toMap();
    }
    p.modules << mod;
    return true;
}

// One entry of "links", described in messages as @p where; @p seen holds the
// links of one kind already given.
bool parseLink(const QJsonValue &value, const QString &where, Pipeline &p, QSet<QString> &seen, QString *error)
{
    if (!value.isObject()) {
        *error = where + QStringLiteral(" must be an object");
        return false;
    }
    const QJsonObject l = value.toObject();
    if (!checkKeys(l, {"from", "to", "kind", "comment"}, where, error))
        return false;
    const QString from = l.value("from").toString();
    const QString to = l.value("to").toString();
    for (const QString &end : {QStringLiteral("from"), QStringLiteral("to")}) {
        const QString n = l.value(end).toString();
        if (!l.value(end).isString() || p.indexOf(n) < 0) {
            *error = QStringLiteral("%1: \"%2\" names unknown module \"%3\"").arg(where, end, n);
            return false;
        }
    }
    if (from == to) {
        *error = QStringLiteral("%1: module \"%2\" is linked to itself").arg(where, from);
        return false;
    }
    const QString kind = l.value("kind").toString();
    if (!l.value("kind").isString() || kind.isEmpty()) {
        *error = where + QStringLiteral(": \"kind\" must be A, V, E or a combination such as \"AV\"");
        return false;
    }
    for (const QChar c : kind) {
        if (c != QLatin1Char('A') && c != QLatin1Char('V') && c != QLatin1Char('E')) {
            *error = QStringLiteral("%1: bad link kind \"%2\" (use A, V, E or a combination such as \"AV\")").arg(where, kind);
            return false;
        }
        const QString key = from + QLatin1Char('\n') + to + QLatin1Char('\n') + c;
        if (seen.contains(key)) {
            *error = QStringLiteral("%1: link %2 -> %3 of kind %4 is given twice").arg(where, from, to, QString(c));
            return false;
        }
        seen.insert(key);
        p.links << PipelineLink{from, to, c};
    }
    return true;
}

} // namespace

bool Pipeline::parse(const QByteArray &text, const QString &fileName, Pipeline *out, QString *error)
{
    Pipeline p;
    p.fileName = fileName;
    QJsonObject top;
    if (!parseTop(text, fileName, &top, error) || !parseHeader(top, p, error))
        return false;

    const QJsonValue modules = top.value("modules");
    if (!modules.isArray() || modules.toArray().isEmpty()) {
        *error = QStringLiteral("%1: \"modules\" must be a non-empty array").arg(fileName);
        return false;
    }
    const QJsonArray mods = modules.toArray();
    for (int i = 0; i < mods.size(); ++i) {
        if (!parseModule(mods.at(i), QStringLiteral("%1: modules[%2]").arg(fileName).arg(i), p, error))
            return false;
    }

    if (top.contains("links") && !top.value("links").isArray()) {
        *error = QStringLiteral("%1: \"links\" must be an array").arg(fileName);
        return false;
    }
    const QJsonArray links = top.value("links").toArray();
    QSet<QString> seen;
    for (int i = 0; i < links.size(); ++i) {
        if (!parseLink(links.at(i), QStringLiteral("%1: links[%2]").arg(fileName).arg(i), p, seen, error))
            return false;
    }
    *out = p;
    return true;
}

bool Pipeline::applyOverride(const QString &assignment, QString *error)
{
    const int eq = assignment.indexOf(QLatin1Char('='));
    const int dot = assignment.indexOf(QLatin1Char('.'));
    if (eq < 0 || dot < 1 || dot > eq - 2) {
        *error = QStringLiteral("--set expects module.key=value, not \"%1\"").arg(assignment);
        return false;
    }
    const QString module = assignment.left(dot);
    const QString key = assignment.mid(dot + 1, eq - dot - 1);
    const QString text = assignment.mid(eq + 1);
    const int i = indexOf(module);
    if (i < 0) {
        *error = QStringLiteral("--set %1: no module named \"%2\" in %3").arg(assignment, module, fileName);
        return false;
    }
    // Scalars parse as JSON when they can ("true", "20", "\"x\""), anything
    // else is the text itself.
    QVariant value = text;
    const QJsonDocument doc = VexaJsonText::parse("[" + text.toUtf8() + "]");
    if (doc.isArray() && doc.array().size() == 1)
        value = normalised(doc.array().at(0).toVariant());
    modules[i].settings.insert(key, value);
    overrides.insert(module + QLatin1Char('.') + key, assignment);
    return true;
}

bool Pipeline::checkSettings(QStringList *errors) const
{
    const int before = errors->size();
    for (const PipelineModule &m : modules) {
        const VexaClassInfo info = classInfo(m);
        for (auto it = m.settings.begin(); it != m.settings.end(); ++it) {
            const QString problem = info.check(it.key(), it.value());
            if (problem.isEmpty())
                continue;
            const QString origin = overrides.value(m.name + QLatin1Char('.') + it.key());
            const QString where = origin.isEmpty() ? fileName : QStringLiteral("--set %1").arg(origin);
            errors->append(QStringLiteral("%1: module \"%2\" (%3): setting \"%4\": %5")
                         .arg(where, m.name, VexaModuleCatalog::shortName(m.className), it.key(), problem));
        }
    }
    if (errors->size() != before)
        return false;
    // Settings of the right types can still ask for what the class cannot do.
    for (const PipelineModule &m : modules) {
        int inputsV = 0;
        for (const PipelineLink &l : links)
            inputsV += l.to == m.name && l.kind == QLatin1Char('V') ? 1 : 0;
        const QString problem = setupProblem(m, QVariantMap{{"inputsV", inputsV}});
        if (!problem.isEmpty())
            errors->append(QStringLiteral("%1: module \"%2\" (%3): %4")
                               .arg(fileName, m.name, VexaModuleCatalog::shortName(m.className), problem));
    }
    return errors->size() == before;
}

bool Pipeline::checkLinks(QStringList *errors) const
{
    const int before = errors->size();
    for (int i = 0; i < links.size(); ++i) {
        const PipelineLink &l = links.at(i);
        const PipelineModule &from = modules.at(indexOf(l.from));
        const PipelineModule &to = modules.at(indexOf(l.to));
        const VexaClassInfo src = classInfo(from);
        const VexaClassInfo dst = classInfo(to);
        const int kind = VexaClassInfo::kindOfLink(l.kind);
        const QString what = VexaClassInfo::kindsText(kind);
        if (!(src.sends() & kind)) {
            errors->append(QStringLiteral("%1: link %2 -> %3 (%4): class %5 does not send %6 (it sends: %7)")
                         .arg(fileName, l.from, l.to, QString(l.kind), VexaModuleCatalog::shortName(from.className), what,
                              VexaClassInfo::kindsText(src.sends())));
            continue;
        }
        if (!(dst.accepts() & kind)) {
            errors->append(QStringLiteral("%1: link %2 -> %3 (%4): class %5 does not accept %6 (it accepts: %7)")
                         .arg(fileName, l.from, l.to, QString(l.kind), VexaModuleCatalog::shortName(to.className), what,
                              VexaClassInfo::kindsText(dst.accepts())));
            continue;
        }
        // Pictures behind a tee and compressed packets do not mix on V.
        if (kind & VexaClassInfo::Video) {
            const bool teeOut = classText(from, "videoForm") == QLatin1String("tee");
            const bool teeIn = classText(to, "videoInput") == QLatin1String("tee");
            if (teeIn && !teeOut)
                errors->append(QStringLiteral("%1: link %2 -> %3 (%4): class %5 takes pictures from a tee, and %6 offers no tee "
                                              "(it sends packets): link a Capture or a Decoder to it")
                                   .arg(fileName, l.from, l.to, QString(l.kind), VexaModuleCatalog::shortName(to.className),
                                        VexaModuleCatalog::shortName(from.className)));
            else if (teeOut && !teeIn)
                errors->append(QStringLiteral("%1: link %2 -> %3 (%4): class %5 offers pictures through a tee, which %6 cannot take: "
                                              "link an Encoder between them")
                                   .arg(fileName, l.from, l.to, QString(l.kind), VexaModuleCatalog::shortName(from.className),
                                        VexaModuleCatalog::shortName(to.className)));
        }
    }
    if (sources().isEmpty()) {
        errors->append(QStringLiteral("%1: the pipeline has no source (no module sends audio or video without receiving any), "
                                      "so nothing would flow and the run would never end").arg(fileName));
        return false;
    }
    // An output (takes audio or video, sends neither) that nothing feeds
    // would write an empty file or stream, or wait for ever.
    for (const PipelineModule &m : modules) {
        const VexaClassInfo info = classInfo(m);
        const int media = VexaClassInfo::Audio | VexaClassInfo::Video;
        if (!info.declaresInterface() || !(info.accepts() & media) || (info.sends() & media))
            continue;
        bool fed = false;
        for (const PipelineLink &l : links)
            fed = fed || (l.kind != QLatin1Char('E') && l.to == m.name);
        if (!fed) {
            errors->append(QStringLiteral("%1: module \"%2\" (%3) has no audio or video link into it, so it would receive nothing")
                         .arg(fileName, m.name, VexaModuleCatalog::shortName(m.className)));
        }
    }
    return errors->size() == before;
}

bool Pipeline::checkOutputs(bool overwrite, QStringList *errors) const
{
    const int before = errors->size();
    struct File { QString module; QString key; QString path; };
    QList<File> inputs, outputs;
    for (const PipelineModule &m : modules) {
        const VexaClassInfo info = classInfo(m);
        for (const VexaClassInfo::Setting &s : info.settings()) {
            const QString path = m.settings.value(s.name).toString();
            if (path.isEmpty())
                continue;
            if (s.type == QLatin1String("input"))
                inputs << File{m.name, s.name, path};
            else if (s.type == QLatin1String("output"))
                outputs << File{m.name, s.name, path};
        }
    }
    for (const File &out : qAsConst(outputs)) {
        for (const File &in : qAsConst(inputs)) {
            if (sameFile(out.path, in.path)) {
                errors->append(QStringLiteral("module \"%1\" would write %2, which is the input of module \"%3\" (\"%4\"); refused")
                             .arg(out.module, out.path, in.module, in.key));
            }
        }
        for (const File &other : qAsConst(outputs)) {
            if (&other != &out && other.module < out.module && sameFile(out.path, other.path)) {
                errors->append(QStringLiteral("modules \"%1\" and \"%2\" would both write %3; refused")
                             .arg(other.module, out.module, out.path));
            }
        }
        const int i = indexOf(out.module);
        const bool allowed = overwrite || modules.at(i).settings.value(QStringLiteral("overwrite")).toBool();
        if (!allowed && QFileInfo::exists(out.path)) {
            errors->append(QStringLiteral("module \"%1\": %2 already exists; not replaced (use -y, or set \"overwrite\")")
                         .arg(out.module, out.path));
        }
    }
    return errors->size() == before;
}

bool Pipeline::checkClasses(QStringList *errors) const
{
    const int before = errors->size();
    for (const PipelineModule &m : modules) {
        if (!VexaModuleCatalog::find(m.className)) {
            QStringList known;
            for (const QString &c : VexaModuleCatalog::classNames())
                known << VexaModuleCatalog::shortName(c);
            errors->append(QStringLiteral("%1: module \"%2\": unknown class \"%3\" (known classes: %4)")
                         .arg(fileName, m.name, m.className, known.join(QLatin1String(", "))));
        }
    }
    return errors->size() == before;
}

bool Pipeline::checkContainers(QStringList *errors) const
{
    const int before = errors->size();
    for (const PipelineModule &m : modules) {
        const VexaClassInfo info = classInfo(m);
        const VexaClassInfo::Setting *format = info.setting(QStringLiteral("format"));
        if (!format)
            continue;
        // Values of the wrong type are reported by checkSettings().
        const auto text = [&m](const QString &key) {
            const QVariant v = m.settings.value(key);
            return v.type() == QVariant::String ? v.toString() : QString();
        };
        QString path;
        for (const VexaClassInfo::Setting &s : info.settings()) {
            if (s.type == QLatin1String("output"))
                path = text(s.name);
        }
        const QString named = text(QStringLiteral("format"));
        // Without either, the module decides (a network output by its URL).
        if (named.isEmpty() && path.isEmpty())
            continue;
        const QString problem = VexaMedia::containerProblem(named, path);
        if (!problem.isEmpty())
            errors->append(QStringLiteral("%1: module \"%2\" (%3): %4")
                               .arg(fileName, m.name, VexaModuleCatalog::shortName(m.className), problem));
    }
    return errors->size() == before;
}

int Pipeline::indexOf(const QString &moduleName) const
{
    for (int i = 0; i < modules.size(); ++i) {
        if (modules.at(i).name == moduleName)
            return i;
    }
    return -1;
}

QList<int> Pipeline::upstreamOrder() const
{
    QVector<int> inDegree(modules.size(), 0);
    for (const PipelineLink &l : links) {
        if (l.kind != QLatin1Char('E'))
            ++inDegree[indexOf(l.to)];
    }
    QList<int> order;
    QVector<bool> placed(modules.size(), false);
    bool progress = true;
    while (progress) {
        progress = false;
        for (int i = 0; i < modules.size(); ++i) {
            if (placed.at(i) || inDegree.at(i) != 0)
                continue;
            placed[i] = true;
            order << i;
            progress = true;
            for (const PipelineLink &l : links) {
                if (l.kind != QLatin1Char('E') && l.from == modules.at(i).name)
                    --inDegree[indexOf(l.to)];
            }
        }
    }
    for (int i = 0; i < modules.size(); ++i) {
        if (!placed.at(i))
            order << i;
    }
    return order;
}

QList<int> Pipeline::sources() const
{
    QList<int> result;
    for (int i = 0; i < modules.size(); ++i) {
        bool fed = false;
        for (const PipelineLink &l : links)
            fed = fed || (l.kind != QLatin1Char('E') && l.to == modules.at(i).name);
        const VexaClassInfo info = classInfo(modules.at(i));
        if (!fed && (info.sends() & (VexaClassInfo::Audio | VexaClassInfo::Video)))
            result << i;
    }
    return result;
}
