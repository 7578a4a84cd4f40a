#pragma once

#include "disk/hv_byte_source.h"
#include "evidence/file_facts.h"
#include "ntfs/ntfs.h"

#include <functional>
#include <map>
#include <memory>
#include <set>

/// A volume as it is now, or as a snapshot saw it: its records, and the bytes of its
/// files with their places on the medium.
namespace hv {

/// Bytes of a file, as far as they could be read.
struct file_content {
    std::vector<u8> bytes;
    std::vector<byte_range> ranges; ///< on the medium, in their order; no holes
    bool is_plain = true;           ///< each byte is on the medium as it is here
    /// Which bytes are zeros since they couldn't be read, or lie after the end of the
    /// medium; in order.
    std::vector<byte_source::unread_part> unread;

    /// What is before the first byte that couldn't be read.
    byte_view readable_front() const
    {
        return byte_view{bytes}.clip(0, unread.empty() ? ~u64{0} : unread[0].offset);
    }
    bool has_unread(u64 offset, u64 length) const;
};

/// Whether a view gets to know which clusters are in use. Reading files doesn't need
/// it.
enum class cluster_map { load, skip };

class volume_view {
public:
    /// The volume begins `offset` bytes into `source`. `number` is 0 for the volume as
    /// it is now, else that of the snapshot.
    volume_view(byte_source_ptr source, u64 offset, u32 number);

    /// False if it isn't a volume that can be read; nothing else works then.
    bool open(cluster_map map = cluster_map::load);
    /// The same for a source that is a copy of an $MFT and nothing else: only what is
    /// in the records can be read, and `volume` and `offset` mean nothing. False if it
    /// doesn't begin with a record.
    bool open_mft_copy();
    /// False for a copy of an $MFT: no stream outside of the records can be read.
    bool has_clusters() const { return m_volume != nullptr; }
    u32 number() const { return m_number; }
    u64 offset() const { return m_offset; }
    const byte_source_ptr &source() const { return m_source; }
    /// Whether the volume says which clusters are in use.
    bool has_bitmap() const { return !m_bitmap.bytes.empty(); }
    bool has_whole_bitmap() const { return has_bitmap() && m_bitmap.unread.empty(); }
    const CNtfs &volume() const { return *m_volume; }
    u64 entry_count() const { return m_entry_count; }
    u32 record_size() const { return m_record_size; }
    u32 cluster_size() const { return m_cluster_size; }

    /// Calls `visit` with each record of the $MFT as it is on the medium, in order.
    /// Stretches without a byte on the medium are left out.
    void
    for_each_record(const std::function<void(u64 entry, byte_view raw)> &visit) const;
    /// Reads the record of an entry, and the facts of all its extension records as
    /// well. False if there is none.
    bool read_file(file_facts &out, record_bytes &record, u64 entry) const;

    /// Where a part of an entry's record is on the medium.
    std::vector<byte_range> places_in_record(u64 entry, u64 at, u64 length) const;
    /// Where the clusters of runs are on the medium. Not more than `limit` bytes.
    std::vector<byte_range> places(const std::vector<flat_run> &runs, u64 limit) const;

    /// Reads the unnamed $DATA of a file, or another stream; not more than `limit`
    /// bytes. `entry` is the file's. False if there is no such stream.
    bool read_stream(file_content &out, const file_facts &facts, u64 limit,
                     attribute_type type = attribute_type::data,
                     std::u16string_view name = {}) const;

    /// Whether $Bitmap says that a cluster is in use; true if that can't be read.
    bool is_in_use(u64 cluster) const;
    /// Whether what $Bitmap says of a cluster could be read.
    bool is_use_known(u64 cluster) const;
    u64 cluster_count() const { return m_cluster_count; }
    u64 source_size() const { return m_source->stored_size(); }

    /// Bytes of the source, at a place relative to the volume; zeros for what can't be
    /// read.
    std::vector<u8> read_at(u64 position, u64 length) const;
    /// Where the byte at a place relative to the volume is on the medium, and how many
    /// follow it there. Of length 0 after the end of the source.
    byte_source::place place_at(u64 position) const;
    /// Where bytes at a place relative to the volume are on the medium.
    std::vector<byte_range> places_at(u64 position, u64 length) const;

private:
    struct stream_pieces {
        std::vector<flat_run> runs;
        const stream_fact *first = nullptr;
    };
    bool raw_record(std::vector<u8> &out, u64 entry) const;
    std::set<u64> extensions_of(const file_facts &facts, u64 entry) const;
    void follow_list(file_facts &facts, const record_bytes &record, u64 entry) const;
    u64 position_of(u64 lcn) const;
    stream_pieces pieces_of(const file_facts &facts, attribute_type type,
                            std::u16string_view name) const;
    void read_runs(file_content &out, const std::vector<flat_run> &runs,
                   u64 limit) const;
    void expand(file_content &out, const stream_pieces &pieces, u64 limit) const;
    void append_stored(file_content &out, u64 lcn, u64 length) const;
    void load_bitmap();

    byte_source_ptr m_source;
    u64 m_offset;
    u32 m_number;
    std::unique_ptr<CNtfs> m_volume; ///< null for a copy of an $MFT
    std::vector<cluster_run> m_mft_runs;
    u32 m_record_size = 0;
    u32 m_cluster_size = 0; ///< of a copy of an $MFT: that of a record
    u64 m_entry_count = 0;
    /// Of a copy of an $MFT: the records that extend others, by their base's entry.
    std::multimap<u64, u64> m_extensions;
    u64 m_cluster_count = 0;
    file_content m_bitmap;
};

/// What the owner called the volume; empty if it has no name, or if it can't be read.
std::string label_of(const volume_view &view);

/// Whether a run stands for clusters that aren't stored.
inline bool is_hole(const flat_run &run)
{
    return run.delta == 0;
}

/// Appends a range, and joins it with the last one if it follows that.
void append_range(std::vector<byte_range> &ranges, const byte_range &range);

} // namespace hv
