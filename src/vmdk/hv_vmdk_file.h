#pragma once

#include "base/hv_byte_view.h"
#include "vmdk/hv_vmdk_layout.h"

#include <array>
#include <ostream>
#include <string>
#include <vector>

namespace hv {

/// One file of a chain of virtual disks: a monolithic sparse extent with its text
/// descriptor inside. The disk is cut into grains, and the file holds some of them.
/// Only ever opened for reading. Compressed grains aren't decoded: they read as they
/// lie in the file.
class vmdk_file {
public:
    vmdk_file() = default;
    ~vmdk_file();
    vmdk_file(const vmdk_file &) = delete;
    vmdk_file &operator=(const vmdk_file &) = delete;

    /// Opens a file and reads its header, its descriptor and its grain tables, all of
    /// which stay in memory, and the partitions that its first sector tells of. To be
    /// called once. False, as `is_valid` then is, for a file that can't be read, isn't
    /// of this form, or has no grain table. Tables that can't be read end the list of
    /// tables.
    bool open(const std::string &path);
    bool is_valid() const { return m_valid; }

    const std::string &path() const { return m_path; }
    int descriptor() const { return m_fd; }
    const std::array<u8, vmdk_header::size> &header() const { return m_header; }
    /// The lines of the text descriptor that aren't empty, without their ends.
    const std::vector<std::wstring> &desc_lines() const { return m_desc_lines; }
    /// Values of the descriptor as they stand there, with their case and their quotes.
    const std::string &cid() const { return m_cid; }
    const std::string &parent_cid() const { return m_parent_cid; }
    /// The descriptor names no parent.
    bool is_base() const { return m_parent_cid == "ffffffff"; }
    const std::string &parent_hint() const { return m_parent_hint; }
    const std::string &encoding() const { return m_encoding; }

    /// The size of the virtual disk; 0 unless valid.
    u64 get_capacity_bytes() const;
    /// The bytes that the file really takes up, at most its size.
    u64 get_stored_size() const;
    /// Where the partitions begin that the disk's first sector tells of, in bytes of
    /// the virtual disk, and their sector sizes. Empty if this file doesn't hold the
    /// sector.
    const std::vector<u64> &volume_offsets() const { return m_volume_offsets; }
    const std::vector<u32> &volume_sector_sizes() const
    {
        return m_volume_sector_sizes;
    }

    /// The place in this file of byte `offset` of the virtual disk. False if the file
    /// doesn't hold it; the place may still lie behind the end of a cut file.
    bool lookup(u64 offset, u64 &place) const;
    /// Bytes from `offset` of the virtual disk to the end of its grain. The file must
    /// be valid.
    u64 rest_of_grain(u64 offset) const
    {
        return m_grain_bytes - offset % m_grain_bytes;
    }

    /// Reads what this file holds at `offset` of the virtual disk, grain by grain.
    /// `length` is cut where the first grain's place and the length would pass the end
    /// of the file. Of bytes that the system doesn't deliver, zeros stand in the buffer
    /// up to the end of the grain. False if a grain isn't held, lies behind the end of
    /// the file, or gives no byte at all.
    bool read(u8 *buffer, u64 offset, u64 &length) const;
    /// Reads all of `length` bytes at a place in the file, for grains that lie in a
    /// row, or fails with an undefined buffer.
    bool read_row(u8 *buffer, u64 place, u64 length) const;

    /// Neighbours in the chain, set by `vmdk_disk`; null at its ends.
    vmdk_file *m_parent = nullptr;
    vmdk_file *m_child = nullptr;

private:
    template <std::unsigned_integral T> T get(le_field<T> field) const
    {
        return byte_view{m_header}.read_padded<T>(field.offset);
    }
    std::vector<u8> read_area(u64 place, u64 most) const;
    bool is_hole(u64 place, u64 length) const;
    bool read_header();
    bool read_descriptor();
    void add_descriptor_line(const std::string &line);
    bool compute_sizes();
    bool find_directory(u64 &place, u64 &entries) const;
    bool load_tables();
    void find_partitions();

    int m_fd = -1;
    std::string m_path;
    u64 m_file_size = 0;
    bool m_valid = false;
    std::array<u8, vmdk_header::size> m_header{};

    std::vector<std::wstring> m_desc_lines;
    std::string m_encoding;
    std::string m_parent_cid;
    std::string m_cid;
    std::string m_parent_hint;

    u64 m_grain_bytes = 0;
    u64 m_table_span = 0; ///< bytes of the virtual disk that one table covers
    u64 m_grains = 0;     ///< of the whole disk
    std::vector<std::vector<u32>> m_gts; ///< empty where the directory names no table

    std::vector<u64> m_volume_offsets;
    std::vector<u32> m_volume_sector_sizes;
};

/// Writes the fields of the sparse header for people, one a line, and behind the flags
/// a line for each that is set.
void dump_header(std::ostream &out, const vmdk_file &file);

} // namespace hv
