#include "output/write_timeline.h"

#include "base/hv_string.h"
#include "base/hv_time_text.h"
#include "output/row_text.h"

#include <array>

namespace hv {

namespace {

constexpr std::array<const char *, 15> column_names = {
    "timezone", "MACB",    "source",   "sourcetype", "type",  "user",   "host", "short",
    "desc",     "version", "filename", "inode",      "notes", "format", "extra"};

// One of the four times of a record.
struct macb_time {
    u64 raw = 0;
    time when;
    const std::string *label = nullptr;
    bool used = false;
};

void write_header_line(std::ostream &stream, const output_form &form)
{
    const std::string &separator = form.separator_text;
    std::string line = form.pair_date_time ? "date/time" : "date" + separator + "time";
    for (const char *name : column_names) line += separator + name;
    stream << line << '\n';
}

std::string date_and_time(const time &when, const output_form &form)
{
    const std::string blank = form.no_whitespace ? "" : " ";
    std::string date;
    std::string clock;
    format_date_time(date, clock, when, form.format);
    if (form.pair_date_time) return blank + date + " " + clock;
    return date + form.separator_text + blank + clock;
}

std::string description(const trash_entry &entry, const inode_store &records,
                        const output_form &form)
{
    std::string text = shown_path(entry) + "; ";
    if (entry.version == 0)
        text += "rec# " + form.number(entry.record_number) + "; vol# " +
                form.number(entry.drive_number) + "; ";
    return text + "size " + shown_size(entry, records, form);
}

void set_times(l2t_record &record, const trash_entry &entry, const inode_store &records)
{
    record.change_time = entry.deleted_time;
    if (!entry.has_data_file) return;
    const inode_record data = records[entry.data_record];
    record.modify_time = data.si_modified;
    record.access_time = data.si_accessed;
    record.create_time = data.si_created;
    if (record.change_time == 0) record.change_time = data.si_mft_changed;
}

void escape_texts(l2t_record &record, const output_form &form)
{
    if (form.forbidden_char != 0 && form.replacement_char != 0)
        for (std::string *text : {&record.short_text, &record.desc, &record.filename,
                                  &record.notes, &record.extra})
            replace_forbidden(*text, form);
    for (std::string *text : {&record.desc, &record.notes, &record.extra})
        escape_line_breaks(*text);
}

} // namespace

l2t_record timeline_record(const trash_entry &entry, const inode_store &records,
                           const output_form &form)
{
    l2t_record record;
    set_times(record, entry, records);
    record.modify_label = "Last Modified";
    record.access_label = "Last Accessed";
    record.change_label = "Deleted";
    record.create_label = "Created";
    record.source = form.tool_tag;
    record.sourcetype = "RECYCLE_BIN";
    record.user = form.username;
    record.host = form.hostname;
    record.short_text = shown_path(entry);
    record.desc = description(entry, records, form);
    record.filename = entry.metadata_name;
    const u64 owner = entry.has_data_file ? entry.data_record : entry.meta_record;
    record.inode = std::to_string(owner == no_index ? 0 : records[owner].entry);
    record.notes = source_notes(entry, records, form);
    record.format_name = form.program_name + " (halvern)";
    record.extra = extra_info(entry, records);
    if (record.extra.empty()) record.extra = version_label(entry.version);
    return record;
}

void build_macb_rows(l2t_rows &rows, const l2t_record &record)
{
    const auto made = [&record](u64 raw, const std::string &label) {
        return macb_time{raw, time(raw, record.time_type), &label, false};
    };
    std::array<macb_time, 4> times = {made(record.modify_time, record.modify_label),
                                      made(record.access_time, record.access_label),
                                      made(record.change_time, record.change_label),
                                      made(record.create_time, record.create_label)};
    for (std::size_t opener = 0; opener < times.size(); ++opener) {
        const macb_time &first = times[opener];
        if (first.raw == 0 || !first.when.valid || first.used) continue;
        l2t_row row;
        row.when = first.when;
        for (std::size_t i = opener; i < times.size(); ++i) {
            macb_time &other = times[i];
            if (!other.when.valid || other.used ||
                other.when.filetime != row.when.filetime)
                continue;
            other.used = true;
            row.macb[i] = "MACB"[i];
            if (!row.label.empty() && !other.label->empty()) row.label += "; ";
            row.label += *other.label;
        }
        rows.emplace(first.raw, std::move(row));
    }
}

void write_l2t_record(bool &first_row, std::ostream &stream, l2t_record record,
                      const output_form &form)
{
    if (first_row) write_header_line(stream, form);
    first_row = false;
    escape_texts(record, form);
    l2t_rows rows;
    build_macb_rows(rows, record);
    const std::string &separator = form.separator_text;
    const std::string version = std::to_string(record.version);
    for (const auto &[key, row] : rows) {
        const std::string when = date_and_time(row.when, form);
        const std::array<std::string_view, 16> cells = {
            when,          record.timezone,   row.macb,
            record.source, record.sourcetype, row.label,
            record.user,   record.host,       record.short_text,
            record.desc,   version,           record.filename,
            record.inode,  record.notes,      record.format_name,
            record.extra};
        std::string line = join_texts(cells, separator);
        line += '\n';
        stream.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
}

void write_timeline(std::ostream &stream, const result_list &entries,
                    const inode_store &records, const output_form &form)
{
    bool first_row = true;
    for (const trash_entry *entry : entries.in_order())
        write_l2t_record(first_row, stream, timeline_record(*entry, records, form),
                         form);
}

} // namespace hv
