#include "confinement/file_rules.h"
#include "media/served_program.h"
#include "support/temp_dir.h"

#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace hv;

TEST(ServedProgram, ReadsItsImageAndChangesNothing)
{
    if (file_rules::version() == 0) GTEST_SKIP() << "no Landlock";
    const test_support::temp_dir dir;
    const std::string image = dir.write_file("disk.vdi", "bytes");
    const auto status_of = [&](const std::string &command) {
        served_program program;
        const int socket =
            program.start({"/bin/sh", "-c", command, "sh", image}, {image});
        EXPECT_GE(socket, 0) << command;
        close(socket);
        const int status = program.wait();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(status_of("cat \"$1\""), 0);
    EXPECT_EQ(status_of("test \"$LISTEN_FDS $LISTEN_PID\" = \"1 $$\""), 0);
    EXPECT_NE(status_of("cat /etc/passwd"), 0);
    EXPECT_NE(status_of("cat /proc/$PPID/environ"), 0);
    EXPECT_NE(status_of("rm \"$1\""), 0);
    EXPECT_NE(status_of("ln \"$1\" \"$1\".copy"), 0);
    status_of("echo changed > \"$1\"");
    EXPECT_EQ(test_support::file_bytes(image), "bytes");
}

} // namespace
