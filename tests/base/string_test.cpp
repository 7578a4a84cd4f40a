#include "base/hv_string.h"
#include "base/hv_text_convert.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <optional>

using namespace hv;
using namespace std::string_literals;
using text_pair = std::pair<std::string, std::string>;

// clang-format off
TEST(String, LosesItsBlanksAndShowsItsLineBreaks)
{
    // In wide text each character gets one pass: what an earlier one would have taken
    // stays where a later one uncovers it.
    const std::pair<std::wstring, std::wstring> wide[] = {
        {L" \t ", L""}, {L"\t a", L" a"}, {L"a\n\r", L"a"}, {L"a\r\n", L"a\r"}};
    for (auto [text, trimmed] : wide) {
        trim(text);
        EXPECT_EQ(text, trimmed);
    }
    const text_pair breaks[] = {
        {"a\r\nb", "a[CRLF]b"}, {"a\n\rb", "a[LFCR]b"}, {"a\rb\r", "a[CR]b[CR]"},
        {"\rb\n", "\rb[LF]"}, {"\r\r\n\r", "\r[CRLF]\r"}, {"\n\r\n", "[LFCR][LF]"}};
    for (auto [text, escaped] : breaks) {
        escape_line_breaks(text);
        EXPECT_EQ(text, escaped);
    }
}

TEST(Path, SplitsAtTheSeparatorThatWins)
{
    const std::array<std::string, 4> cases[] = { // path, directory, stem, extension
        {"C:\\a\\b.txt", "C:\\a", "b", "txt"}, {"b.txt", ".", "b", "txt"}, {"a/b\\c", "a/b", "c", ""},
        {"a\\b/c.d", "a", "b/c", "d"}, {"/x.tar.gz", "", "x.tar", "gz"}, {"a/", "a", "", ""},
        {"C:\\a\\..", "C:\\a\\..", "", ""}, {"a/..", "a//..", "", ""}, {"..", "..", "", ""}};
    std::string directory, stem, extension;
    for (const auto &[path, wanted_directory, wanted_stem, wanted_extension] : cases) {
        EXPECT_TRUE(split_path_ext(path, directory, stem, extension));
        EXPECT_EQ((std::array{path, directory, stem, extension}),
                  (std::array{path, wanted_directory, wanted_stem, wanted_extension}));
    }
}

