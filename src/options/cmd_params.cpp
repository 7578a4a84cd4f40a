#include "options/cmd_params.h"

#include "base/hv_console.h"
#include "base/hv_string.h"
#include "options/output_path.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <limits>

namespace hv {

namespace {

std::string program_name_of(const std::string &program_path)
{
    std::string name = program_path.substr(program_path.rfind('/') + 1);
    return name.substr(0, name.rfind('.'));
}

void read_log_options(cmd_params &params, arg_list &args, evidence_test is_evidence)
{
    if (!take_value(args, "-diags", params.log_path)) return;
    // A log that would land in the evidence is no log.
    if (!appends_to_evidence(args, params.log_path, is_evidence)) {
        params.log_stream = std::make_unique<std::ofstream>(
            params.log_path, std::ios::out | std::ios::app);
    }
    if (!params.log_stream || !params.log_stream->good()) {
        params.log_path.clear();
        params.log_stream.reset();
        return;
    }
    *params.log_stream << "->" << params.command_line << '\n' << std::flush;
    if (take_flag(args, "-l2"))
        params.log_level = 2;
    else if (take_flag(args, "-l3"))
        params.log_level = 3;
}

// Each form replaces the one before it, so the order of these lines is the precedence.
void read_form_options(output_form &form, arg_list &args)
{
    const auto take_form = [&](std::string_view name, form_kind kind,
                               std::string_view separator) {
        if (!take_flag(args, name)) return false;
        form.kind = kind;
        form.set_separator(separator);
        return true;
    };
    if (take_form("-csv", form_kind::csv, ",")) form.no_padding = !form.pair_date_time;
    if (take_form("-csvgen", form_kind::csvgen, ",")) form.no_padding = true;
    take_form("-csvl2t", form_kind::csvl2t, ",");
    take_form("-bodyfile", form_kind::bodyfile, "|");
    take_form("-xml", form_kind::xml, "");
    take_form("-multiline", form_kind::multiline, "");
}

// Pairs of an alias and its path. This program looks up none.
bool consume_aliases(arg_list &args)
{
    for (const char *name : {"-alias", "-aliaspath"}) {
        std::string value;
        if (!take_value(args, name, value)) continue;
        std::vector<std::string> parts;
        split(value, '|', parts, piece_blanks::trim, empty_pieces::keep);
        if (parts.size() % 2 == 0) continue;
        print_error("imbalanced alias to true pathfiles, aborting\n");
        return false;
    }
    return true;
}

// Options of the tool family that have no effect here.
void consume_flags(arg_list &args, std::initializer_list<const char *> names)
{
    for (const char *name : names) take_flag(args, name);
}

void consume_values(arg_list &args, std::initializer_list<const char *> names)
{
    std::string ignored;
    for (const char *name : names) take_value(args, name, ignored);
}

bool consume_storage_options(arg_list &args)
{
    consume_flags(args, {"-gzip", "-zlib"});
    consume_values(args, {"-zlibex", "-threads"});
    std::string ignored;
    const bool wants_log = take_value(args, "-sqlite_log", ignored);
    const bool wants_database = take_value(args, "-sqlite", ignored);
    if (!wants_log && !wants_database) return true;
    print_error("This option is not offered in this build\n");
    return false;
}

void read_name_options(cmd_params &params, arg_list &args)
{
    take_value(args, "-signal", params.signal_name);
    params.hostname_set = take_value(args, "-hostname", params.form.hostname);
    params.split_pathfile = take_flag(args, "-split_pathfile");
    params.username_set = take_value(args, "-username", params.form.username);
    consume_flags(args, {"-cpuinst", "-cpu", "-separate_files"});
    consume_values(args, {"-fragment_files"});
}

bool read_output_option(cmd_params &params, arg_list &args, evidence_test is_evidence)
{
    std::string value;
    if (!take_value(args, "-out", value) && !take_value(args, "-outfile", value))
        return true;
    params.out_path = expand_variables(value, false);
    replace_char(params.out_path, '\\', '/');
    if (prepare_output_path(args, params.out_path, is_evidence)) return true;
    print_error("prob opening file %s for output, aborting\n", params.out_path.c_str());
    return false;
}

void read_input_options(cmd_params &params, arg_list &args)
{
    std::string value;
    if (take_value(args, "-outdir", value))
        params.out_dir = expand_variables(value, false);
    if (take_value(args, "-enumdir", value)) {
        params.enumdir_path = expand_variables(value, false);
        params.enumdir = true;
    }
    if (take_value(args, "-num_subdirs", value)) parse_u32(value, params.num_subdirs);
    params.profile = take_flag(args, "-profile");
    params.pipe = take_flag(args, "-pipe");
}

// An option that may be given several times; each value adds its patterns.
void read_filter_option(std::vector<filter_item> &list, arg_list &args,
                        std::string_view name)
{
    std::string value;
    bool found = false;
    for (; take_value(args, name, value); found = true) {
        std::vector<filter_item> items;
        parse_filter(items, value);
        list.insert(list.end(), items.begin(), items.end());
    }
    if (!found || !take_value(args, "-filter_path", value)) return;
    std::vector<filter_item> path_items;
    parse_filter(path_items, value);
    for (filter_item &item : list)
        item.path_text = path_items.empty() ? L"" : path_items[0].pattern_text;
}

void read_filter_options(cmd_params &params, arg_list &args)
{
    read_filter_option(params.skip_list, args, "-filter_skip");
    read_filter_option(params.filter_list, args, "-filter");
    std::string value;
    while (take_value(args, "-filter_sig", value))
        params.filter_list.push_back(parse_signature_filter(value));
}

u64 filetime_of(const _windows_systemtime &fields)
{
    std::tm calendar{};
    calendar.tm_year = fields.year - 1900;
    calendar.tm_mon = fields.month - 1;
    calendar.tm_mday = fields.day;
    calendar.tm_hour = fields.hour;
    calendar.tm_min = fields.minute;
    calendar.tm_sec = fields.second;
    return tm_to_filetime(calendar, fields.milliseconds);
}

enum class time_option { absent, no_date, bad, good };

// Reads "2024/1/31", "2024-1-31 12:30" and the like: year, month, day.
time_option take_time(arg_list &args, std::string_view name,
                      std::string_view default_clock, u64 &filetime)
{
    std::string value;
    if (!take_value(args, name, value)) return time_option::absent;
    const std::size_t blank = value.find(' ');
    const std::string date = value.substr(0, blank);
    const std::string clock = blank == std::string::npos ? std::string(default_clock)
                                                         : value.substr(blank + 1);
    const char separator = date.find('/') != std::string::npos ? '/' : '-';
    if (date.find(separator) == std::string::npos) return time_option::no_date;
    _windows_systemtime fields;
    if (!parse_date_time_ordered(date, clock, "YMD", separator, fields))
        return time_option::bad;
    filetime = filetime_of(fields);
    return time_option::good;
}

bool read_time_window(time_window &window, arg_list &args)
{
    const time_option start = take_time(args, "-cmd_start_time", "", window.start);
    if (start == time_option::no_date) return false;
    if (start == time_option::bad) print_error("invalid start time, ignoring\n");
    if (start == time_option::good) {
        window.start_set = true;
        window.stop_set = true;
        window.stop = std::numeric_limits<u64>::max();
    }
    const time_option stop = take_time(args, "-cmd_stop_time", "23:59:59", window.stop);
    if (stop == time_option::no_date) return false;
    if (stop == time_option::bad) print_error("invalid stop time, ignoring\n");
    if (stop == time_option::good) window.stop_set = true;
    return true;
}

void read_text_options(output_form &form, arg_list &args)
{
    if (take_flag(args, "-base10")) form.hex_numbers = false;
    if (take_flag(args, "-base16")) form.hex_numbers = true;
    std::string value;
    if (take_value(args, "-csv_separator", value)) form.set_separator(value);
    if (take_flag(args, "-enable_quoted_csv_fields")) {
        form.quoted_csv = true;
        if (form.separator_text.find('\t') == std::string::npos)
            trim(form.separator_text);
        form.space_after_separator = false;
        form.forbidden_char = 0;
    }
    if (take_flag(args, "-no_whitespace")) {
        form.no_whitespace = true;
        form.no_padding = true;
        form.space_after_separator = false;
        remove_char(form.separator_text, ' ');
    }
}

void read_template(arg_list &args, std::string_view name,
                   bool (*accepts)(std::string_view), std::string &result)
{
    std::string value;
    if (!take_value(args, name, value)) return;
    if (accepts(value))
        result = lower_copy(value);
    else
        print_error("invalid %s, using default format\n", value.c_str());
}

} // namespace

bool generic_parse(cmd_params &params, arg_list &args, evidence_test is_evidence)
{
    if (args.empty()) return false;
    output_form &form = params.form;
    if (params.command_line.empty()) params.command_line = join_args(args, 0, '"');
    if (form.program_name.empty()) form.program_name = program_name_of(args[0]);
    form.pair_date_time = take_flag(args, "-pair_datetime");
    read_log_options(params, args, is_evidence);
    read_form_options(form, args);
    if (!consume_aliases(args)) return false;
    if (!consume_storage_options(args)) return false;
    read_name_options(params, args);
    if (!read_output_option(params, args, is_evidence)) return false;
    read_input_options(params, args);
    read_filter_options(params, args);
    if (!read_time_window(params.window, args)) return false;
    read_text_options(form, args);
    read_template(args, "-dateformat", is_date_template, form.date_template);
    read_template(args, "-timeformat", is_time_template, form.time_template);
    if (take_flag(args, "-verbose") || take_flag(args, "-v")) params.verbose = true;
    if (take_flag(args, "-quiet")) params.progress = false;
    parse_date_time_format(form.format, form.date_template, form.time_template,
                           form.pair_date_time);
    return true;
}

} // namespace hv
