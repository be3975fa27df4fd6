#include "vexajsontext.h"

#include <QJsonArray>
#include <QJsonValue>
#include <QVector>

#include <algorithm>
#include <cstring>

namespace {

// Deeper than this, the reader refuses the text anyway.
constexpr int maxDepth = 1100;

// One pass over JSON text that finds, per object, the members a later member
// of the same key overrides. It checks the text's shape only as far as it
// needs to find member boundaries; the reader checks the rest.
class Scanner
{
public:
    explicit Scanner(const QByteArray &text) : s(text.constData()), n(text.size()) {}

    bool scan()
    {
        // The reader skips a UTF-8 byte order mark, and so does the scan.
        if (n >= 3 && uchar(s[0]) == 0xef && uchar(s[1]) == 0xbb && uchar(s[2]) == 0xbf)
            pos = 3;
        skipSpace();
        if (!value(0))
            return false;
        skipSpace();
        return pos == n;
    }

    QVector<QPair<int, int>> removed;  // offset, length; in the order found
    bool containerOverridden = false;

private:
    struct Member {
        QByteArray key;
        int start;       // the key's opening quote
        int end;         // just after the value
        bool container;
    };

    void skipSpace()
    {
        while (pos < n && (s[pos] == ' ' || s[pos] == '\t' || s[pos] == '\n' || s[pos] == '\r'))
            ++pos;
    }

    // A string at pos; its raw text between the quotes into @p raw.
    bool string(QByteArray *raw)
    {
        if (pos >= n || s[pos] != '"')
            return false;
        const int begin = ++pos;
        bool escaped = false;
        while (pos < n && s[pos] != '"') {
            if (s[pos] == '\\') {
                escaped = true;
                ++pos;
            }
            ++pos;
        }
        if (pos >= n)
            return false;
        *raw = QByteArray(s + begin, pos - begin);
        ++pos;
        if (escaped) {
            // Keys are compared as the reader decodes them ("a" and "\u0061"
            // are one key); a string alone in an array is a path the reader
            // takes without losing memory.
            const QJsonDocument doc = QJsonDocument::fromJson("[\"" + *raw + "\"]");
            if (!doc.isArray())
                return false;
            *raw = doc.array().at(0).toString().toUtf8();
        }
        return true;
    }

    bool value(int depth)
    {
        if (pos >= n || depth > maxDepth)
            return false;
        switch (s[pos]) {
        case '{':
            return object(depth + 1);
        case '[':
            return array(depth + 1);
        case '"': {
            QByteArray ignored;
            return string(&ignored);
        }
        default: {
            // A number or a literal: up to the next delimiter.
            const int begin = pos;
            while (pos < n && !strchr(",]} \t\n\r", s[pos]))
                ++pos;
            return pos > begin;
        }
        }
    }

    bool array(int depth)
    {
        ++pos;
        skipSpace();
        if (pos < n && s[pos] == ']') {
            ++pos;
            return true;
        }
        for (;;) {
            skipSpace();
            if (!value(depth))
                return false;
            skipSpace();
            if (pos >= n)
                return false;
            if (s[pos] == ']') {
                ++pos;
                return true;
            }
            if (s[pos++] != ',')
                return false;
        }
    }

    bool object(int depth)
    {
        ++pos;
        skipSpace();
        if (pos < n && s[pos] == '}') {
            ++pos;
            return true;
        }
        QVector<Member> members;
        for (;;) {
            skipSpace();
            Member m;
            m.start = pos;
            if (!string(&m.key))
                return false;
            skipSpace();
            if (pos >= n || s[pos++] != ':')
                return false;
            skipSpace();
            m.container = pos < n && (s[pos] == '{' || s[pos] == '[');
            if (!value(depth))
                return false;
            m.end = pos;
            members << m;
            skipSpace();
            if (pos >= n)
                return false;
            if (s[pos] == '}') {
                ++pos;
                break;
            }
            if (s[pos++] != ',')
                return false;
        }
        // Every member but the last of its key is overridden; it runs up to
        // the start of the member after it, its comma included. A member the
        // reader would refuse stays, so that the reader still reports it.
        for (int i = 0; i + 1 < members.size(); ++i) {
            const Member &m = members.at(i);
            for (int j = i + 1; j < members.size(); ++j) {
                if (members.at(j).key != m.key)
                    continue;
                QJsonParseError error;
                VexaJsonText::parse("{" + QByteArray(s + m.start, m.end - m.start) + "}", &error);
                if (error.error == QJsonParseError::NoError) {
                    removed.append({m.start, members.at(i + 1).start - m.start});
                    containerOverridden = containerOverridden || m.container;
                }
                break;
            }
        }
        return true;
    }

    const char *s;
    int n;
    int pos = 0;
};

} // namespace

QByteArray VexaJsonText::withoutOverriddenMembers(const QByteArray &text, QVector<QPair<int, int>> *removed)
{
    // Text that is not well-formed is still rewritten as far as the scan
    // got: Qt's reader takes the objects that close before the error whole,
    // and loses memory in them all the same.
    Scanner scanner(text);
    scanner.scan();
    if (!scanner.containerOverridden)
        return text;
    // Ranges nest (a member removed inside one removed whole) but never
    // overlap otherwise: keep the outermost, in text order.
    QVector<QPair<int, int>> ranges = scanner.removed;
    std::sort(ranges.begin(), ranges.end());
    QByteArray out;
    out.reserve(text.size());
    int from = 0;
    for (const auto &r : qAsConst(ranges)) {
        if (r.first < from)
            continue;
        out.append(text.constData() + from, r.first - from);
        from = r.first + r.second;
        if (removed)
            removed->append(r);
    }
    out.append(text.constData() + from, text.size() - from);
    return out;
}

QJsonDocument VexaJsonText::parse(const QByteArray &text, QJsonParseError *error)
{
    QVector<QPair<int, int>> removed;
    const QByteArray read = withoutOverriddenMembers(text, &removed);
    const QJsonDocument doc = QJsonDocument::fromJson(read, error);
    if (error && error->error != QJsonParseError::NoError) {
        // Back to an offset in the text as given.
        for (const auto &r : qAsConst(removed)) {
            if (r.first <= error->offset)
                error->offset += r.second;
        }
    }
    return doc;
}
