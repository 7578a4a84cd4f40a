// Who deleted what, and whom it belonged to, as the whole program tells it.

#include "hives/hive_names.h"
#include "samples/bins.h"
#include "samples/hive_builder.h"
#include "samples/security_structures.h"
#include "support/run_program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace test_support;
using json = nlohmann::json;

const std::string ada = "S-1-5-21-11-22-33-1001";   // an account of the computer
const std::string grace = "S-1-5-21-44-55-66-1105"; // of a domain
const byte_vector accounts =
    sam_hive({11, 22, 33}, {{1001, u"ada"}, {500, u"Administrator"}});
const byte_vector profiles =
    software_hive({{u"S-1-5-21-11-22-33-1001", u"C:\\Users\\ada.old"},
                   {u"S-1-5-21-44-55-66-1105", u"C:\\Users\\grace"}});

// The bins of both users. The file of the first one is an administrator's.
ntfs_volume_builder two_bins()
{
    ntfs_item file = bin_item(68, "$RAB12CD.txt", "0123456789abcd");
    file.security_id = 256;
    const byte_vector owner = sid(5, {32, 544});
    return empty_bin("$Recycle.Bin", ada)
        .stream({.entry = 9,
                 .name = "$SDS",
                 .data = sds_stream(sds_of(256, 0, descriptor({owner, owner}))),
                 .stored = {.non_resident = true}})
        .file(bin_metadata(67, "$IAB12CD.txt", u"C:\\a.txt"))
        .file(file)
        .directory({.entry = 80, .parent = bin_entry, .name = grace})
        .file(bin_metadata(81, "$IAB34CD.txt", u"D:\\b.txt", 80));
}

// A volume with the hives of a Windows, and no bin.
ntfs_volume_builder windows(byte_vector sam)
{
    return ntfs_volume_builder()
        .directory({.entry = 70, .name = "Windows"})
        .directory({.entry = 71, .parent = 70, .name = "System32"})
        .directory({.entry = 72, .parent = 71, .name = "config"})
        .file({.entry = 73, .parent = 72, .name = "SAM", .data = std::move(sam)})
        .file({.entry = 74, .parent = 72, .name = "SOFTWARE", .data = profiles});
}

class Users : public testing::Test {
protected:
    void SetUp() override
    {
        if (!hv::can_read_hives()) GTEST_SKIP() << "built without libregf";
    }
    // A disk with both volumes, one after the other.
    std::string disk(const byte_vector &sam)
    {
        byte_vector bytes = windows(sam).build();
        bytes.resize((bytes.size() + 0xFFFFF) / 0x100000 * 0x100000);
        const std::size_t second = bytes.size();
        return dir.write_file(
            "disk", text(joined({bytes, cut(two_bins().offset(second).build(), second,
                                            two_bins().build().size())})));
    }
    static run_result list(std::vector<std::string> args)
    {
        args.insert(args.begin(), "list");
        return run_program(RECYCLEBIN_BINARY, args);
    }

    const temp_dir dir;
};

TEST_F(Users, AreNamedByTheHivesOfAnotherVolume)
{
    const std::string medium = disk(accounts);
    std::istringstream lines(list({medium, "--format", "jsonl"}).out);
    std::map<std::string, json> rows; // by SID
    for (std::string line; std::getline(lines, line);) {
        const json row = json::parse(line);
        rows[row["user"]["id"]] = row;
    }
    ASSERT_EQ(rows.size(), 2u);
    const std::string folder = "\\Windows\\System32\\config\\";
    EXPECT_EQ(rows[ada]["user"]["name"], "ada");
    EXPECT_EQ(rows[ada]["recyclebin"]["user_named_by"],
              folder + "SAM of the volume at byte 0x0");
    EXPECT_EQ(rows[grace]["user"]["name"], "grace");
    EXPECT_EQ(rows[grace]["recyclebin"]["user_named_by"],
              folder + "SOFTWARE of the volume at byte 0x0");
    EXPECT_EQ(rows[ada]["recyclebin"]["data_owner"], "S-1-5-32-544");
    EXPECT_EQ(rows[ada]["recyclebin"]["data_owner_name"], "Administrators");
    EXPECT_FALSE(rows[grace]["recyclebin"].contains("data_owner"));

    for (const char *user : {"ADA", "1001"})
        EXPECT_NE(list({medium, "--user", user}).out.find(" ada "), std::string::npos)
            << user;
    const std::string story = list({medium, "--story", "--user", "ada"}).out;
    for (const std::string &part :
         {" by " + ada + " (ada)\n",
          std::string("  the data belongs to S-1-5-32-544 (Administrators) by $Secure, "
                      "which needn't be who deleted it\n")})
        EXPECT_NE(story.find(part), std::string::npos) << story;
}

// A hive that can't be read costs the names that only it has.
TEST_F(Users, KeepTheirSidsWhereNoHiveCanBeRead)
{
    byte_vector damaged = accounts;
    std::fill(damaged.begin() + 4096, damaged.end(), u8{0xFF});
    const run_result result = list({disk(damaged)});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err.find("no names"), std::string::npos) << "the profiles have it";
    EXPECT_NE(result.out.find(" ada.old "), std::string::npos) << result.out;
    const run_result other = list({disk(sam_hive({9, 9, 9}, {})), "--user", "1001"});
    EXPECT_NE(other.out.find(" ada.old "), std::string::npos) << other.out;
    const run_result alone = list({dir.write_file("d", text(two_bins().build()))});
    EXPECT_NE(alone.out.find(" 1105 "), std::string::npos) << alone.out;
}

} // namespace
