#pragma once

#include "evidence/carve_sink.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace hv {

/// Searches bytes that no file system structure leads to. At every sector of 512 bytes:
/// "FILE" records of any size, "INDX" blocks, contents of `$I` files. At every byte:
/// records of lists, with or without the head of their list. At every eighth byte:
/// lines of the change journal.
///
/// What is reported comes in no order. Nothing is reported twice. What a whole record
/// holds is left to whoever reads the record.
class carver {
public:
    /// `sink` has to outlive the carver.
    explicit carver(carve_sink &sink) : m_sink(sink) {}

    /// Searches the stretch that begins at `position` on the medium, a multiple of 512.
    /// If it doesn't follow the stretch of the last call, that one is finished first;
    /// if it does, structures may cross from one to the other. The last bytes are kept
    /// until the next call.
    void carve(byte_view bytes, u64 position);
    /// Searches what is kept. Structures that the end cuts off are reported if they are
    /// sure.
    void finish();

private:
    // Bytes in memory and their place on the medium.
    struct stretch {
        byte_view bytes;
        u64 position = 0;
    };

    void keep(byte_view bytes);
    void search(const stretch &in, u64 end);
    void search_sectors(const stretch &in, u64 begin, u64 end);
    void search_sector(const stretch &in, u64 at);
    void search_lists(const stretch &in, u64 begin, u64 end);
    void search_journal(const stretch &in, u64 at);
    void search_expected(const stretch &in, u64 end);
    void take_record(const stretch &in, u64 at);
    void take_index_block(const stretch &in, u64 at);
    void take_list_record(const stretch &in, u64 at,
                          std::optional<metadata_format> list);
    bool is_in_record(u64 position) const;

    carve_sink &m_sink;
    std::vector<u8> m_kept;  // not searched yet
    u64 m_kept_position = 0; // of its first byte on the medium
    std::vector<u8> m_block; // the one that is reported, with its tails put back
    // All of these are positions on the medium.
    u64 m_list_from = 0;    // no record of a list begins before this
    u64 m_journal_from = 0; // no line of a journal begins before this
    std::map<u64, metadata_format> m_expected;  // where records of lists should begin
    std::vector<std::pair<u64, u64>> m_records; // begin and end of whole records
};

} // namespace hv
