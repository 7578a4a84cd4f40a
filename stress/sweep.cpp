// Damages media in many ways, runs both programs over each in all modes, and demands
// what must hold of any run.
//
// Usage: damage_sweep [--count N] [--seed S] [--jobs J] [--only K] [--keep FOLDER]
//                     [MEDIUM...]
//
// Besides the media that are named, it takes small ones of its own. A damaged medium
// on which something doesn't hold is kept in FOLDER, with what was done to it. The same
// count, seed and media make the same inputs; --only repeats one of them.

#include "stress/sweep_plan.h"
#include "stress/sweep_workers.h"

#include <charconv>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <thread>

// Read by the sanitizers at their start. A run that takes more memory than media of
// this size can justify fails like one that crashes.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the sanitizer's
extern "C" const char *__asan_default_options();
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the sanitizer's
extern "C" const char *__asan_default_options()
{
    return "hard_rss_limit_mb=6000:max_allocation_size_mb=1024:detect_leaks=0";
}

namespace stress {

namespace {

struct sweep_options {
    sweep_request request;
    std::optional<u64> only;
    std::vector<std::string> media;
};

u64 number_in(const std::string &text)
{
    u64 number = 0;
    const char *const end = text.data() + text.size();
    if (std::from_chars(text.data(), end, number).ptr != end || text.empty())
        throw std::invalid_argument("not a number: " + text);
    return number;
}

sweep_options read_options(const std::vector<std::string> &arguments)
{
    sweep_options options;
    options.request.jobs = std::max(1U, std::thread::hardware_concurrency());
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string &name = arguments[i];
        if (!name.starts_with("--")) {
            options.media.push_back(name);
            continue;
        }
        if (++i == arguments.size()) throw std::invalid_argument(name + " wants more");
        const std::string &value = arguments[i];
        if (name == "--count")
            options.request.count = number_in(value);
        else if (name == "--seed")
            options.request.seed = number_in(value);
        else if (name == "--jobs")
            options.request.jobs = std::max<u64>(1, number_in(value));
        else if (name == "--only")
            options.only = number_in(value);
        else if (name == "--keep")
            options.request.folder = value;
        else
            throw std::invalid_argument("no such option: " + name);
    }
    return options;
}

std::vector<sweep_medium> all_media(const std::vector<std::string> &paths)
{
    std::vector<sweep_medium> media = sample_media();
    for (const std::string &path : paths) media.push_back(medium_of_file(path));
    for (sweep_medium &medium : media) {
        learn(medium);
        const std::string problem = check_all(medium.before, medium.bytes, {});
        if (!problem.empty())
            std::cout << "undamaged: " << medium.name << ": " << problem << '\n';
    }
    return media;
}

int repeat(const sweep_plan &plan, u64 number, const std::string &folder)
{
    const sweep_input input = plan.input(number);
    std::cout << "input " << number << ", " << input.medium->name << ": "
              << input.done.story << std::endl;
    if (!folder.empty()) keep_input(folder, number, input, "repeated");
    const std::string problem =
        check_all(input.medium->before, input.bytes, input.done);
    std::cout << (problem.empty() ? "nothing is wrong" : problem) << '\n';
    return problem.empty() ? 0 : 1;
}

int run_sweep(const std::vector<std::string> &arguments)
{
    const sweep_options options = read_options(arguments);
    const std::vector<sweep_medium> media = all_media(options.media);
    const sweep_plan plan(media, options.request.seed);
    if (options.only) return repeat(plan, *options.only, options.request.folder);
    const sweep_result result = sweep_all(plan, options.request);
    std::cout << result.inputs << " inputs, seed " << options.request.seed << ", "
              << media.size() << " media, " << result.seconds << " s; slowest: input "
              << result.slowest_input << ", " << result.slowest_ms << " ms\n";
    for (const auto &[kind, count] : result.findings)
        std::cout << count << " x " << kind << '\n';
    std::cout << (result.findings.empty() ? "nothing is wrong\n" : "");
    return result.findings.empty() ? 0 : 1;
}

} // namespace

} // namespace stress

int main(int argc, char **argv)
{
    try {
        return stress::run_sweep({argv + 1, argv + argc});
    } catch (const std::exception &error) {
        std::cerr << "damage_sweep: " << error.what() << '\n';
        return 2;
    }
}
