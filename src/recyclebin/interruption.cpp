#include "recyclebin/interruption.h"

#include <csignal>
#include <initializer_list>

namespace hv {

namespace {

volatile std::sig_atomic_t caught_signal = 0;

void note_signal(int signal)
{
    caught_signal = signal;
}

} // namespace

void catch_interruptions()
{
    struct sigaction action {};
    action.sa_handler = note_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        // `nohup` and shells have some of them ignored, which stays.
        struct sigaction before {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
    }
    // Comes each second from the soft limit of processor time on; the hard one kills.
    action.sa_flags = 0;
    sigaction(SIGXCPU, &action, nullptr);
    std::signal(SIGXFSZ, SIG_IGN);
}

bool is_interrupted()
{
    return caught_signal != 0;
}

} // namespace hv
