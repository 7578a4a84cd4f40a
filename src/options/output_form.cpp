#include "options/output_form.h"

#include "base/hv_string.h"

namespace hv {

void output_form::set_separator(std::string_view text)
{
    separator_text = text;
    forbidden_char = 0;
    replacement_char = 0;
    if (quoted_csv) return;
    const std::string lower = lower_copy(text);
    if (lower.find('|') != std::string::npos) {
        forbidden_char = '|';
        replacement_char = ';';
    } else if (lower.find(',') != std::string::npos) {
        forbidden_char = ',';
        replacement_char = ' ';
    } else if (lower == "tab" || lower == "\\t") {
        separator_text = "\t";
    }
}

std::string output_form::number(u64 value) const
{
    return number_text(value, hex_numbers);
}

} // namespace hv
