#pragma once

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

/// Lines of comma-separated values by RFC 4180.
namespace hv {

struct csv_dialect {
    std::string_view line_end;
    bool formula_safe = false; ///< no cell that a spreadsheet would calculate
};

/// Writes one line. The cells are `cell_text`: they have no line breaks.
void write_csv_line(std::ostream &out, const std::vector<std::string> &cells,
                    const csv_dialect &dialect);

/// The cell with an apostrophe before it if a spreadsheet would calculate it, or would
/// take a text such as "1e5" for a number. Also if it begins with an apostrophe: the
/// first one of a cell is never its own.
std::string without_formula(std::string cell);

} // namespace hv
