#pragma once

#include "options/output_form.h"
#include "records/inode_store.h"
#include "records/trash_entry.h"

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

/// Writes all rows in the form that was asked for: a table with its column line, or a
/// timeline. `records` is the store that the entries' store indexes belong to.
void write_results(std::ostream &stream, const result_list &entries,
                   const inode_store &records, const output_form &form);

/// The columns of the table with their widths.
report_row table_columns(const output_form &form);
/// The cells of one entry, sized like `columns`.
report_row table_row(const trash_entry &entry, const report_row &columns,
                     const inode_store &records, const output_form &form);
void write_column_line(std::ostream &stream, const report_row &columns,
                       const output_form &form);
void write_row(std::ostream &stream, const report_row &row, const output_form &form);

} // namespace hv
