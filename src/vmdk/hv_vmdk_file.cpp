#include "vmdk/hv_vmdk_file.h"

#include "base/hv_checked_math.h"
#include "base/hv_open_file.h"
#include "base/hv_string.h"
#include "base/hv_text_convert.h"
#include "partitions/hv_partition_buffer.h"

#include <algorithm>
#include <limits>
#include <new>

namespace hv {

namespace {

// Real descriptors have about ten kilobytes, with the content IDs at the start. A
// damaged size must not bring a whole disk into memory.
constexpr u64 max_descriptor = u64{1} << 20;

// A table of the usual size covers 32 MiB, so this many are enough for 32 TiB. A header
// that needs more of them is damaged.
constexpr u64 max_tables = u64{1} << 20;

// The byte positions of all metadata fit 32 bits in an intact file.
constexpr u64 max_metadata_sectors = std::numeric_limits<u32>::max() / vmdk_sector_size;

u64 divide_up(u64 value, u64 by)
{
    return value / by + (value % by == 0 ? 0 : 1);
}

// A line that isn't UTF-8 is kept byte for byte instead.
std::wstring wide_line(const std::string &line)
{
    std::wstring wide = uni::to_wide(line);
    if (wide.empty())
        for (const char c : line) wide += static_cast<wchar_t>(static_cast<u8>(c));
    return wide;
}

std::vector<u32> table_of(byte_view bytes)
{
    std::vector<u32> table(bytes.size() / vmdk_entry_size);
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = bytes.read_padded<u32>(i * vmdk_entry_size);
    return table;
}

} // namespace

vmdk_file::~vmdk_file()
{
    if (m_fd >= 0) ::close(m_fd);
}

bool vmdk_file::open(const std::string &path)
{
    if (m_fd >= 0) return false;
    try {
        m_path = path;
        m_fd = open_source_file(path.c_str());
        m_failure = m_fd < 0 ? explain_failed_open(path.c_str()) : load();
    } catch (const std::bad_alloc &) {
        m_failure = open_failure::no_memory;
    }
    m_valid = m_failure == open_failure::none;
    return m_valid;
}

open_failure vmdk_file::load()
{
    const off_t end = lseek(m_fd, 0, SEEK_END);
    if (end <= 0) return open_failure::unsupported;
    m_file_size = static_cast<u64>(end);
    open_failure failure = read_header();
    if (failure == open_failure::none) failure = read_descriptor();
    if (failure == open_failure::none && !compute_sizes())
        failure = open_failure::damaged;
    if (failure == open_failure::none) failure = load_tables();
    if (failure == open_failure::none) find_partitions();
    return failure;
}

// Up to `max_size` bytes, as many as the file has at `place`. Nothing is allocated for
// bytes that the file doesn't have.
std::vector<u8> vmdk_file::read_area(u64 place, u64 max_size) const
{
    if (place >= m_file_size) return {};
    std::vector<u8> bytes(std::min(max_size, m_file_size - place));
    const i64 count = read_fully(m_fd, bytes.data(), bytes.size(), place);
    bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return bytes;
}

// Why `read_area` returned nothing: the file ends before `place`, or a read failed.
open_failure vmdk_file::explain_empty_area(u64 place) const
{
    return place < m_file_size ? open_failure::unreadable : open_failure::damaged;
}

// Other forms of virtual disks have another magic, no embedded descriptor, or a grain
// directory at the end of the file.
open_failure vmdk_file::read_header()
{
    if (m_file_size < m_header.size()) return open_failure::unsupported;
    if (!read_row(m_header.data(), 0, m_header.size())) return open_failure::unreadable;
    const bool is_supported =
        get(vmdk_header::magic) == vmdk_header::signature &&
        get(vmdk_header::descriptor_size) != 0 &&
        get(vmdk_header::directory_offset) != vmdk_header::directory_at_end;
    return is_supported ? open_failure::none : open_failure::unsupported;
}

open_failure vmdk_file::read_descriptor()
{
    u64 place = 0;
    u64 size = 0;
    if (__builtin_mul_overflow(get(vmdk_header::descriptor_offset), vmdk_sector_size,
                               &place) ||
        __builtin_mul_overflow(get(vmdk_header::descriptor_size), vmdk_sector_size,
                               &size))
        return open_failure::damaged;
    const std::vector<u8> area = read_area(place, std::min(size, max_descriptor));
    if (area.empty()) return explain_empty_area(place);
    // The text is padded with NUL bytes.
    const std::string text(area.begin(), std::ranges::find(area, u8{0}));
    std::vector<std::string> lines;
    split(text, '\n', lines, piece_blanks::keep, empty_pieces::drop);
    for (std::string &line : lines) {
        trim_line_end(line);
        if (!line.empty()) add_descriptor_line(line);
    }
    return open_failure::none;
}

void vmdk_file::add_descriptor_line(const std::string &line)
{
    static constexpr struct {
        std::string_view key;
        std::string vmdk_file::*value;
    } keys[] = {
        {"cid=", &vmdk_file::m_cid},
        {"parentcid=", &vmdk_file::m_parent_cid},
        {"encoding=", &vmdk_file::m_encoding},
        {"parentfilenamehint=", &vmdk_file::m_parent_hint},
    };
    m_desc_lines.push_back(wide_line(line));
    const std::string folded = lower_copy(line);
    for (const auto &[key, value] : keys)
        if (folded.starts_with(key)) this->*value = line.substr(key.size());
}

// False for products that wrap, and for grains or tables of no bytes: no later step
// divides by zero.
bool vmdk_file::compute_sizes()
{
    const u64 capacity = get(vmdk_header::capacity);
    const u64 grain = get(vmdk_header::grain_size);
    u64 disk = 0;
    if (__builtin_mul_overflow(capacity, vmdk_sector_size, &disk) ||
        __builtin_mul_overflow(grain, vmdk_sector_size, &m_grain_bytes) ||
        __builtin_mul_overflow(m_grain_bytes, get(vmdk_header::entries_per_table),
                               &m_table_span) ||
        m_table_span == 0)
        return false;
    m_grains = divide_up(capacity, grain);
    return true;
}

// The directory ends where its first table begins. Entries that would cover space after
// the end of the disk are padding.
open_failure vmdk_file::find_directory(u64 &place, u64 &entries) const
{
    const u64 overhead = get(vmdk_header::overhead);
    const u64 sector = get(vmdk_header::directory_offset);
    if (overhead > max_metadata_sectors || sector > overhead ||
        overhead * vmdk_sector_size > m_file_size)
        return open_failure::damaged;
    place = sector * vmdk_sector_size;
    const std::vector<u8> bytes = read_area(place, vmdk_entry_size);
    if (bytes.empty()) return explain_empty_area(place);
    const u64 first_table = byte_view{bytes}.read_padded<u32>(0);
    if (first_table > overhead || first_table <= sector) return open_failure::damaged;
    entries = std::min((first_table - sector) * vmdk_sector_size / vmdk_entry_size,
                       divide_up(m_grains, get(vmdk_header::entries_per_table)));
    return entries != 0 && entries <= max_tables ? open_failure::none
                                                 : open_failure::damaged;
}

u64 vmdk_file::get_stored_size() const
{
    return stored_bytes(m_fd, m_file_size);
}

// Whether this part of the file is entirely a hole. False past the end of the file.
bool vmdk_file::is_hole(u64 place, u64 length) const
{
    if (place >= m_file_size || length > m_file_size - place) return false;
    const off_t data = lseek(m_fd, static_cast<off_t>(place), SEEK_DATA);
    return data < 0 ? errno == ENXIO : static_cast<u64>(data) >= place + length;
}

open_failure vmdk_file::load_tables()
{
    u64 place = 0;
    u64 count = 0;
    const open_failure failure = find_directory(place, count);
    if (failure != open_failure::none) return failure;
    const std::vector<u32> directory =
        table_of(byte_view{read_area(place, count * vmdk_entry_size)});
    // No table is longer than the disk needs. A table in a hole holds no grain and
    // costs nothing; the others together can't have much more than the bytes that are
    // stored.
    const u64 table_bytes =
        std::min<u64>(get(vmdk_header::entries_per_table), m_grains) * vmdk_entry_size;
    u64 left = 2 * get_stored_size() + table_bytes;
    m_gts.reserve(directory.size());
    for (const u32 sector : directory) {
        if (sector == 0 || is_hole(u64{sector} * vmdk_sector_size, table_bytes)) {
            m_gts.emplace_back();
            continue;
        }
        if (table_bytes > left) break;
        left -= table_bytes;
        const std::vector<u8> bytes =
            read_area(u64{sector} * vmdk_sector_size, table_bytes);
        if (bytes.size() < vmdk_entry_size) break;
        m_gts.push_back(table_of(byte_view{bytes}));
    }
    if (!m_gts.empty()) return open_failure::none;
    return explain_empty_area(directory.empty() ? place
                                                : directory[0] * u64{vmdk_sector_size});
}

// A child rarely holds the first grain; its parents know the partitions then.
void vmdk_file::find_partitions()
{
    const std::vector<u32> &first_table = m_gts.front();
    if (first_table.empty() || first_table.front() == 0) return;
    const std::vector<u8> bytes =
        read_area(u64{first_table.front()} * vmdk_sector_size, vmdk_sector_size);
    const byte_view sector{bytes};
    partition_list partitions;
    if (sector.size() < vmdk_sector_size) return;
    if (!find_partitions_in_buffer(partitions, sector, table_scan::off))
        find_partitions_in_buffer(partitions, sector, table_scan::on);
    for (const partition_entry &partition : partitions) {
        u64 offset = 0;
        if (!checked_position(partition.start_sector, partition.m_sector_size, 0,
                              offset))
            continue;
        m_volume_offsets.push_back(offset);
        m_volume_sector_sizes.push_back(partition.m_sector_size);
    }
}

u64 vmdk_file::get_capacity_bytes() const
{
    return m_valid ? get(vmdk_header::capacity) * vmdk_sector_size : 0;
}

bool vmdk_file::lookup(u64 offset, u64 &place) const
{
    if (!m_valid) return false;
    const u64 table = offset / m_table_span;
    const u64 entry = offset % m_table_span / m_grain_bytes;
    if (table >= m_gts.size() || entry >= m_gts[table].size()) return false;
    const u32 sector = m_gts[table][entry];
    return sector != 0 && !__builtin_add_overflow(u64{sector} * vmdk_sector_size,
                                                  offset % m_grain_bytes, &place);
}

bool vmdk_file::read(u8 *buffer, u64 offset, u64 &length) const
{
    u64 place = 0;
    if (buffer == nullptr || length == 0 || !lookup(offset, place) ||
        place >= m_file_size)
        return false;
    length = std::min(length, m_file_size - place);
    for (u64 done = 0; done < length;) {
        if (!lookup(offset + done, place)) return false;
        const u64 piece = std::min(rest_of_grain(offset + done), length - done);
        const i64 count = read_fully(m_fd, buffer + done, piece, place);
        if (count < 1) return false;
        std::fill(buffer + done + count, buffer + done + piece, u8{0});
        done += piece;
    }
    return true;
}

bool vmdk_file::read_row(u8 *buffer, u64 place, u64 length) const
{
    const i64 count = read_fully(m_fd, buffer, length, place);
    return count >= 0 && static_cast<u64>(count) == length;
}

void dump_header(std::ostream &out, const vmdk_file &file)
{
    const byte_view header{file.header()};
    for (const auto &[offset, width, text] : vmdk_header::labels) {
        const byte_view field = header.clip(offset, width);
        out << text << (width == 0 ? "" : hex_digits(field.read_padded<u64>(0), 1))
            << '\n';
        if (offset != vmdk_header::flags.offset) continue;
        for (const auto &[mask, name] : vmdk_header::flag_labels)
            if ((field.read_padded<u32>(0) & mask) != 0) out << name << '\n';
    }
}

} // namespace hv
