#include "evidence/examine.h"
#include "evidence/unlock_volumes.h"
#include "recyclebin/progress.h"
#include "recyclebin/result_file.h"
#include "recyclebin/run_context.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace {

using namespace hv;

// The next file that is opened would get the number of a closed standard descriptor,
// and results or messages would be written into it. A standard stream that was closed
// is made to refuse instead.
void claim_standard_descriptors()
{
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) continue;
        const int refusing = descriptor == 0 ? O_WRONLY : O_RDONLY;
        if (open("/dev/null", refusing) != descriptor)
            _exit(static_cast<int>(exit_status::no_output));
    }
    // A reader that goes away shows as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
}

void examine_medium(run_context &context)
{
    progress_line_on_terminal progress;
    examine_options options;
    options.offset = context.line.offset;
    options.carve = context.line.carve;
    options.progress = [&progress](u64 done, u64 all) { progress.show(done, all); };
    examine(context.found, context.medium, options);
}

exit_status run_command(const std::vector<std::ostream *> &outs,
                        const run_context &context)
{
    std::ostream &out = *outs.front();
    switch (context.line.what) {
    case command::check: return run_check(out, context);
    case command::list: return run_list(outs, context);
    case command::snapshots: return run_snapshots(out, context);
    case command::diff: return run_diff(out, context);
    case command::explain: return run_explain(out, context);
    case command::recheck: return run_recheck(out, context);
    }
    return exit_status::usage;
}

// Whether part of the medium couldn't be read.
bool is_incomplete(const run_context &context)
{
    const auto has_trouble = [](const examined_region &region) {
        return !region.trouble.empty();
    };
    const auto &found = context.found;
    return found.unreadable_bytes > 0 ||
           std::any_of(found.regions.begin(), found.regions.end(), has_trouble) ||
           context.medium->unreadable() > 0 || !context.source.faults().empty();
}

void report_troubles(const run_context &context)
{
    for (const examined_region &region : context.found.regions)
        if (!region.trouble.empty()) complain(region.trouble);
    for (const std::string &fault : context.source.faults())
        complain(context.line.medium + ": " + fault);
}

// Of a medium without any volume: why, and what to try. Carving needs no volume.
bool is_refused(const run_context &context)
{
    if (context.line.carve || volume_numbers(context.found).count() > 0) return false;
    complain(context.line.medium + ": " +
             refusal_text(describe_medium(*context.medium)));
    return true;
}

exit_status examine_and_run(const std::vector<std::ostream *> &outs,
                            run_context &context)
{
    if (context.line.what == command::recheck) return run_command(outs, context);
    examine_medium(context);
    report_troubles(context);
    if (context.line.what != command::check && is_refused(context))
        return exit_status::no_source;
    const exit_status status = run_command(outs, context);
    const bool is_read = status == exit_status::rows || status == exit_status::no_rows;
    return is_read && is_incomplete(context) ? exit_status::partly : status;
}

using result_files = std::vector<std::unique_ptr<result_file>>;

// Opens every output, or none: false, after a complaint.
bool open_outputs(result_files &results, const command_line &line,
                  const opened_medium &source)
{
    std::vector<std::string> sources = source.files;
    sources.push_back(line.rows_file);
    for (const output_target &target : line.outputs) {
        std::string problem;
        results.push_back(std::make_unique<result_file>());
        if (results.back()->open(problem, target.path, line.force, sources)) continue;
        complain(problem);
        return false;
    }
    return true;
}

bool finish_outputs(const result_files &results)
{
    bool is_written = true;
    for (const auto &result : results) {
        std::string problem;
        if (result->finish(problem)) continue;
        complain(problem);
        is_written = false;
    }
    return is_written;
}

// Puts the volumes that the user has keys for in the place of their locked bytes.
void unlock(opened_medium &source, const command_line &line)
{
    if (!source.source || line.keys.empty()) return;
    unlocked_medium result = unlock_volumes(source.source, line.keys);
    for (const std::string &problem : result.problems)
        complain(line.medium + ": " + problem);
    if (result.source == source.source) return;
    source.source = result.source;
    source.is_plain_file = false;
    source.details.insert(source.details.end(), result.unlocked.begin(),
                          result.unlocked.end());
}

exit_status run(const command_line &line)
{
    opened_medium source = open_medium(line.medium);
    unlock(source, line);
    if (!source.source) {
        complain(line.medium + ": " + source.problem);
        return exit_status::no_source;
    }
    result_files results;
    if (!open_outputs(results, line, source)) return exit_status::no_output;
    std::vector<std::ostream *> outs;
    for (const auto &result : results) outs.push_back(&result->stream());
    const byte_source_ptr medium = source.source;
    run_context context{line, std::move(source), medium, {}};
    const exit_status status = examine_and_run(outs, context);
    const bool has_results =
        status != exit_status::usage &&
        (status != exit_status::no_source || line.what == command::check);
    if (has_results && !finish_outputs(results)) return exit_status::no_output;
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    claim_standard_descriptors();
    command_line line;
    if (const auto status = read_command_line(line, argc, argv))
        return static_cast<int>(*status);
    try {
        return static_cast<int>(run(line));
    } catch (const std::bad_alloc &) {
        complain("not enough memory");
        return static_cast<int>(exit_status::no_source);
    }
}