TEST(Path, ExpandsItsVariablesWithinLimits)
{
    setenv("VESKIT_OUTER", "<%VESKIT_INNER%>", 1);
    setenv("VESKIT_INNER", "in", 1);
    setenv("VESKIT_ITSELF", "%VESKIT_ITSELF%", 1);
    const std::string inner = "%VESKIT_INNER%";
    const text_pair cases[] = {
        {"a%VESKIT_OUTER%/" + inner, "a<in>/in"}, {"50% %%", "50% %%"},
        {"%vSs%1", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1"},
        {"%no such" + inner, "%no such" + inner}, {"%no such%" + inner, "%no such%in"},
        {std::string(498, 'x') + inner, std::string(498, 'x') + "in"},
        {std::string(499, 'x') + inner, std::string(499, 'x') + inner}, {"%VESKIT_ITSELF%", "%VESKIT_ITSELF%"}};
    for (const auto &[text, wanted] : cases) EXPECT_EQ(expand_variables(text, true), wanted);
    EXPECT_EQ(expand_variables("%vSs%1", false), "%vSs%1");
}

TEST(Number, IsReadAndWrittenInAllItsForms)
{
    // Of a 64-bit number the digits are counted. No range is checked anywhere.
    const std::pair<std::string, std::optional<u32>> small[] = {
        {"0x10", 16}, {"X10", 16}, {"O20", 16}, {" 16\r\n", 16}, {"'\x10'", 16}, {"+", 0}, {"12abc", 12},
        {"-1", 0xFFFFFFFF}, {"4294967297", 1}, {"'A'", 'a'}, {" ", {}}, {"abc", {}}, {"'ab'", {}}, {"'", {}}};
    const std::pair<std::string, std::optional<u64>> large[] = {
        {"  16", 16}, {"16 ", {}}, {"1 6", {}}, {"", {}}, {"   ", {}}, {"0Xff", 255}, {"xff", 255},
        {"o17", 15}, {"0x", 0}, {"99999999999999999999", ~u64{0}}, {"000000000000000000001", {}},
        {"x00000000000000001", {}}, {"o1777777777777777777777", ~u64{0}}, {"o00000000000000000000001", {}},
        {std::string(28, ' ') + "16", 16}, {std::string(29, ' ') + "16", {}}};
    const std::pair<u64, std::string> written[] = {
        {0, "0x00"}, {254, "0xfe"}, {255, "0x00ff"}, {65535, "0x00ffff"}, {16777214, "0xfffffe"},
        {16777215, "0x00ffffff"}, {u64{1} << 32, "0x100000000"}};
    u32 narrow = 7; u64 wide = 7;
    for (const auto &[text, wanted] : small) {
        EXPECT_EQ(parse_u32(text, narrow), wanted.has_value()) << text;
        EXPECT_EQ(narrow, wanted.value_or(0)) << text;
    }
    for (const auto &[text, wanted] : large) {
        EXPECT_EQ(parse_u64(text, wide), wanted.has_value()) << text;
        EXPECT_EQ(wide, wanted.value_or(0)) << text;
    }
    for (const auto &[value, text] : written) EXPECT_EQ(number_text(value, true), text);
}

TEST(TextConvert, DecodesUtf16WithoutLosingNames)
{
    // Whether the strict decoder takes all units, what it gives, what the lenient one
    // gives, and how many bytes that one takes with the NUL behind.
    const std::tuple<std::u16string, bool, std::string, std::string, std::size_t> cases[] = {
        {u"", false, "", "", 0}, {u"A\0B"s, true, "A\0B"s, "A", 4}, {u"\0A"s, true, "\0A"s, "", 0},
        {u"\x7FF\x800\xFFFF", true, "\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", "\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", 6},
        {u"\xDBFF\xDFFF", true, "\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF", 4},
        {u"\xD83D\xDE00\xDE00", true, "\xF0\x9F\x98\x80\xED\xB8\x80", "\xF0\x9F\x98\x80\xED\xB8\x80", 6},
        {u"A\xD83D", false, "A", "A\xED\xA0\xBD", 4}, {u"\xD83Dz", false, "", "\xED\xA0\xBDz", 4},
        {u"\xD83D\xD83D\xDE00", false, "", "\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80", 6},
        {u"A\0\xD83D"s, false, "A\0"s, "A", 4}};
    for (const auto &[units, good, strict, lenient, taken] : cases) {
        std::vector<u8> bytes(2 * units.size() + 1); // half a unit is never taken
        for (std::size_t i = 0; i + 1 < bytes.size(); ++i)
            bytes[i] = static_cast<u8>(units[i / 2] >> 8 * (i % 2));
        std::string text = "left over";
        EXPECT_EQ(uni::utf16_to_utf8(text, byte_view(bytes)), good) << text;
        EXPECT_EQ(text, strict);
        EXPECT_EQ(uni::utf16_name_to_utf8(byte_view(bytes), text, true), taken) << text;
        EXPECT_EQ(text, lenient);
    }
}

TEST(TextConvert, DecodesUtf8UpToTheBadByte)
{
    const std::tuple<std::string, bool, std::wstring> cases[] = {
        {"", false, L""}, {"\x80", false, L""}, {"ok\xE2\x82", false, L"ok"}, {"ok\xC3(", false, L"ok"},
        {"ok\xC3\xC3\xA9", false, L"ok"}, {"ok\xF8\x88\x80\x80\x80", false, L"ok"}, {"\xC1\x81", true, L"A"},
        {"a\0\xC3\xA9\xED\xA0\xBD\xF0\x9F\x98\x80"s, true, L"a\0\xE9\xD83D\x1F600"s}};
    for (const auto &[text, good, wanted] : cases) {
        std::wstring wide = L"left over";
        EXPECT_EQ(uni::utf8_to_wide(wide, text), good) << text;
        EXPECT_EQ(wide, wanted);
    }
}
