#include "recyclebin/confinement.h"

#include "confinement/call_filter.h"
#include "confinement/file_rules.h"
#include "evidence/examine_files.h"
#include "hives/hive_names.h"
#include "recyclebin/digest.h"

namespace hv {

namespace {

// What sanitizers read about the process when it ends.
#ifdef __SANITIZE_ADDRESS__
constexpr const char *sanitizer_folder = "/proc";
#else
constexpr const char *sanitizer_folder = nullptr;
#endif

void confine_files(const run_needs &needs)
{
    // The program that serves a medium is to end with this one, by a signal.
    const file_rules rules(needs.uses_sockets ? signals_to::anyone : signals_to::own);
    if (sanitizer_folder != nullptr) rules.allow(file_use::read, sanitizer_folder);
    for (const std::string &path : needs.read_paths) rules.allow(file_use::read, path);
    for (const std::string &folder : needs.publish_folders)
        rules.allow(file_use::publish, folder);
    if (!needs.export_folder.empty()) rules.allow(file_use::fill, needs.export_folder);
    rules.apply();
}

// Loads what is loaded at its first use, as long as files can be opened.
void load_late_parts(command what)
{
    if (what == command::bytes) return;
    can_read_hives();
    if (what != command::check && what != command::snapshots)
        digest(digest_kind::sha256).finish();
}

// Of the files that a medium is in, libraries open some again; those of a folder are
// opened one by one.
run_needs needs_of(const command_line &line, const opened_input &input,
                   const export_target &target)
{
    run_needs needs;
    if (!input.source().is_plain_file) needs.read_paths = input.source().files;
    if (!input.folder().empty()) needs.read_paths.push_back(input.folder());
    if (line.what == command::recheck) needs.read_paths.push_back(line.rows_file);
    for (const output_target &output : line.outputs) {
        if (!output.path.empty())
            needs.publish_folders.push_back(folder_of_file(output.path));
        // SQLite seeds its random numbers with those of the system.
        if (output.how == form_called("sqlite"))
            needs.read_paths.emplace_back("/dev/urandom");
    }
    if (!target.manifest_path().empty())
        needs.publish_folders.push_back(folder_of_file(target.manifest_path()));
    needs.export_folder = line.exporting.to;
    needs.uses_sockets = input.source().is_served;
    return needs;
}

} // namespace

void confine(const run_needs &needs)
{
    confine_files(needs);
    allow_calls({.opens_files = !needs.read_paths.empty(),
                 .publishes = !needs.publish_folders.empty(),
                 .fills_folders = !needs.export_folder.empty(),
                 .uses_sockets = needs.uses_sockets,
                 .starts_readers = true});
}

void confine_run(const command_line &line, const opened_input &input,
                 const export_target &target)
{
    load_late_parts(line.what);
    const run_needs needs = needs_of(line, input, target);
#ifndef VESKIT_COVERAGE // whose counters are written into files when the program ends
    confine(needs);
#endif
}

std::string confinement_text()
{
    const int version = file_rules::version();
    std::string text =
        version > 0 ? "Landlock (version " + std::to_string(version) + ")" : "";
    if (has_call_filter()) text += text.empty() ? "seccomp" : ", seccomp";
    return text.empty() ? "none" : text;
}

} // namespace hv
