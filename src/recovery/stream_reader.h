#pragma once

#include "evidence/volume_view.h"

#include <vector>

/// The bytes of a stream in their order, a stretch at a time, and which of them aren't
/// the stream's own.
namespace hv {

/// Why bytes of a stream couldn't be had. In the result they are zeros, but for
/// `not_expanded`.
enum class gap_reason {
    unreadable,  ///< the medium doesn't deliver them
    off_medium,  ///< after the end of the medium, or kept by no snapshot
    overwritten, ///< in clusters that are in use by others
    no_run,      ///< no record that is left says where they are
    torn,        ///< in a part of the record that is of another write
    not_expanded ///< marked as compressed, and can't be expanded: as stored, or zeros
};

struct stream_gap {
    u64 offset = 0; ///< in the stream
    u64 length = 0;
    gap_reason why = gap_reason::unreadable;
};

/// Which stream of which file, and how its record was found.
struct stream_choice {
    const file_facts &facts;
    attribute_type type = attribute_type::data;
    std::u16string_view name = {};
    /// How many bytes of the record are of one write.
    u64 sound = ~u64{0};
    /// The record, or the clusters, may have been given to others since.
    bool is_freed = false;
    /// Of a record that no view leads to, on the medium.
    std::optional<u64> record_position = {};
};

/// Reads one stream once, from its start to its end, in bounded memory.
class stream_reader {
public:
    /// All of them outlive the reader. `medium` knows what it couldn't read.
    stream_reader(const volume_view &view, const byte_source &medium,
                  const stream_choice &choice);

    bool exists() const { return m_first != nullptr; }
    /// Bytes that `next` will deliver: of an encrypted stream whole sectors, else the
    /// size that the record states.
    u64 size() const { return m_size; }
    /// As the record states it.
    u64 stated_size() const { return m_first->length; }
    const stream_fact &stream() const { return *m_first; }
    /// Bytes that holes take; they cost a disk nothing, and a reader time.
    u64 hole_bytes() const;
    /// How many clusters its runs claim, without holes.
    u64 stored_clusters() const;
    /// How many of its clusters are stored, and how many of them are in use by others.
    struct cluster_count {
        u64 stored = 0;
        u64 taken = 0;
    };
    cluster_count count_clusters() const;
    /// Where the bytes are on the medium, in their order, as many as are told; of a
    /// compressed stream its compressed bytes.
    std::vector<byte_range> ranges() const;

    /// The next bytes, valid until the next call; none at the end.
    byte_view next();
    /// What was missing of the bytes delivered so far, in order.
    const std::vector<stream_gap> &gaps() const { return m_gaps; }

private:
    struct stretch {
        u64 lcn = 0;
        u64 clusters = 0;
        bool is_hole = false;
        bool is_known = true; // false: no run says where
        bool is_last = false; // no run follows
    };

    void collect_runs(const stream_choice &choice);
    stretch stretch_at(u64 vcn) const;
    void read_resident();
    void read_plain();
    void read_unit();
    void fill_stretch(std::span<u8> out, const stretch &from, u64 skip);
    void fill_stored(std::span<u8> out, u64 position, u64 offset);
    void collect_unit(std::vector<u8> &packed, bool &has_hole);
    void expand(byte_view packed, bool has_hole);
    void find_gaps(u64 position, u64 length, u64 offset);
    void add_gap(u64 offset, u64 length, gap_reason why);

    const volume_view &m_view;
    const byte_source &m_medium;
    const bool m_is_freed;
    const u64 m_sound;
    const std::optional<u64> m_record_position;
    const u64 m_entry;
    const stream_fact *m_first = nullptr;
    std::vector<flat_run> m_runs; // by their first cluster in the stream
    u64 m_size = 0;
    u64 m_valid = 0; // after it the file system itself reads zeros
    u64 m_done = 0;
    std::vector<u8> m_bytes;
    std::vector<stream_gap> m_gaps;
};

} // namespace hv
