#include "recyclebin/text_table.h"

#include "recyclebin/evidence_text.h"

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

namespace hv {

namespace {

// Narrower than that, the last column would say nothing.
constexpr std::size_t min_last_width = 16;
constexpr std::size_t column_gap = 2;

std::string padding(std::size_t width, std::size_t wanted)
{
    return std::string(wanted > width ? wanted - width : 0, ' ');
}

} // namespace

text_table::text_table(std::vector<column> columns) : m_columns(std::move(columns))
{
    for (const column &head : m_columns) m_widths.push_back(display_width(head.head));
}

void text_table::add_row(std::vector<std::string> cells)
{
    cells.resize(m_columns.size());
    for (std::size_t at = 0; at < cells.size(); ++at)
        m_widths[at] = std::max(m_widths[at], display_width(cells[at]));
    m_rows.push_back(std::move(cells));
}

void text_table::write(std::ostream &out, std::size_t width) const
{
    std::vector<std::string> heads;
    for (const column &head : m_columns) heads.push_back(head.head);
    write_row(out, heads, width);
    for (const auto &cells : m_rows) write_row(out, cells, width);
}

void text_table::write_row(std::ostream &out, const std::vector<std::string> &cells,
                           std::size_t width) const
{
    std::size_t used = 0;
    const auto padded = [&](std::size_t at) {
        const std::string pad = padding(display_width(cells[at]), m_widths[at]);
        const bool is_right = m_columns[at].side == cell_side::right;
        const bool is_last = at + 1 == cells.size();
        return is_right ? pad + cells[at] : cells[at] + (is_last ? "" : pad);
    };
    for (std::size_t at = 0; at + 1 < cells.size(); ++at) {
        out << padded(at) << std::string(column_gap, ' ');
        used += m_widths[at] + column_gap;
    }
    const std::size_t left =
        width > used + min_last_width ? width - used : min_last_width;
    const std::string last = padded(cells.size() - 1);
    out << (width == 0 ? last : fit_end(last, left)) << '\n';
}

std::size_t terminal_width()
{
    winsize size{};
    return isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0
               ? size.ws_col
               : 0;
}

} // namespace hv
