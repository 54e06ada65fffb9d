// The JSON codec against Qt itself: every text must be accepted or refused as
// QJsonDocument does and give the same map, QVariant types included; every
// map must be written byte for byte as QJsonDocument writes it.

#include "VariantDiff.h"
#include "core/JsonCodec.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QUrl>
#include <QUuid>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>

namespace {

QByteArray qtWrite(const QVariantMap& map)
{
    return QJsonDocument(QJsonObject::fromVariantMap(map)).toJson(QJsonDocument::Compact);
}

// Empty when ours and Qt's agree on `text`, else what differs.
QString parseDisagreement(const QByteArray& text)
{
    QJsonParseError qtError{};
    const QJsonDocument doc = QJsonDocument::fromJson(text, &qtError);
    const bool qtAccepts = qtError.error == QJsonParseError::NoError && doc.isObject();
    QVariantMap ours{{QStringLiteral("untouched"), true}};
    const QVariantMap before = ours;
    QString error;
    const bool weAccept = Nubra::Json::parseObject(text, &ours, &error);
    if (weAccept != qtAccepts)
        return QStringLiteral("we %1, Qt %2 (%3)")
            .arg(weAccept ? "accept" : "refuse", qtAccepts ? "accepts" : "refuses",
                 qtAccepts ? error : qtError.errorString());
    if (!weAccept)
        return error.contains("offset") ? variantDifference(ours, before) : QStringLiteral("no error text");
    return variantDifference(ours, doc.object().toVariantMap());
}

QString show(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.left(120).toPercentEncoding(" {}[]\":,.-+"));
}

struct ParseCase {
    const char* group;
    QByteArray text;
    bool qtAccepts; // what Qt 5.15 does, so that each group really has both outcomes
};

QByteArray nested(int depth, const QByteArray& open, const QByteArray& close)
{
    return "{\"a\":" + open.repeated(depth - 1) + "1" + close.repeated(depth - 1) + "}";
}

