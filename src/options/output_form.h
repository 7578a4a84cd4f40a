#pragma once

#include "base/hv_time_text.h"
#include "base/hv_types.h"

#include <string>
#include <string_view>

namespace hv {

/// What the results look like.
enum class form_kind {
    table,     ///< padded columns
    csv,       ///< `-csv`
    csvgen,    ///< `-csvgen`
    csvl2t,    ///< `-csvl2t`: a timeline
    bodyfile,  ///< `-bodyfile`
    multiline, ///< `-multiline`: one line for each cell
    xml,       ///< `-xml`
};

/// The form of the results, and what the rows say of the run. The writers need no other
/// option.
struct output_form {
    form_kind kind = form_kind::table;
    std::string separator_text = " | ";
    char forbidden_char = '|';   ///< not allowed inside a cell; 0 for none
    char replacement_char = ';'; ///< what takes its place
    bool no_padding = false;
    bool space_after_separator = true; ///< one blank before each time of a table
    bool no_whitespace = false;        ///< `-no_whitespace` itself was given
    bool quoted_csv = false;
    bool hex_numbers = true;
    std::string date_template{default_date_template};
    std::string time_template{default_time_template};
    bool pair_date_time = false;
    date_time_format format; ///< made from the two templates

    std::string program_name; ///< without directory and extension
    std::string tool_tag;     ///< short name of the source in a timeline
    std::string username;
    std::string hostname;

    /// Takes the text between columns. A text with "|" or "," also sets the character
    /// that isn't allowed inside a cell; "tab" and "\t" mean one tab.
    void set_separator(std::string_view text);

    /// The number as `-base10` and `-base16` want it.
    std::string number(u64 value) const;
};

} // namespace hv
