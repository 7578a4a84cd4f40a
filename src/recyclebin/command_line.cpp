#include "recyclebin/command_line.h"

#include "recyclebin/confinement.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/moments.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <fstream>
#include <functional>
#include <iostream>

namespace hv {

namespace {

using string_list = std::vector<std::string>;

const char *const medium_help =
    "an image, a device, a virtual disk, a folder, a copy of an $MFT, $I or INFO2";

// Decimal, or hexadecimal after "0x".
std::optional<u64> parse_number(std::string_view text)
{
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    if (is_hex) text.remove_prefix(2);
    u64 number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] =
        std::from_chars(text.data(), end, number, is_hex ? 16 : 10);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<u32> parse_small_number(std::string_view text)
{
    const std::optional<u64> number = parse_number(text);
    return number && *number <= UINT32_MAX ? std::optional(static_cast<u32>(*number))
                                           : std::nullopt;
}

std::optional<u32> parse_view(std::string_view text)
{
    if (text == "now") return view_now;
    const std::optional<u32> number = parse_small_number(text);
    return number && *number != view_now ? number : std::nullopt;
}

std::optional<std::u16string> parse_text(std::string_view text)
{
    return from_lossless_utf8(text);
}

// An option that is given once, and is read by `parse`.
template <class Value, class Parse>
CLI::Option *add_value(CLI::App &app, const std::string &name,
                       std::optional<Value> &out, Parse parse, const std::string &about)
{
    return app.add_option_function<std::string>(
        name,
        [&out, parse, name](const std::string &text) {
            out = parse(text);
            if (!out) throw CLI::ValidationError(name, "can't be \"" + text + "\"");
        },
        about);
}

// An option that may be given several times.
template <class Value, class Parse>
CLI::Option *add_values(CLI::App &app, const std::string &name, std::vector<Value> &out,
                        Parse parse, const std::string &about)
{
    return app
        .add_option_function<string_list>(
            name,
            [&out, parse, name](const string_list &texts) {
                for (const std::string &text : texts) {
                    const auto value = parse(text);
                    if (!value)
                        throw CLI::ValidationError(name, "can't be \"" + text + "\"");
                    out.push_back(*value);
                }
            },
            about)
        ->allow_extra_args(false);
}

// The first line of a file.
bool read_password(std::string &password, const std::string &path)
{
    std::ifstream file(path);
    if (!std::getline(file, password)) return false;
    if (password.ends_with('\r')) password.pop_back();
    return true;
}

void add_keys(CLI::App &app, volume_keys &keys)
{
    app.add_option("--recovery-key", keys.recovery_key,
                   "unlock BitLocker volumes with this recovery key")
        ->type_name("KEY");
    app.add_option_function<std::string>(
           "--password-file",
           [&keys](const std::string &path) {
               if (!read_password(keys.password, path))
                   throw CLI::ValidationError("--password-file",
                                              "can't read \"" + path + "\"");
           },
           "unlock BitLocker volumes with the password in this file's first line")
        ->type_name("FILE");
}

void add_medium(CLI::App &app, command_line &line)
{
    app.add_option("MEDIUM", line.medium, medium_help)->required();
    add_keys(app, line.keys);
    add_value(app, "--offset", line.offset, parse_number,
              "look only at the volume that begins at this byte")
        ->type_name("BYTES");
}

// Commands other than `list` have one output, in a form of their own.
void add_output(CLI::App &app, command_line &line)
{
    app.add_option_function<std::string>(
           "--output", [&line](const std::string &path) { line.outputs = {{path}}; },
           "write results to this new file")
        ->type_name("FILE");
    app.add_flag("--force", line.force, "replace the file of --output");
}

// "FORM:FILE", or a file whose ending means a form. A path that begins with the name of
// a form and a colon is meant as "./...".
output_target parse_target(const std::string &text)
{
    const std::size_t colon = text.find(':');
    if (colon != std::string::npos)
        if (const form *how = form_called(std::string_view(text).substr(0, colon)))
            return {text.substr(colon + 1), how};
    return {text, form_for_file(text)};
}

std::string form_names()
{
    std::string names;
    for (const form &each : all_forms())
        names.append(names.empty() ? "" : ", ").append(each.name);
    return names;
}

void add_forms(CLI::App &app, command_line &line)
{
    app.add_option_function<std::string>(
           "--format",
           [&line](const std::string &name) {
               line.format = form_called(name);
               if (line.format == nullptr)
                   throw CLI::ValidationError("--format", "can't be \"" + name +
                                                              "\"; " + form_names());
           },
           form_names())
        ->type_name("FORM");
    app.add_option_function<string_list>(
           "--output",
           [&line](const string_list &texts) {
               for (const std::string &text : texts)
                   line.outputs.push_back(parse_target(text));
           },
           "write to this new file, in the form that its ending means; may be repeated")
        ->allow_extra_args(false)
        ->type_name("[FORM:]FILE");
    app.add_flag("--force", line.force, "replace the files of --output");
    app.add_flag("--formula-safe", line.how_to_write.formula_safe,
                 "in CSV: no cell that a spreadsheet would calculate");
    app.add_flag("--bom", line.how_to_write.byte_order_mark,
                 "in CSV: begin with the mark by which spreadsheets know UTF-8");
}

// What isn't said otherwise is a table.
void complete_outputs(command_line &line)
{
    if (line.outputs.empty()) line.outputs.push_back({});
    for (output_target &target : line.outputs)
        if (target.how == nullptr)
            target.how = line.format != nullptr ? line.format : &all_forms().front();
}

void add_carve(CLI::App &app, command_line &line)
{
    app.add_flag("--carve", line.carve,
                 "search free clusters, slack and gaps between volumes as well");
}

void add_volume(CLI::App &app, command_line &line)
{
    add_value(app, "--volume", line.wanted.volume, parse_small_number,
              "only this volume, by its number in check")
        ->type_name("N");
}

CLI::App *add_command(CLI::App &app, command_line &line, command what,
                      const std::string &name, const std::string &about)
{
    CLI::App *added = app.add_subcommand(name, about);
    added->callback([&line, what] { line.what = what; });
    if (what == command::list)
        add_forms(*added, line);
    else if (what != command::export_data)
        add_output(*added, line);
    return added;
}

void add_selection(CLI::App &app, selection &wanted)
{
    const auto first = [](const std::string &text) {
        return parse_rfc3339(text, day_end::first_moment);
    };
    const auto last = [](const std::string &text) {
        return parse_rfc3339(text, day_end::last_moment);
    };
    add_value(app, "--deleted-since", wanted.since, first,
              "2024-03-05, or 2024-03-05T09:41:17Z")
        ->type_name("TIME");
    add_value(app, "--deleted-until", wanted.until, last,
              "the same; a date means its whole day")
        ->type_name("TIME");
    add_values(
        app, "--user", wanted.users, parse_text,
        "name of the user or of the folder in the bin, or the last number of a SID")
        ->type_name("NAME");
    add_values(app, "--path", wanted.paths, parse_text,
               "path before the deletion; * is any text, ? any character")
        ->type_name("GLOB");
    add_values(app, "--state", wanted.states, state_for,
               "in-bin, emptied, restored, metadata-only, data-only or journal-only")
        ->type_name("STATE");
    add_values(app, "--seen-in", wanted.seen_in, seen_place_for,
               "live, snapshot, carved or journal")
        ->type_name("PLACE");
    add_value(app, "--at", wanted.at, parse_view,
              "what was in the bin as snapshot N saw it, or is now")
        ->type_name("N|now");
}

void add_list(CLI::App &app, command_line &line)
{
    CLI::App *list =
        add_command(app, line, command::list, "list", "Show each deletion, once");
    add_medium(*list, line);
    add_carve(*list, line);
    add_volume(*list, line);
    add_selection(*list, line.wanted);
    list->add_flag_callback(
            "--story", [&line] { line.format = form_called("story"); },
            "the same as --format story")
        ->excludes("--format");
}

void add_export(CLI::App &app, command_line &line)
{
    CLI::App *data = add_command(app, line, command::export_data, "export",
                                 "Write the data of deletions into a folder");
    export_options &how = line.exporting;
    add_medium(*data, line);
    CLI::Option *to = data->add_option("--to", how.to,
                                       "the folder; nothing that is in "
                                       "it is written over")
                          ->type_name("DIR");
    CLI::Option *hash =
        data->add_flag("--only-hash", how.only_hash, "write nothing but the manifest");
    to->excludes(hash);
    data->add_option("--manifest", how.manifest,
                     "write what became of each file to this new file; else to "
                     "manifest.jsonl in the folder, or to standard output")
        ->type_name("FILE");
    add_value(*data, "--max-size", how.max_size, parse_number,
              "leave out files of more bytes")
        ->type_name("BYTES");
    data->parse_complete_callback([&how] {
        if (how.to.empty() && !how.only_hash)
            throw CLI::RequiredError("--to DIR or --only-hash");
    });
    add_carve(*data, line);
    add_volume(*data, line);
    add_selection(*data, line.wanted);
}

void add_other_commands(CLI::App &app, command_line &line)
{
    CLI::App *shots = add_command(app, line, command::snapshots, "snapshots",
                                  "Show the snapshots, and what each one's bin held");
    add_medium(*shots, line);
    add_volume(*shots, line);

    CLI::App *diff = add_command(app, line, command::diff, "diff",
                                 "Show what came and went between two moments");
    add_medium(*diff, line);
    add_value(*diff, "A", line.from, parse_view, "number of a snapshot, or now")
        ->required();
    add_value(*diff, "B", line.to, parse_view, "the same")->required();
    add_volume(*diff, line);

    CLI::App *explain = add_command(app, line, command::explain, "explain",
                                    "Show the bytes that prove one deletion");
    add_medium(*explain, line);
    explain->add_option("ID", line.id, "its id, or the name of one of its two files")
        ->required();
    add_carve(*explain, line);
    add_volume(*explain, line);

    CLI::App *recheck = add_command(app, line, command::recheck, "recheck",
                                    "Hold lines of JSON against the medium again");
    recheck->add_option("FILE", line.rows_file, "what list --format jsonl wrote")
        ->required();
    recheck->add_option("MEDIUM", line.medium, medium_help)->required();
    add_keys(*recheck, line.keys);

    CLI::App *bytes = add_command(app, line, command::bytes, "bytes",
                                  "Write bytes of a medium, whatever holds them");
    bytes->add_option("MEDIUM", line.medium, "an image, a device, or a virtual disk")
        ->required();
    add_keys(*bytes, line.keys);
    add_value(*bytes, "OFFSET", line.first_byte, parse_number, "of the first byte")
        ->required();
    add_value(*bytes, "LENGTH", line.byte_count, parse_number, "how many")->required();
}

// What is wrong with the arguments. Of a line without a command, the library names
// neither the word that it doesn't know nor what there is.
std::string fault_text(const CLI::App &app, const CLI::ParseError &error)
{
    if (!app.get_subcommands().empty()) return error.what();
    const string_list unknown = app.remaining();
    std::string text = "no command is named";
    if (!unknown.empty())
        text = "there is no " +
               std::string(unknown.front().starts_with("-") ? "option" : "command") +
               " \"" + unknown.front() + "\" here";
    text += "; the commands are";
    const char *separator = " ";
    for (const CLI::App *known : app.get_subcommands(nullptr)) {
        text += separator + known->get_name();
        separator = ", ";
    }
    return text;
}

} // namespace

std::optional<exit_status> read_command_line(command_line &line, int argc,
                                             const char *const *argv)
{
    CLI::App app{"Finds every deletion that the bytes of a medium still prove.",
                 "recyclebin"};
    app.set_version_flag("--version", [] {
        return "recyclebin " RECYCLEBIN_VERSION "\nconfinement: " + confinement_text();
    });
    app.require_subcommand(1);
    app.footer(
        "Exit status: 0 read whole, rows; 1 read whole, none; 2 wrong usage;\n"
        "3 a source can't be opened or isn't known; 4 part of it couldn't be read;\n"
        "5 results couldn't be written.");
    add_medium(*add_command(app, line, command::check, "check",
                            "Say what a medium is, or why it can't be read"),
               line);
    add_list(app, line);
    add_export(app, line);
    add_other_commands(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &shown) {
        app.exit(shown);
        std::cout.flush();
        return std::cout ? exit_status::rows : exit_status::no_output;
    } catch (const CLI::ParseError &error) {
        std::cerr << "recyclebin: " << escaped(std::string_view(fault_text(app, error)))
                  << '\n'
                  << "Try \"recyclebin --help\", or \"recyclebin list --help\".\n";
        return exit_status::usage;
    }
    complete_outputs(line);
    return {};
}

} // namespace hv
