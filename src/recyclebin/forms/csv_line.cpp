#include "recyclebin/forms/csv_line.h"

#include <algorithm>

namespace hv {

namespace {

// Spreadsheets take the wide forms of East Asian keyboards for the same characters.
constexpr std::string_view formula_beginnings[] = {
    "=", "+", "-", "@", "\t", "\r", "\n", "\uff1d", "\uff0b", "\uff0d", "\uff20"};

// A decimal number as this program writes it, which readers of numbers need as it is.
bool is_plain_number(std::string_view cell)
{
    if (cell.starts_with('-')) cell.remove_prefix(1);
    const bool has_padding = cell.size() > 1 && cell.starts_with('0');
    return !cell.empty() && !has_padding &&
           cell.find_first_not_of("0123456789") == std::string_view::npos;
}

// What a spreadsheet takes for a number: "1e5" and "007" are texts here.
bool looks_like_number(std::string_view cell)
{
    return cell.find_first_of("0123456789") != std::string_view::npos &&
           cell.find_first_not_of("0123456789.,eE+-") == std::string_view::npos;
}

// Spreadsheets of many countries end cells at semicolons. With this text in their
// place, such a cell can't become two, of which the second one is a formula.
std::string without_semicolons(std::string cell)
{
    constexpr std::string_view mark = "<U+003B>";
    for (std::size_t at = 0; (at = cell.find(';', at)) != std::string::npos;
         at += mark.size())
        cell.replace(at, 1, mark);
    return cell;
}

bool needs_quotes(std::string_view cell)
{
    return cell.find_first_of(",\";") != std::string_view::npos ||
           cell.starts_with(' ') || cell.ends_with(' ');
}

void write_cell(std::ostream &out, std::string_view cell)
{
    if (!needs_quotes(cell)) {
        out << cell;
        return;
    }
    out << '"';
    for (const char c : cell) {
        if (c == '"') out << '"';
        out << c;
    }
    out << '"';
}

} // namespace

std::string without_formula(std::string cell)
{
    const auto begins_with = [&cell](std::string_view beginning) {
        return cell.starts_with(beginning);
    };
    const bool is_harmless = cell == "-" || is_plain_number(cell);
    const bool is_changed =
        std::ranges::any_of(formula_beginnings, begins_with) || looks_like_number(cell);
    if ((is_changed && !is_harmless) || cell.starts_with('\'')) cell.insert(0, 1, '\'');
    return cell;
}

void write_csv_line(std::ostream &out, const std::vector<std::string> &cells,
                    const csv_dialect &dialect)
{
    const char *separator = "";
    for (const std::string &cell : cells) {
        out << separator;
        write_cell(out, dialect.formula_safe ? without_semicolons(without_formula(cell))
                                             : cell);
        separator = ",";
    }
    out << dialect.line_end;
}

} // namespace hv
