#pragma once

#include "samples/ntfs_structures.h"

#include <concepts>
#include <set>
#include <tuple>

/// A whole NTFS volume in memory. The builder knows the layouts on its own and shares
/// no code with the program, so that a slip in the program's tables can't hide.
namespace test_support {

namespace ntfs_names {
inline constexpr std::uint8_t posix = 0;
inline constexpr std::uint8_t win32 = 1;
inline constexpr std::uint8_t dos = 2;
inline constexpr std::uint8_t win32_and_dos = 3;
} // namespace ntfs_names

/// FILETIMEs, in the order that the records have them.
struct ntfs_times {
    std::uint64_t created = sample_filetime;
    std::uint64_t modified = sample_filetime;
    std::uint64_t mft_changed = sample_filetime;
    std::uint64_t accessed = sample_filetime;
};

/// How the bytes of a stream are kept.
struct ntfs_storage {
    bool non_resident = false;     ///< in clusters, even if the record had room
    std::vector<extent> runs = {}; ///< where to; free clusters if empty
    std::uint64_t fragments = 1;   ///< cut into so many runs, a free cluster between
    bool compressed = false;       ///< LZNT1 in units of 16 clusters
    std::optional<std::uint64_t> valid_size = {};
};

/// A file or a directory.
struct ntfs_item {
    std::uint64_t entry = 0;
    std::uint64_t parent = 5;
    std::string name = {};     ///< UTF-8, as all names here; empty: no $FILE_NAME
    byte_vector data = {};     ///< the main stream of a file
    ntfs_storage stored = {};  ///< of the main stream, or of the index blocks
    bool index_blocks = false; ///< a directory's index leaves the record in any case
    bool in_use = true;        ///< else deleted: record, clusters and name are given up
    bool in_index = true;      ///< named in its parent's index, if it is in use
    std::uint16_t sequence = 1;
    std::uint16_t parent_sequence = 0; ///< 0: the one that the parent has
    std::uint8_t name_space = ntfs_names::win32;
    std::uint32_t attributes = 0x20; ///< FILE_ATTRIBUTE_ bits
    std::uint32_t security_id = 0;
    ntfs_times times = {};
};

/// One more stream, or any other attribute, of an entry.
struct ntfs_stream {
    std::uint64_t entry = 0;
    std::string name = {};
    byte_vector data = {};
    ntfs_storage stored = {};
    std::uint32_t type = ntfs_type::data;
};

/// One more $FILE_NAME of an entry: a short name, or a hard link. It goes behind the
/// name that the item has.
struct ntfs_link {
    std::uint64_t entry = 0;
    std::uint64_t parent = 5;
    std::string name = {};
    std::uint8_t name_space = ntfs_names::win32;
};

/// An index entry of a file that is gone, behind the live end of the last leaf of a
/// directory's index (or of the root, if that is all there is).
struct ntfs_stale_entry {
    std::uint64_t directory = 0;
    std::uint64_t entry = 0;
    std::string name = {};
    bool end_on_top =
        false; ///< the end entry stands on its first 16 bytes, as where the
               ///< last of the names was removed; the first stale entry only
    std::uint16_t sequence = 1;
    std::uint8_t name_space = ntfs_names::win32;
    std::uint32_t attributes = 0x20; ///< with 0x10000000: a directory
    std::uint64_t size = 0;
    ntfs_times times = {};
};

/// Puts an attribute of an entry into an extension record, and with it an attribute
/// list into the entry. With `first_run`, only the runs from that one on.
struct ntfs_move {
    std::uint64_t entry = 0;
    std::uint64_t record = 0; ///< number of the extension record
    std::uint32_t type = ntfs_type::data;
    std::string name = {};     ///< of the attribute
    std::size_t first_run = 0; ///< counted from the first run of the whole stream
    std::size_t nth = 0;       ///< among attributes of one type and name
    std::uint16_t sequence = 1;
};

/// What a volume is to hold.
struct ntfs_plan {
    struct poke {
        std::uint64_t entry;
        std::size_t offset;
        byte_vector bytes;
    };

    std::uint32_t cluster_size = 4096;
    std::uint32_t record_size = 1024;
    std::uint32_t sector_size = 512;
    std::uint32_t update_step = 512;
    std::uint64_t offset = 0;
    std::uint64_t clusters = 0;
    std::string label = "sample";
    ntfs_storage mft = {};
    std::map<std::uint64_t, std::pair<ntfs_item, bool>> items; ///< true: a directory
    std::vector<ntfs_stream> streams;
    std::vector<ntfs_link> links;
    std::vector<ntfs_stale_entry> stale;
    std::vector<ntfs_move> moves;
    std::set<std::uint64_t> clustered_lists;
    std::vector<poke> pokes;
};

/// A volume and where its parts lie. Positions are those in the image. What isn't there
/// throws std::out_of_range.
struct ntfs_volume {
    byte_vector image;
    std::uint64_t boot_position = 0;
    std::ptrdiff_t record_size = 1024;

