#include "recyclebin/confinement.h"

#include "confinement/call_filter.h"
#include "confinement/file_rules.h"
#include "evidence/examine_files.h"
#include "hives/hive_names.h"
#include "recyclebin/digest.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <unistd.h>

namespace hv {

namespace {

using namespace std::string_view_literals;

// Sanitizers read about the process when it ends, the names of its functions, and files
// that options of theirs name.
#ifdef __SANITIZE_ADDRESS__
constexpr bool is_sanitized = true;
#else
constexpr bool is_sanitized = false;
#endif

void confine_files(const run_needs &needs)
{
    // The program that serves a medium is to end with this one, by a signal.
    const file_rules rules(needs.uses_sockets ? signals_to::anyone : signals_to::own);
    if (is_sanitized) rules.allow(file_use::read, "/");
    for (const std::string &path : needs.read_paths) rules.allow(file_use::read, path);
    for (const std::string &folder : needs.publish_folders)
        rules.allow(file_use::publish, folder);
    if (!needs.export_folder.empty()) rules.allow(file_use::fill, needs.export_folder);
    rules.apply();
}

// Whether results have sums of bytes. Those that need none start sooner.
bool makes_sums(const command_line &line)
{
    constexpr std::array forms = {"html"sv, "jsonl"sv, "sqlite"sv,
                                  "timesketch-jsonl"sv};
    const auto has_sums = [&](const output_target &output) {
        return output.how != nullptr &&
               std::ranges::find(forms, output.how->name) != forms.end();
    };
    switch (line.what) {
    case command::explain:
    case command::export_data:
    case command::recheck: return true;
    default: return std::ranges::any_of(line.outputs, has_sums);
    }
}

// Loads what is loaded at its first use, as long as files can be opened.
void load_late_parts(const command_line &line, const opened_input &input)
{
    if (input.kind() == input_kind::medium && line.what != command::bytes)
        can_read_hives();
    if (makes_sums(line)) digest(digest_kind::sha256).finish();
}

// Where outputs are made; the folder of an export may have to be made itself.
std::vector<std::string> written_folders(const command_line &line)
{
    const export_options &how = line.exporting;
    std::vector<std::string> folders;
    for (const output_target &output : line.outputs)
        if (!output.path.empty()) folders.push_back(folder_of_file(output.path));
    if (!how.manifest.empty()) folders.push_back(folder_of_file(how.manifest));
    std::filesystem::path made = how.to;
    while (!made.empty() && access(made.c_str(), F_OK) != 0) made = made.parent_path();
    if (!how.to.empty()) folders.push_back(made.empty() ? "." : made.string());
    return folders;
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
                 .uses_sockets = needs.uses_sockets});
}

void confine_opening(const command_line &line)
{
    const file_rules rules;
    rules.allow(file_use::read, "/");
    rules.allow_software();
    const std::vector<std::string> outputs = written_folders(line);
    for (const std::string &folder : outputs) rules.allow(file_use::fill, folder);
    rules.apply();
    refuse_attacks(socket_use::local);
}

void confine_run(const command_line &line, const opened_input &input,
                 const export_target &target)
{
    load_late_parts(line, input);
    confine(needs_of(line, input, target));
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
