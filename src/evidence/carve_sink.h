#pragma once

#include "base/hv_byte_view.h"
#include "evidence/sighting.h"
#include "formats/deleted_file.h"
#include "formats/journal.h"

#include <optional>
#include <string>

namespace hv {

/// A record or an index block that was found by its signature.
struct carved_block {
    u64 position = 0; ///< byte on the medium
    /// With the update sequence undone. Fewer bytes than the block has if the stretch
    /// that was searched ends in it. Only good during the call.
    byte_view bytes;
    bool is_torn = false; ///< a sector doesn't match, or the block is cut off
};

/// A name in slack: the content of a $FILE_NAME, or an entry of an index.
struct slack_name {
    std::u16string name;
    std::optional<entry_id> parent; ///< of its folder; empty if written over
    std::optional<entry_id> entry;  ///< of an index entry; empty if written over
    record_times times;             ///< 0 for those that are written over
    u64 data_size = 0;
    bool is_directory = false;
    u64 length = 0; ///< bytes from the parent's reference to the end of the name
};

/// Gets what a search finds. What a caller doesn't want, it doesn't override.
class carve_sink {
public:
    carve_sink() = default;
    virtual ~carve_sink() = default;
    carve_sink(const carve_sink &) = delete;
    carve_sink &operator=(const carve_sink &) = delete;

    /// A "FILE" record.
    virtual void found_record(const carved_block & /*record*/) {}
    /// An "INDX" block.
    virtual void found_index_block(const carved_block & /*block*/) {}
    /// The content of a `$I` file, or a record of a list. `at` is its first byte: on
    /// the medium, or in the record or block whose slack is searched.
    virtual void found_metadata(u64 /*at*/, const deleted_file & /*file*/) {}
    virtual void found_journal_record(u64 /*at*/, const journal_record & /*record*/) {}
    /// `at` is the place of the parent's reference; if that is written over, it may be
    /// before the slack.
    virtual void found_name(u64 /*at*/, const slack_name & /*name*/) {}
};

} // namespace hv
