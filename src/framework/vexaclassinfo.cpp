#include "vexaclassinfo.h"

#include <QMetaClassInfo>
#include <QMetaObject>

#include "vexaobject.h"

namespace {

const QStringList knownTypes{QStringLiteral("bool"), QStringLiteral("int"), QStringLiteral("number"),
                             QStringLiteral("string"), QStringLiteral("input"), QStringLiteral("output"),
                             QStringLiteral("enum")};

QList<VexaClassInfo::Setting> baseSettings()
{
    auto make = [](const char *name, int def, const char *meaning) {
        VexaClassInfo::Setting s;
        s.name = QString::fromLatin1(name);
        s.type = QStringLiteral("int");
        s.defaultValue = def;
        s.meaning = QString::fromLatin1(meaning);
        s.base = true;
        return s;
    };
    return {make("bufLenA", 20, "audio queue bound in packets, -1 for none (read at the first start)"),
            make("bufLenV", 20, "video queue bound in packets, -1 for none (read at the first start)"),
            make("memSize", 0, "payload ring bytes, created once at the first start"),
            make("debugLevel", 0, "verbosity of the module's own diagnostics")};
}

// "TYPE[(A|B)][=DEFAULT]; meaning"; false when the text does not start so.
// Read by hand rather than with a regular expression: every class's
// declarations are read at start-up, and compiling a pattern costs more than
// the rest of that reading together.
bool parseSetting(const QString &text, VexaClassInfo::Setting *s)
{
    const int n = text.size();
    int i = 0;
    auto skipSpace = [&] {
        while (i < n && text.at(i).isSpace())
            ++i;
    };
    skipSpace();
    const int typeStart = i;
    while (i < n && text.at(i) >= QLatin1Char('a') && text.at(i) <= QLatin1Char('z'))
        ++i;
    const QString type = text.mid(typeStart, i - typeStart);
    if (type.isEmpty() || !knownTypes.contains(type))
        return false;
    QString choices;
    if (i < n && text.at(i) == QLatin1Char('(')) {
        const int close = text.indexOf(QLatin1Char(')'), i + 1);
        if (close < 0)
            return false;
        choices = text.mid(i + 1, close - i - 1);
        i = close + 1;
    }
    skipSpace();
    QString defaultText;
    if (i < n && text.at(i) == QLatin1Char('=')) {
        const int semicolon = text.indexOf(QLatin1Char(';'), i + 1);
        if (semicolon < 0)
            return false;
        defaultText = text.mid(i + 1, semicolon - i - 1).trimmed();
        i = semicolon;
    }
    if (i >= n || text.at(i) != QLatin1Char(';'))
        return false;
    s->type = type;
    if (s->type == QLatin1String("enum")) {
        for (const QString &w : choices.split(QLatin1Char('|'), Qt::SkipEmptyParts))
            s->allowed << w.trimmed();
        if (s->allowed.isEmpty())
            return false;
    }
    s->meaning = text.mid(i + 1).trimmed();
    if (!defaultText.isEmpty()) {
        const QString &d = defaultText;
        if (s->type == QLatin1String("bool"))
            s->defaultValue = d == QLatin1String("true");
        else if (s->type == QLatin1String("int"))
            s->defaultValue = d.toLongLong();
        else if (s->type == QLatin1String("number"))
            s->defaultValue = d.toDouble();
        else
            s->defaultValue = d;
    }
    return true;
}

// "audio video events", separated by spaces or commas.
int parseKinds(const QString &text)
{
    int kinds = 0;
    const QString spaced = QString(text).replace(QLatin1Char(','), QLatin1Char(' ')).simplified();
    for (const QStringRef &word : spaced.splitRef(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (word == QLatin1String("audio"))
            kinds |= VexaClassInfo::Audio;
        else if (word == QLatin1String("video"))
            kinds |= VexaClassInfo::Video;
        else if (word == QLatin1String("events"))
            kinds |= VexaClassInfo::Events;
    }
    return kinds;
}

QString describeValue(const QVariant &v)
{
    switch (v.userType()) {
    case QMetaType::QString:
        return QStringLiteral("the string \"%1\"").arg(v.toString());
    case QMetaType::Bool:
        return QStringLiteral("the bool %1").arg(v.toBool() ? "true" : "false");
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return QStringLiteral("the number %1").arg(v.toString());
    case QMetaType::Double:
        return QStringLiteral("the number %1").arg(v.toDouble());
    case QMetaType::QVariantMap:
        return QStringLiteral("an object");
    case QMetaType::QVariantList:
        return QStringLiteral("an array");
    default:
        return v.isNull() ? QStringLiteral("null") : QStringLiteral("a value of type %1").arg(QString::fromLatin1(v.typeName()));
    }
}

bool isInteger(const QVariant &v)
{
    switch (v.userType()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return true;
    default:
        return false;
    }
}

} // namespace

VexaClassInfo::VexaClassInfo(const QMetaObject *mo)
{
    QStringList seen;
    bool sendSeen = false;
    bool acceptSeen = false;
    // Own class first: a subclass may re-declare a setting of its base.
    for (const QMetaObject *m = mo; m && m != &VexaObject::staticMetaObject; m = m->superClass()) {
        for (int i = m->classInfoOffset(); i < m->classInfoCount(); ++i) {
            const QString key = QString::fromLatin1(m->classInfo(i).name());
            const QString value = QString::fromUtf8(m->classInfo(i).value());
            if (key.startsWith(QLatin1String("setting:"))) {
                Setting s;
                s.name = key.mid(8);
                if (seen.contains(s.name))
                    continue;
                seen << s.name;
                if (!parseSetting(value, &s)) {
                    s.type = QStringLiteral("any");
                    s.meaning = value;
                }
                list << s;
                declared = true;
            } else if (key == QLatin1String("sends") && !sendSeen) {
                sendSeen = interfaceDeclared = true;
                sendKinds = parseKinds(value);
            } else if (key == QLatin1String("platform") && m == mo) {
                platform = value != QLatin1String("unused");
            } else if (key == QLatin1String("accepts") && !acceptSeen) {
                acceptSeen = interfaceDeclared = true;
                acceptKinds = parseKinds(value);
            }
        }
    }
    for (const Setting &b : baseSettings()) {
        if (!seen.contains(b.name))
            list << b;
    }
}

const VexaClassInfo::Setting *VexaClassInfo::setting(const QString &name) const
{
    for (const Setting &s : list) {
        if (s.name == name)
            return &s;
    }
    return nullptr;
}

QString VexaClassInfo::check(const QString &key, const QVariant &value) const
{
    const Setting *s = setting(key);
    if (!s) {
        if (!declared)
            return QString();
        QStringList names;
        for (const Setting &k : list)
            names << k.name;
        return QStringLiteral("unknown setting (known: %1)").arg(names.join(QLatin1String(", ")));
    }
    const QString expected = QStringLiteral("expected %1, got %2").arg(typeText(*s), describeValue(value));
    if (s->type == QLatin1String("bool"))
        return value.userType() == QMetaType::Bool ? QString() : expected;
    if (s->type == QLatin1String("int"))
        return isInteger(value) ? QString() : expected;
    if (s->type == QLatin1String("number"))
        return isInteger(value) || value.userType() == QMetaType::Double ? QString() : expected;
    if (s->type == QLatin1String("enum"))
        return value.userType() == QMetaType::QString && s->allowed.contains(value.toString()) ? QString() : expected;
    if (s->type == QLatin1String("string") || s->type == QLatin1String("input") || s->type == QLatin1String("output"))
        return value.userType() == QMetaType::QString ? QString() : expected;
    return QString();
}

QString VexaClassInfo::kindsText(int kinds)
{
    QStringList words;
    if (kinds & Audio)
        words << QStringLiteral("audio");
    if (kinds & Video)
        words << QStringLiteral("video");
    if (kinds & Events)
        words << QStringLiteral("events");
    return words.isEmpty() ? QStringLiteral("none") : words.join(QLatin1String(", "));
}

int VexaClassInfo::kindOfLink(QChar letter)
{
    switch (letter.unicode()) {
    case 'A': return Audio;
    case 'V': return Video;
    case 'E': return Events;
    default: return 0;
    }
}

QString VexaClassInfo::typeText(const Setting &s)
{
    if (s.type == QLatin1String("enum"))
        return QStringLiteral("one of %1").arg(s.allowed.join(QLatin1String(", ")));
    if (s.type == QLatin1String("input"))
        return QStringLiteral("input file path (string)");
    if (s.type == QLatin1String("output"))
        return QStringLiteral("output file path (string)");
    if (s.type == QLatin1String("int"))
        return QStringLiteral("integer");
    return s.type;
}
