// The pipeline-file parser of vexa-launch with --set overrides, through its
// public entry points only. Input: a pipeline file, then optional "--set"
// assignments (module.key=value), each after a NUL byte. Whatever parses
// must give a consistent pipeline: names unique and found again, links
// between known modules, the upstream order a permutation of the modules and
// the sources among them.

#include <QSet>

#include <cstddef>
#include <cstdint>

#include "fuzzsupport.h"
#include "pipeline.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> parts = FuzzSupport::bytes(data, size).split('\0');
    Pipeline p;
    QString error;
    const QString fileName = QStringLiteral("/fuzz/pipelines/input.json");
    if (!Pipeline::parse(parts.first(), fileName, &p, &error)) {
        FUZZ_CHECK(!error.isEmpty());
        return 0;
    }
    for (int i = 1; i < parts.size(); ++i) {
        QString overrideError;
        const int modulesBefore = p.modules.size();
        if (!p.applyOverride(QString::fromUtf8(parts.at(i)), &overrideError))
            FUZZ_CHECK(!overrideError.isEmpty());
        FUZZ_CHECK(p.modules.size() == modulesBefore);
    }

    FUZZ_CHECK(!p.modules.isEmpty());
    for (int i = 0; i < p.modules.size(); ++i)
        FUZZ_CHECK(p.indexOf(p.modules.at(i).name) == i);
    for (const PipelineLink &l : p.links) {
        FUZZ_CHECK(p.indexOf(l.from) >= 0 && p.indexOf(l.to) >= 0);
        FUZZ_CHECK(l.kind == QLatin1Char('A') || l.kind == QLatin1Char('V') || l.kind == QLatin1Char('E'));
    }
    const QList<int> order = p.upstreamOrder();
    FUZZ_CHECK(order.size() == p.modules.size());
    FUZZ_CHECK(QSet<int>(order.begin(), order.end()).size() == order.size());
    for (int i : order)
        FUZZ_CHECK(i >= 0 && i < p.modules.size());
    for (int i : p.sources())
        FUZZ_CHECK(i >= 0 && i < p.modules.size());
    return 0;
}
