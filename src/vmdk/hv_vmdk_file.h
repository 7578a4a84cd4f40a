#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_open_failure.h"
#include "vmdk/hv_vmdk_layout.h"

#include <array>
#include <ostream>
#include <string>
#include <vector>

namespace hv {

/// One file of a chain of virtual disk files: a monolithic sparse extent with an
/// embedded text descriptor. The virtual disk is divided into grains, of which the file
/// holds some. Files are only ever opened for reading. Compressed grains aren't
/// decoded: a read returns the compressed bytes.
class vmdk_file {
public:
    vmdk_file() = default;
    ~vmdk_file();
    vmdk_file(const vmdk_file &) = delete;
    vmdk_file &operator=(const vmdk_file &) = delete;

    /// Opens a file by its UTF-8 path and reads its header, descriptor and grain
    /// tables, which stay in memory, and the partition table in the first sector of the
    /// virtual disk. To be called once. False if the file can't be read, is of another
    /// form, or has no grain table; see `failure`. A table that can't be read ends the
    /// list of tables: the disk reads as zeros from there.
    bool open(const std::string &path);
    /// Why `open` failed; `none` after a success.
    open_failure failure() const { return m_failure; }

    const std::string &path() const { return m_path; }
    int descriptor() const { return m_fd; } ///< of the open file; -1 if there is none
    const std::array<u8, vmdk_header::size> &header() const { return m_header; }
    /// The non-empty lines of the text descriptor, without their line ends. Kept for
    /// callers of the library.
    const std::vector<std::wstring> &desc_lines() const { return m_desc_lines; }
    /// Values of the descriptor, unchanged: with their case and their quotes.
    const std::string &cid() const { return m_cid; }
    const std::string &parent_cid() const { return m_parent_cid; }
    /// Whether the descriptor says that there is no parent.
    bool is_base() const { return m_parent_cid == "ffffffff"; }
    const std::string &parent_hint() const { return m_parent_hint; }
    const std::string &encoding() const { return m_encoding; }

    /// The size of the virtual disk in bytes; 0 unless the file is open.
    u64 get_capacity_bytes() const;
    /// The bytes that the file takes up in its file system, without holes; at most its
    /// size.
    u64 get_stored_size() const;
    /// The partitions in the MBR of the virtual disk: their byte offsets on it. Empty
    /// if this file doesn't hold the first sector of the disk.
    const std::vector<u64> &volume_offsets() const { return m_volume_offsets; }
    /// The sector sizes of these partitions in bytes. Kept for callers of the library.
    const std::vector<u32> &volume_sector_sizes() const
    {
        return m_volume_sector_sizes;
    }

    /// Where byte `offset` of the virtual disk is in this file, in bytes. False if the
    /// file doesn't hold it. In a truncated file, `place` may be past the end.
    bool lookup(u64 offset, u64 &place) const;
    /// Bytes from `offset` of the virtual disk to the end of its grain. The file must
    /// be open.
    u64 rest_of_grain(u64 offset) const
    {
        return m_grain_bytes - offset % m_grain_bytes;
    }

    /// Reads what this file holds at `offset` of the virtual disk, grain by grain.
    /// `length` is reduced if that many bytes from the first grain's place would pass
    /// the end of the file. Bytes of a grain that the system doesn't deliver are zeros.
    /// False if a grain isn't held, is past the end of the file, or can't be read at
    /// all.
    bool read(u8 *buffer, u64 offset, u64 &length) const;
    /// Reads `length` bytes at `place` in the file, for grains that are contiguous
    /// there. False, with an undefined buffer, unless all of them could be read.
    bool read_row(u8 *buffer, u64 place, u64 length) const;

    /// Neighbours in the chain, set by `vmdk_disk`; null at its ends.
    vmdk_file *m_parent = nullptr;
    vmdk_file *m_child = nullptr;

private:
    template <std::unsigned_integral T> T get(le_field<T> field) const
    {
        return byte_view{m_header}.read_padded<T>(field.offset);
    }
    std::vector<u8> read_area(u64 place, u64 max_size) const;
    open_failure explain_empty_area(u64 place) const;
    bool is_hole(u64 place, u64 length) const;
    open_failure load();
    open_failure read_header();
    open_failure read_descriptor();
    void add_descriptor_line(const std::string &line);
    bool compute_sizes();
    open_failure find_directory(u64 &place, u64 &entries) const;
    open_failure load_tables();
    void find_partitions();

    int m_fd = -1;
    std::string m_path;
    u64 m_file_size = 0;
    bool m_valid = false;
    open_failure m_failure = open_failure::missing;
    std::array<u8, vmdk_header::size> m_header{};

    std::vector<std::wstring> m_desc_lines;
    std::string m_encoding;
    std::string m_parent_cid;
    std::string m_cid;
    std::string m_parent_hint;

    u64 m_grain_bytes = 0;
    u64 m_table_span = 0; ///< bytes of the virtual disk that one table covers
    u64 m_grains = 0;     ///< of the whole disk
    /// A table is empty if the directory doesn't have it, or if it is a hole of the
    /// file.
    std::vector<std::vector<u32>> m_gts;

    std::vector<u64> m_volume_offsets;
    std::vector<u32> m_volume_sector_sizes;
};

/// Writes the sparse header as text, one field a line. The line of the flags is
/// followed by one for each flag that is set.
void dump_header(std::ostream &out, const vmdk_file &file);

} // namespace hv
