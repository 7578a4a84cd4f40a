#include "base/hv_filter.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

using namespace hv;

// clang-format off
TEST(Filter, PassesByPattern)
{
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"$I*", "/bin/$IAB.TXT", true}, {"$I*", "/bin/$RAB.TXT", false}, {"$I*", "/$ibin/x", false},
        {"*part*", "/a/xPARTy", true}, {"*part*", "/part/x", false}, {"*.txt", "/a/b.txt2", false},
        {"ab*cd", "/x/ABCD", true}, {"ab*cd", "/x/abxcd", false}, {"abcd", "/x/abcde", false},
        {"**ab", "/x/cab", true}, {"*.txt|*.doc", "/x/a.doc", true}, {"*.txt , *.doc", "/x/a.txt", true},
        {"a,b|c", "/x/a,b", true}, {"a,b|c", "/x/a", false}, {"||a", "/x/a", true},
        {"  abc ", "/x/abc", true}, {"a|*|b", "/x/c", true}, {"*:stream", "/x/c", true},
        {"ab:s*", "/x/ab", true}, {"ab:s*", "/x/ab:s1", false}, {"x", "a/b\\x", true}, {"x", "a\\b/x", false},
        {"/recycle", "/m/Recycle/x", true}, {"/recycle", "C:\\a\\recycle\\x", true},
        {"/recycle", "/m/recycle", true}, {"/recycle", "/recycler/x", false},
        {"/bin", "/binary/bin/x", true}, {"*/bin", "/m/bin/x", true}, {"/a,x.txt", "/b/x.txt", true},
        {"a*", "", false}, {"*", "", false}, {"a*", "a\xFF", false}};
    for (const auto &[filter, path, passes] : cases) {
        std::vector<filter_item> list(3);
        parse_filter(list, filter);
        EXPECT_EQ(filter_passes(path, list), passes) << filter << " on " << path;
    }
    EXPECT_TRUE(filter_passes("x", {}) && !filter_passes("", {}));
}

TEST(Filter, ComparesBytesOfTheFile)
{
    const test_support::temp_dir dir;
    const std::string path = dir.write_file("file", std::string("ab\x02\x00\xFF", 5));
    const std::pair<std::string, bool> cases[] = {
        {"6162", true}, {"6262", false}, {"0200fF,2", true}, {"0200ff|0x2", true}, {"02|1", false},
        {"0200ff00,2", false}, {"ff,5", false}, {"616", false}, {"6g", false}, {"", false}};
    for (const auto &[signature, passes] : cases)
        EXPECT_EQ(filter_passes(path, {parse_signature_filter(signature)}), passes) << signature;
    EXPECT_FALSE(filter_passes(dir / "missing", {parse_signature_filter("61")}));
}

TEST(Filter, NeedsBothTimesTooOldOrOneTooNew)
{
    const time_window window{.start_set = true, .start = 10, .stop_set = true, .stop = 20};
    EXPECT_TRUE(window.holds({10, 9}) && window.holds({9, 10}) && window.holds({20, 20}));
    EXPECT_FALSE(window.holds({9, 9}) || window.holds({15, 21}) || window.holds({21, 15}));
}
