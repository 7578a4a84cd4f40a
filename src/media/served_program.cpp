#include "media/served_program.h"

#include "confinement/call_filter.h"
#include "confinement/file_rules.h"

#include <array>
#include <charconv>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace hv {

namespace {

constexpr int first_socket = 3; // as systemd hands it over
constexpr rlim_t max_memory = rlim_t{4} << 30;
constexpr rlim_t max_files = 256;

std::vector<char *> pointers_to(std::vector<std::string> &words)
{
    std::vector<char *> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string &word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

// This process' environment, and what says which process the socket is for. Its number
// is known in that process alone, and is written there.
std::vector<std::string> environment_with_socket()
{
    std::vector<std::string> all;
    for (char **entry = environ; *entry != nullptr; ++entry) all.emplace_back(*entry);
    all.emplace_back("LISTEN_FDS=1");
    all.emplace_back("LISTEN_PID=" + std::string(20, '\0'));
    return all;
}

void write_process_number(char *entry)
{
    char *number = entry + std::string_view("LISTEN_PID=").size();
    std::to_chars(number, number + 20, getpid());
}

// A socket that listens, and one that is connected to it. It has no name in the file
// system, and room for one connection only, so nobody else's can come first.
bool make_sockets(int &listening, int &connected)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socklen_t size = sizeof address.sun_family; // the system chooses a name
    const auto *name =
        static_cast<const sockaddr *>(static_cast<const void *>(&address));
    auto *chosen = static_cast<sockaddr *>(static_cast<void *>(&address));
    listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    connected = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listening < 0 || connected < 0 || bind(listening, name, size) != 0 ||
        listen(listening, 0) != 0)
        return false;
    size = sizeof address;
    return getsockname(listening, chosen, &size) == 0 &&
           connect(connected, name, size) == 0;
}

// Takes from this process what a server doesn't need.
void give_up_rights(const std::vector<std::string> &files)
{
    const file_rules rules;
    rules.allow_software();
    for (const char *path : {"/dev/null", "/dev/urandom"})
        rules.allow(file_use::read, path);
    for (const std::string &path : files) rules.allow(file_use::read, path);
    rules.apply();
    refuse_attacks(socket_use::connected);
    // Last, as a sanitizer of this program takes more memory than the other one may.
    for (const auto &[what, most] :
         {std::pair{RLIMIT_CORE, rlim_t{0}}, std::pair{RLIMIT_FSIZE, rlim_t{0}},
          std::pair{RLIMIT_NOFILE, max_files}, std::pair{RLIMIT_DATA, max_memory}}) {
        const rlimit limits = {most, most};
        setrlimit(what, &limits);
    }
}

// Nothing of what the program says reaches the terminal, and no other file of this
// process is open in it.
void keep_only(int listening)
{
    dup2(listening, first_socket); // of the same number, it would be closed below
    if (listening == first_socket) fcntl(first_socket, F_SETFD, 0);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int standard = 0; standard < first_socket; ++standard) dup2(nothing, standard);
    close_range(first_socket + 1, ~0U, 0);
}

} // namespace

int served_program::start(const std::vector<std::string> &words,
                          const std::vector<std::string> &files)
{
    int listening = -1;
    int connected = -1;
    const bool is_connected = make_sockets(listening, connected);
    std::vector<std::string> arguments = words;
    std::vector<std::string> variables = environment_with_socket();
    const std::vector<char *> argv = pointers_to(arguments);
    const std::vector<char *> envp = pointers_to(variables);
    if (is_connected) m_process = fork();
    if (m_process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        keep_only(listening);
        write_process_number(envp[envp.size() - 2]);
        give_up_rights(files);
        execve(argv.front(), argv.data(), envp.data());
        _exit(127);
    }
    if (listening >= 0) close(listening);
    if (m_process > 0) return connected;
    if (connected >= 0) close(connected);
    return -1;
}

int served_program::wait()
{
    int status = -1;
    if (m_process > 0) waitpid(std::exchange(m_process, -1), &status, 0);
    return status;
}

served_program::~served_program()
{
    constexpr timespec pause = {.tv_sec = 0, .tv_nsec = 5'000'000};
    for (int i = 0; m_process > 0 && i < 200; ++i) {
        if (waitpid(m_process, nullptr, WNOHANG) != 0) return;
        nanosleep(&pause, nullptr);
    }
    // A process that gave up signals leaves it to the system, when it ends itself.
    if (m_process > 0 && kill(m_process, SIGKILL) == 0) wait();
}

} // namespace hv
