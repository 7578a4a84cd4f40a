#include "base/hv_console.h"
#include "base/hv_log.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace hv;

template <class Action> static std::string printed(Action action)
{
    testing::internal::CaptureStderr();
    action();
    flush_console();
    return testing::internal::GetCapturedStderr();
}

static std::string line(const std::string &text)
{
    return "\x1b[2K\r    \r" + text + "\r";
}

// The marks live for the process, so they are watched in a process of their own.
TEST(ProgressLineDeathTest, DrawsAtEachMark)
{
    const auto draw = [] {
        progress_line(40, 10, 19, 5); // a step of 0: drawn at every call
        for (const u64 position : {49, 50, 99}) progress_line(40, position, 1000, 5);
        progress_line(15, 129, 1000, 5); // cut after "1"
        progress_line(40, 140, 1000, 5);
        progress_line(40, 160, 4000, 5); // another pass goes on with the old marks
        std::exit(0);
    };
    EXPECT_EXIT(draw(), testing::ExitedWithCode(0),
                testing::Eq(line("percent done: 52") + line("percent done: 5") +
                            line("percent done: 1") + line("percent done: 4")));
}

TEST(Messages, AreErasedCutOrDropped)
{
    const std::string a(50, 'a'), b(30, 'b'), longest(4096, 'x');
    EXPECT_EQ(printed([&] { status_line("%s\n%s", a.c_str(), b.c_str()); }),
              line(a + std::string(9, 'b')));
    const std::string erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";
    EXPECT_EQ(printed([&] { print_error("%s", longest.c_str()); }), longest);
    EXPECT_EQ(printed([&] { print_error("%s+", longest.c_str()); }), "");
    allow_line_control(true);
    EXPECT_EQ(printed([] { print_error("prob"); }), erase + "prob");
    allow_line_control(false);
    EXPECT_EQ(printed([] { end_progress(true), end_progress(false); }), erase);
    std::ostringstream log;
    debug_log(log_handle(&log), "%s!", longest.c_str());
    EXPECT_EQ(log.str(), "->" + std::string(258, 'x') + "\n");
}
