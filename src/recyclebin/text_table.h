#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace hv {

/// Which side of its column a cell keeps to.
enum class cell_side { left, right };

/// A table for people, with two blanks between its columns. Cells are escaped text.
class text_table {
public:
    struct column {
        std::string head;
        cell_side side = cell_side::left;
    };
    explicit text_table(std::vector<column> columns);

    void add_row(std::vector<std::string> cells);
    /// Writes it. Where the lines would be longer than `width`, the last column loses
    /// the starts of its cells; 0 is no limit.
    void write(std::ostream &out, std::size_t width) const;

private:
    void write_row(std::ostream &out, const std::vector<std::string> &cells,
                   std::size_t width) const;

    std::vector<column> m_columns;
    std::vector<std::size_t> m_widths;
    std::vector<std::vector<std::string>> m_rows;
};

/// The width of the terminal that standard output is; 0 if it is none.
std::size_t terminal_width();

} // namespace hv