const ParseCase kParseCases[] = {
    // Numbers: qlonglong when integral and in range, double otherwise;
    // Qt's grammar is looser than JSON's.
    {"number", R"({"a":1,"b":-1,"c":0,"d":-0})", true},
    {"number", R"({"a":1.0,"b":1e3,"c":1E+3,"d":-0.0,"e":1.5e3,"f":0e400})", true},
    {"number", R"({"a":0.5,"b":-1.5,"c":0.1,"d":1e-7,"e":123456.789,"f":2.5e-3})", true},
    {"number", R"({"a":9007199254740993,"b":9007199254740993.0,"c":4611686018427387904.0})", true},
    {"number", R"({"a":9223372036854775807,"b":-9223372036854775808})", true},
    {"number", R"({"a":9223372036854775808,"b":-9223372036854775809,"c":1e19})", true},
    {"number", R"({"a":123456789012345678901234567890,"b":0.12345678901234567890123})", true},
    {"number", R"({"a":4.9e-324,"b":1.7976931348623157e308,"c":2.2250738585072014e-308})", true},
    {"number", R"({"a":.5,"b":-.5,"c":5.,"d":1.e5})", true},
    {"number", R"({"a":1e400})", false},
    {"number", R"({"a":-1e400})", false},
    {"number", R"({"a":1e-400})", false},
    {"number", R"({"a":2e-324})", false},
    {"number", R"({"a":1e})", false},
    {"number", R"({"a":1e+})", false},
    {"number", R"({"a":-})", false},
    {"number", R"({"a":+1})", false},
    {"number", R"({"a":.})", false},
    {"number", R"({"a":01})", false},
    {"number", R"({"a":-01})", false},
    {"number", R"({"a":1.5.5})", false},
    {"number", R"({"a":x})", false},
    // Literals.
    {"literal", R"({"a":null,"b":true,"c":false})", true},
    {"literal", R"({"a":nul})", false},
    {"literal", R"({"a":nullx})", false},
    {"literal", R"({"a":True})", false},
    {"literal", R"({"a":null)", false},
    // Escapes, kept as Qt reads them: unpaired surrogates stay, unknown
    // escapes give the byte, a backslash before a non-ASCII byte gives two units.
    {"escape", R"({"a":"\"\\\/\b\f\n\r\t","b":"\u00e9\u00C9\u0000"})", true},
    {"escape", R"({"a":"\ud83d\ude00","b":"\ud800","c":"\udc00x","d":"\ud800\ud800"})", true},
    {"escape", R"({"a":"\a\x\'\ ","b":"\)" "\x01\"}", true},
    {"escape", "{\"a\":\"\\\xc3\",\"b\":\"\\\x80\\\xff\"}", true},
    {"escape", "{\"a\":\"\\\xc3\xa9\"}", false},
    {"escape", R"({"a":"\u00g0"})", false},
    {"escape", R"({"a":"\u00e"})", false},
    {"escape", R"({"a":"\)", false},
    {"escape", R"({"a":"abc)", false},
    // UTF-8: well-formed only; raw control characters and non-characters pass.
    {"utf8", "{\"a\":\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xef\xbf\xbf\xf4\x8f\xbf\xbf\"}", true},
    {"utf8", QByteArray("{\"a\":\"x\x01\ny\x00z\x7f\"}", 15), true},
    {"utf8", "{\"\xef\xbb\xbfk\":\"\xef\xbb\xbf\xef\xbb\xbfv\",\"b\":\"\xef\xbb\xbf\\n\",\"c\":\"x\xef\xbb\xbf\"}", true},
    {"utf8", "{\"a\":\"\xed\xa0\x80\"}", false},
    {"utf8", "{\"a\":\"\xc0\xaf\"}", false},
    {"utf8", "{\"a\":\"\xe0\x80\xaf\"}", false},
    {"utf8", "{\"a\":\"\xf4\x90\x80\x80\"}", false},
    {"utf8", "{\"a\":\"\xc3\"}", false},
    {"utf8", "{\"a\":\"\xff\"}", false},
    {"utf8", "{\"\xc3\xa9\":1,\"\xe2\x82\":2}", false},
    // Structure and white space.
    {"structure", " \t\r\n{ \"a\" \n: \t1 ,\"b\" : [ 1 , [ ] , { } ] } \n", true},
    {"structure", "\xef\xbb\xbf{\"a\":1}", true},
    {"structure", "\xef\xbb\xbf \n{}", true},
    {"structure", R"({"":{"":[]}})", true},
    {"structure", " \xef\xbb\xbf{}", false},
    {"structure", QByteArray("{}\0", 3), false},
    {"structure", "{}\f", false},
    {"structure", "{\"a\":\v1}", false},
    {"structure", "{}{}", false},
    {"structure", R"({"a":1,})", false},
    {"structure", R"({"a":[1,]})", false},
    {"structure", R"({"a":[,1]})", false},
    {"structure", R"({"a" 1})", false},
    {"structure", R"({a:1})", false},
    {"structure", R"({"a":1 "b":2})", false},
    {"structure", R"({"a":[1 2]})", false},
    {"structure", "{", false},
    {"structure", "", false},
    // Only an object is an answer.
    {"top level", "[1]", false},
    {"top level", "1", false},
    {"top level", "\"a\"", false},
    {"top level", "null", false},
    // Repeated keys: the last one wins, also when spelled with escapes.
    {"duplicate", R"({"a":1,"a":2})", true},
    {"duplicate", R"({"a":{"x":1},"a":[2],"\u0061":"3","b":0})", true},
    {"duplicate", R"({"a":{"k":1,"k":{"z":true}}})", true},
    // Nesting: 1024 levels of objects and arrays, not one more.
    {"nesting", nested(1024, "{\"a\":", "}"), true},
    {"nesting", nested(1025, "{\"a\":", "}"), false},
    {"nesting", nested(1024, "[", "]"), true},
    {"nesting", nested(1025, "[", "]"), false},
};

TEST(JsonCodec, parsesAsQtDoes)
{
    for (const ParseCase& c : kParseCases) {
        QJsonParseError qtError{};
        const QJsonDocument doc = QJsonDocument::fromJson(c.text, &qtError);
        EXPECT_EQ(qtError.error == QJsonParseError::NoError && doc.isObject(), c.qtAccepts)
            << "Qt changed its mind on " << c.group << ": " << qPrintable(show(c.text));
        const QString difference = parseDisagreement(c.text);
        EXPECT_TRUE(difference.isEmpty()) << c.group << ": " << qPrintable(show(c.text)) << "\n  "
                                          << qPrintable(difference);
    }
}

TEST(JsonCodec, refusalLeavesTheMapAndNamesTheOffset)
{
    QVariantMap map{{QStringLiteral("kept"), 1}};
    QString error;
    EXPECT_FALSE(Nubra::Json::parseObject(R"({"a":[1,2,}])", &map, &error));
    EXPECT_EQ(map, (QVariantMap{{QStringLiteral("kept"), 1}}));
    EXPECT_TRUE(error.contains("offset 10")) << qPrintable(error);
    EXPECT_FALSE(Nubra::Json::parseObject("[]", &map, nullptr)); // no error text wanted
}

QString withUnits(std::initializer_list<ushort> units)
{
    QString s;
    for (ushort u : units)
        s.append(QChar(u));
    return s;
}

