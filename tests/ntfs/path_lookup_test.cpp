#include "ntfs/hv_path_lookup.h"

#include "base/hv_text_convert.h"
#include "ntfs/built_volume.h"
#include "ntfs/hv_mft_entries_ctx.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace hv;
using namespace test_support;

// Entry, parent and path as resolved; "-" for a path that leads nowhere.
std::string find(CNtfs &volume, std::wstring_view path,
                 link_mode links = link_mode::stop)
{
    u64 inode = 1;
    u64 parent = 1;
    std::wstring resolved;
    if (!find_inode_by_path(inode, parent, resolved, volume, path, links, {}))
        return inode == 0 && parent == no_entry ? "-" : "outputs were left";
    return std::to_string(inode) + " " + std::to_string(parent) + " " +
           std::string(resolved.begin(), resolved.end());
}

// The content of a symbolic link: `zeros` bytes that its offsets don't count, and the
// print name. The substitute name is as long and has no text of its own.
byte_vector link_to(std::u16string_view target, std::size_t zeros = 0)
{
    byte_vector bytes(16 + zeros);
    const u64 size = 2 * target.size();
    put_layout(bytes,
               {{0, 4, 0xA000000C}, {4, 2, 8 + size}, {10, 2, size}, {14, 2, size}});
    put_utf16(bytes, 16 + zeros, target);
    return bytes;
}

constexpr u32 reparse_type = 0xC0;

ntfs_volume_builder folders()
{
    return ntfs_volume_builder()
        .directory({.entry = 64, .name = "$Recycle.Bin"})
        .directory({.entry = 65, .parent = 64, .name = "S-1-5-21-7"})
        .file({.entry = 66, .parent = 65, .name = "back\\slash"})
        .file({.entry = 67,
               .parent = 65,
               .name = "SHORT~1",
               .name_space = ntfs_names::dos})
        .file({.entry = 68, .name = "link"})
        .stream({.entry = 68,
                 .data = link_to(u"C:\\$Recycle.Bin", 6),
                 .type = reparse_type})
        .file({.entry = 69, .name = "loop"})
        .stream({.entry = 69, .data = link_to(u"\\loop"), .type = reparse_type});
}

TEST(FindInodeByPath, ResolvesPaths)
{
    built_volume on(folders());
    const std::wstring snapshot = L"\\\\?\\snapid_" + std::wstring(36, L'0');
    const std::wstring device =
        L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy12";
    for (const auto &[path, found] : std::vector<std::pair<std::wstring, std::string>>{
             {L"\\", "5 5 \\"},
             {L"C:", "5 5 C:"},
             {L"", "-"},
             {L"$recycle.BIN", "64 5 $recycle.BIN"},
             {L"C:\\$Recycle.Bin", "64 5 C:\\$Recycle.Bin"},
             {L"\\\\$Recycle.Bin\\\\s-1-5-21-7\\", "65 64 \\$Recycle.Bin\\s-1-5-21-7"},
             {L"/$Recycle.Bin/S-1-5-21-7/back\\slash",
              "66 65 \\$Recycle.Bin\\S-1-5-21-7\\back\\slash"},
             {L"\\$Recycle.Bin\\S-1-5-21-7\\SHORT~1", "-"},
             {snapshot + L"\\$Recycle.Bin", "64 5 \\$Recycle.Bin"},
             {device + L"\\$Recycle.Bin", "64 5 \\$Recycle.Bin"},
             {L"\\link\\S-1-5-21-7", "-"}})
        EXPECT_EQ(find(on.volume, path), found) << uni::to_utf8(path);
    const auto follow = link_mode::follow;
    EXPECT_EQ(find(on.volume, L"\\link\\S-1-5-21-7", follow),
              "65 64 \\C:\\$Recycle.Bin\\S-1-5-21-7");
    EXPECT_EQ(find(on.volume, L"\\loop", follow), "-");
}

