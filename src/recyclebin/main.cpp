#include "recyclebin/confinement.h"
#include "recyclebin/input.h"
#include "recyclebin/interruption.h"
#include "recyclebin/progress.h"
#include "recyclebin/result_file.h"
#include "recyclebin/run_context.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
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
    options.should_stop = is_interrupted;
    context.input.examine(context.found, options);
}

exit_status run_command(const std::vector<std::ostream *> &outs,
                        const run_context &context)
{
    std::ostream &out = *outs.front();
    switch (context.line.what) {
    case command::bytes: return run_bytes(out, context);
    case command::check: return run_check(out, context);
    case command::list: return run_list(outs, context);
    case command::snapshots: return run_snapshots(out, context);
    case command::diff: return run_diff(out, context);
    case command::explain: return run_explain(out, context);
    case command::recheck: return run_recheck(out, context);
    case command::export_data: return run_export(out, context);
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
    return found.is_cut_short || found.unreadable_bytes > 0 ||
           std::any_of(found.regions.begin(), found.regions.end(), has_trouble) ||
           context.medium->unreadable() > 0 || !context.input.source().faults().empty();
}

// Complains of what couldn't be read and isn't in `known`; returns all that couldn't.
std::vector<std::string> report_faults(const run_context &context,
                                       const std::vector<std::string> &known)
{
    std::vector<std::string> faults = context.input.source().faults();
    for (const std::string &fault : faults)
        if (std::ranges::find(known, fault) == known.end())
            complain(context.line.medium + ": " + fault);
    return faults;
}

void report_troubles(const run_context &context)
{
    for (const examined_region &region : context.found.regions)
        if (!region.trouble.empty()) complain(region.trouble);
    if (!context.found.names_trouble.empty()) complain(context.found.names_trouble);
    if (context.found.is_cut_short)
        complain("interrupted; what was found until then follows");
}

// Of a medium without any volume: why, and what to try. Carving needs no volume.
bool is_refused(const run_context &context)
{
    if (context.line.carve || context.found.is_cut_short ||
        context.input.kind() != input_kind::medium ||
        volume_numbers(context.found).count() > 0)
        return false;
    complain(context.line.medium + ": " +
             refusal_text(describe_medium(*context.medium)));
    return true;
}

// What only a medium has, asked of something else; a status is what to end with.
std::optional<exit_status> refuse_for_files(const run_context &context)
{
    const command what = context.line.what;
    if (context.input.kind() == input_kind::medium) return {};
    const std::string name =
        context.line.medium + " is " + std::string(name_of(context.input.kind()));
    if (what == command::snapshots || what == command::diff) {
        complain(name + ": there are no snapshots");
        return exit_status::no_rows;
    }
    if (what == command::export_data) {
        complain(name + ": what it holds of the data is in files already");
        return exit_status::usage;
    }
    const bool is_bytes =
        what == command::bytes && context.input.kind() == input_kind::folder;
    if (!context.line.offset && !is_bytes) return {};
    complain(name + (is_bytes ? ": name one of its files" : ": it has no volumes"));
    return exit_status::usage;
}

exit_status examine_and_run(const std::vector<std::ostream *> &outs,
                            run_context &context)
{
    if (const auto refused = refuse_for_files(context)) return *refused;
    if (context.line.what == command::recheck || context.line.what == command::bytes)
        return run_command(outs, context);
    examine_medium(context);
    report_troubles(context);
    const std::vector<std::string> faults = report_faults(context, {});
    if (context.line.what != command::check && is_refused(context))
        return exit_status::no_source;
    const exit_status status = run_command(outs, context);
    // The data of deletions is read by the command.
    report_faults(context, faults);
    const bool is_read = status == exit_status::rows || status == exit_status::no_rows;
    return is_read && is_incomplete(context) ? exit_status::partly : status;
}

using result_files = std::vector<std::unique_ptr<result_file>>;

// Opens every output, or none: false, after a complaint.
bool open_outputs(result_files &results, const command_line &line,
                  const opened_input &input)
{
    std::vector<std::string> sources = input.source().files;
    sources.push_back(line.rows_file);
    for (const output_target &target : line.outputs) {
        std::string problem;
        results.push_back(std::make_unique<result_file>());
        if (!target.path.empty() && input.holds(target.path))
            problem = target.path + " would be in what is to be read";
        else if (results.back()->open(problem, target.path, line.force, sources))
            continue;
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

exit_status run(const command_line &line)
{
    confine_opening(line);
    opened_input input(line.medium);
    for (const std::string &problem : input.unlock(line.keys))
        complain(line.medium + ": " + problem);
    const byte_source_ptr medium = input.source().source;
    if (!medium) {
        complain(line.medium + ": " + input.source().problem);
        return exit_status::no_source;
    }
    result_files results;
    if (!open_outputs(results, line, input)) return exit_status::no_output;
    export_target target;
    std::string problem;
    if (line.what == command::export_data && !target.open(problem, line.exporting)) {
        complain(problem);
        return exit_status::no_output;
    }
    confine_run(line, input, target);
    std::vector<std::ostream *> outs;
    for (const auto &result : results) outs.push_back(&result->stream());
    run_context context{line, input, target, medium};
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
    catch_interruptions();
    command_line line;
    if (const auto status = read_command_line(line, argc, argv))
        return static_cast<int>(*status);
    try {
        return static_cast<int>(run(line));
    } catch (const std::bad_alloc &) {
        complain("not enough memory");
    } catch (const std::length_error &) { // more than any memory
        complain("not enough memory");
    }
    return static_cast<int>(exit_status::no_source);
}
