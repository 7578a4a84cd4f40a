#include "stress/sweep_workers.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stress {

namespace {

constexpr u64 max_ms = 10'000;          // of computing, for one input
constexpr u64 max_waiting_ms = 300'000; // of anything
constexpr u64 max_kept = 200;
constexpr u64 none = ~u64{0};
constexpr std::chrono::milliseconds poll_interval{20};

u64 now_ms()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<u64>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

// How long a process has been computing: others on the machine don't count.
u64 computed_ms(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<u64>(time.tv_sec) * 1000 +
           static_cast<u64>(time.tv_nsec) / 1'000'000;
}

u64 computed_ms_of(pid_t process)
{
    clockid_t clock{};
    return clock_getcpuclockid(process, &clock) == 0 ? computed_ms(clock) : 0;
}

// What a worker tells the sweep, in memory that both see.
struct worker_state {
    std::atomic<u64> input{none};
    std::atomic<u64> started{0};  // of the clock of all
    std::atomic<u64> computed{0}; // by the worker, when it started
    std::atomic<u64> done{0};
    std::atomic<u64> slowest_ms{0};
    std::atomic<u64> slowest_input{0};
    std::atomic<bool> has_finding{false}; // the sweep clears it once it is noted
    std::array<char, 2000> finding{};
};

class shared_states {
public:
    explicit shared_states(std::size_t count) : m_size(count * sizeof(worker_state))
    {
        m_memory = mmap(nullptr, m_size, PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (m_memory == MAP_FAILED) throw std::bad_alloc();
        auto *const first = static_cast<worker_state *>(m_memory);
        for (std::size_t i = 0; i < count; ++i) new (first + i) worker_state();
    }
    ~shared_states() { munmap(m_memory, m_size); }
    shared_states(const shared_states &) = delete;
    shared_states &operator=(const shared_states &) = delete;

    worker_state &at(std::size_t number) const
    {
        return static_cast<worker_state *>(m_memory)[number];
    }

private:
    std::size_t m_size;
    void *m_memory = nullptr;
};

std::string checked(const sweep_input &input)
{
    try {
        return check_all(input.medium->before, input.bytes, input.done);
    } catch (const std::exception &error) {
        return std::string("exception: ") + error.what();
    }
}

// Sanitizers reserve more addresses than any machine has memory, and have a limit of
// their own.
void limit_memory()
{
#ifndef __SANITIZE_ADDRESS__
    constexpr u64 max_memory = u64{6} << 30;
    const rlimit limit{max_memory, max_memory};
    setrlimit(RLIMIT_AS, &limit);
#endif
}

// The kind of a finding is what is before its first colon, and the medium.
std::string kind_of(const std::string &problem, const sweep_input &input)
{
    return problem.substr(0, problem.find(':')) + " (" +
           std::filesystem::path(input.medium->name).parent_path().filename().string() +
           input.medium->name.substr(input.medium->name.rfind('/') + 1) + ")";
}

volatile std::sig_atomic_t is_stopped = 0;

// A sweep that is interrupted says what it has done.
void stop_at_signals()
{
    const auto stop = [](int) { is_stopped = 1; };
    std::signal(SIGINT, stop);
    std::signal(SIGTERM, stop);
}

class sweep_run {
public:
    sweep_run(const sweep_plan &plan, const sweep_request &request)
        : m_plan(plan),
          m_request(request),
          m_states(request.jobs),
          m_workers(request.jobs)
    {
    }

    sweep_result run()
    {
        const u64 begin = now_ms();
        stop_at_signals();
        for (u64 job = 0; job < m_request.jobs; ++job) start(job, job);
        while (m_running > 0 && is_stopped == 0) {
            for (u64 job = 0; job < m_request.jobs; ++job) look_after(job);
            std::this_thread::sleep_for(poll_interval);
        }
        for (u64 job = 0; job < m_request.jobs; ++job) {
            end(job);
            const worker_state &state = m_states.at(job);
            m_result.inputs += state.done;
            if (state.slowest_ms < m_result.slowest_ms) continue;
            m_result.slowest_ms = state.slowest_ms;
            m_result.slowest_input = state.slowest_input;
        }
        m_result.seconds = (now_ms() - begin) / 1000;
        return m_result;
    }

private:
    void start(u64 job, u64 first)
    {
        if (first >= m_request.count) return;
        m_states.at(job).started = now_ms();
        m_states.at(job).computed = 0;
        m_states.at(job).input = none;
        std::cout.flush();
        m_workers[job] = fork();
        if (m_workers[job] == 0) work(job, first);
        ++m_running;
    }

