// Volumes that BitLocker encrypted, as a user reads them.

#include "samples/bins.h"
#include "samples/bitlocker_volume.h"
#include "support/fixtures.h"
#include "support/run_program.h"

#include <gtest/gtest.h>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;

// The medium: the volume alone or, after that many bytes, in the first partition.
byte_vector disk_with(const byte_vector &volume, u64 offset)
{
    byte_vector disk(offset);
    if (offset != 0)
        put_layout(disk, {{446 + 4, 1, 7},
                          {446 + 8, 4, offset / 512},
                          {446 + 12, 4, volume.size() / 512},
                          {510, 2, 0xAA55}});
    append(disk, volume);
    return disk;
}

run_result run(const std::string &command, const string_list &args)
{
    string_list all{command};
    all.insert(all.end(), args.begin(), args.end());
    return run_program(RECYCLEBIN_BINARY, all);
}

// The commands that the text shows, run as they are but with the key in its place.
std::string last_command(const std::string &text)
{
    const std::string label = "check it yourself: ";
    const std::size_t begin = text.rfind(label);
    if (begin == std::string::npos) return "";
    const std::size_t end = text.find('\n', begin);
    return text.substr(begin + label.size(), end - begin - label.size());
}

TEST(LockedVolumes, ReadAsPlainOnesWithAKey)
{
    const temp_dir dir;
    byte_vector plain = recent_bin().build();
    const byte_vector locked = bitlocker_volume::encrypt(plain);
    plain.resize(locked.size());
    const std::string password =
        dir.write_file("password", std::string(bitlocker_volume::password) + "\r\nx");
    // Half a second of key stretching each, under sanitizers three.
    const struct {
        u64 offset;
        string_list key;
    } cases[] = {{0, {"--recovery-key", bitlocker_volume::recovery_key}},
                 {u64{1} << 20, {"--password-file", password}}};
    for (const auto &[offset, key] : cases) {
        dir.write_file("plain/medium", text(disk_with(plain, offset)));
        dir.write_file("locked/medium", text(disk_with(locked, offset)));
        const auto in = [&dir](const std::string &folder, const string_list &options) {
            string_list args{dir / (folder + "/medium"), "--format", "csv"};
            args.insert(args.end(), options.begin(), options.end());
            run_result result = run("list", args);
            for (std::size_t at = 0;
                 (at = result.out.find("/" + folder + "/", at)) != std::string::npos;)
                result.out.replace(at, folder.size() + 2, "/");
            return result;
        };
        const run_result expected = in("plain", {});
        ASSERT_EQ(expected.lines().size(), 6u) << expected.out;
        const run_result result = in("locked", key);
        EXPECT_EQ(result.out, expected.out) << key[0] << result.err;
        EXPECT_EQ(result.status, 0) << key[0];
    }
    // What the other tool calls a password is the same one.
    if (std::system("command -v bdeinfo >/dev/null") != 0) return;
    dir.write_file("volume", text(locked));
    for (const std::string &option :
         {std::string("-r ") + bitlocker_volume::recovery_key,
          std::string("-p '") + bitlocker_volume::password + "'"}) {
        const std::string log = dir / "log";
        ASSERT_EQ(
            std::system(
                ("bdeinfo " + option + " " + (dir / "volume") + " >" + log).c_str()),
            0);
        const std::string told = file_bytes(log);
        EXPECT_NE(told.find("AES-XTS 128-bit"), std::string::npos) << told;
        EXPECT_EQ(told.find("is locked"), std::string::npos) << told;
    }
}

TEST(LockedVolumes, SayThatTheKeyIsWrongOrMissing)
{
    const temp_dir dir;
    const std::string medium =
        dir.write_file("medium", text(bitlocker_volume::encrypt(recent_bin().build())));
    const std::string wrong = dir.write_file("wrong", "incorrect horse\n");
    const struct {
        string_list options;
        const char *told;
    } cases[] = {
        {{}, "give its key with --recovery-key or --password-file"},
        {{"--password-file", wrong}, "the key doesn't unlock it"},
        {{"--recovery-key", "000000-000011-000022-000033-000044-000055-000066-000077"},
         "the key doesn't unlock it"},
        {{"--recovery-key", "1-2-3"}, "is no recovery key"},
    };
    for (const auto &[options, told] : cases) {
        string_list args{medium};
        args.insert(args.end(), options.begin(), options.end());
        const run_result result = run("list", args);
        EXPECT_EQ(result.status, 3) << told;
        EXPECT_NE(result.err.find(told), std::string::npos) << result.err;
    }

#ifdef __SANITIZE_ADDRESS__ // each key takes a million rounds
    return;
#endif
    // The shown command lacks only the key, and says so.
    const string_list key{medium, "--recovery-key", bitlocker_volume::recovery_key};
    const std::string command =
        last_command(run("explain", {key[0], "$IAB12CD.txt", key[1], key[2]}).out);
    EXPECT_TRUE(command.ends_with(" # with --recovery-key or --password-file"))
        << command;
    const std::string filled = std::string(RECYCLEBIN_BINARY) +
                               " bytes --recovery-key " + key[2] +
                               command.substr(command.find("bytes ") + 5);
    const std::string shown = dir / "shown";
    ASSERT_EQ(std::system(("(" + filled + "\n) >" + shown).c_str()), 0) << filled;
    EXPECT_NE(file_bytes(shown).find("R.A.B.1.2.C"), std::string::npos)
        << command << file_bytes(shown);
}

} // namespace
