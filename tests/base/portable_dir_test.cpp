#include "base/hv_portable_dir.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

using namespace hvportdir;
using paths = std::vector<std::string>;

// What a walk reports, sorted: paths after the root, those of directories with a "/".
static paths walk(const std::string &root, std::string_view filter, unsigned depth,
                  std::ostream *log = nullptr)
{
    setenv("VESKIT_ROOT", root.c_str(), 1);
    std::vector<hv::filter_item> items;
    if (!filter.empty()) hv::parse_filter(items, filter);
    paths found;
    enumerate_dir("%VESKIT_ROOT%", items, depth, hv::log_handle(log),
                  [&](std::wstring_view path, bool is_directory) {
                      std::string text(path.begin() + std::ssize(root), path.end());
                      found.push_back(text + (is_directory ? "/" : ""));
                  });
    std::ranges::sort(found);
    return found;
}

TEST(Walk, StopsAtItsDepthAndEntersLinksOnce)
{
    const test_support::temp_dir dir;
    dir.write_file("a.txt", "");
    dir.write_file("sub/deep/c.txt", "");
    EXPECT_EQ(walk(dir.path, "", 0), paths{});
    EXPECT_EQ(walk(dir.path, "", 1), (paths{"/", "/a.txt"}));
    EXPECT_EQ(walk(dir.path, "", 2), (paths{"/", "/a.txt", "/sub/"}));
    EXPECT_EQ(walk(dir.path, "c.txt|deep", 20),
              (paths{"/sub/deep/", "/sub/deep/c.txt"}));
    const std::string bad = dir.write_file("bad\xFF", "");
    std::ostringstream log;
    EXPECT_EQ(walk(dir.path, "", 1, &log), (paths{"/", "/a.txt"}));
    EXPECT_EQ(log.str(), "->skipping pipe: " + bad + "\n");
    ASSERT_EQ(symlink("..", (dir / "sub/up").c_str()), 0);
    ASSERT_EQ(symlink(".", (dir / "sub/self").c_str()), 0);
    const paths found = walk(dir.path, "", 1000);
    EXPECT_LT(found.size(), 20u);
    EXPECT_EQ(std::ranges::count(found, "/sub/up/a.txt"), 1);
    for (const std::string &path : {std::string(), dir / "missing"})
        EXPECT_FALSE(path_exists(path)) << path;
    for (const std::string &path : {std::string("/dev/null"), dir / "sub/up"})
        EXPECT_TRUE(path_exists(path)) << path;
}
