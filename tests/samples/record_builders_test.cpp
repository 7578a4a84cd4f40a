// The makers of records against files that Windows wrote.

#include "samples/record_builders.h"
#include "support/fixtures.h"

namespace test_support {
namespace {

byte_vector real_file(const std::string &name)
{
    return bytes_of(file_bytes(fixture_or_skip(name)));
}

TEST(RecordBuilders, MakeTheMetadataOfBothVersions)
{
    EXPECT_EQ(dollar_i_builder().path(u"C:\\Temp\\foobat.txt.txt").bytes(),
              real_file("i_v2/$I7R52EG.txt"));
    EXPECT_EQ(dollar_i_builder()
                  .version(1)
                  .size(155)
                  .time(filetime(1190356366, 732))
                  .path(u"C:\\Users\\student\\Desktop\\New Rich Text Document.rtf")
                  .bytes(),
              real_file("i_v1/$IUVFB0M.rtf"));
}

TEST(RecordBuilders, MakeTheRecordsOfAList)
{
    const std::string path = "C:\\Documents and Settings\\Mr. Evil\\Desktop\\";
    const auto item = [&](const std::string &name, u32 number, u64 time, u32 size) {
        const std::string full = path + name;
        return info2_item{.ansi_path = full,
                          .path = {full.begin(), full.end()},
                          .number = number,
                          .time = time,
                          .size = size};
    };
    byte_vector expected = real_file("info2/INFO2");
    expected.resize(20 + 2 * 800);
    // The counts of its header aren't kept.
    put_layout(expected, {{4, 8, 0}, {16, 4, 0}});
    EXPECT_EQ(
        info2_file({item("lalsetup250.exe", 1, filetime(1093450705, 237), 2160128),
                    item("netstumblerinstaller_0_4_0.exe", 2, filetime(1093619550, 799),
                         1325056)}),
        expected);
}

} // namespace
} // namespace test_support
