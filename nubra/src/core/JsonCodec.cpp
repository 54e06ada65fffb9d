#include "JsonCodec.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QStringList>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>

namespace Nubra::Json {

namespace {

// Qt keeps integers up to 2^53 exact; larger ones go through double.
constexpr qint64 kExactIntegerLimit = qint64(1) << 53;
constexpr double kTwoPow63 = 9223372036854775808.0;
constexpr double kTwoPow64 = 18446744073709551616.0;
// Objects and arrays nest at most this deep, as in QJsonDocument.
constexpr int kMaxDepth = 1024;

// ---------------------------------------------------------------- writing

// Qt converts what sits inside a QVariantHash by another route, which differs
// in details; `inHash` says which route to follow.
void writeValue(QByteArray& out, const QVariant& value, bool inHash);

void writeDecimal(QByteArray& out, qint64 n)
{
    char buffer[24];
    char* end = buffer + sizeof buffer;
    char* p = end;
    quint64 magnitude = n < 0 ? 0 - quint64(n) : quint64(n);
    do {
        *--p = char('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (n < 0)
        *--p = '-';
    out.append(p, int(end - p));
}

// QJsonValue holds every number as a double; the writer prints integral
// values below 2^64 in fixed notation, the others in the shorter of fixed and
// exponent notation, and non-finite ones as null.
void writeDouble(QByteArray& out, double d)
{
    if (!std::isfinite(d)) {
        out.append("null", 4);
        return;
    }
    const double magnitude = std::fabs(d);
    const bool integral = magnitude < kTwoPow64 && magnitude == std::floor(magnitude);
    if (integral && magnitude <= double(kExactIntegerLimit)) {
        writeDecimal(out, qint64(d)); // same digits as Qt's shortest form; -0 prints as 0
        return;
    }
    out.append(QByteArray::number(d, integral ? 'f' : 'g', QLocale::FloatingPointShortest));
}

void writeInteger(QByteArray& out, qint64 n)
{
    if (n >= -kExactIntegerLimit && n <= kExactIntegerLimit)
        writeDecimal(out, n);
    else
        writeDouble(out, double(n));
}

// UTF-8 with the escapes Qt uses: the two-letter ones, \u00XX (lower-case hex)
// for other control characters, and \uXXXX for unpaired surrogates.
void writeString(QByteArray& out, const QString& s)
{
    static const char hex[] = "0123456789abcdef";
    const int n = s.size();
    const ushort* u = s.utf16();
    const int start = out.size();
    out.resize(start + 6 * n + 2); // the longest form of a UTF-16 unit is \uXXXX
    char* w = out.data() + start;
    *w++ = '"';
    for (int i = 0; i < n; ++i) {
        const ushort c = u[i];
        if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
            *w++ = char(c);
        } else if (c < 0x80) {
            *w++ = '\\';
            switch (c) {
            case '"': *w++ = '"'; break;
            case '\\': *w++ = '\\'; break;
            case '\b': *w++ = 'b'; break;
            case '\f': *w++ = 'f'; break;
            case '\n': *w++ = 'n'; break;
            case '\r': *w++ = 'r'; break;
            case '\t': *w++ = 't'; break;
            default:
                std::memcpy(w, "u00", 3);
                w[3] = hex[c >> 4];
                w[4] = hex[c & 0xf];
                w += 5;
            }
        } else if (c < 0x800) {
            *w++ = char(0xc0 | (c >> 6));
            *w++ = char(0x80 | (c & 0x3f));
        } else if (!QChar::isSurrogate(c)) {
            *w++ = char(0xe0 | (c >> 12));
            *w++ = char(0x80 | ((c >> 6) & 0x3f));
            *w++ = char(0x80 | (c & 0x3f));
        } else if (QChar::isHighSurrogate(c) && i + 1 < n && QChar::isLowSurrogate(u[i + 1])) {
            const uint cp = QChar::surrogateToUcs4(c, u[++i]);
            *w++ = char(0xf0 | (cp >> 18));
            *w++ = char(0x80 | ((cp >> 12) & 0x3f));
            *w++ = char(0x80 | ((cp >> 6) & 0x3f));
            *w++ = char(0x80 | (cp & 0x3f));
        } else {
            *w++ = '\\';
            *w++ = 'u';
            for (int shift = 12; shift >= 0; shift -= 4)
                *w++ = hex[(c >> shift) & 0xf];
        }
    }
    *w++ = '"';
    out.resize(int(w - out.constData()));
}

// Qt's own conversion of one value, for the types written nowhere else here.
void writeThroughQt(QByteArray& out, const QVariant& value, bool inHash)
{
    const QJsonObject object = inHash ? QJsonObject::fromVariantHash({{QString(), value}})
                                      : QJsonObject::fromVariantMap({{QString(), value}});
    const QByteArray wrapped = QJsonDocument(object).toJson(QJsonDocument::Compact);
    out.append(wrapped.constData() + 4, wrapped.size() - 5); // strip {"": and }
}

void writeMember(QByteArray& out, bool& first, const QString& key, const QVariant& value, bool inHash)
{
    if (!first)
        out.append(',');
    first = false;
    writeString(out, key);
    out.append(':');
    writeValue(out, value, inHash);
}

void writeMap(QByteArray& out, const QVariantMap& map, bool inHash)
{
    out.append('{');
    bool first = true;
    for (auto it = map.cbegin(), end = map.cend(); it != end; ++it) {
        const auto next = std::next(it);
        if (next != end && next.key() == it.key())
            continue; // keys added with insertMulti: Qt keeps the last one in iteration order
        writeMember(out, first, it.key(), it.value(), inHash);
    }
    out.append('}');
}

void writeHash(QByteArray& out, const QVariant& value)
{
    const QVariantHash& hash = *static_cast<const QVariantHash*>(value.constData());
    QVector<QVariantHash::const_iterator> entries;
    entries.reserve(hash.size());
    for (auto it = hash.cbegin(); it != hash.cend(); ++it)
        entries.append(it);
    const auto byKey = [](const auto& a, const auto& b) { return a.key() < b.key(); };
    std::sort(entries.begin(), entries.end(), byKey); // a JSON object keeps its keys sorted
    const auto sameKey = [](const auto& a, const auto& b) { return a.key() == b.key(); };
    if (std::adjacent_find(entries.cbegin(), entries.cend(), sameKey) != entries.cend()) {
        writeThroughQt(out, value, true); // insertMulti keys: leave the choice to Qt
        return;
    }
    out.append('{');
    bool first = true;
    for (const auto& it : entries)
        writeMember(out, first, it.key(), it.value(), true);
    out.append('}');
}

template <typename List>
void writeList(QByteArray& out, const List& list, bool inHash)
{
    out.append('[');
    for (int i = 0; i < list.size(); ++i) {
        if (i)
            out.append(',');
        writeValue(out, list.at(i), inHash);
    }
    out.append(']');
}

void writeValue(QByteArray& out, const QVariant& value, bool inHash)
{
    const void* data = value.constData();
    switch (value.userType()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr: out.append("null", 4); break;
    case QMetaType::Bool:
        if (*static_cast<const bool*>(data))
            out.append("true", 4);
        else
            out.append("false", 5);
        break;
    case QMetaType::Int: writeDecimal(out, *static_cast<const int*>(data)); break;
    case QMetaType::UInt: writeDecimal(out, *static_cast<const uint*>(data)); break;
    case QMetaType::LongLong: writeInteger(out, *static_cast<const qlonglong*>(data)); break;
    case QMetaType::ULongLong: {
        const qulonglong n = *static_cast<const qulonglong*>(data);
        if (inHash) // that route reads it as a signed number
            writeInteger(out, qint64(n));
        else if (n <= quint64(kExactIntegerLimit))
            writeDecimal(out, qint64(n));
        else
            writeDouble(out, double(n));
        break;
    }
    case QMetaType::Double: writeDouble(out, *static_cast<const double*>(data)); break;
    case QMetaType::Float: writeDouble(out, double(*static_cast<const float*>(data))); break;
    case QMetaType::QString: writeString(out, *static_cast<const QString*>(data)); break;
    case QMetaType::QStringList: {
        const QStringList& list = *static_cast<const QStringList*>(data);
        out.append('[');
        for (int i = 0; i < list.size(); ++i) {
            if (i)
                out.append(',');
            writeString(out, list.at(i));
        }
        out.append(']');
        break;
    }
    case QMetaType::QVariantList: writeList(out, *static_cast<const QVariantList*>(data), inHash); break;
    case QMetaType::QVariantMap: writeMap(out, *static_cast<const QVariantMap*>(data), inHash); break;
    case QMetaType::QVariantHash: writeHash(out, value); break;
    default: writeThroughQt(out, value, inHash);
    }
}

// ---------------------------------------------------------------- parsing

// Answers repeat the same keys and short values ("status", "success",
// "result", ...) call after call. A small per-thread cache hands out shared
// copies of recent short ASCII strings instead of allocating each one anew.
class ShortStringCache {
public:
    static constexpr int kMaxLength = 24;

    QString get(const char* text, int length)
    {
        if (length == 0 || length > kMaxLength)
            return QString::fromLatin1(text, length);
        // FNV-1a over the bytes picks one of the slots.
        quint32 hash = 2166136261u;
        for (int i = 0; i < length; ++i)
            hash = (hash ^ uchar(text[i])) * 16777619u;
        Slot& slot = m_slots[hash % kSlots];
        if (slot.length != length || std::memcmp(slot.bytes, text, size_t(length)) != 0) {
            slot.length = length;
            std::memcpy(slot.bytes, text, size_t(length));
            slot.string = QString::fromLatin1(text, length);
        }
        return slot.string;
    }

private:
    static constexpr int kSlots = 64;
    struct Slot {
        int length = -1;
        char bytes[kMaxLength];
        QString string;
    };
    Slot m_slots[kSlots];
};

ShortStringCache& shortStrings()
{
    static thread_local ShortStringCache cache;
    return cache;
}

// Recursive descent over the bytes, building the QVariants directly. It
// accepts exactly what QJsonDocument accepts, lenient corners included.
class Parser {
public:
    Parser(const char* begin, const char* end)
        : m_begin(begin)
        , m_p(begin)
        , m_end(end)
        , m_shortStrings(shortStrings()) // one look-up of the thread's cache per document
    {
    }

    bool parseDocument(QVariantMap& out)
    {
        if (m_end - m_p >= 3 && std::memcmp(m_p, "\xef\xbb\xbf", 3) == 0)
            m_p += 3; // a UTF-8 byte order mark, only before everything else
        skipSpace();
        if (m_p == m_end || *m_p != '{')
            return fail("the top level is not an object");
        ++m_p;
        if (!parseObject(out))
            return false;
        skipSpace();
        return m_p == m_end || fail("garbage after the object");
    }

    QString errorText() const
    {
        return QStringLiteral("invalid JSON at offset %1: %2").arg(m_errorAt - m_begin).arg(QLatin1String(m_error));
    }

private:
    bool fail(const char* what)
    {
        m_error = what;
        m_errorAt = m_p;
        return false;
    }

    void skipSpace()
    {
        while (m_p != m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\n' || *m_p == '\r'))
            ++m_p;
    }

    bool consume(char c)
    {
        skipSpace();
        if (m_p == m_end || *m_p != c)
            return false;
        ++m_p;
        return true;
    }

    // After the opening brace.
    bool parseObject(QVariantMap& out)
    {
        if (++m_depth > kMaxDepth)
            return fail("nested too deeply");
        if (!consume('}')) {
            do {
                if (!consume('"'))
                    return fail("expected a key");
                QString key;
                if (!parseString(key))
                    return false;
                if (!consume(':'))
                    return fail("expected ':'");
                if (!parseValue(out[key])) // a repeated key: the last value wins
                    return false;
            } while (consume(','));
            if (!consume('}'))
                return fail("expected ',' or '}'");
        }
        --m_depth;
        return true;
    }

    // After the opening bracket.
    bool parseArray(QVariantList& out)
    {
        if (++m_depth > kMaxDepth)
            return fail("nested too deeply");
        if (!consume(']')) {
            do {
                out.append(QVariant());
                if (!parseValue(out.last()))
                    return false;
            } while (consume(','));
            if (!consume(']'))
                return fail("expected ',' or ']'");
        }
        --m_depth;
        return true;
    }

    bool literal(const char* word, int length)
    {
        if (m_end - m_p < length || std::memcmp(m_p, word, size_t(length)) != 0)
            return fail("invalid literal");
        m_p += length;
        return true;
    }

    bool parseValue(QVariant& out)
    {
        skipSpace();
        if (m_p == m_end)
            return fail("expected a value");
        switch (*m_p) {
        case '{': {
            ++m_p;
            QVariantMap map;
            if (!parseObject(map))
                return false;
            out = map;
            return true;
        }
        case '[': {
            ++m_p;
            QVariantList list;
            if (!parseArray(list))
                return false;
            out = list;
            return true;
        }
        case '"': {
            ++m_p;
            QString text;
            if (!parseString(text))
                return false;
            out = text;
            return true;
        }
        case 'n':
            if (!literal("null", 4))
                return false;
            out = QVariant::fromValue(nullptr);
            return true;
        case 't':
            if (!literal("true", 4))
                return false;
            out = true;
            return true;
        case 'f':
            if (!literal("false", 5))
                return false;
            out = false;
            return true;
        default: return parseNumber(out);
        }
    }

    bool parseNumber(QVariant& out);
    bool parseEscapedString(const char* start, QString& out);

    // After the opening quote. Plain ASCII becomes a QString in one step.
    bool parseString(QString& out)
    {
        const char* start = m_p;
        while (m_p != m_end && *m_p != '"' && *m_p != '\\' && uchar(*m_p) < 0x80)
            ++m_p;
        if (m_p != m_end && *m_p == '"') {
            out = m_shortStrings.get(start, int(m_p - start));
            ++m_p;
            return true;
        }
        return parseEscapedString(start, out);
    }

    const char* m_begin;
    const char* m_p;
    const char* m_end;
    const char* m_error = "";
    const char* m_errorAt = nullptr;
    int m_depth = 0;
    ShortStringCache& m_shortStrings;
};

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool isContinuation(uchar c, uchar low = 0x80, uchar high = 0xbf)
{
    return c >= low && c <= high;
}

// Strings with escapes or non-ASCII bytes. UTF-8 must be well-formed (no
// overlong forms, no encoded surrogates, nothing past U+10FFFF); raw control
// characters are accepted. Escapes are kept as Qt reads them: \uXXXX gives
// that UTF-16 unit even when it is an unpaired surrogate, an unknown escape
// gives the escaped byte itself, and a backslash before a non-ASCII byte gives
// the two units Qt's sign-extended conversion makes of it.
bool Parser::parseEscapedString(const char* start, QString& out)
{
    const char* close = m_p;
    bool escaped = false;
    while (close != m_end && *close != '"') {
        escaped = escaped || *close == '\\';
        if (*close != '\\')
            ++close;
        else if (m_end - close >= 2)
            close += 2; // the escaped byte cannot close the string
        else
            close = m_end;
    }
    if (close == m_end)
        return fail("unterminated string");
    // Qt reads strings without escapes with QString::fromUtf8, which drops a
    // leading byte order mark.
    if (!escaped && m_p == start && close - m_p >= 3 && std::memcmp(m_p, "\xef\xbb\xbf", 3) == 0)
        start = m_p += 3;
    // No byte yields more than one UTF-16 unit.
    QString text(int(close - start), Qt::Uninitialized);
    ushort* w = reinterpret_cast<ushort*>(text.data());
    for (const char* s = start; s != m_p; ++s)
        *w++ = uchar(*s);
    while (m_p != close) {
        const uchar c = uchar(*m_p);
        if (c == '\\') {
            const uchar e = uchar(m_p[1]);
            m_p += 2;
            switch (e) {
            case 'b': *w++ = '\b'; break;
            case 'f': *w++ = '\f'; break;
            case 'n': *w++ = '\n'; break;
            case 'r': *w++ = '\r'; break;
            case 't': *w++ = '\t'; break;
            case 'u': {
                int unit = 0;
                for (int i = 0; i < 4; ++i) {
                    const int digit = m_p + i < m_end ? hexValue(m_p[i]) : -1;
                    if (digit < 0)
                        return fail("invalid \\u escape");
                    unit = unit << 4 | digit;
                }
                m_p += 4;
                *w++ = ushort(unit);
                break;
            }
            default:
                if (e < 0x80) {
                    *w++ = e;
                } else {
                    *w++ = 0xd7bf;
                    *w++ = ushort(0xdf00 | e);
                }
            }
            continue;
        }
        if (c < 0x80) {
            *w++ = c;
            ++m_p;
            continue;
        }
        const qptrdiff left = m_end - m_p;
        const auto at = [this](int i) { return uchar(m_p[i]); };
        uint cp;
        int length;
        if (c >= 0xc2 && c <= 0xdf && left >= 2 && isContinuation(at(1))) {
            cp = (c & 0x1fu) << 6 | (at(1) & 0x3fu);
            length = 2;
        } else if (c >= 0xe0 && c <= 0xef && left >= 3
                   && isContinuation(at(1), c == 0xe0 ? 0xa0 : 0x80, c == 0xed ? 0x9f : 0xbf)
                   && isContinuation(at(2))) {
            cp = (c & 0x0fu) << 12 | (at(1) & 0x3fu) << 6 | (at(2) & 0x3fu);
            length = 3;
        } else if (c >= 0xf0 && c <= 0xf4 && left >= 4
                   && isContinuation(at(1), c == 0xf0 ? 0x90 : 0x80, c == 0xf4 ? 0x8f : 0xbf)
                   && isContinuation(at(2)) && isContinuation(at(3))) {
            cp = (c & 0x07u) << 18 | (at(1) & 0x3fu) << 12 | (at(2) & 0x3fu) << 6 | (at(3) & 0x3fu);
            length = 4;
        } else {
            return fail("invalid UTF-8 in string");
        }
        m_p += length;
        if (cp >= 0x10000) {
            *w++ = QChar::highSurrogate(cp);
            *w++ = QChar::lowSurrogate(cp);
        } else {
            *w++ = ushort(cp);
        }
    }
    ++m_p; // the closing quote
    text.resize(int(w - reinterpret_cast<const ushort*>(text.constData())));
    out = text;
    return true;
}

// Qt's number grammar is looser than JSON's (".5", "5." and "1.e5" pass).
// Integers that fit in qint64 stay exact; everything else is read as a double,
// and a double with an integral value in the qint64 range becomes qlonglong.
// Common short numbers are converted here (exactly: mantissa below 2^53 and a
// power of ten up to 10^22 are both exact doubles, so one multiplication or
// division rounds correctly); the rest goes to Qt's own conversion.
bool Parser::parseNumber(QVariant& out)
{
    static const double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const auto isDigit = [this] { return m_p != m_end && *m_p >= '0' && *m_p <= '9'; };
    const char* start = m_p;
    const bool negative = m_p != m_end && *m_p == '-';
    m_p += negative;
    quint64 mantissa = 0;
    int digits = 0; // significant digits read into mantissa, at most 19
    int scale = 0;  // decimal exponent of the last digit read
    bool canonical = true;
    const auto readDigits = [&](bool fraction) {
        const char* first = m_p;
        for (; isDigit(); ++m_p) {
            if (digits == 19) {
                canonical = false;
                continue;
            }
            mantissa = mantissa * 10 + quint64(*m_p - '0');
            digits += mantissa != 0;
            scale -= fraction;
        }
        return m_p != first;
    };
    if (m_p != m_end && *m_p == '0')
        ++m_p;
    else
        canonical = readDigits(false) && canonical; // readDigits may clear it
    bool isInteger = true;
    if (m_p != m_end && *m_p == '.') {
        ++m_p;
        isInteger = false;
        canonical = readDigits(true) && canonical;
    }
    if (m_p != m_end && (*m_p == 'e' || *m_p == 'E')) {
        ++m_p;
        isInteger = false;
        const bool negativeExponent = m_p != m_end && *m_p == '-';
        if (m_p != m_end && (*m_p == '+' || *m_p == '-'))
            ++m_p;
        int exponent = 0;
        if (!isDigit())
            canonical = false;
        for (; isDigit(); ++m_p)
            exponent = std::min(exponent * 10 + (*m_p - '0'), 100000);
        scale += negativeExponent ? -exponent : exponent;
    }
    if (m_p == m_end || m_p == start)
        return fail("invalid number");

    if (isInteger && canonical) {
        const quint64 limit = quint64(std::numeric_limits<qint64>::max()) + negative;
        if (mantissa <= limit) {
            out = negative ? qlonglong(0 - mantissa) : qlonglong(mantissa);
            return true;
        }
    }
    double d;
    if (canonical && mantissa < (quint64(1) << 53) && scale >= -22 && scale <= 22) {
        d = scale < 0 ? double(mantissa) / powers[-scale] : double(mantissa) * powers[scale];
        if (negative)
            d = -d;
    } else {
        bool ok = false;
        d = QByteArray::fromRawData(start, int(m_p - start)).toDouble(&ok);
        if (!ok)
            return fail("invalid number");
    }
    if (d >= -kTwoPow63 && d < kTwoPow63 && d == std::trunc(d))
        out = qlonglong(d);
    else
        out = d;
    return true;
}

} // namespace

QByteArray writeObject(const QVariantMap& map)
{
    QByteArray out;
    out.reserve(256);
    writeMap(out, map, false);
    return out;
}

bool parseObject(const QByteArray& text, QVariantMap* out, QString* error)
{
    Parser parser(text.constData(), text.constData() + text.size());
    QVariantMap map;
    if (!parser.parseDocument(map)) {
        if (error)
            *error = parser.errorText();
        return false;
    }
    *out = map;
    return true;
}

} // namespace Nubra::Json
