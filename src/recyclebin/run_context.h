#pragma once

#include "evidence/describe_medium.h"
#include "recyclebin/command_line.h"
#include "recyclebin/export_target.h"
#include "recyclebin/input.h"

#include <ostream>

namespace hv {

/// What every command works on: the medium, and what an examination found on it.
struct run_context {
    const command_line &line;
    const opened_input &input; ///< what is read, and which files that needs
    export_target &target;     ///< where an export goes
    byte_source_ptr medium;    ///< the bytes of `input`
    examination found = {};

    /// The deletions that the user asks for, in the order of `found`.
    std::vector<const deletion *> selected() const;
    /// The numbers of the snapshots that any volume asked for has.
    std::set<u32> snapshots() const;
    /// For the closing line: "nothing unreadable", or what couldn't be read.
    std::string unread_text() const;
};

/// The commands. Each writes its results to `out`, and says whether there were any.
exit_status run_check(std::ostream &out, const run_context &context);
/// The same for what isn't a medium.
exit_status run_check_files(std::ostream &out, const run_context &context);
exit_status run_snapshots(std::ostream &out, const run_context &context);
exit_status run_diff(std::ostream &out, const run_context &context);
exit_status run_explain(std::ostream &out, const run_context &context);
/// Writes data into a folder; `out` gets the manifest, if that goes nowhere else.
exit_status run_export(std::ostream &out, const run_context &context);
/// Writes to each of the outputs that the user asks for, in their order.
exit_status run_list(const std::vector<std::ostream *> &outs,
                     const run_context &context);
/// These need the medium alone, without an examination.
exit_status run_bytes(std::ostream &out, const run_context &context);
exit_status run_recheck(std::ostream &out, const run_context &context);

/// Why a medium without an NTFS volume can't be read, and what to try.
std::string refusal_text(const medium_description &description);

/// Prints "recyclebin: " and a text on standard error, escaped.
void complain(std::string_view text);

} // namespace hv
