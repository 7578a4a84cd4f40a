#include "vss/hv_vss_catalog.h"

#include "base/hv_string.h"
#include "base/hv_text_convert.h"
#include "base/hv_time_text.h"
#include "ntfs/hv_path_lookup.h"
#include "ntfs/hv_stream_reader.h"
#include "ntfs/ntfs.h"

#include <algorithm>
#include <sstream>
#include <vector>

namespace hv {

namespace {

constexpr std::size_t min_catalog = 1024;
constexpr std::string_view folder_name = "system volume information";

// A volume has a few hundred snapshots at most, each with two entries of 128 bytes. A
// catalog that claims more may be a sparse file of any size.
constexpr u64 max_catalog = u64{4} << 20;

bool has_identifier(byte_view block)
{
    byte_view identifier;
    return block.sub(vss_block::identifier, vss_identifier.size(), identifier) &&
           std::ranges::equal(identifier.bytes(), vss_identifier);
}

vss_guid read_guid(byte_view bytes, std::size_t at)
{
    vss_guid guid{};
    std::ranges::copy(bytes.clip(at, guid.size()).bytes(), guid.begin());
    return guid;
}

using entry_view = fixed_view<vss_catalog_entry::size>;

void fill_type_2(vss_store &store, const entry_view &entry)
{
    store.volume_size = entry.get<vss_catalog_entry::volume_size>();
    store.store_number = entry.get<vss_catalog_entry::store_number>();
    store.unknown = entry.get<vss_catalog_entry::unknown>();
    store.created = entry.get<vss_catalog_entry::created>();
}

void fill_type_3(vss_store &store, const entry_view &entry)
{
    store.block_list_offset = entry.get<vss_catalog_entry::block_list_offset>();
    store.store_header_offset = entry.get<vss_catalog_entry::store_header_offset>();
    store.range_list_offset = entry.get<vss_catalog_entry::range_list_offset>();
    store.bitmap_offset = entry.get<vss_catalog_entry::bitmap_offset>();
    store.file_reference = entry.get<vss_catalog_entry::file_reference>();
    store.allocation_size = entry.get<vss_catalog_entry::allocation_size>();
    store.previous_bitmap = entry.get<vss_catalog_entry::previous_bitmap>();
    store.store_index = entry.get<vss_catalog_entry::store_index>();
}

void add_entry(vss_store_map &stores, byte_view slot, u64 position, u64 block)
{
    entry_view entry;
    if (!slot.fixed(0, entry)) return;
    const u64 type = entry.get<vss_catalog_entry::type>();
    if (type < 1 || type > 3) return;
    const vss_guid id = read_guid(slot, vss_catalog_entry::store_id);
    vss_store &store = stores[vss_guid_text(id)];
    store.store_id = id;
    store.entries[type - 1] = {true, position, block};
    if (type == 2) fill_type_2(store, entry);
    if (type == 3) fill_type_3(store, entry);
}

// Reads a text that starts with its length in bytes, at `at` of a store header. Returns
// the position after it.
u64 read_machine(std::string &text, byte_view block, u64 at)
{
    const u16 length = block.read_padded<u16>(at);
    byte_view units;
    if (length != 0 && block.sub(at + 2, length, units))
        uni::utf16_name_to_utf8(units, text);
    return at + 2 + length;
}

void read_store_headers(vss_store_map &stores, const CNtfs &volume)
{
    std::vector<u8> block(vss_block::block_size);
    for (auto &[text, store] : stores) {
        std::ranges::fill(block, u8{0});
        u64 position = 0;
        u32 length = vss_block::block_size;
        if (__builtin_add_overflow(store.store_header_offset,
                                   volume.get_volume_offset(), &position) ||
            !volume.get_disk()->read_checked(block.data(), length, position))
            return;
        parse_store_header(store, byte_view{block}.clip(0, length));
    }
}

struct flag_name {
    u32 flag;
    std::string_view name;
};

// clang-format off
constexpr std::array attribute_names = {
    flag_name{0x1, "persistent"},             flag_name{0x2, "no autorecovery"},
    flag_name{0x4, "client accessible"},      flag_name{0x8, "no autorelease"},
    flag_name{0x10, "no writers"},            flag_name{0x20, "transportable"},
    flag_name{0x40, "surfaced"},              flag_name{0x80, "transacted"},
    flag_name{0x10000, "hardware assisted"},  flag_name{0x20000, "differential"},
    flag_name{0x40000, "plex"},               flag_name{0x80000, "imported"},
    flag_name{0x100000, "exposed locally"},   flag_name{0x200000, "exposed remotely"},
    flag_name{0x400000, "autorecover"},       flag_name{0x800000, "rollback recovery"},
    flag_name{0x1000000, "delayed postsnapshot"},
    flag_name{0x20000000, "txf recovery"},
};

constexpr std::array type_names = {
    flag_name{0, "backup"},             flag_name{9, "app_rollback"},
    flag_name{13, "client_accessible_writer"},
    flag_name{16, "file_share_backup"}, flag_name{25, "nas_rollback"},
    flag_name{29, "client_accessible"}, flag_name{~u32{0}, "all"},
};
// clang-format on

std::string digits(u64 value)
{
    return hex_digits(value, 8);
}

std::string created_text(u64 created)
{
    std::string date;
    std::string clock;
    if (!format_date_time(date, clock, time(created, type_time::filetime),
                          default_date_template, default_time_template))
        return {};
    return date + " " + clock;
}

void dump_catalog_part(std::ostream &out, const vss_store &store)
{
    const u64 reference = store.file_reference;
    out << "VSS index [guess]:       " << store.store_index + 1 << '\n'
        << "VSS Store ID:            " << vss_guid_text(store.store_id) << '\n'
        << "Volume Size:             0x" << digits(store.volume_size) << '\n'
        << "Create Time [UTC]:       " << created_text(store.created) << '\n'
        << "Store HdrInfo Offset:    0x" << digits(store.store_header_offset) << '\n'
        << "Store Blklist Offset:    0x" << digits(store.block_list_offset) << '\n'
        << "Blkrange Offset list:    0x" << digits(store.range_list_offset) << '\n'
        << "Bitmap Offset:           0x" << digits(store.bitmap_offset) << '\n'
        << "MFT & sequence#:         0x" << digits(reference) << " [inode: 0x"
        << digits(reference_entry(reference)) << ", seq: 0x"
        << digits(reference_sequence(reference)) << "]\n"
        << "Allocation Size:         0x" << digits(store.allocation_size) << '\n'
        << "PrevBitmap Offset:       0x" << digits(store.previous_bitmap) << '\n';
}

} // namespace

std::string_view vss_block_type_name(u32 type)
{
    static constexpr std::array<std::string_view, 7> names = {
        "unk",       "volume hdr",           "catelog hdr", "blk descriptor hdr",
        "store hdr", "store blk ranges hdr", "store bitmap"};
    return type < names.size() ? names[type] : "unk";
}

std::string vss_guid_text(const vss_guid &guid)
{
    std::string text;
    guid_text(text, byte_view{guid});
    return text;
}

bool parse_block_header(vss_block_hdr &result, byte_view block, vss_block_type wanted,
                        u64 position)
{
    fixed_view<vss_block::header_size> header;
    if (!has_identifier(block) || !block.fixed(0, header) ||
        header.get<vss_block::type>() != static_cast<u32>(wanted))
        return false;
    result.version = header.get<vss_block::version>();
    result.type = header.get<vss_block::type>();
    result.relative_offset = header.get<vss_block::relative_offset>();
    result.offset = header.get<vss_block::offset>();
    result.next_offset = header.get<vss_block::next_offset>();
    result.further_size = header.get<vss_block::further_size>();
    result.position = position;
    // Hostile numbers may wrap here: the position is only reported.
    result.next_position =
        result.next_offset == 0
            ? 0
            : result.next_offset + result.relative_offset - result.offset;
    return true;
}

bool parse_catalog(vss_block_map &out_blocks, vss_store_map &out_stores,
                   byte_view catalog)
{
    vss_block_hdr header;
    if (catalog.size() < min_catalog ||
        !parse_block_header(header, catalog, vss_block_type::catalog, 0))
        return false;
    out_blocks[0] = header;
    u64 block = 0;
    byte_view slot;
    for (u64 at = vss_block::header_size;
         catalog.sub(at, vss_catalog_entry::size, slot);
         at += vss_catalog_entry::size) {
        if (parse_block_header(header, slot, vss_block_type::catalog, at)) {
            out_blocks[at] = header;
            block = at;
        } else {
            add_entry(out_stores, slot, at, block);
        }
    }
    return true;
}

bool parse_store_header(vss_store &store, byte_view block)
{
    vss_block_hdr hdr;
    fixed_view<vss_store_header::fixed_size> header;
    if (!parse_block_header(hdr, block, vss_block_type::store_header, 0) ||
        !block.fixed(0, header))
        return false;
    store.header_seen = true;
    store.information_id = read_guid(block, vss_store_header::information_id);
    store.snapshot_id = read_guid(block, vss_store_header::snapshot_id);
    store.snapshot_set_id = read_guid(block, vss_store_header::snapshot_set_id);
    store.type = header.get<vss_store_header::type>();
    store.provider = header.get<vss_store_header::provider>();
    store.attribute_flags = header.get<vss_store_header::attribute_flags>();
    const u64 second = read_machine(store.operating_machine, block,
                                    vss_store_header::operating_machine);
    // A position above 65535 wraps: its low 16 bits are where the second text is read.
    read_machine(store.service_machine, block, second & 0xFFFF);
    return true;
}

bool find_catalog(u64 &out_folder, u64 &out_catalog, const CNtfs &volume)
{
    const std::string name = "{" + std::string(vss_identifier_text) + "}";
    return find_child_by_name(root_entry_number, folder_name, out_folder, volume) &&
           find_child_by_name(out_folder, name, out_catalog, volume);
}

namespace {

// Appends bytes of the volume. False, with nothing appended, if they can't all be read.
bool append_bytes(std::vector<u8> &out, const CNtfs &volume, u64 offset, u32 length)
{
    std::vector<u8> bytes(length);
    u64 position = 0;
    u32 count = length;
    if (__builtin_add_overflow(offset, volume.get_volume_offset(), &position) ||
        !volume.get_disk()->read_checked(bytes.data(), count, position) ||
        count != length)
        return false;
    out.insert(out.end(), bytes.begin(), bytes.end());
    return true;
}

// The catalog as the file that the index of its folder names.
bool read_catalog_file(std::vector<u8> &out, const CNtfs &volume, log_handle log)
{
    u64 folder = 0;
    u64 entry = 0;
    if (!find_catalog(folder, entry, volume)) return false;
    std::ostringstream stream;
    stream_options options;
    options.max_bytes = std::min(max_catalog, volume.get_disk()->get_size());
    options.log = log;
    if (!read_inode_data(volume, entry, stream, options)) return false;
    const std::string bytes = stream.str();
    out.assign(bytes.begin(), bytes.end());
    return true;
}

// The catalog from the block that the volume's header names on, block by block: each
// has the place of the next.
bool read_catalog_chain(std::vector<u8> &out, const CNtfs &volume)
{
    std::vector<u8> head;
    vss_block_hdr header;
    if (!append_bytes(head, volume, vss_volume_header::position, 512) ||
        !parse_block_header(header, byte_view{head}, vss_block_type::volume_header, 0))
        return false;
    out.clear();
    u64 next =
        byte_view{head}.read_padded<u64>(vss_volume_header::catalog_offset.offset);
    while (next != 0 && out.size() < max_catalog &&
           append_bytes(out, volume, next, vss_block::block_size)) {
        const byte_view block = byte_view{out}.from(out.size() - vss_block::block_size);
        if (!parse_block_header(header, block, vss_block_type::catalog, 0)) {
            out.resize(out.size() - vss_block::block_size);
            break;
        }
        next = header.next_offset;
    }
    return !out.empty();
}

} // namespace

bool load_stores(std::array<u8, vss_block::header_size> &out_header,
                 vss_store_map &out_stores, const CNtfs &volume, log_handle log)
{
    out_header.fill(0);
    out_stores.clear();
    if (!volume.is_validated()) return false;
    std::vector<u8> catalog;
    vss_block_map blocks;
    const bool is_read = read_catalog_file(catalog, volume, log) &&
                         parse_catalog(blocks, out_stores, byte_view{catalog});
    if (!is_read &&
        !(volume.rules().catalog_by_header && read_catalog_chain(catalog, volume) &&
          parse_catalog(blocks, out_stores, byte_view{catalog})))
        return false;
    std::copy_n(catalog.begin(), out_header.size(), out_header.begin());
    read_store_headers(out_stores, volume);
    return true;
}

std::string_view vss_snapshot_type_name(u32 type)
{
    for (const flag_name &known : type_names)
        if (known.flag == type) return known.name;
    return {};
}

std::string vss_attribute_names(u32 flags)
{
    std::string text;
    for (const flag_name &known : attribute_names)
        if ((flags & known.flag) != 0) text.append(known.name).append("; ");
    return text;
}

void dump_store(std::ostream &out, const vss_store &store)
{
    dump_catalog_part(out, store);
    out << "Snapshot ID:             " << vss_guid_text(store.snapshot_id) << '\n'
        << "Snapshot Set ID:         " << vss_guid_text(store.snapshot_set_id) << '\n'
        << "Type:                    0x" << digits(store.type) << ' '
        << vss_snapshot_type_name(store.type) << '\n'
        << "Provider:                0x" << digits(store.provider) << '\n'
        << "Attribute Flags:         0x" << digits(store.attribute_flags) << ' '
        << vss_attribute_names(store.attribute_flags) << '\n'
        << "OS Machine:              " << store.operating_machine << '\n'
        << "Service Machine:         " << store.service_machine << '\n';
}

} // namespace hv
