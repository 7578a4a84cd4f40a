#pragma once

#include "options/output_form.h"
#include "records/inode_store.h"
#include "records/trash_entry.h"

#include <string>
#include <string_view>

/// The texts of a row that the table and the timeline share. `records` is the store
/// that the entry's store indexes belong to.
namespace hv {

/// The Windows that wrote the metadata, for example "Win10".
std::string_view version_label(u32 version);
/// The path that the file had before it was deleted.
const std::string &shown_path(const trash_entry &entry);
/// The size of the data file or, unpaired, the size that the metadata states.
std::string shown_size(const trash_entry &entry, const inode_store &records,
                       const output_form &form);
/// The cell that says which file, record and offset the row was read from.
std::string source_of_data(const trash_entry &entry, const inode_store &records,
                           const output_form &form);
/// The same for the notes of a timeline: without the metadata's name, and without the
/// path of a file that has an entry number.
std::string source_notes(const trash_entry &entry, const inode_store &records,
                         const output_form &form);
/// Where the data file was downloaded from, and what else is known; empty for nothing.
std::string extra_info(const trash_entry &entry, const inode_store &records);

/// Replaces the character that the form doesn't allow inside a cell.
void replace_forbidden(std::string &text, const output_form &form);

} // namespace hv