TEST(JsonCodec, writesAsQtDoes)
{
    QVariantHash hash{{"b", 1}, {"a", QVariantList{2, "x"}}, {withUnits({0xffff}), 3}, {withUnits({0xd83d, 0xde00}), 4}};
    QMultiMap<QString, QVariant> repeated; // a QVariantMap may hold a key twice
    repeated.insert("k", 1);
    repeated.insert("k", 2);
    const QVariantMap multi = repeated;
    const std::pair<const char*, QVariantMap> cases[] = {
        // Integers: exact up to 2^53, through double beyond.
        {"int", {{"a", 0}, {"b", -2147483647 - 1}, {"c", 4000000000u}, {"d", qlonglong(1) << 53}}},
        {"big int", {{"a", (qlonglong(1) << 53) + 1}, {"b", std::numeric_limits<qlonglong>::min()},
                     {"c", std::numeric_limits<qlonglong>::max()}, {"d", -(qlonglong(1) << 53) - 1}}},
        {"unsigned", {{"a", qulonglong(1) << 53}, {"b", (qulonglong(1) << 53) + 1}, {"c", ~qulonglong(0)}}},
        // Doubles: integral ones in fixed notation, others shortest; non-finite as null.
        {"double", {{"a", 1.0}, {"b", -0.0}, {"c", 0.5}, {"d", 0.1}, {"e", 1e-7}, {"f", 123456.789}}},
        {"big double", {{"a", 1e15}, {"b", 1e16}, {"c", 4611686018427387904.0}, {"d", 1e20}, {"e", 1.8446744073709552e19},
                        {"f", 123456789012345680000.0}, {"g", 1.7976931348623157e308}, {"h", 5e-324}}},
        {"not finite", {{"a", std::nan("")}, {"b", HUGE_VAL}, {"c", -HUGE_VAL}}},
        {"float", {{"a", 1.5f}, {"b", 0.1f}, {"c", std::numeric_limits<float>::infinity()}}},
        {"null and bool", {{"a", QVariant()}, {"b", QVariant::fromValue(nullptr)}, {"c", true}, {"d", false}}},
        // Strings: short escapes, \u00XX for other control characters, raw
        // UTF-8, \uXXXX for unpaired surrogates; keys the same way.
        {"string", {{"a", QString::fromUtf8("\x01\x1b\x1f\x7f\"\\/\b\f\n\r\t")}, {"b", QString(QChar(0))}, {"c", QString()}}},
        {"unicode", {{"a", QString::fromUtf8("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xef\xbf\xbf")}, {"\xc3\xa9\x01\"", 1}}},
        {"surrogates", {{"a", withUnits({0xd800})}, {"b", withUnits({0xdc00, 'x'})}, {"c", withUnits({0xd800, 0xd800, 0xdc00})},
                        {"d", withUnits({'x', 0xdbff})}, {withUnits({0xdfff}), 1}}},
        // Containers, keys in UTF-16 order, hashes sorted, insertMulti keys.
        {"containers", {{"a", QStringList{"x", QString(), withUnits({0xd800})}}, {"b", QVariantList{}}, {"c", QVariantMap{}},
                        {"d", QVariantList{QVariant(), QVariantMap{{"z", 1}, {"y", QVariantList{1.5}}}}}}},
        {"hash", {{"a", hash}, {"b", QVariantHash{}}, {"c", QVariantList{QVariant(hash)}}}},
        // Below a hash Qt reads unsigned numbers as signed and converts other types its other way.
        {"in hash", {{"a", QVariantHash{{"k", QVariantList{~qulonglong(0) - 4096, QVariantMap{{"m", qulonglong(1) << 63}}}}}},
                     {"b", QVariantHash{{"u", QUrl("a:b")}, {"d", QDate(2024, 1, 2)}, {"b", QByteArray("\xff")}}}}},
        {"multi", {{"a", multi}}},
        // Types Qt converts for us.
        {"other types", {{"a", QByteArray("h\xc3\xa9\xff")}, {"b", QByteArray()}, {"c", QUrl("http://x/y?z")},
                         {"d", QDateTime(QDate(2024, 2, 29), QTime(13, 5), Qt::UTC)}, {"e", QUuid("{12345678-9abc-def0-1234-56789abcdef0}")},
                         {"f", QVariant::fromValue(short(-3))}, {"g", QVariant::fromValue(QJsonValue(2.5))},
                         {"h", QChar('z')}, {"i", QVariantList{QUrl("a:b"), QByteArray("")}}}},
    };
    for (const auto& [group, map] : cases) {
        const QByteArray ours = Nubra::Json::writeObject(map);
        EXPECT_EQ(ours, qtWrite(map)) << group;
        EXPECT_TRUE(parseDisagreement(ours).isEmpty()) << group << ": " << qPrintable(parseDisagreement(ours));
    }
}

// ------------------------------------------------------------ randomized

class Generator {
public:
    explicit Generator(unsigned seed) : m_random(seed) {}

    QVariantMap map(int depth)
    {
        QVariantMap m;
        for (int n = pick(6); n > 0; --n)
            m.insert(string(4), value(depth));
        return m;
    }