    std::uint64_t record_position(std::uint64_t entry) const
    {
        return records.at(entry);
    }

    /// The record of an entry as it is on disk, update sequence and all.
    byte_vector record(std::uint64_t entry) const
    {
        const auto begin =
            image.begin() + static_cast<std::ptrdiff_t>(record_position(entry));
        return {begin, begin + record_size};
    }

    /// The `block`th "INDX" block of a directory.
    std::uint64_t index_block_position(std::uint64_t directory,
                                       std::size_t block = 0) const
    {
        return index_blocks.at(directory).at(block);
    }

    /// Where an attribute of an entry begins, in whichever record; `nth` counts the
    /// attributes, or the pieces, of this type and name.
    std::uint64_t attribute_position(std::uint64_t entry, std::uint32_t type,
                                     const std::string &name = {},
                                     std::size_t nth = 0) const
    {
        return attributes.at({entry, type, name}).at(nth);
    }

    /// The runs of a stream outside of the record.
    const std::vector<extent> &stream_runs(std::uint64_t entry,
                                           std::uint32_t type = ntfs_type::data,
                                           const std::string &name = {}) const
    {
        return runs.at({entry, type, name});
    }

    using attribute_key = std::tuple<std::uint64_t, std::uint32_t, std::string>;
    std::map<std::uint64_t, std::uint64_t> records;
    std::map<std::uint64_t, std::vector<std::uint64_t>> index_blocks;
    std::map<attribute_key, std::vector<std::uint64_t>> attributes;
    std::map<attribute_key, std::vector<extent>> runs;
};

/// Collects what the volume is to hold, and builds it. Entries 0 to 11 come by
/// themselves; an item under one of these numbers takes that one's place. What can't be
/// built (a record too full, clusters taken twice) throws std::logic_error.
class ntfs_volume_builder {
public:
    using self = ntfs_volume_builder;

    self &cluster_size(std::uint32_t bytes) { return set(m_plan.cluster_size, bytes); }
    self &record_size(std::uint32_t bytes) { return set(m_plan.record_size, bytes); }
    /// The sector size that the boot sector tells. Update sequences guard steps of 512
    /// bytes all the same, as Windows writes them.
    self &sector_size(std::uint32_t bytes) { return set(m_plan.sector_size, bytes); }
    /// Another step for the update sequences.
    self &update_step(std::uint32_t bytes) { return set(m_plan.update_step, bytes); }
    /// The volume begins that many bytes into the image.
    self &offset(std::uint64_t bytes) { return set(m_plan.offset, bytes); }
    /// At least so many clusters.
    self &clusters(std::uint64_t count) { return set(m_plan.clusters, count); }
    self &label(std::string text) { return set(m_plan.label, std::move(text)); }
    self &mft(ntfs_storage stored) { return set(m_plan.mft, std::move(stored)); }

    self &directory(ntfs_item item) { return add_item(std::move(item), true); }
    self &file(ntfs_item item) { return add_item(std::move(item), false); }
    self &stream(ntfs_stream item) { return add(m_plan.streams, std::move(item)); }
    self &link(ntfs_link item) { return add(m_plan.links, std::move(item)); }
    self &stale_entry(ntfs_stale_entry one)
    {
        return add(m_plan.stale, std::move(one));
    }
    self &move(ntfs_move item) { return add(m_plan.moves, std::move(item)); }
    /// The entry has an attribute list, and the list lies in clusters.
    self &list_in_clusters(std::uint64_t entry)
    {
        return m_plan.clustered_lists.insert(entry), *this;
    }

    /// Overwrites bytes of a record as they stand on disk, update sequence and all. The
    /// mirror keeps what was there.
    self &poke(std::uint64_t entry, std::size_t offset, byte_vector bytes)
    {
        return add(m_plan.pokes, {entry, offset, std::move(bytes)});
    }
    template <std::unsigned_integral T>
    self &poke(std::uint64_t entry, std::size_t offset, T value)
    {
        byte_vector bytes;
        put_number(bytes, 0, value, sizeof(T));
        return poke(entry, offset, std::move(bytes));
    }

    /// The image, and with `build_volume` also where the parts lie.
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
        const std::uint64_t entry = item.entry;
        m_plan.items.insert_or_assign(entry, std::pair(std::move(item), directory));
        return *this;
    }

    ntfs_plan m_plan;
};

} // namespace test_support