    void end(u64 job)
    {
        if (m_workers[job] <= 0) return;
        kill(m_workers[job], SIGKILL);
        waitpid(m_workers[job], nullptr, 0);
    }

    [[noreturn]] void work(u64 job, u64 first) const
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
        limit_memory();
        worker_state &state = m_states.at(job);
        for (u64 number = first; number < m_request.count; number += m_request.jobs) {
            const sweep_input input = m_plan.input(number);
            const u64 begin = computed_ms(CLOCK_PROCESS_CPUTIME_ID);
            state.started = now_ms();
            state.computed = begin;
            state.input = number;
            const std::string problem = checked(input);
            const u64 took = computed_ms(CLOCK_PROCESS_CPUTIME_ID) - begin;
            if (took > state.slowest_ms) {
                state.slowest_ms = took;
                state.slowest_input = number;
            }
            ++state.done;
            if (!problem.empty()) tell(state, problem);
        }
        _exit(0);
    }

    static void tell(worker_state &state, const std::string &problem)
    {
        const std::size_t length =
            problem.copy(state.finding.data(), state.finding.size() - 1);
        state.finding[length] = '\0';
        state.has_finding = true;
        while (state.has_finding) std::this_thread::sleep_for(poll_interval / 20);
    }

    void look_after(u64 job)
    {
        if (m_workers[job] <= 0) return;
        worker_state &state = m_states.at(job);
        if (state.has_finding) {
            note(state.input, state.finding.data());
            state.has_finding = false;
        }
        int status = 0;
        if (waitpid(m_workers[job], &status, WNOHANG) == m_workers[job]) {
            ended(job, status);
        } else if (has_hung(m_workers[job], state)) {
            end(job);
            note(state.input, "hang: computed for " + std::to_string(max_ms) + " ms");
            go_on(job);
        }
    }

    static bool has_hung(pid_t process, const worker_state &state)
    {
        // The worker may start another input meanwhile.
        const u64 computed = computed_ms_of(process), before = state.computed;
        return computed > before + max_ms || now_ms() > state.started + max_waiting_ms;
    }

    void ended(u64 job, int status)
    {
        const bool is_good = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        if (is_good) {
            m_workers[job] = 0;
            --m_running;
            return;
        }
        note(m_states.at(job).input,
             WIFSIGNALED(status)
                 ? "crash: signal " + std::to_string(WTERMSIG(status))
                 : "crash: status " + std::to_string(WEXITSTATUS(status)));
        go_on(job);
    }

    void go_on(u64 job)
    {
        const u64 last = m_states.at(job).input;
        if (last == none) throw std::runtime_error("a process ended before its work");
        m_workers[job] = 0;
        --m_running;
        ++m_states.at(job).done;
        start(job, last + m_request.jobs);
    }

    void note(u64 number, const std::string &problem)
    {
        const sweep_input input = m_plan.input(number);
        ++m_result.findings[kind_of(problem, input)];
        std::cout << "input " << number << ", " << input.medium->name << ": "
                  << input.done.story << "\n  " << problem << std::endl;
        if (m_request.folder.empty() || m_kept == max_kept) return;
        ++m_kept;
        keep_input(m_request.folder, number, input, problem);
    }

    const sweep_plan &m_plan;
    const sweep_request &m_request;
    shared_states m_states;
    std::vector<pid_t> m_workers; // 0: none
    u64 m_running = 0;
    u64 m_kept = 0;
    sweep_result m_result;
};

} // namespace

sweep_result sweep_all(const sweep_plan &plan, const sweep_request &request)
{
    return sweep_run(plan, request).run();
}

void keep_input(const std::string &folder, u64 number, const sweep_input &input,
                const std::string &problem)
{
    std::filesystem::create_directories(folder);
    const std::filesystem::path base =
        std::filesystem::path(folder) / ("input-" + std::to_string(number));
    std::ofstream medium(base.string() + ".raw", std::ios::binary);
    // Files are written as characters.
    const void *const bytes = input.bytes.data();
    medium.write(static_cast<const char *>(bytes),
                 static_cast<std::streamsize>(input.bytes.size()));
    std::ofstream(base.string() + ".txt") << input.medium->name << "\n"
                                          << input.done.story << "\n"
                                          << problem << "\n";
}

} // namespace stress
