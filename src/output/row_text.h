#pragma once

#include "records/trash_options.h"

#include <string>
#include <string_view>

/// The texts of a row that the table and the timeline share.
namespace hv {

/// The Windows that wrote the metadata, for example "Win10".
std::string_view version_label(u32 version);
/// The path that the file had before it was deleted.
const std::string &shown_path(const trash_entry &entry);
/// The size of the data file or, unpaired, the size that the metadata states.
std::string shown_size(const trash_entry &entry, const trash_options &options);
/// The cell that says which file, record and offset the row was read from.
std::string source_of_data(const trash_entry &entry, const trash_options &options);
/// The same for the notes of a timeline: without the metadata's name, and without the
/// path of a file that has an entry number.
std::string source_notes(const trash_entry &entry, const trash_options &options);
/// Where the data file was downloaded from, and what else is known; empty for nothing.
std::string extra_info(const trash_entry &entry, const trash_options &options);

/// Replaces what may not stand inside a cell.
void replace_forbidden(std::string &text, const trash_options &options);

} // namespace hv
