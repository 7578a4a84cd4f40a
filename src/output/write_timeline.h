#pragma once

#include "base/hv_time.h"
#include "options/output_form.h"
#include "records/inode_store.h"
#include "records/trash_entry.h"

#include <map>
#include <ostream>
#include <string>

namespace hv {

/// What the timeline says of one deleted file. A time of 0 is absent.
struct l2t_record {
    u64 modify_time = 0; ///< FILETIMEs
    u64 access_time = 0;
    u64 change_time = 0;
    u64 create_time = 0;
    std::string modify_label;
    std::string access_label;
    std::string change_label;
    std::string create_label;
    type_time time_type = type_time::filetime;
    std::string timezone = "UTC";
    std::string source;
    std::string sourcetype;
    std::string user;
    std::string host;
    std::string short_text;
    std::string desc;
    int version = 2;
    std::string filename;
    std::string inode;
    std::string notes;
    std::string format_name;
    std::string extra;
};

/// One line: a moment, the letters of the times that fall on it, and their names.
struct l2t_row {
    time when;
    std::string macb = "....";
    std::string label;
};
/// Lines by the raw value of the time that opened them, in ascending order.
using l2t_rows = std::multimap<u64, l2t_row>;

/// Writes one line for each distinct time of each entry. Without entries, nothing at
/// all.
void write_timeline(std::ostream &stream, const result_list &entries,
                    const inode_store &records, const output_form &form);

l2t_record timeline_record(const trash_entry &entry, const inode_store &records,
                           const output_form &form);
/// Groups the four times of a record into lines. Times that can't be used make none.
void build_macb_rows(l2t_rows &rows, const l2t_record &record);
/// Writes the lines of a record, after the header line if `first_row` is set, which is
/// then cleared.
void write_l2t_record(bool &first_row, std::ostream &stream, l2t_record record,
                      const output_form &form);

} // namespace hv
