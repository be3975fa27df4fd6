#include "vexanames.h"

QString VexaNames::classPrefix()
{
    return QStringLiteral("Vexa");
}

QString VexaNames::fullClassName(const QString &className)
{
    const QString prefix = classPrefix();
    return className.startsWith(prefix) ? className : prefix + className;
}

QString VexaNames::shortClassName(const QString &fullName)
{
    const QString prefix = classPrefix();
    return fullName.startsWith(prefix) ? fullName.mid(prefix.size()) : fullName;
}

QString VexaNames::generatedObjectName(const QByteArray &fullName, int count)
{
    return QString::asprintf("%s_%d", fullName.constData(), count).remove(classPrefix());
}

QString VexaNames::boardFile()
{
    return QStringLiteral("/vexa/config/board.json");
}
