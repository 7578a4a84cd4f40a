#include "disk/hv_file_source.h"
#include "evidence/examine.h"
#include "recyclebin/progress.h"
#include "recyclebin/result_file.h"
#include "recyclebin/run_context.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
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

byte_source_ptr open_medium(const std::string &path)
{
    const auto source = std::make_shared<const file_source>(path);
    if (source->failure() == open_failure::none) return source;
    complain(path + ": " + open_failure_text(source->failure()));
    return nullptr;
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

exit_status run_command(std::ostream &out, const run_context &context)
{
    switch (context.line.what) {
    case command::check: return run_check(out, context);
    case command::list: return run_list(out, context);
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
           context.medium->unreadable() > 0;
}

void report_troubles(const examination &found)
{
    for (const examined_region &region : found.regions)
        if (!region.trouble.empty()) complain(region.trouble);
}

// Of a medium without any volume: why, and what to try. Carving needs no volume.
bool is_refused(const run_context &context)
{
    if (context.line.carve || volume_numbers(context.found).count() > 0) return false;
    complain(context.line.medium + ": " +
             refusal_text(describe_medium(*context.medium)));
    return true;
}

exit_status examine_and_run(std::ostream &out, run_context &context)
{
    if (context.line.what == command::recheck) return run_recheck(out, context);
    examine_medium(context);
    report_troubles(context.found);
    if (context.line.what != command::check && is_refused(context))
        return exit_status::no_source;
    const exit_status status = run_command(out, context);
    const bool is_read = status == exit_status::rows || status == exit_status::no_rows;
    return is_read && is_incomplete(context) ? exit_status::partly : status;
}

exit_status run(const command_line &line)
{
    result_file results;
    std::string problem;
    if (!results.open(problem, line.output_file, line.force,
                      {line.medium, line.rows_file})) {
        complain(problem);
        return exit_status::no_output;
    }
    run_context context{line, open_medium(line.medium), {}};
    if (!context.medium) return exit_status::no_source;
    const exit_status status = examine_and_run(results.stream(), context);
    const bool has_results =
        status != exit_status::usage &&
        (status != exit_status::no_source || line.what == command::check);
    if (!has_results) return status;
    if (results.finish(problem)) return status;
    complain(problem);
    return exit_status::no_output;
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
