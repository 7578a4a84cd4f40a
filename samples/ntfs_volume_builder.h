#pragma once

#include "samples/ntfs_structures.h"

#include <set>
#include <tuple>

/// A whole NTFS volume in memory. The builder shares no code with the program, so that
/// a slip in the program's tables can't hide. Its own tests have other software read
/// what it makes.
namespace test_support {

namespace ntfs_names {
inline constexpr u8 win32 = 1;
inline constexpr u8 dos = 2;
inline constexpr u8 win32_and_dos = 3;
} // namespace ntfs_names

/// FILETIMEs, in the order that the records have them.
struct ntfs_times {
    u64 created = sample_filetime;
    u64 modified = sample_filetime;
    u64 mft_changed = sample_filetime;
    u64 accessed = sample_filetime;
};

/// How the bytes of a stream are kept.
struct ntfs_storage {
    bool resident = false;     ///< in the record, whatever its size
    bool non_resident = false; ///< in clusters, even if the record had room
    /// Where they are stored; free clusters if empty. Compressed bytes take as many of
    /// the clusters of the first run as they need.
    std::vector<extent> runs = {};
    u64 fragments = 1;       ///< count of runs, with a free cluster between them
    bool compressed = false; ///< LZNT1 in units of 16 clusters
    std::optional<u64> valid_size = {};
};

/// A file or a directory.
struct ntfs_item {
    u64 entry = 0;
    /// An entry; of a deleted item also a reference, if that entry is something else
    /// now.
    u64 parent = 5;
    std::string name = {};     ///< UTF-8, as all names here; empty: no $FILE_NAME
    byte_vector data = {};     ///< the main stream of a file
    ntfs_storage stored = {};  ///< of the main stream, or of the index blocks
    bool index_blocks = false; ///< a directory's index leaves the record in any case
    bool in_use = true;        ///< else deleted: record, clusters and name are given up
    bool in_index = true;      ///< named in its parent's index, if it is in use
    bool counted_up = false;   ///< its record has the next sequence number already
    bool without_data = false; ///< a file that has no unnamed stream
    u16 sequence = 1;
    u8 name_space = ntfs_names::win32;
    u32 attributes = 0x20; ///< FILE_ATTRIBUTE_ bits
    u32 security_id = 0;
    ntfs_times times = {};
};

/// One more stream, or any other attribute, of an entry.
struct ntfs_stream {
    u64 entry = 0;
    std::string name = {};
    byte_vector data = {};
    ntfs_storage stored = {};
    u32 type = ntfs_type::data;
};

/// One more $FILE_NAME of an entry: a short name, or a hard link. It follows the name
/// of the item.
struct ntfs_link {
    u64 entry = 0;
    u64 parent = 5;
    std::string name = {};
    u8 name_space = ntfs_names::win32;
};

/// An index entry of a file that is gone, after the live entries of the last leaf of a
/// directory's index (or of the root, if there are no blocks).
struct ntfs_stale_entry {
    u64 directory = 0;
    u64 entry = 0;
    std::string name = {};
    u16 sequence = 1;
    u8 name_space = ntfs_names::win32;
    u32 attributes = 0x20; ///< with 0x10000000: a directory
    u64 size = 0;
    ntfs_times times = {};
};

/// Puts an attribute of an entry into an extension record, and with it an attribute
/// list into the entry. With `first_run`, only the runs from that one on.
struct ntfs_move {
    u64 entry = 0;
    u64 record = 0; ///< number of the extension record
    u32 type = ntfs_type::data;
    std::string name = {};     ///< of the attribute
    std::size_t first_run = 0; ///< counted from the first run of the whole stream
};

/// What the builder has collected.
struct ntfs_plan {
    u32 cluster_size = 4096;
    ntfs_structures::record_layout record = {};
    u32 sector_size = 512;
    u64 offset = 0;
    u64 clusters = 0;
    u64 records = 24;
    ntfs_storage mft = {};
    std::map<u64, std::pair<ntfs_item, bool>> items; ///< true: a directory
    std::vector<ntfs_stream> streams;
    std::vector<ntfs_link> links;
    std::vector<ntfs_stale_entry> stale;
    std::vector<ntfs_move> moves;
    std::set<u64> clustered_lists;
    bool is_small = false;
};

/// A volume and where its parts are. Positions are bytes in the image. What isn't there
/// throws std::out_of_range.
struct ntfs_volume {
    byte_vector image;
    u64 boot_position = 0;
    std::ptrdiff_t record_size = 1024;

