// What hostile names and moments become in a table and in JSON.

#include "evidence/system_name.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/json_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/sha256.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace hv;

struct text_case {
    const char *name;
    std::u16string text;
    const char *shown;
    const char *json;
};

const std::u16string high_half(1, 0xd83d);
const std::u16string low_half(1, 0xde00);
const std::u16string last_unit(1, 0xffff);

const text_case text_cases[] = {
    {"Plain", u"C:\\a \"b\"", "C:\\a \"b\"", R"("C:\\a \"b\"")"},
    {"Letters", u"K\u00f6ln \u65e5", "K\u00f6ln \u65e5", "\"K\u00f6ln \u65e5\""},
    {"Pair", high_half + low_half, "\U0001f600", "\"\U0001f600\""},
    {"Controls", u"\x1b[2J\n\x7f\x9b", "\\x1b[2J\\x0a\\x7f\\x9b",
     R"("\u001b[2J\u000a\u007f\u009b")"},
    {"Direction", u"gpj\u202eexe", "gpj\\u202eexe", R"("gpj\u202eexe")"},
    {"HighHalf", high_half + u"d83d", "\\ud83dd83d", R"("\ud83dd83d")"},
    {"LowHalf", u"a" + low_half, "a\\ude00", R"("a\ude00")"},
    {"HalvesTurned", low_half + high_half, "\\ude00\\ud83d", R"("\ude00\ud83d")"},
    {"LastUnit", last_unit + u"d83d", "\\uffffd83d", R"("\uffffd83d")"},
    {"Tag", u"\U000e0041", "\\U000e0041", "\"\U000e0041\""}};

TEST(EvidenceText, IsShownEscapedAndCarriedWhole)
{
    for (const text_case &test : text_cases) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(escaped(test.text), test.shown);
        EXPECT_EQ(json_text(to_lossless_utf8(test.text)), test.json);
        nlohmann::ordered_json read;
        ASSERT_TRUE(parse_json(read, test.json));
        EXPECT_EQ(text_of(read), test.text);
    }
    EXPECT_EQ(escaped(std::string_view("a\xff\xc0\xaf\n")), "a\\xff\\xc0\\xaf\\x0a");
    nlohmann::ordered_json read;
    for (const char *bad : {"", "{", "\"\\ud83", "\"\\", "[1,]", "\"a\xff\""})
        EXPECT_FALSE(parse_json(read, bad)) << bad;
}

// Names of the examiner's own system: pairs of surrogates, and bytes that aren't UTF-8.
TEST(SystemName, ComesBackByteForByte)
{
    const std::u16string bad = {u'a', char16_t{0xDCFF}, char16_t{0xDCC3}, u'b'};
    for (const auto &[name, units] :
         std::vector<std::pair<std::string, std::u16string>>{
             {"K\u00f6ln \U0001F4C4.txt", u"K\u00f6ln \U0001F4C4.txt"},
             {"\U0010FFFF\uFFFD", u"\U0010FFFF\uFFFD"},
             {"a\xFF\xC3"
              "b",
              bad},
             // Half of a pair, and a zero, in more bytes than UTF-8 has for them.
             {"\xED\xB3\xBF", {0xDCED, 0xDCB3, 0xDCBF}},
             {"\xC0\x80", {0xDCC0, 0xDC80}}}) {
        EXPECT_EQ(from_system_name(name), units);
        EXPECT_EQ(to_system_name(units), name);
    }
}

TEST(EvidenceText, FitsItsColumns)
{
    EXPECT_EQ(display_width("\u65e5e\u0301"), 3u);
    EXPECT_EQ(fit_end("C:\\Users\\ada", 12), "C:\\Users\\ada");
    EXPECT_EQ(fit_end("C:\\Users\\ada", 5), "\u2026\\ada");
    EXPECT_EQ(fit_end("\u65e5\u65e5\u65e5", 4), "\u2026\u65e5");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(5242880), "5,242,880");
}

TEST(EvidenceText, MatchesGlobs)
{
    const std::u16string path = u"C:\\K\u00d6LN\\a.b.TXT";
    for (const auto *good :
         {u"*", u"c:\\k\u00f6ln\\*", u"*.txt", u"*\\?.b.t*", u"*a*b*"})
        EXPECT_TRUE(matches_glob(path, good)) << escaped(good);
    for (const auto *bad : {u"", u"*.tx", u"?", u"C:", u"*b*a*"})
        EXPECT_FALSE(matches_glob(path, bad)) << escaped(bad);
}

// FILETIMEs by hand: 1970 is 116444736000000000, a day has 864000000000 ticks.
TEST(Moments, AreWrittenAndRead)
{
    constexpr u64 epoch = 116444736000000000;
    constexpr u64 day = 864000000000;
    EXPECT_EQ(rfc3339(epoch + 59 * day + 1), "1970-03-01T00:00:00.0000001Z");
    EXPECT_EQ(rfc3339(1), "1601-01-01T00:00:00.0000001Z");
    EXPECT_EQ(rfc3339(2650467743999999999), "9999-12-31T23:59:59.9999999Z");
    EXPECT_EQ(rfc3339(2650467744000000000), std::nullopt);
    EXPECT_EQ(rfc3339(~u64{0}), std::nullopt);
    EXPECT_EQ(rfc3339(0), std::nullopt);
    EXPECT_EQ(short_moment(epoch + 9999999), "1970-01-01 00:00:00.999");

    const auto read = [](const char *text) {
        return parse_rfc3339(text, day_end::first_moment);
    };
    EXPECT_EQ(read("1970-01-02"), epoch + day);
    EXPECT_EQ(parse_rfc3339("1970-01-02", day_end::last_moment), epoch + 2 * day - 1);
    EXPECT_EQ(read("1970-01-01T01:00:00.5+01:00"), epoch + 5000000);
    EXPECT_EQ(read("1970-01-01t00:00:00.123456789-00:30"),
              epoch + 30 * 600000000ull + 1234567);
    for (const char *bad :
         {"", "1970-1-1", "1970-02-30", "1600-12-31", "1970-01-01T24:00:00Z",
          "1970-01-01T00:00:00", "1970-01-01T00:00:00.Z", "1970-01-01T00:00:00Zx",
          "1601-01-01T00:00:00+00:01"})
        EXPECT_EQ(read(bad), std::nullopt) << bad;
}

// The sums are those of the standard's own examples.
TEST(Sha256, AgreesWithTheStandard)
{
    const auto sum = [](const std::string &text) {
        sha256 result;
        const std::vector<u8> bytes(text.begin(), text.end());
        result.add(byte_view{bytes});
        return result.finish();
    };
    EXPECT_EQ(sum("abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sum("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(sum(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

} // namespace