// A large directory whose index or names are in other records.
ntfs_volume_builder crowd()
{
    ntfs_volume_builder builder;
    builder.directory({.entry = 64, .name = "crowd", .stored = {.fragments = 3}});
    for (u64 i = 0; i < 300; ++i)
        builder.file({.entry = 100 + i,
                      .parent = 64,
                      .name = "a rather long name " + std::to_string(i)});
    return builder;
}

TEST(ListDirectory, ReadsBlocksOfAllClusterSizes)
{
    for (const u32 cluster_size : {512u, 1024u, 4096u, 65536u}) {
        built_volume on(crowd().cluster_size(cluster_size));
        index_live_map live;
        index_slack_map slack;
        u64 budget = ~u64{0};
        ASSERT_TRUE(
            list_directory(on.volume, live, slack, 64, slack_mode::recover, budget));
        EXPECT_EQ(live.size(), 300u) << cluster_size;
        EXPECT_EQ(find(on.volume, L"\\crowd\\a rather long name 123").substr(0, 6),
                  "223 64");
    }
}

TEST(ListDirectory, FollowsAttributeLists)
{
    built_volume on(
        crowd()
            .move({.entry = 64,
                   .record = 90,
                   .type = ntfs_type::index_allocation,
                   .name = "$I30"})
            .move({.entry = 223, .record = 91, .type = ntfs_type::file_name})
            .list_in_clusters(223));
    index_live_map live;
    index_slack_map slack;
    u64 budget = ~u64{0};
    ASSERT_TRUE(list_directory(on.volume, live, slack, 64, slack_mode::skip, budget));
    EXPECT_EQ(live.size(), 300u);
    EXPECT_EQ(find(on.volume, L"\\crowd\\a rather long name 123").substr(0, 6),
              "223 64");
    u64 found = 0;
    EXPECT_TRUE(find_child_by_name(90, "A RATHER long name 123", found, on.volume));
    EXPECT_EQ(found, 223u);
}

TEST(GetAttributeList, MergesOneStreamFromManyRecords)
{
    ntfs_volume built =
        ntfs_volume_builder()
            .file({.entry = 64,
                   .name = "f",
                   .data = byte_vector(5 * 4096, 'x'),
                   .stored = {.non_resident = true, .fragments = 5}})
            .stream({.entry = 64, .name = "Zone.Identifier", .data = {'z'}})
            .move({.entry = 64, .record = 91, .first_run = 3})
            .move({.entry = 64, .record = 90, .first_run = 0})
            .build_volume();
    // The list names the later piece first: its third and fourth entry, of 32 bytes
    // each, trade their references.
    const auto list_at = static_cast<std::ptrdiff_t>(
        built.attribute_position(64, ntfs_type::attribute_list));
    const auto third = built.image.begin() + list_at + 24 + 2 * 32 + 16;
    std::swap_ranges(third, third + 8, third + 32);
    const built_volume on(std::move(built));
    std::vector<attrib_info> list;
    ASSERT_TRUE(get_attribute_list(on.volume, 64, list, attribute_scope::all));
    ASSERT_EQ(list.size(), 2u);
    const std::size_t unnamed = list[0].stream_name.empty() ? 0 : 1;
    EXPECT_EQ(list[unnamed].real_size, 5u * 4096);
    ASSERT_EQ(list[unnamed].cluster_runs.size(), 5u);
    for (u64 i = 0; i < 5; ++i) {
        EXPECT_EQ(list[unnamed].cluster_runs[i].vcn, i);
        EXPECT_EQ(list[unnamed].cluster_runs[i].lcn,
                  on.built.stream_runs(64).at(i).lcn);
    }
    EXPECT_EQ(list[1 - unnamed].content, (std::vector<u8>{'z'}));
    EXPECT_FALSE(get_attribute_list(on.volume, 1u << 20, list, attribute_scope::all));
}

} // namespace