    u64 record_position(u64 entry) const { return records.at(entry); }

    /// The record of an entry as it is on disk, update sequence and all.
    byte_vector record(u64 entry) const
    {
        const auto begin =
            image.begin() + static_cast<std::ptrdiff_t>(record_position(entry));
        return {begin, begin + record_size};
    }

    /// The `block`th "INDX" block of a directory.
    u64 index_block_position(u64 directory, std::size_t block = 0) const
    {
        return index_blocks.at(directory).at(block);
    }

    /// Where an attribute of an entry begins, in whichever record; `nth` counts the
    /// attributes, or the pieces, of this type and name.
    u64 attribute_position(u64 entry, u32 type, const std::string &name = {},
                           std::size_t nth = 0) const
    {
        return attributes.at({entry, type, name}).at(nth);
    }

    /// The runs of a stream outside of the record.
    const std::vector<extent> &stream_runs(u64 entry, u32 type = ntfs_type::data,
                                           const std::string &name = {}) const
    {
        return runs.at({entry, type, name});
    }

    using attribute_key = std::tuple<u64, u32, std::string>;
    std::map<u64, u64> records;
    std::map<u64, std::vector<u64>> index_blocks;
    std::map<attribute_key, std::vector<u64>> attributes;
    std::map<attribute_key, std::vector<extent>> runs;
};

/// Collects what the volume shall hold, and builds it. Entries 0 to 11 come by
/// themselves, and an item with one of these numbers replaces the entry. What can't be
/// built (a record too full, clusters taken twice) throws std::logic_error.
class ntfs_volume_builder {
public:
    using self = ntfs_volume_builder;

    self &cluster_size(u32 bytes) { return set(m_plan.cluster_size, bytes); }
    self &record_size(u32 bytes) { return set(m_plan.record.size, bytes); }
    /// Where in a record the array of the update sequence is: 48, or 42.
    self &update_array(u32 position) { return set(m_plan.record.array, position); }
    /// The sector size in the boot sector. Update sequences still guard steps of 512
    /// bytes, as on volumes of Windows.
    self &sector_size(u32 bytes) { return set(m_plan.sector_size, bytes); }
    /// The position of the volume in the image, in bytes.
    self &offset(u64 bytes) { return set(m_plan.offset, bytes); }
    /// The least count of clusters.
    self &clusters(u64 count) { return set(m_plan.clusters, count); }
    /// The least count of records in the $MFT.
    self &records(u64 count) { return set(m_plan.records, count); }
    /// Only the start of $LogFile and $UpCase, which are most of a volume with few
    /// files. Drivers don't mount it.
    self &small_system_files() { return set(m_plan.is_small, true); }
    self &mft(ntfs_storage stored) { return set(m_plan.mft, std::move(stored)); }

    self &directory(ntfs_item item) { return add_item(std::move(item), true); }
    self &file(ntfs_item item) { return add_item(std::move(item), false); }
    self &stream(ntfs_stream item) { return add(m_plan.streams, std::move(item)); }
    self &link(ntfs_link item) { return add(m_plan.links, std::move(item)); }
    self &stale_entry(ntfs_stale_entry item)
    {
        return add(m_plan.stale, std::move(item));
    }
    self &move(ntfs_move item) { return add(m_plan.moves, std::move(item)); }
    /// The entry gets an attribute list, which is stored in clusters.
    self &list_in_clusters(u64 entry)
    {
        return m_plan.clustered_lists.insert(entry), *this;
    }

    /// The image, and with `build_volume` also where its parts are.
    byte_vector build() const { return build_volume().image; }
    ntfs_volume build_volume() const;

private:
    template <class T> self &set(T &field, T value)
    {
        return field = std::move(value), *this;
    }
    template <class T> self &add(std::vector<T> &list, T item)
    {
        return list.push_back(std::move(item)), *this;
    }
    self &add_item(ntfs_item item, bool directory)
    {
        const u64 entry = item.entry;
        m_plan.items.insert_or_assign(entry, std::pair(std::move(item), directory));
        return *this;
    }

    ntfs_plan m_plan;
};

} // namespace test_support
