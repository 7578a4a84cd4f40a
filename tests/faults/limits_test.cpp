// What the system refuses: room for results, memory, descriptors, stack. And folders
// that aren't what they seem.

#include "samples/bins.h"
#include "support/run_program.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

namespace {

using namespace test_support;
using string_list = std::vector<std::string>;

#ifdef __SANITIZE_ADDRESS__
// The sanitizer takes terabytes of addresses, and files of its own.
constexpr bool limits_memory = false;
#else
constexpr bool limits_memory = true;
#endif

class Limits : public testing::Test {
protected:
    static run_result run(const string_list &args, const run_streams &streams = {})
    {
        return run_program(RECYCLEBIN_BINARY, args, streams);
    }

    const temp_dir dir;
    const std::string medium =
        dir.write_file("medium", text(recent_bin().clusters(3000).build()));
};

TEST_F(Limits, OfRoomLeaveNoHalfResult)
{
    const run_streams little_room = {.limits = {{RLIMIT_FSIZE, 300}}};
    std::filesystem::create_directory(dir / "results");
    for (const char *form :
         {"table", "story", "jsonl", "csv", "html", "sqlite", "l2tcsv"}) {
        const run_result result = run({"list", medium, "--carve", "--format", form,
                                       "--output", dir / "results/new"},
                                      little_room);
        EXPECT_EQ(result.status, 5) << form;
        EXPECT_NE(result.err.find("results/new: File too large"), std::string::npos)
            << form << result.err;
        EXPECT_TRUE(std::filesystem::is_empty(dir / "results")) << form;
    }
    // Of two results, the one that can be written is.
    EXPECT_EQ(run({"list", medium, "--output", dir / "results/a.sqlite", "--output",
                   dir / "results/b.body"},
                  {.limits = {{RLIMIT_FSIZE, 2000}}})
                  .status,
              5);
    EXPECT_FALSE(std::filesystem::exists(dir / "results/a.sqlite"));
    EXPECT_TRUE(std::filesystem::exists(dir / "results/b.body"));

    EXPECT_EQ(run({"export", medium, "--to", dir / "out"}, little_room).status, 5);
    EXPECT_FALSE(std::filesystem::exists(dir / "out/S-1-5-21-7/C/a.txt"));

    const run_result old =
        run_program(VESKIT_BINARY, {"-image", medium, "-quiet", "-out", dir / "rows"},
                    {.limits = {{RLIMIT_FSIZE, 1000}}});
    EXPECT_EQ(old.status, 0);
    EXPECT_EQ(old.err, "prob writing results: File too large\n");
}

TEST_F(Limits, OfOtherThingsEndInAStatus)
{
    struct limit {
        int what;
        std::vector<rlim_t> values;
    };
    constexpr rlim_t kib = 1024, mib = 1024 * kib;
    std::vector<limit> limits = {{RLIMIT_NOFILE, {8}}};
    if (limits_memory) {
        limits.push_back({RLIMIT_NOFILE, {4, 5, 6}});
        limits.push_back({RLIMIT_STACK, {256 * kib}});
        limits.push_back({RLIMIT_AS, {16 * mib, 18 * mib, 20 * mib}});
    }
    const std::string rows_file =
        dir.write_file("rows", run({"list", medium, "--format", "jsonl"}).out);
    const std::vector<string_list> commands = {
        {"list", medium, "--carve", "--format", "sqlite"},
        {"recheck", rows_file, medium},
        {"export", medium, "--to", dir / "out"}};
    for (const auto &[what, values] : limits)
        for (const rlim_t value : values) {
            for (const string_list &args : commands) {
                const run_result result = run(args, {.limits = {{what, value}}});
                if (result.status == 127) continue; // the libraries don't fit
                EXPECT_LE(result.status, 5) << args[0] << what << '=' << value;
                EXPECT_TRUE(result.status == 0 || !result.err.empty())
                    << args[0] << what << '=' << value;
                std::filesystem::remove_all(dir / "out");
            }
            const run_result old =
                run_program(VESKIT_BINARY,
                            {"-image", medium, "-quiet", "-include_unalloc_clusters"},
                            {.limits = {{what, value}}});
            if (old.status == 127) continue;
            EXPECT_EQ(old.status, 0) << what << '=' << value;
        }
}

class OddFolder : public testing::Test {
protected:
    std::string add(const std::string &name, const std::string &bytes) const
    {
        return dir.write_file("$Recycle.Bin/S-1-5-21-7/" + name, bytes);
    }
    run_result list() const
    {
        return run_program(RECYCLEBIN_BINARY, {"list", dir.path, "--format", "csv"});
    }
    run_result old() const
    {
        return run_program(VESKIT_BINARY,
                           {"-quiet", "-enumdir", dir.path, "-num_subdirs", "1000"});
    }

