#pragma once

#include "media/bitlocker.h"
#include "recyclebin/forms/form.h"
#include "recyclebin/selection.h"

#include <string>

namespace hv {

/// What the program ends with.
enum class exit_status {
    rows = 0,      ///< read whole, and there was something to tell
    no_rows = 1,   ///< read whole, and there was nothing
    usage = 2,     ///< the command line is wrong
    no_source = 3, ///< a source can't be opened, or isn't of a known kind
    partly = 4,    ///< part of a source couldn't be read
    no_output = 5  ///< results couldn't be written
};

enum class command {
    bytes,
    check,
    list,
    snapshots,
    diff,
    explain,
    recheck,
    export_data
};

/// What `export` is asked for.
struct export_options {
    std::string to;       ///< folder; empty with `only_hash`
    std::string manifest; ///< file; empty: in the folder, or standard output
    bool only_hash = false;
    std::optional<u64> max_size; ///< bytes of a file
};

/// What the user asks for. Constant once it is read.
struct command_line {
    command what = command::list;
    std::string medium;
    std::string rows_file;       ///< of `recheck`
    std::string id;              ///< of `explain`
    std::optional<u32> from, to; ///< views, of `diff`
    std::optional<u64> offset;
    std::optional<u64> first_byte, byte_count; ///< of `bytes`
    volume_keys keys;
    bool carve = false;
    selection wanted;
    /// Never empty. Commands other than `list` write to the first one, in a form of
    /// their own.
    std::vector<output_target> outputs;
    const form *format = nullptr; ///< of outputs whose form nothing else says
    form_options how_to_write;
    bool force = false;
    export_options exporting;
};

/// Reads the arguments. A status is what to end with at once: help or the version was
/// shown, or the fault was said on standard error.
std::optional<exit_status> read_command_line(command_line &line, int argc,
                                             const char *const *argv);

} // namespace hv
