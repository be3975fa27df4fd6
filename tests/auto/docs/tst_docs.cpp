// The README and the guides under docs/ name only classes that are declared
// somewhere in the project, pipeline files that exist, and, in the module
// tables of the pipeline guide, settings that the classes declare.

#include <QDir>
#include <QDirIterator>
#include <QMetaType>
#include <QRegularExpression>
#include <QSet>
#include <QtTest>

#include "vexaboardmodules.h"
#include "vexaexamplemodules.h"
#include "vexanames.h"
#include "vexaobject.h"

namespace {

const QString top = QStringLiteral(VEXA_SOURCE_DIR);

QString readFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// Every class, struct and namespace name declared in the project's sources.
QSet<QString> declaredNames()
{
    QSet<QString> names;
    const QRegularExpression decl(QStringLiteral("\\b(?:class|struct|namespace)\\s+(?:[A-Z_]+_EXPORT\\s+)?(\\w+)"));
    for (const char *dir : {"src", "examples", "tools", "model", "bench", "tests", "instruments"}) {
        QDirIterator it(top + QLatin1Char('/') + QLatin1String(dir), {"*.h", "*.cpp"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString text = readFile(it.next());
            for (auto m = decl.globalMatch(text); m.hasNext();)
                names.insert(m.next().captured(1));
        }
    }
    return names;
}

// Settings every module takes from the base class.
const QStringList baseSettings{"bufLenA", "bufLenV", "memSize", "debugLevel"};

} // namespace

class tst_Docs : public QObject
{
    Q_OBJECT

private slots:
    void names_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("README.md") << QStringLiteral("README.md");
        for (const QString &doc : QDir(top + QStringLiteral("/docs")).entryList({"*.md"}, QDir::Files))
            QTest::newRow(qPrintable(doc)) << QStringLiteral("docs/") + doc;
    }
    void names()
    {
        QFETCH(QString, file);
        static const QSet<QString> declared = declaredNames();
        const QString text = readFile(top + QLatin1Char('/') + file);
        QVERIFY(!text.isEmpty());
        QStringList missing;
        // `VexaSomething`, `VexaSomething::member`, `HiVpss`: a class of the project.
        const QRegularExpression className(QStringLiteral("`((?:Vexa|Hi)[A-Z]\\w*)"));
        // The library's own name and the name its banner prints are no classes.
        static const QStringList notClasses{"VexaBase", "VexaSDK"};
        for (auto m = className.globalMatch(text); m.hasNext();) {
            const QString name = m.next().captured(1);
            if (!declared.contains(name) && !notClasses.contains(name))
                missing << name;
        }
        // Pipeline files by their path.
        const QRegularExpression pipeline(QStringLiteral("examples/pipelines/[\\w-]+\\.json"));
        for (auto m = pipeline.globalMatch(text); m.hasNext();) {
            const QString path = m.next().captured(0);
            if (!QFile::exists(top + QLatin1Char('/') + path))
                missing << path;
        }
        missing.removeDuplicates();
        QVERIFY2(missing.isEmpty(), qPrintable(file + QStringLiteral(" names what does not exist: ") + missing.join(", ")));
    }

    // Each row of the module tables: "| Class | `setting` ...; `setting` ... | events |".
    void settings()
    {
        vexaRegisterExampleModules();
        vexaRegisterBoardModules();
        const QString text = readFile(top + QStringLiteral("/docs/pipelines.md"));
        const QRegularExpression row(QStringLiteral("^\\| ([A-Z]\\w+) \\| (`[^|]*) \\|"), QRegularExpression::MultilineOption);
        const QRegularExpression setting(QStringLiteral("(?:^|; |/)`(\\w+)`"));
        int rows = 0;
        for (auto m = row.globalMatch(text); m.hasNext();) {
            const QRegularExpressionMatch r = m.next();
            const QString cls = VexaNames::fullClassName(r.captured(1));
            const QMetaObject *mo = QMetaType::metaObjectForType(QMetaType::type(cls.toLatin1()));
            QVERIFY2(mo, qPrintable(cls + QStringLiteral(" is no module class")));
            ++rows;
            // Settings start the cell's top-level segments; what a setting's
            // parentheses say is left out first.
            QString cell = r.captured(2);
            static const QRegularExpression aside(QStringLiteral("\\([^()]*\\)"));
            while (cell.contains(aside))
                cell.remove(aside);
            for (auto s = setting.globalMatch(cell); s.hasNext();) {
                const QString name = s.next().captured(1);
                QVERIFY2(baseSettings.contains(name) || mo->indexOfClassInfo(qPrintable(QStringLiteral("setting:") + name)) >= 0,
                         qPrintable(cls + QStringLiteral(" has no setting ") + name));
            }
        }
        QVERIFY(rows >= 3);
    }
};

QTEST_GUILESS_MAIN(tst_Docs)
#include "tst_docs.moc"