    const temp_dir dir;
    const std::string good = add("$IGOOD12.txt", text(metadata(u"C:\\good.txt")));
};

TEST_F(OddFolder, MayHoldAnyKindOfFile)
{
    const std::string folder = dir / "$Recycle.Bin/S-1-5-21-7/";
    for (const char *name : {"$I", "$R"}) {
        ASSERT_EQ(mkfifo((folder + name + "FIFO12.txt").c_str(), 0600), 0);
        ASSERT_EQ(symlink("..", (folder + name + "LINKED").c_str()), 0);
        ASSERT_EQ(symlink((std::string(name) + "ITSELF").c_str(),
                          (folder + name + "ITSELF").c_str()),
                  0);
        sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
        (folder + name + "SOCK12.txt")
            .copy(address.sun_path, sizeof address.sun_path - 1);
        const int server = socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_EQ(bind(server, static_cast<sockaddr *>(static_cast<void *>(&address)),
                       sizeof address),
                  0);
        close(server);
    }
    // Deeper than any path of this system may be.
    const std::string name = std::string(100, 'd');
    int at = open(folder.c_str(), O_DIRECTORY);
    for (int depth = 0; depth < 300; ++depth) {
        ASSERT_EQ(mkdirat(at, depth == 0 ? "$RDEEP12" : name.c_str(), 0700), 0);
        const int next =
            openat(at, depth == 0 ? "$RDEEP12" : name.c_str(), O_DIRECTORY);
        close(at);
        at = next;
    }
    close(at);
    const run_result result = list();
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.out.find("C:\\good.txt"), std::string::npos);
    for (const char *odd : {"FIFO12.txt", "LINKED", "ITSELF", "SOCK12.txt"})
        EXPECT_NE(result.err.find(std::string("$I") + odd + ": isn't a regular file"),
                  std::string::npos)
            << result.err;
    EXPECT_NE(result.err.find(": File name too long"), std::string::npos) << result.err;
    EXPECT_NE(old().out.find("C:\\good.txt"), std::string::npos);
}

// Files come, go and change their kind while the folder is read.
TEST_F(OddFolder, MayChangeUnderTheRun)
{
    for (int i = 0; i < 200; ++i)
        add("$I" + std::to_string(100000 + i), text(metadata(u"C:\\x")));
    const std::string path = dir / "$Recycle.Bin/S-1-5-21-7/$I";
    std::atomic<bool> goes_on = true;
    std::thread other([&] {
        for (int i = 0; goes_on; ++i) {
            const std::string name = path + std::to_string(100000 + i % 200);
            std::filesystem::remove(name);
            if (i % 3 == 0) mkdir(name.c_str(), 0700);
            if (i % 3 == 1) mkfifo(name.c_str(), 0600);
            if (i % 3 == 2) std::ofstream(name) << text(metadata(u"C:\\y"));
        }
    });
    for (int i = 0; i < 10; ++i) {
        const run_result result = list();
        EXPECT_TRUE(result.status == 0 || result.status == 4) << result.status;
        EXPECT_NE(result.out.find("C:\\good.txt"), std::string::npos) << result.err;
        EXPECT_NE(old().out.find("C:\\good.txt"), std::string::npos);
    }
    goes_on = false;
    other.join();
}

} // namespace