    QByteArray mutate(QByteArray text)
    {
        static const char* const pieces[] = {"\"", "\\", "{", "}", "[", "]", ",", ":", "0", "-", ".", "e", "1e400",
                                             "\\u", "\\ud83d", "\\udc00", "\xc3", "\xed\xa0\x80", "\xf0\x9f", "\xff",
                                             " ", "null", "t", "9223372036854775808", ".5", "\xef\xbb\xbf"};
        for (int n = 1 + pick(3); n > 0; --n) {
            const int at = pick(text.size() + 1);
            switch (pick(3)) {
            case 0: text.remove(at, 1 + pick(3)); break;
            case 1: text.insert(at, pieces[pick(std::size(pieces))]); break;
            default: text.replace(at, 1, QByteArray(1, char(pick(256))));
            }
        }
        return text;
    }

private:
    int pick(int n) { return int(m_random() % unsigned(n)); }

    QString string(int maxLength)
    {
        static const ushort units[] = {'a', 'Z', '0', ' ', '"', '\\', '/', 0x01, 0x1f, 0x7f, 0xe9, 0x20ac, 0xffff,
                                       0xd83d, 0xde00, 0xd800, 0xdfff, 0};
        QString s;
        for (int n = pick(maxLength + 1); n > 0; --n)
            s.append(QChar(pick(3) ? ushort('a' + pick(26)) : units[pick(std::size(units))]));
        return s;
    }

    double number()
    {
        switch (pick(5)) {
        case 0: return double(pick(2000) - 1000) / 8;
        case 1: return std::ldexp(double(pick(1 << 30)), pick(80) - 40);
        case 2: return std::pow(10.0, pick(50) - 25) * (pick(2) ? 1 : -1);
        case 3: {
            double d;
            const quint64 bits = (quint64(m_random()) << 32) | m_random();
            std::memcpy(&d, &bits, sizeof d);
            return d; // any double, NaN and infinities included
        }
        default: return std::ldexp(1.0, 53 + pick(12)) + pick(3) - 1;
        }
    }

    QVariant value(int depth)
    {
        const int kind = pick(depth > 0 ? 14 : 10);
        switch (kind) {
        case 0: return pick(2) ? QVariant() : QVariant::fromValue(nullptr);
        case 1: return bool(pick(2));
        case 2: return int(m_random());
        case 3: return qlonglong((quint64(m_random()) << 32 | m_random()) >> pick(64));
        case 4: return qulonglong((quint64(m_random()) << 32 | m_random()) >> pick(64));
        case 5: return number();
        case 6: return float(number());
        case 7:
        case 8: return string(12);
        case 9: return QStringList{string(3), string(3)};
        case 10: {
            QVariantList list;
            for (int n = pick(4); n > 0; --n)
                list.append(value(depth - 1));
            return list;
        }
        case 11: {
            QVariantHash hash;
            for (int n = pick(4); n > 0; --n)
                hash.insert(string(3), value(depth - 1));
            return hash;
        }
        default: return map(depth - 1);
        }
    }

    std::mt19937 m_random;
};

TEST(JsonCodec, randomMapsAreWrittenAndReadAsQtDoes)
{
    Generator generator(20240601);
    for (int i = 0; i < 3000; ++i) {
        const QVariantMap map = generator.map(3);
        const QByteArray ours = Nubra::Json::writeObject(map);
        const QByteArray theirs = qtWrite(map);
        int at = 0;
        while (at < ours.size() && at < theirs.size() && ours[at] == theirs[at])
            ++at;
        ASSERT_EQ(ours, theirs) << "map " << i << " differs from byte " << at << ": " << qPrintable(show(ours.mid(at)))
                                << " vs " << qPrintable(show(theirs.mid(at)));
        const QString difference = parseDisagreement(ours);
        ASSERT_TRUE(difference.isEmpty()) << "map " << i << ": " << qPrintable(show(ours)) << "\n  "
                                          << qPrintable(difference);
    }
}

TEST(JsonCodec, mutatedTextsAreJudgedAsQtDoes)
{
    Generator generator(7);
    int accepted = 0;
    for (int i = 0; i < 4000; ++i) {
        const QByteArray text = generator.mutate(Nubra::Json::writeObject(generator.map(2)));
        const QString difference = parseDisagreement(text);
        ASSERT_TRUE(difference.isEmpty()) << "text " << i << ": " << qPrintable(show(text)) << "\n  "
                                          << qPrintable(difference);
        QVariantMap map;
        accepted += Nubra::Json::parseObject(text, &map, nullptr) ? 1 : 0;
    }
    // Both outcomes must be well represented for the comparison to mean much.
    EXPECT_GT(accepted, 200);
    EXPECT_LT(accepted, 3600);
}

} // namespace
