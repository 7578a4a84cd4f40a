#pragma once

#include "records/trash_options.h"

#include <ostream>
#include <string>
#include <vector>

namespace hv {

enum class cell_kind : u16 { text = 11, filetime = 13 };

/// One column of the table, or one cell of a row.
struct report_column {
    cell_kind kind = cell_kind::text;
    u64 width = 0;    ///< bytes to pad to, 0 for none
    std::string text; ///< the column's name, or the cell's text
    u64 value = 0;    ///< FILETIME of a time cell
};
using report_row = std::vector<report_column>;

/// Writes all rows in the form that the options ask for: a table or a timeline. The
/// column line comes only once a run.
void write_results(std::ostream &stream, const result_list &entries,
                   trash_options &options);

/// The columns of the table with their widths.
report_row table_columns(const trash_options &options);
/// The cells of one entry, sized like `columns`.
report_row table_row(const trash_entry &entry, const report_row &columns,
                     const trash_options &options);
void write_column_line(std::ostream &stream, const report_row &columns,
                       trash_options &options);
void write_row(std::ostream &stream, const report_row &row,
               const trash_options &options);

} // namespace hv
