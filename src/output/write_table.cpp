#include "output/write_table.h"

#include "base/hv_string.h"
#include "base/hv_time.h"
#include "output/row_text.h"
#include "output/write_timeline.h"

#include <algorithm>
#include <array>

namespace hv {

namespace {

constexpr u64 text_width = 8;

struct column_name {
    std::string_view name;
    cell_kind kind;
};

// clang-format off
constexpr std::array<column_name, 11> column_names = {{
    {"deleted date [UTC]",    cell_kind::filetime},
    {"modify date [UTC]",     cell_kind::filetime},
    {"access date [UTC]",     cell_kind::filetime},
    {"mftchanged date [UTC]", cell_kind::filetime},
    {"create date [UTC]",     cell_kind::filetime},
    {"size",                  cell_kind::text},
    {"ver",                   cell_kind::text},
    {"deleted_file",          cell_kind::text},
    {"user_sid",              cell_kind::text},
    {"source_of_data",        cell_kind::text},
    {"extra_info",            cell_kind::text},
}};
// clang-format on

void pad(std::string &text, std::size_t start, u64 width)
{
    const std::size_t length = text.size() - start;
    if (length < width) text.append(width - length, ' ');
}

std::string text_of(const report_column &cell, const output_form &form)
{
    std::string text = cell.text;
    replace_forbidden(text, form);
    if (form.kind == form_kind::csv || form.kind == form_kind::csvgen)
        escape_line_breaks(text);
    return text;
}

// Date, a blank, time. Without a valid time, `filler` is both.
std::string time_text_of(const report_column &cell, std::string_view filler,
                         const output_form &form)
{
    std::string date(filler);
    std::string clock(filler);
    const time when(cell.value, type_time::filetime);
    if (when.valid) format_date_time(date, clock, when, form.format);
    return date + " " + clock;
}

void append_cell(std::string &line, const report_column &cell, const output_form &form)
{
    const std::size_t start = line.size();
    if (cell.kind == cell_kind::filetime) {
        if (!form.no_padding && form.space_after_separator) line += ' ';
        line += time_text_of(cell, form.no_padding ? "" : " ", form);
    } else {
        line += text_of(cell, form);
    }
    if (!form.no_padding) pad(line, start, cell.width);
}

// One line a cell, then an empty line.
void write_multiline_row(std::ostream &stream, const report_row &row,
                         const output_form &form)
{
    std::string lines;
    for (std::size_t i = 0; i < row.size(); ++i) {
        lines.append(column_names[i].name).append(": ");
        lines += row[i].kind == cell_kind::filetime ? time_text_of(row[i], "", form)
                                                    : text_of(row[i], form);
        lines += '\n';
    }
    lines += '\n';
    stream.write(lines.data(), static_cast<std::streamsize>(lines.size()));
}

} // namespace

report_row table_columns(const output_form &form)
{
    const u64 time_width = form.date_template.size() + form.time_template.size() + 1 +
                           (form.space_after_separator ? 1 : 0);
    report_row columns;
    for (const column_name &one : column_names) {
        report_column column{one.kind, 0, std::string(one.name), 0};
        if (!form.no_padding)
            column.width = one.kind == cell_kind::filetime ? time_width : text_width;
        columns.push_back(std::move(column));
    }
    return columns;
}

report_row table_row(const trash_entry &entry, const report_row &columns,
                     const inode_store &records, const output_form &form)
{
    report_row row(columns.size());
    for (std::size_t i = 0; i < row.size(); ++i) row[i].width = columns[i].width;
    const auto set_time = [&row](std::size_t column, u64 filetime) {
        row[column].kind = cell_kind::filetime;
        row[column].value = filetime;
    };
    set_time(0, entry.deleted_time);
    if (entry.has_data_file) {
        const inode_record data = records[entry.data_record];
        set_time(1, data.si_modified);
        set_time(2, data.si_accessed);
        set_time(3, data.si_mft_changed);
        set_time(4, data.si_created);
    }
    row[5].text = shown_size(entry, records, form);
    row[6].text = version_label(entry.version);
    row[7].text = shown_path(entry);
    row[8].text = entry.user_sid;
    row[9].text = source_of_data(entry, records, form);
    row[10].text = extra_info(entry, records);
    return row;
}

void write_column_line(std::ostream &stream, const report_row &columns,
                       const output_form &form)
{
    std::string line;
    for (const report_column &column : columns) {
        if (!line.empty()) line += form.separator_text;
        const std::size_t start = line.size();
        line += column.text;
        pad(line, start, column.width);
    }
    stream << line << '\n';
}

void write_row(std::ostream &stream, const report_row &row, const output_form &form)
{
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (i != 0) line += form.separator_text;
        append_cell(line, row[i], form);
    }
    line += '\n';
    stream.write(line.data(), static_cast<std::streamsize>(line.size()));
}

void write_results(std::ostream &stream, const result_list &entries,
                   const inode_store &records, const output_form &form)
{
    switch (form.kind) {
    case form_kind::csvl2t: write_timeline(stream, entries, records, form); return;
    // These two forms have no columns: no row can be written, and the one form leaves
    // an empty line where its rows would be.
    case form_kind::xml: return;
    case form_kind::bodyfile:
        if (!entries.empty()) stream << '\n';
        return;
    default: break;
    }
    const report_row columns = table_columns(form);
    write_column_line(stream, columns, form);
    for (const trash_entry *entry : entries.in_order()) {
        const report_row row = table_row(*entry, columns, records, form);
        if (form.kind == form_kind::multiline)
            write_multiline_row(stream, row, form);
        else
            write_row(stream, row, form);
    }
}

} // namespace hv
