// The JSON helper: decode any text; encode what decodes (plain and indented),
// which must decode again to the same document; and join two documents,
// whose result holds exactly the keys of both, the second's values winning.
// Input: one JSON text, or two separated by a NUL byte for join().

#include <QVariant>

#include <cstddef>
#include <cstdint>

#include "fuzzsupport.h"
#include "vexajson.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietMessages();
    return 0;
}

namespace {

bool isDocument(const QVariant &v)
{
    return v.userType() == QMetaType::QVariantMap || v.userType() == QMetaType::QVariantList;
}

void roundTrip(const QVariant &v)
{
    if (!isDocument(v)) {
        FUZZ_CHECK(Json::encode(v).isEmpty());
        return;
    }
    const QString plain = Json::encode(v);
    const QString indented = Json::encode(v, true);
    FUZZ_CHECK(!plain.isEmpty());
    const QVariant again = Json::decode(plain);
    FUZZ_CHECK(isDocument(again));
    // Encoding is a fixed point after one pass (numbers are written in a
    // form that reads back to the same value).
    FUZZ_CHECK(Json::encode(again) == plain);
    FUZZ_CHECK(Json::encode(Json::decode(indented)) == plain);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray in = FuzzSupport::bytes(data, size);
    const int nul = in.indexOf('\0');
    const QString first = QString::fromUtf8(nul < 0 ? in : in.left(nul));
    const QVariant a = Json::decode(first);
    roundTrip(a);
    if (nul < 0)
        return 0;

    const QVariant b = Json::decode(QString::fromUtf8(in.mid(nul + 1)));
    roundTrip(b);
    const QVariantMap base = a.toMap();
    const QVariantMap overlay = b.toMap();
    const QVariantMap joined = Json::join(base, overlay);
    for (auto it = overlay.begin(); it != overlay.end(); ++it)
        FUZZ_CHECK(joined.value(it.key()) == it.value());
    for (auto it = base.begin(); it != base.end(); ++it)
        FUZZ_CHECK(joined.contains(it.key()));
    for (auto it = joined.begin(); it != joined.end(); ++it)
        FUZZ_CHECK(base.contains(it.key()) || overlay.contains(it.key()));
    roundTrip(joined);
    return 0;
}
