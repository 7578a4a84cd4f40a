#include "samples/ntfs_volume_builder.h"
#include "support/temp_dir.h"

namespace test_support {
namespace {

struct geometry {
    std::uint32_t cluster_size, record_size, sector_size;
};
class VolumeBuilder : public testing::TestWithParam<geometry> {};

// The status of a command; what it prints goes to `out`.
int run(const std::string &command, std::string &out)
{
    FILE *pipe = popen(("LC_ALL=C.UTF-8 " + command + " 2>/dev/null").c_str(), "r");
    out.clear();
    for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;) out += char(c);
    return pipe == nullptr ? -1 : pclose(pipe);
}

// Three compression units of the usual clusters and more: a text, zeros, and noise.
std::string mixed_bytes()
{
    std::string bytes(300000, 'x');
    bytes.replace(65536, 65536, 65536, '\0');
    for (std::uint32_t i = 140000, x = 1; i < 210000; ++i)
        bytes[i] = char((x = x * 1103515245 + 12345) >> 24);
    return bytes;
}

// Other software has to find what was put in: by the index, and by the records.
TEST_P(VolumeBuilder, MakesVolumesThatOthersRead)
{
    std::string out;
    for (const char *program : {"ntfsinfo -V", "ntfscat -V", "fls -V"})
        if (run(program, out) != 0) GTEST_SKIP() << program << " doesn't run";

    const std::string text = mixed_bytes();
    const byte_vector data(text.begin(), text.end());
    ntfs_volume_builder volume;
    volume.cluster_size(GetParam().cluster_size).record_size(GetParam().record_size);
    volume.sector_size(GetParam().sector_size).mft({.fragments = 3});
    volume.directory({.entry = 64, .name = "Лес 漢字 𝄞"}).directory({100, 5, "many"});
    volume.file({65, 64, "plain", data}).stream({65, "Zone.Identifier", {'3'}});
    volume.file({66, 64, "cut", data, {.fragments = 9}}).link({66, 5, "second.name"});
    volume.move({.entry = 66, .record = 90, .first_run = 2}).list_in_clusters(66);
    volume.move({.entry = 66, .record = 91, .first_run = 4});
    volume.file({67, 64, "packed", data, {.fragments = 2, .compressed = true}});
    volume.file({.entry = 68, .parent = 64, .name = "gone.txt", .in_use = false});
    volume.stale_entry({.directory = 64, .entry = 69, .name = "stale.txt"});
    for (std::uint32_t i = 0; i < 300; ++i)
        volume.file({101 + i, 100, "Long name of file " + std::to_string(i * 7 % 300)});
    const byte_vector image = volume.build();

    const temp_dir dir;
    const std::string path = dir / "volume", cat = "ntfscat " + path + " '";
    dir.write_file("volume", std::string(image.begin(), image.end()));
    EXPECT_EQ(run("ntfsinfo -m " + path, out), 0) << out;
    ASSERT_EQ(run("fls -r -p " + path, out), 0);
    for (const char *line : {"Лес 漢字 𝄞/plain:Zone.Identifier\n", "r/r 66-128-",
                             "Лес 漢字 𝄞/gone.txt\n", " * 69:\tЛес 漢字 𝄞/stale.txt\n"})
        EXPECT_NE(out.find(line), std::string::npos) << line << out;
    for (const char *name : {"Лес 漢字 𝄞/plain", "Лес 漢字 𝄞/packed", "second.name"}) {
        EXPECT_EQ(run(cat + name + "'", out), 0) << name;
        EXPECT_TRUE(out == text) << name;
    }
    for (const char *number : {"0", "7", "77", "150", "288", "299"})
        EXPECT_EQ(run(cat + "many/Long name of file " + number + "'", out), 0);
}

constexpr geometry geometries[] = {
    {512, 1024, 512}, {4096, 1024, 512}, {65536, 1024, 512}, {4096, 4096, 4096}};
INSTANTIATE_TEST_SUITE_P(Geometries, VolumeBuilder, testing::ValuesIn(geometries));

} // namespace
} // namespace test_support
