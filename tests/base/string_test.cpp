#include "base/hv_checked_math.h"
#include "base/hv_string.h"
#include "base/hv_text_convert.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>

using namespace hv;
using namespace std::string_literals;
using text_pair = std::pair<std::string, std::string>;

constexpr u64 all_ones = ~u64{0};

TEST(CheckedMath, StaysWithin64Bits)
{
    EXPECT_EQ(saturating_sum(all_ones - 1, 2), all_ones);
    EXPECT_EQ(saturating_product(u64{1} << 32, u64{1} << 31), u64{1} << 63);
    EXPECT_EQ(saturating_product(u64{1} << 32, u64{1} << 32), all_ones);
    u64 position = 0;
    EXPECT_FALSE(checked_position(u64{1} << 55, 512, 0, position));
    EXPECT_FALSE(checked_position(1, 512, all_ones - 511, position));
}

TEST(String, LosesItsBlanksAndShowsItsLineBreaks)
{
    // In wide text each character gets one pass: what an earlier one would have removed
    // stays where a later one uncovers it.
    const std::pair<std::wstring, std::wstring> wide[] = {
        {L" \t ", L""}, {L"\t a", L" a"}, {L"a\n\r", L"a"}, {L"a\r\n", L"a\r"}};
    for (auto [text, trimmed] : wide) {
        trim(text);
        EXPECT_EQ(text, trimmed);
    }
    const text_pair breaks[] = {{"a\r\nb", "a[CRLF]b"},     {"a\n\rb", "a[LFCR]b"},
                                {"a\rb\r", "a[CR]b[CR]"},   {"\rb\n", "\rb[LF]"},
                                {"\r\r\n\r", "\r[CRLF]\r"}, {"\n\r\n", "[LFCR][LF]"}};
    for (auto [text, escaped] : breaks) {
        escape_line_breaks(text);
        EXPECT_EQ(text, escaped);
    }
}

TEST(Path, SplitsAtTheSeparatorThatWins)
{
    std::string directory, name, extension;
    // The directory, a blank, the name.
    const text_pair cases[] = {
        {"a\\b.txt", "a b.txt"}, {"b.txt", ". b.txt"}, {"a/b\\c", "a/b c"},
        {"a\\b/c.d", "a b/c.d"}, {"a/", "a "},         {"a\\..", "a\\.. ."},
        {"a/..", "a//.. ."},     {"..", ".. ."}};
    for (const auto &[path, wanted] : cases) {
        EXPECT_TRUE(split_path(path, directory, name));
        EXPECT_EQ(directory + " " + name, wanted) << path;
    }
    EXPECT_TRUE(split_path_ext("/x.tar.gz", directory, name, extension));
    EXPECT_EQ(directory + " " + name + " " + extension, " x.tar gz");
}

