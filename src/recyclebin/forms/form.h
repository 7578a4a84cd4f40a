#pragma once

#include "disk/hv_byte_source.h"
#include "evidence/deletion.h"
#include "recyclebin/bytes_command.h"

#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The forms that deletions are written in.
namespace hv {

/// What every form tells of.
struct listing {
    const examination &found;
    std::vector<const deletion *> items; ///< of `found`, in its order
    const byte_source &medium;
    std::string medium_name;      ///< as the user named it; not escaped
    std::string medium_kind = {}; ///< for people: "raw image"
    bytes_access access = bytes_access::plain_file;
    bool is_carved = false; ///< free clusters were searched, too
};

/// What a user asks of forms. Each has a meaning in some of them only.
struct form_options {
    bool formula_safe = false; ///< no cell that a spreadsheet would calculate
    bool byte_order_mark = false;
};

/// One form: a name, the ending of files that are written in it, and its writer.
struct form {
    std::string_view name;
    std::string_view ending; ///< ".csv"; empty if no ending means this form
    std::string_view about;  ///< for the help
    /// Writes all of it. That the stream refuses bytes shows in the stream's state.
    void (*write)(std::ostream &out, const listing &told, const form_options &options);
    std::string_view other_ending = {}; ///< that means this form, too
};

/// All forms; the first one is the default.
std::span<const form> all_forms();
/// Null if there is none of this name.
const form *form_called(std::string_view name);
/// The form that the ending of a file means; null for any other ending.
const form *form_for_file(std::string_view path);

/// Where results go, and how.
struct output_target {
    std::string path; ///< empty: standard output
    const form *how = nullptr;
};

} // namespace hv
