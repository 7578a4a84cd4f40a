#include "base/hv_filter.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

using namespace hv;

// A "+" for each path that passes a filter, a "-" for each that doesn't.
static std::string passing(const std::string &filter,
                           const std::vector<std::string> &paths)
{
    std::vector<filter_item> list(3);
    parse_filter(list, filter);
    std::string result;
    for (const std::string &path : paths)
        result += filter_passes(path, list) ? '+' : '-';
    return result;
}

TEST(Filter, PassesByPattern)
{
    EXPECT_EQ(passing("$I*", {"/bin/$IAB.TXT", "/bin/$RAB.TXT", "/$ibin/x"}), "+--");
    EXPECT_EQ(passing("*part*", {"/a/xPARTy", "/part/x"}), "+-");
    EXPECT_EQ(passing("ab*cd", {"/x/ABCD", "/x/abxcd"}), "+-");
    EXPECT_EQ(passing("**ab", {"/x/cab"}), "+");
    EXPECT_EQ(passing("*.txt|*.doc", {"/x/a.doc", "/x/a.dot", "/b.txt2"}), "+--");
    EXPECT_EQ(passing(" *.txt , *.doc ", {"/x/a.txt", "/x/a.doc"}), "++");
    EXPECT_EQ(passing("a,b|c", {"/x/a,b", "/x/a"}), "+-");
    EXPECT_EQ(passing("||a", {"/x/a", "/x/b", "/x/ab"}), "+--");
    EXPECT_EQ(passing("*:stream", {"/x/c"}), "+");
    EXPECT_EQ(passing("ab:s*", {"/x/ab", "/x/ab:s1"}), "+-");
    EXPECT_EQ(passing("x", {"a/b\\x", "a\\b/x"}), "+-");
    EXPECT_EQ(passing("/recycle", {"/m/Recycle/x", "C:\\a\\recycle\\x"}), "++");
    EXPECT_EQ(passing("/bin", {"/binary/bin/x", "/binary/x", "/m/bin"}), "+-+");
    EXPECT_EQ(passing("a|*|b", {"/x/c", ""}), "+-");
    EXPECT_EQ(passing("|", {"x", ""}), "+-");
    EXPECT_EQ(passing("*/bin", {"/m/bin/x"}), "+");
    EXPECT_EQ(passing("/a,x.txt", {"/b/x.txt"}), "+");
    EXPECT_EQ(passing("a*", {"", "a\xFF"}), "--");
}

TEST(Filter, ComparesBytesOfTheFile)
{
    const test_support::temp_dir dir;
    const std::string path = dir.write_file("file", std::string("ab\x02\x00\xFF", 5));
    for (const char *signature : {"6162", "0200fF,2", "0200ff|0x2"})
        EXPECT_TRUE(filter_passes(path, {parse_signature_filter(signature)}))
            << signature;
    for (const char *signature :
         {"6262", "02|1", "0200ff00,2", "ff,5", "616", "6g", ""})
        EXPECT_FALSE(filter_passes(path, {parse_signature_filter(signature)}))
            << signature;
    EXPECT_FALSE(filter_passes(dir / "missing", {parse_signature_filter("61")}));
}

TEST(Filter, NeedsBothTimesTooOldOrOneTooNew)
{
    const time_window window{
        .start_set = true, .start = 10, .stop_set = true, .stop = 20};
    for (const file_times times : {file_times{10, 9}, {9, 10}, {20, 20}})
        EXPECT_TRUE(window.holds(times)) << times.modified << " " << times.changed;
    for (const file_times times : {file_times{9, 9}, {15, 21}, {21, 15}})
        EXPECT_FALSE(window.holds(times)) << times.modified << " " << times.changed;
}