TEST(Path, ExpandsItsVariablesWithinLimits)
{
    setenv("VESKIT_OUTER", "<%VESKIT_INNER%>", 1);
    setenv("VESKIT_INNER", "in", 1);
    setenv("VESKIT_ITSELF", "%VESKIT_ITSELF%", 1);
    const std::string inner = "%VESKIT_INNER%";
    const text_pair cases[] = {
        {"a%VESKIT_OUTER%/" + inner, "a<in>/in"},
        {"50% %%", "50% %%"},
        {"%vSs%1", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1"},
        {"%no such" + inner, "%no such" + inner},
        {"%no such%" + inner, "%no such%in"},
        {std::string(498, 'x') + inner, std::string(498, 'x') + "in"},
        {std::string(499, 'x') + inner, std::string(499, 'x') + inner},
        {"%VESKIT_ITSELF%", "%VESKIT_ITSELF%"}};
    for (const auto &[text, wanted] : cases)
        EXPECT_EQ(expand_variables(text, true), wanted);
    EXPECT_EQ(expand_variables("%vSs%1", false), "%vSs%1");
}

// The number as read, in decimal, or "-".
template <class Number>
static std::string read_by(bool (*parse)(std::string_view, Number &),
                           std::string_view text)
{
    Number value = 7;
    return parse(text, value) ? std::to_string(value) : value == 0 ? "-" : "no zero";
}

TEST(Number, IsReadAndWrittenInAllItsForms)
{
    const text_pair narrow[] = {
        {"0x10", "16"},      {"X10", "16"}, {"O20", "16"},   {" 16\r\n", "16"},
        {"'\x10'", "16"},    {"+", "0"},    {"12abc", "12"}, {"-1", "4294967295"},
        {"4294967297", "1"}, {"'A'", "97"}, {" ", "-"},      {"abc", "-"},
        {"'ab'", "-"},       {"'", "-"}};
    for (const auto &[text, wanted] : narrow)
        EXPECT_EQ(read_by(parse_u32, text), wanted) << text;
    const text_pair wide[] = {
        {"  16", "16"}, {"16 ", "-"},    {"1 6", "-"},   {"", "-"},     {"abc", "-"},
        {"   ", "-"},   {"0Xff", "255"}, {"xff", "255"}, {"o17", "15"}, {"0x", "0"}};
    for (const auto &[text, wanted] : wide)
        EXPECT_EQ(read_by(parse_u64, text), wanted) << text;
    // Digits are counted, whatever they are worth, and so are the characters.
    for (const char *text : {"99999999999999999999", "o1777777777777777777777"})
        EXPECT_EQ(read_by(parse_u64, text), std::to_string(all_ones)) << text;
    for (const char *text :
         {"000000000000000000001", "x00000000000000001", "o00000000000000000000001"})
        EXPECT_EQ(read_by(parse_u64, text), "-") << text;
    EXPECT_EQ(read_by(parse_u64, std::string(28, ' ') + "16"), "16");
    EXPECT_EQ(read_by(parse_u64, std::string(29, ' ') + "16"), "-");
    std::string written;
    for (const u64 number : {u64{0}, u64{254}, u64{255}, u64{65535}, u64{16777214},
                             u64{16777215}, u64{1} << 32})
        written += number_text(number, true) + " ";
    EXPECT_EQ(written, "0x00 0xfe 0x00ff 0x00ffff 0xfffffe 0x00ffffff 0x100000000 ");
}

TEST(TextConvert, DecodesUtf16WithoutLosingNames)
{
    const std::string two = "\xDF\xBF\xE0\xA0\x80",
                      face = "\xF0\x9F\x98\x80\xED\xB8\x80";
    // What the strict decoder returns and finds, then what the lenient one does.
    const std::vector<
        std::tuple<std::u16string, bool, std::string, std::size_t, std::string>>
        cases = {{u"", false, "", 0, ""},
                 {u"A\0B"s, true, "A\0B"s, 2, "A"},
                 {u"\0A"s, true, "\0A"s, 0, ""},
                 {u"\x7FF\x800", true, two, 4, two},
                 {u"\xD83D\xDE00\xDE00", true, face, 6, face},
                 {u"A\xD83D", false, "A", 4, "A\xED\xA0\xBD"},
                 {u"\xD83Dz", false, "", 4, "\xED\xA0\xBDz"},
                 {u"A\0\xD83D"s, false, "A\0"s, 2, "A"}};
    for (const auto &[units, good, strict, taken, lenient] : cases) {
        std::vector<u8> bytes;
        for (const char16_t unit : units)
            for (const int shift : {0, 8})
                bytes.push_back(static_cast<u8>(unit >> shift));
        bytes.push_back('x'); // half a unit is never taken
        std::string text = "left over";
        EXPECT_EQ(uni::utf16_to_utf8(text, byte_view(bytes)), good) << text;
        EXPECT_EQ(text, strict);
        EXPECT_EQ(uni::utf16_name_to_utf8(byte_view(bytes), text), taken) << text;
        EXPECT_EQ(text, lenient);
    }
}

TEST(TextConvert, DecodesUtf8UpToTheBadByte)
{
    std::wstring wide;
    for (const char *text : {"ok\x80", "ok\xE2\x82", "ok\xC3(", "ok\xC3\xC3\xA9",
                             "ok\xF8\x88\x80\x80\x80"}) {
        EXPECT_FALSE(uni::utf8_to_wide(wide, text)) << text;
        EXPECT_EQ(wide, L"ok");
    }
    EXPECT_FALSE(uni::utf8_to_wide(wide, ""));
    EXPECT_EQ(wide, L"");
    // Overlong forms, a NUL and surrogates are accepted.
    EXPECT_TRUE(
        uni::utf8_to_wide(wide, "\xC1\x81\0\xC3\xA9\xED\xA0\xBD\xF0\x9F\x98\x80"s));
    EXPECT_EQ(wide, L"A\0\xE9\xD83D\x1F600"s);
}
