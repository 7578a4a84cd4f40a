#include "support/ntfs_volume_builder.h"

#include <algorithm>
#include <array>
#include <bit>
#include <stdexcept>
#include <utility>

namespace test_support {

namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

constexpr u32 index_block_size = 4096;
constexpr u64 unit_clusters = 16; // of a compression unit
constexpr u32 block_step = 512; // of the update sequences, and of large clusters' VCNs
constexpr u16 update_value = 0x0107;
constexpr u16 flag_compressed = 0x0001;
constexpr u16 flag_sparse = 0x8000;
constexpr u32 attribute_directory = 0x10000000;
constexpr const char *index_name = "$I30";

// One field of a structure: offset and width in bytes.
struct field {
    std::size_t at;
    std::size_t width;
};

// clang-format off
namespace boot_sector {
constexpr field jump                {  0, 3};
constexpr field signature           {  3, 8};
constexpr field bytes_per_sector    { 11, 2};
constexpr field sectors_per_cluster { 13, 1};
constexpr field media_descriptor    { 21, 1};
constexpr field sectors_per_track   { 24, 2};
constexpr field heads               { 26, 2};
constexpr field hidden_sectors      { 28, 4};
constexpr field drive               { 36, 4};
constexpr field total_sectors       { 40, 8};
constexpr field mft_lcn             { 48, 8};
constexpr field mirror_lcn          { 56, 8};
constexpr field record_size         { 64, 1};
constexpr field index_size          { 68, 1};
constexpr field serial              { 72, 8};
constexpr field end_mark            {510, 2};
} // namespace boot_sector

namespace record_header {
constexpr field signature       { 0, 4};
constexpr field update_offset   { 4, 2};
constexpr field update_count    { 6, 2};
constexpr field sequence        {16, 2};
constexpr field links           {18, 2};
constexpr field first_attribute {20, 2};
constexpr field flags           {22, 2};
constexpr field bytes_in_use    {24, 4};
constexpr field bytes_allocated {28, 4};
constexpr field base            {32, 8};
constexpr field next_id         {40, 2};
constexpr field entry           {44, 4};
constexpr std::size_t size     = 48;
} // namespace record_header

namespace attribute_header {
constexpr field type           { 0, 4};
constexpr field length         { 4, 4};
constexpr field non_resident   { 8, 1};
constexpr field name_length    { 9, 1};
constexpr field name_offset    {10, 2};
constexpr field flags          {12, 2};
constexpr field id             {14, 2};
constexpr field content_length {16, 4};
constexpr field content_offset {20, 2};
constexpr field indexed        {22, 1};
constexpr std::size_t resident_size = 24;
constexpr field first_vcn      {16, 8};
constexpr field last_vcn       {24, 8};
constexpr field runs_offset    {32, 2};
constexpr field unit_exponent  {34, 1};
constexpr field allocated_size {40, 8};
constexpr field real_size      {48, 8};
constexpr field valid_size     {56, 8};
constexpr std::size_t non_resident_size = 64;
constexpr field packed_size    {64, 8};
constexpr std::size_t packed_header_size = 72;
} // namespace attribute_header

namespace standard_value {
constexpr field times       { 0, 8}; // created, modified, MFT changed, accessed
constexpr field attributes  {32, 4};
constexpr field security_id {52, 4};
constexpr std::size_t size = 72;
} // namespace standard_value

namespace name_value {
constexpr field parent         { 0, 8};
constexpr field times          { 8, 8}; // as above
constexpr field allocated_size {40, 8};
constexpr field real_size      {48, 8};
constexpr field attributes     {56, 4};
constexpr field name_length    {64, 1};
constexpr field name_space     {65, 1};
constexpr std::size_t name    = 66;
} // namespace name_value

namespace list_value {
constexpr field type        { 0, 4};
constexpr field length      { 4, 2};
constexpr field name_length { 6, 1};
constexpr field name_offset { 7, 1};
constexpr field first_vcn   { 8, 8};
constexpr field reference   {16, 8};
constexpr field id          {24, 2};
constexpr std::size_t name = 26;
} // namespace list_value

namespace index_root_value {
constexpr field type             { 0, 4};
constexpr field collation        { 4, 4};
constexpr field block_size       { 8, 4};
constexpr field block_vcns       {12, 1};
constexpr std::size_t header    = 16;
} // namespace index_root_value

namespace index_header {
constexpr field first_entry     { 0, 4};
constexpr field bytes_in_use    { 4, 4};
constexpr field bytes_allocated { 8, 4};
constexpr field flags           {12, 4}; // 1: entries have children
constexpr std::size_t size     = 16;
} // namespace index_header

namespace index_block {
constexpr field signature     { 0, 4};
constexpr field update_offset { 4, 2};
constexpr field update_count  { 6, 2};
constexpr field vcn           {16, 8};
constexpr std::size_t header = 24;
constexpr std::size_t update_sequence = 40;
} // namespace index_block

namespace index_entry {
constexpr field reference      { 0, 8};
constexpr field length         { 8, 2};
constexpr field content_length {10, 2};
constexpr field flags          {12, 2}; // 1: has a child, 2: the end
constexpr std::size_t content = 16;
} // namespace index_entry
// clang-format on

void put(byte_vector &bytes, std::size_t base, field where, u64 value)
{
    put_number(bytes, base + where.at, value, where.width);
}

void put_times(byte_vector &bytes, field first, const ntfs_times &times)
{
    const std::array all = {times.created, times.modified, times.mft_changed,
                            times.accessed};
    for (std::size_t i = 0; i < all.size(); ++i)
        put_number(bytes, first.at + 8 * i, all[i], 8);
}

void append(byte_vector &bytes, const byte_vector &more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

constexpr u64 round_up(u64 value, u64 step)
{
    return (value + step - 1) / step * step;
}

// A size that the boot sector gives in clusters or, below a cluster, as an exponent.
u64 size_code(u32 bytes, u32 cluster_size)
{
    if (bytes >= cluster_size) return bytes / cluster_size;
    return 256 - static_cast<u64>(std::countr_zero(bytes));
}

[[noreturn]] void refuse(u64 entry, const char *reason)
{
    throw std::logic_error("entry " + std::to_string(entry) + ": " + reason);
}

// Names

std::u16string to_utf16(std::string_view text)
{
    std::u16string units;
    for (std::size_t i = 0; i < text.size();) {
        const u32 lead = static_cast<u8>(text[i++]);
        const u32 more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
        u32 point = more == 0 ? lead : lead & (0x3FU >> more);
        for (u32 k = 0; k < more && i < text.size(); ++k)
            point = point << 6 | (static_cast<u8>(text[i++]) & 0x3F);
        if (point >= 0x10000) {
            units += static_cast<char16_t>(0xD7C0 + (point >> 10));
            point = 0xDC00 + (point & 0x3FF);
        }
        units += static_cast<char16_t>(point);
    }
    return units;
}

// What the volume's $UpCase does: enough of the alphabets that names in tests use.
char16_t upper_unit(u32 unit)
{
    struct case_range {
        u32 first, last;
        int step;
    };
    static constexpr case_range ranges[] = {
        {u'a', u'z', -32},   {0xE0, 0xF6, -32},   {0xF8, 0xFE, -32},
        {0xFF, 0xFF, 121},   {0x3B1, 0x3C1, -32}, {0x3C3, 0x3CB, -32},
        {0x430, 0x44F, -32}, {0x450, 0x45F, -80},
    };
    for (const case_range &range : ranges)
        if (unit >= range.first && unit <= range.last)
            return static_cast<char16_t>(static_cast<int>(unit) + range.step);
    return static_cast<char16_t>(unit);
}

std::u16string upper(std::u16string text)
{
    for (char16_t &unit : text) unit = upper_unit(unit);
    return text;
}

// Content of system files

byte_vector upcase_table()
{
    byte_vector table(0x20000);
    for (u32 unit = 0; unit < 0x10000; ++unit)
        put_number(table, 2 * std::size_t{unit}, upper_unit(unit), 2);
    return table;
}

byte_vector attribute_definitions()
{
    struct definition {
        const char16_t *name;
        u32 type, collation, flags;
        u64 least, most;
    };
    constexpr u64 any = ~u64{0};
    static constexpr definition definitions[] = {
        {u"$STANDARD_INFORMATION", 0x10, 0, 0x40, 48, 72},
        {u"$ATTRIBUTE_LIST", 0x20, 0, 0x80, 0, any},
        {u"$FILE_NAME", 0x30, 0, 0x42, 68, 578},
        {u"$OBJECT_ID", 0x40, 0, 0x40, 0, 256},
        {u"$SECURITY_DESCRIPTOR", 0x50, 0, 0x80, 0, any},
        {u"$VOLUME_NAME", 0x60, 0, 0x40, 2, 256},
        {u"$VOLUME_INFORMATION", 0x70, 0, 0x40, 12, 12},
        {u"$DATA", 0x80, 0, 0, 0, any},
        {u"$INDEX_ROOT", 0x90, 0, 0x40, 0, any},
        {u"$INDEX_ALLOCATION", 0xA0, 0, 0x80, 0, any},
        {u"$BITMAP", 0xB0, 0, 0x80, 0, any},
        {u"$REPARSE_POINT", 0xC0, 0, 0x80, 0, 16384},
        {u"$EA_INFORMATION", 0xD0, 0, 0x40, 8, 8},
        {u"$EA", 0xE0, 0, 0, 0, 65536},
        {u"$LOGGED_UTILITY_STREAM", 0x100, 0, 0x80, 0, 65536},
    };
    byte_vector table;
    for (const definition &row : definitions) {
        const std::size_t at = table.size();
        table.resize(at + 160);
        put_utf16(table, at, row.name);
        put_number(table, at + 128, row.type, 4);
        put_number(table, at + 136, row.collation, 4);
        put_number(table, at + 140, row.flags, 4);
        put_number(table, at + 144, row.least, 8);
        put_number(table, at + 152, row.most, 8);
    }
    table.resize(table.size() + 160);
    return table;
}

// LZNT1

// Compresses up to 4096 bytes: at each place the last earlier one with the same three
// bytes is tried, nothing else. Empty if that doesn't make them fewer.
byte_vector compress_chunk(const byte_vector &data, std::size_t begin, std::size_t end)
{
    byte_vector out;
    std::map<u32, std::size_t> last_seen;
    std::size_t flags_at = 0;
    for (std::size_t at = begin, item = 0; at < end; ++item) {
        if (item % 8 == 0) {
            flags_at = out.size();
            out.push_back(0);
        }
        int shift = 12; // of the displacement: the further on, the more bits it gets
        for (std::size_t k = at == begin ? 0 : (at - begin - 1) / 16; k > 0; k /= 2)
            --shift;
        std::size_t match = 0, from = at;
        if (end - at >= 3) {
            const u32 key = data[at] | u32{data[at + 1]} << 8 | u32{data[at + 2]} << 16;
            const auto [known, fresh] = last_seen.try_emplace(key, at);
            if (!fresh) from = std::exchange(known->second, at);
            const std::size_t longest =
                std::min<std::size_t>(end - at, 2 + (1U << shift));
            while (from < at && match < longest &&
                   data[from + match] == data[at + match])
                ++match;
        }
        if (match < 3) {
            out.push_back(data[at++]);
            continue;
        }
        out[flags_at] |= static_cast<u8>(1U << item % 8);
        put_number(out, out.size(), (at - from - 1) << shift | (match - 3), 2);
        at += match;
    }
    return out.size() < end - begin ? out : byte_vector{};
}

// One unit as LZNT1 chunks.
byte_vector compress_unit(const byte_vector &data)
{
    byte_vector out;
    for (std::size_t at = 0; at < data.size(); at += 4096) {
        const std::size_t stop = std::min(at + 4096, data.size());
        const byte_vector chunk = compress_chunk(data, at, stop);
        if (!chunk.empty()) {
            put_number(out, out.size(), 0xB000 | (chunk.size() - 1), 2);
            append(out, chunk);
            continue;
        }
        put_number(out, out.size(), 0x3FFF, 2); // stored, always 4096 bytes
        const std::size_t from = out.size();
        out.resize(from + 4096);
        std::copy(data.begin() + std::ptrdiff_t(at),
                  data.begin() + std::ptrdiff_t(stop),
                  out.begin() + std::ptrdiff_t(from));
    }
    return out;
}

// Records

// Puts the check value at the end of each step, and what stood there into the array.
void protect(byte_vector &bytes, std::size_t array, u32 step)
{
    put_number(bytes, array, update_value, 2);
    for (std::size_t i = 1; i * step <= bytes.size(); ++i) {
        for (std::size_t k = 0; k < 2; ++k)
            bytes[array + 2 * i + k] = bytes[i * step - 2 + k];
        put_number(bytes, i * step - 2, update_value, 2);
    }
}

struct attribute {
    u32 type = 0;
    std::string name = {};
    byte_vector content = {}; // of a resident one
    bool indexed = false;     // a resident one
    bool non_resident = false;
    u16 flags = 0;
    std::vector<extent> runs = {};
    u64 first_vcn = 0;
    std::size_t first_run = 0; // of the whole stream's, if this is a piece
    u64 allocated_size = 0;
    u64 real_size = 0;
    u64 valid_size = 0;
    u64 packed_size = 0;
    std::optional<u64> record = {}; // the extension record that it stands in
    u16 id = 0;

    u64 clusters(bool with_holes) const
    {
        u64 count = 0;
        for (const extent &run : runs)
            if (with_holes || run.lcn != hole) count += run.clusters;
        return count;
    }
};

// A number in as few bytes as keep its sign; returns their count.
std::size_t append_signed(byte_vector &bytes, std::int64_t value)
{
    std::size_t count = 0;
    bool more = true;
    while (more) {
        bytes.push_back(static_cast<u8>(value));
        const bool negative = (value & 0x80) != 0;
        value >>= 8;
        ++count;
        more = value != (negative ? -1 : 0);
    }
    return count;
}

byte_vector encode_runs(const std::vector<extent> &runs)
{
    byte_vector bytes;
    u64 previous = 0;
    for (const extent &run : runs) {
        const std::size_t header = bytes.size();
        bytes.push_back(0);
        std::size_t widths =
            append_signed(bytes, static_cast<std::int64_t>(run.clusters));
        if (run.lcn != hole) {
            const auto step = static_cast<std::int64_t>(run.lcn - previous);
            widths |= append_signed(bytes, step) << 4;
            previous = run.lcn;
        }
        bytes[header] = static_cast<u8>(widths);
    }
    bytes.push_back(0);
    return bytes;
}

byte_vector encode_resident(const attribute &from, std::size_t name_bytes)
{
    using namespace attribute_header;
    const std::size_t at = round_up(resident_size + name_bytes, 8);
    byte_vector bytes(at);
    append(bytes, from.content);
    put(bytes, 0, name_offset, resident_size);
    put(bytes, 0, content_length, from.content.size());
    put(bytes, 0, content_offset, at);
    put(bytes, 0, indexed, from.indexed);
    return bytes;
}

// Sizes stand in the first piece of a stream alone.
byte_vector encode_non_resident(const attribute &from, std::size_t name_bytes)
{
    using namespace attribute_header;
    const bool first = from.first_vcn == 0;
    const std::size_t name_at =
        from.flags != 0 && first ? packed_header_size : non_resident_size;
    const std::size_t runs_at = round_up(name_at + name_bytes, 8);
    byte_vector bytes(runs_at);
    append(bytes, encode_runs(from.runs));
    put(bytes, 0, non_resident, 1);
    put(bytes, 0, name_offset, name_at);
    put(bytes, 0, first_vcn, from.first_vcn);
    put(bytes, 0, last_vcn, from.first_vcn + from.clusters(true) - 1);
    put(bytes, 0, runs_offset, runs_at);
    if (!first) return bytes;
    put(bytes, 0, allocated_size, from.allocated_size);
    put(bytes, 0, real_size, from.real_size);
    put(bytes, 0, valid_size, from.valid_size);
    if (from.flags == 0) return bytes;
    put(bytes, 0, unit_exponent, 4);
    put(bytes, 0, packed_size, from.packed_size);
    return bytes;
}

byte_vector encode(const attribute &from)
{
    const std::u16string name = to_utf16(from.name);
    byte_vector bytes = from.non_resident ? encode_non_resident(from, 2 * name.size())
                                          : encode_resident(from, 2 * name.size());
    bytes.resize(round_up(bytes.size(), 8));
    put(bytes, 0, attribute_header::type, from.type);
    put(bytes, 0, attribute_header::length, bytes.size());
    put(bytes, 0, attribute_header::name_length, name.size());
    put(bytes, 0, attribute_header::flags, from.flags);
    put(bytes, 0, attribute_header::id, from.id);
    const field name_offset = attribute_header::name_offset;
    put_utf16(bytes, bytes[name_offset.at], name);
    return bytes;
}

struct record_text {
    u64 entry = 0;
    u64 base = 0; // reference
    u16 sequence = 1;
    u16 flags = 0;
    u16 links = 0;
};

std::size_t attributes_offset(const ntfs_plan &plan)
{
    const u64 updates = 1 + plan.record_size / plan.update_step;
    return round_up(record_header::size + 2 * updates, 8);
}

// `bytes` holds the attributes from their place on.
void finish_record(byte_vector &bytes, const ntfs_plan &plan, const record_text &text,
                   u64 id_count)
{
    using namespace record_header;
    put_number(bytes, bytes.size(), 0xFFFFFFFF, 8);
    if (bytes.size() > plan.record_size) refuse(text.entry, "the record is too full");
    put_text(bytes, 0, "FILE");
    put(bytes, 0, update_offset, size);
    put(bytes, 0, update_count, 1 + plan.record_size / plan.update_step);
    put(bytes, 0, sequence, text.sequence);
    put(bytes, 0, links, text.links);
    put(bytes, 0, first_attribute, attributes_offset(plan));
    put(bytes, 0, flags, text.flags);
    put(bytes, 0, bytes_in_use, bytes.size());
    put(bytes, 0, bytes_allocated, plan.record_size);
    put(bytes, 0, base, text.base);
    put(bytes, 0, next_id, id_count);
    put(bytes, 0, entry, text.entry);
    bytes.resize(plan.record_size);
    protect(bytes, size, plan.update_step);
}

// Indexes

struct tree_entry {
    std::u16string name;
    byte_vector bytes; // without a child
    std::optional<u64> child = {};
};

// Entries in order, and what lies behind the last of them.
struct tree_node {
    std::vector<tree_entry> entries = {};
    std::optional<u64> end_child = {};
};

byte_vector encode_index_entry(u64 reference, const byte_vector &value)
{
    byte_vector bytes(index_entry::content);
    append(bytes, value);
    bytes.resize(round_up(bytes.size(), 8));
    put(bytes, 0, index_entry::reference, reference);
    put(bytes, 0, index_entry::length, bytes.size());
    put(bytes, 0, index_entry::content_length, value.size());
    return bytes;
}

void append_with_child(byte_vector &out, byte_vector entry, std::optional<u64> child)
{
    if (child) {
        entry[index_entry::flags.at] |= 1;
        put_number(entry, entry.size(), *child, 8);
    }
    put(entry, 0, index_entry::length, entry.size());
    append(out, entry);
}

byte_vector encode_node(const tree_node &node)
{
    byte_vector out;
    for (const tree_entry &one : node.entries)
        append_with_child(out, one.bytes, one.child);
    byte_vector end(index_entry::content);
    put(end, 0, index_entry::flags, 2);
    append_with_child(out, end, node.end_child);
    return out;
}

// The header of a root or a block at `at`, where the entries' place is known.
void put_index_header(byte_vector &bytes, std::size_t at, u64 first, u64 live, u64 room,
                      bool has_children)
{
    put(bytes, at, index_header::first_entry, first);
    put(bytes, at, index_header::bytes_in_use, first + live);
    put(bytes, at, index_header::bytes_allocated, room);
    put(bytes, at, index_header::flags, has_children);
}

// The index of one directory: what stays in the root, and the blocks below it.
class index_tree {
public:
    index_tree(const ntfs_plan &plan, std::vector<tree_entry> entries,
               byte_vector slack, bool end_on_top)
        : m_plan(plan),
          m_slack(std::move(slack)),
          m_end_on_top(end_on_top),
          m_root{std::move(entries)}
    {
        const auto key = [](const tree_entry &one) {
            return std::pair(upper(one.name), one.name);
        };
        std::sort(m_root.entries.begin(), m_root.entries.end(),
                  [&](const auto &a, const auto &b) { return key(a) < key(b); });
    }

    // Moves entries into blocks, level by level, until the root has no more than
    // `room`.
    void grow(std::size_t room, bool at_least_once)
    {
        while (at_least_once || root_value().size() > room) {
            const bool leaves = m_blocks.empty();
            if (m_slack.size() > block_room()) refuse(0, "too many stale entries");
            split(block_room() - (leaves ? m_slack.size() : 0));
            if (leaves) m_blocks.back() = block(m_last_leaf, m_blocks.size() - 1, true);
            at_least_once = false;
        }
    }

    byte_vector root_value() const
    {
        byte_vector bytes(index_root_value::header + index_header::size);
        const u64 live = append_node(bytes, m_root, m_blocks.empty());
        using namespace index_root_value;
        put(bytes, 0, type, ntfs_type::file_name);
        put(bytes, 0, collation, 1);
        put(bytes, 0, block_size, index_block_size);
        put(bytes, 0, block_vcns, block_vcn(1));
        put_index_header(bytes, header, index_header::size, live, bytes.size() - header,
                         m_root.end_child.has_value());
        return bytes;
    }

    const std::vector<byte_vector> &blocks() const { return m_blocks; }

private:
    // Blocks count in clusters, or in 512 bytes where a cluster is larger than a block.
    u64 block_vcn(u64 number) const
    {
        const u64 unit =
            m_plan.cluster_size > index_block_size ? block_step : m_plan.cluster_size;
        return number * (index_block_size / unit);
    }

    std::size_t first_entry() const
    {
        const u64 updates = 1 + index_block_size / m_plan.update_step;
        return round_up(index_block::update_sequence + 2 * updates, 8);
    }

    std::size_t block_room() const { return index_block_size - first_entry(); }

    // Returns the count of live bytes. The slack follows them, or the end entry is put
    // on the front of it.
    u64 append_node(byte_vector &bytes, const tree_node &node, bool with_slack) const
    {
        const byte_vector live = encode_node(node);
        append(bytes, live);
        if (with_slack && !m_slack.empty()) {
            const std::ptrdiff_t hidden = m_end_on_top ? index_entry::content : 0;
            bytes.insert(bytes.end(), m_slack.begin() + hidden, m_slack.end());
        }
        return live.size();
    }

    byte_vector block(const tree_node &node, u64 number, bool with_slack) const
    {
        byte_vector bytes(first_entry());
        const u64 live = append_node(bytes, node, with_slack);
        bytes.resize(index_block_size);
        put_text(bytes, 0, "INDX");
        put(bytes, 0, index_block::update_offset, index_block::update_sequence);
        put(bytes, 0, index_block::update_count,
            1 + index_block_size / m_plan.update_step);
        put(bytes, 0, index_block::vcn, block_vcn(number));
        put_index_header(
            bytes, index_block::header, first_entry() - index_block::header, live,
            index_block_size - index_block::header, node.end_child.has_value());
        protect(bytes, index_block::update_sequence, m_plan.update_step);
        return bytes;
    }

    u64 add_block(const tree_node &node)
    {
        m_blocks.push_back(block(node, m_blocks.size(), false));
        return block_vcn(m_blocks.size() - 1);
    }

    // Fills blocks with the root's entries; between two blocks one entry stays.
    void split(std::size_t room)
    {
        tree_node upper_node, filling;
        for (tree_entry &one : m_root.entries) {
            filling.entries.push_back(std::move(one));
            if (encode_node(filling).size() + sizeof(u64) <= room) continue;
            if (filling.entries.size() < 3) refuse(0, "too many stale entries");
            tree_entry spilled = std::move(filling.entries.back());
            filling.entries.pop_back();
            tree_entry between = std::move(filling.entries.back());
            filling.entries.pop_back();
            filling.end_child = between.child;
            between.child = add_block(filling);
            upper_node.entries.push_back(std::move(between));
            filling = {};
            filling.entries.push_back(std::move(spilled));
        }
        filling.end_child = m_root.end_child;
        upper_node.end_child = add_block(filling);
        m_last_leaf = std::move(filling);
        m_root = std::move(upper_node);
    }

    const ntfs_plan &m_plan;
    byte_vector m_slack;
    bool m_end_on_top;
    tree_node m_root;
    tree_node m_last_leaf;
    std::vector<byte_vector> m_blocks;
};

// Clusters

// Which clusters are taken; those of deleted files are kept from others, but are free
// in $Bitmap.
class cluster_map {
public:
    void take(const extent &run, bool live, u64 entry)
    {
        if (run.lcn == hole) return;
        if (m_taken.size() < run.lcn + run.clusters) {
            m_taken.resize(run.lcn + run.clusters);
            m_live.resize(m_taken.size());
        }
        for (u64 lcn = run.lcn; lcn < run.lcn + run.clusters; ++lcn) {
            if (live && m_live[lcn]) refuse(entry, "its clusters are taken");
            m_taken[lcn] = true;
            if (live) m_live[lcn] = true;
        }
    }

    // Finds free clusters for so many runs of whole granules, and takes them.
    std::vector<extent> place(u64 clusters, u64 fragments, u64 granule, bool live)
    {
        std::vector<extent> runs;
        const u64 each = round_up((clusters + fragments - 1) / fragments, granule);
        for (u64 left = clusters; left > 0; left -= runs.back().clusters) {
            runs.push_back({m_next, std::min(each, left)});
            while (!free(runs.back())) ++runs.back().lcn;
            take(runs.back(), live, 0);
            m_next = runs.back().lcn + runs.back().clusters + (fragments > 1 ? 1 : 0);
        }
        return runs;
    }

    void skip() { ++m_next; }
    u64 end() const { return std::max<u64>(m_next, m_taken.size()); }

    byte_vector bits(u64 clusters, std::size_t bytes) const
    {
        byte_vector map(bytes);
        for (u64 lcn = 0; lcn < bytes * 8; ++lcn)
            if (lcn >= clusters || (lcn < m_live.size() && m_live[lcn]))
                map[lcn / 8] |= static_cast<u8>(1U << lcn % 8);
        return map;
    }

private:
    bool free(const extent &run) const
    {
        const u64 end = std::min<u64>(run.lcn + run.clusters, m_taken.size());
        for (u64 lcn = run.lcn; lcn < end; ++lcn)
            if (m_taken[lcn]) return false;
        return true;
    }

    std::vector<bool> m_taken, m_live;
    u64 m_next = 0;
};

// The volume

// One entry on its way to the disk.
struct entry_state {
    ntfs_item item = {};
    bool directory = false;
    bool system = false;
    std::vector<attribute> attributes = {};
};

class volume_writer {
public:
    explicit volume_writer(const ntfs_plan &plan) : m_plan(plan) {}

    ntfs_volume write()
    {
        add_items();
        count_records();
        take_wanted_clusters();
        for (auto &[number, state] : m_items) add_standard_information(state);
        add_system_streams();
        add_streams();
        add_names();
        for (auto &[number, state] : m_items)
            if (state.directory) add_index(number, state);
        add_whole_volume_streams();
        for (const ntfs_move &move : m_plan.moves) move_attribute(move);
        for (auto &[number, state] : m_items) number_attributes(number, state);
        write_image();
        return std::move(m_volume);
    }

private:
    // Entries

    void add_items()
    {
        static constexpr std::array names = {
            "$MFT",    "$MFTMirr", "$LogFile", "$Volume", "$AttrDef", ".",
            "$Bitmap", "$Boot",    "$BadClus", "$Secure", "$UpCase",  "$Extend"};
        for (u64 number = 0; number < names.size(); ++number) {
            entry_state &state = m_items[number];
            state.item = {.entry = number,
                          .name = names[number],
                          .sequence = static_cast<u16>(std::max<u64>(number, 1)),
                          .name_space = ntfs_names::win32_and_dos,
                          .attributes = 0x06}; // hidden, system
            state.directory = number == 5 || number == 11;
            state.system = true;
        }
        for (const auto &[number, planned] : m_plan.items) {
            m_items[number].item = planned.first;
            m_items[number].directory = planned.second;
        }
        for (const ntfs_move &move : m_plan.moves)
            if (m_items.contains(move.record)) refuse(move.record, "is not free");
    }

    // At least the 24 that every volume has, and whole clusters of them.
    void count_records()
    {
        u64 count = std::max<u64>(24, m_items.rbegin()->first + 1);
        for (const ntfs_move &move : m_plan.moves)
            count = std::max(count, move.record + 1);
        m_records = round_up(count * m_plan.record_size, m_plan.cluster_size) /
                    m_plan.record_size;
    }

    entry_state &state_of(u64 number)
    {
        const auto found = m_items.find(number);
        if (found == m_items.end()) refuse(number, "no such entry");
        return found->second;
    }

    u64 reference(u64 number) const
    {
        const auto found = m_items.find(number);
        const u64 sequence = found == m_items.end() ? 1 : found->second.item.sequence;
        return number | sequence << 48;
    }

    static u32 attribute_bits(const ntfs_item &item)
    {
        const auto is_hole = [](const extent &run) { return run.lcn == hole; };
        const auto &runs = item.stored.runs;
        const bool sparse = std::any_of(runs.begin(), runs.end(), is_hole);
        return item.attributes | (item.stored.compressed ? 0x800U : 0U) |
               (sparse ? 0x200U : 0U);
    }

    static void add_standard_information(entry_state &state)
    {
        byte_vector value(standard_value::size);
        put_times(value, standard_value::times, state.item.times);
        put(value, 0, standard_value::attributes, attribute_bits(state.item));
        put(value, 0, standard_value::security_id, state.item.security_id);
        state.attributes.push_back(
            {.type = ntfs_type::standard_information, .content = value});
    }

    // Names

    byte_vector name_content(const ntfs_link &link, const ntfs_item &item,
                             bool directory) const
    {
        const std::u16string name = to_utf16(link.name);
        byte_vector value(name_value::name);
        const u64 parent = item.parent_sequence != 0
                               ? link.parent | u64{item.parent_sequence} << 48
                               : reference(link.parent);
        put(value, 0, name_value::parent, parent);
        put_times(value, name_value::times, item.times);
        put(value, 0, name_value::attributes,
            attribute_bits(item) | (directory ? attribute_directory : 0));
        put(value, 0, name_value::name_length, name.size());
        put(value, 0, name_value::name_space, link.name_space);
        put_utf16(value, name_value::name, name);
        return value;
    }

    void add_name(entry_state &state, const ntfs_link &link)
    {
        byte_vector value = name_content(link, state.item, state.directory);
        for (const attribute &one : state.attributes) {
            if (one.type != ntfs_type::data || !one.name.empty()) continue;
            put(value, 0, name_value::allocated_size, one.allocated_size);
            put(value, 0, name_value::real_size, one.real_size);
        }
        state.attributes.push_back(
            {.type = ntfs_type::file_name, .content = value, .indexed = true});
        if (!state.item.in_use || !state.item.in_index) return;
        m_children[link.parent].push_back(
            {to_utf16(link.name), encode_index_entry(reference(link.entry), value)});
    }

    void add_names()
    {
        for (auto &[number, state] : m_items)
            if (const ntfs_item &item = state.item; !item.name.empty())
                add_name(state, {number, item.parent, item.name, item.name_space});
        for (const ntfs_link &link : m_plan.links) add_name(state_of(link.entry), link);
    }

    // Streams

    u64 clusters_for(u64 bytes) const
    {
        return round_up(bytes, m_plan.cluster_size) / m_plan.cluster_size;
    }

    // Clusters that were asked for are not free for anything else.
    void take_wanted_clusters()
    {
        m_clusters.take({0, clusters_for(8192)}, true, 7); // $Boot
        for (const extent &run : m_plan.mft.runs) m_clusters.take(run, true, 0);
        for (const auto &[number, state] : m_items)
            for (const extent &run : state.item.stored.runs)
                m_clusters.take(run, state.item.in_use, number);
        for (const ntfs_stream &stream : m_plan.streams)
            for (const extent &run : stream.stored.runs)
                m_clusters.take(run, state_of(stream.entry).item.in_use, stream.entry);
    }

    bool stays_in_record(const ntfs_stream &stream) const
    {
        const ntfs_storage &how = stream.stored;
        return !how.non_resident && how.runs.empty() && how.fragments == 1 &&
               !how.compressed && stream.data.size() <= m_plan.record_size / 2;
    }

    void add_stream(const ntfs_stream &stream)
    {
        entry_state &state = state_of(stream.entry);
        attribute made = {.type = stream.type, .name = stream.name};
        made.real_size = stream.data.size();
        if (stays_in_record(stream)) {
            made.content = stream.data;
            made.allocated_size = round_up(stream.data.size(), 8);
        } else {
            store(made, stream, state.item.in_use);
            m_volume.runs[{stream.entry, stream.type, stream.name}] = made.runs;
        }
        state.attributes.push_back(std::move(made));
    }

    void store(attribute &made, const ntfs_stream &stream, bool live)
    {
        const ntfs_storage &how = stream.stored;
        made.non_resident = true;
        if (how.compressed) {
            store_units(made, stream.data, how.fragments > 1, live);
        } else {
            made.runs = how.runs;
            if (made.runs.empty())
                made.runs = m_clusters.place(clusters_for(made.real_size),
                                             how.fragments, granule(stream), live);
            m_writes.push_back({made.runs, stream.data, live});
        }
        for (const extent &run : made.runs)
            if (run.lcn == hole && !how.compressed) made.flags = flag_sparse;
        made.allocated_size = made.clusters(true) * m_plan.cluster_size;
        made.packed_size = made.clusters(false) * m_plan.cluster_size;
        made.valid_size = how.valid_size.value_or(made.real_size);
        if (made.allocated_size < made.real_size)
            refuse(stream.entry, "the runs are too short for the data");
    }

    // Records and index blocks are not torn apart by a cut between two runs.
    u64 granule(const ntfs_stream &stream) const
    {
        const u32 whole = stream.type == ntfs_type::index_allocation ? index_block_size
                          : stream.entry == 0 ? m_plan.record_size
                                              : 1;
        return clusters_for(whole);
    }

    // A unit that gets no smaller by a cluster at least is stored plain, one of zeros
    // not at all.
    void store_units(attribute &made, const byte_vector &data, bool gaps, bool live)
    {
        made.flags = flag_compressed;
        const std::size_t unit_size = unit_clusters * m_plan.cluster_size;
        for (std::size_t at = 0; at < data.size(); at += unit_size) {
            const auto begin = data.begin() + std::ptrdiff_t(at);
            const byte_vector plain(
                begin, begin + std::ptrdiff_t(std::min(unit_size, data.size() - at)));
            byte_vector bytes = compress_unit(plain);
            u64 clusters = clusters_for(bytes.size());
            if (clusters >= unit_clusters) {
                bytes = plain;
                clusters = unit_clusters;
            }
            if (std::count(plain.begin(), plain.end(), 0) == std::ssize(plain))
                clusters = 0;
            for (const extent &run : m_clusters.place(clusters, 1, 1, live)) {
                append_run(made.runs, run);
                m_writes.push_back({{run}, std::move(bytes), live});
            }
            if (clusters < unit_clusters)
                append_run(made.runs, {hole, unit_clusters - clusters});
            if (gaps) m_clusters.skip();
        }
    }

    static void append_run(std::vector<extent> &runs, const extent &run)
    {
        if (!runs.empty()) {
            extent &last = runs.back();
            const bool holes = run.lcn == hole && last.lcn == hole;
            if (holes || (last.lcn != hole && last.lcn + last.clusters == run.lcn)) {
                last.clusters += run.clusters;
                return;
            }
        }
        runs.push_back(run);
    }

    // Windows keeps four records, or a whole cluster of them.
    u64 mirrored() const
    {
        return std::max<u64>(4, m_plan.cluster_size / m_plan.record_size);
    }

    byte_vector record_bits() const
    {
        byte_vector bits(round_up(m_records, 64) / 8);
        const auto set = [&](u64 number) {
            bits[number / 8] |= static_cast<u8>(1U << number % 8);
        };
        for (const auto &[number, state] : m_items)
            if (state.item.in_use) set(number);
        for (const ntfs_move &move : m_plan.moves) set(move.record);
        return bits;
    }

    void add_system_streams()
    {
        const byte_vector version = {0, 0, 0, 0, 0, 0, 0, 0, 3, 1, 0, 0};
        byte_vector label;
        put_utf16(label, 0, to_utf16(m_plan.label));
        const ntfs_storage clustered = {.non_resident = true};
        const ntfs_storage boot = {.runs = {{0, clusters_for(8192)}}};
        ntfs_storage mft = m_plan.mft;
        mft.non_resident = true;
        const std::vector<ntfs_stream> streams = {
            {.entry = 0,
             .data = byte_vector(m_records * m_plan.record_size),
             .stored = mft},
            {.entry = 0,
             .data = record_bits(),
             .stored = clustered,
             .type = ntfs_type::bitmap},
            {.entry = 1,
             .data = byte_vector(mirrored() * m_plan.record_size),
             .stored = clustered},
            {.entry = 2,
             .data = byte_vector(65536, 0xFF),
             .stored = clustered}, // empty
            {.entry = 3, .data = label, .type = ntfs_type::volume_name},
            {.entry = 3, .data = version, .type = ntfs_type::volume_information},
            {.entry = 3},
            {.entry = 4, .data = attribute_definitions(), .stored = clustered},
            {.entry = 7, .data = byte_vector(8192), .stored = boot},
            {.entry = 8},
            {.entry = 10, .data = upcase_table(), .stored = clustered},
        };
        for (const ntfs_stream &stream : streams) add_stream(stream);
    }

    void add_streams()
    {
        for (const auto &[number, state] : m_items)
            if (!state.system && !state.directory)
                add_stream({number, "", state.item.data, state.item.stored});
        for (const ntfs_stream &stream : m_plan.streams) add_stream(stream);
    }

    // Directories

    // The bytes of a directory's stale entries, in their order.
    byte_vector stale_bytes(u64 directory, bool &end_on_top) const
    {
        byte_vector bytes;
        for (const ntfs_stale_entry &stale : m_plan.stale) {
            if (stale.directory != directory) continue;
            if (bytes.empty()) end_on_top = stale.end_on_top;
            const ntfs_item item = {.attributes = stale.attributes,
                                    .times = stale.times};
            byte_vector value = name_content(
                {stale.entry, directory, stale.name, stale.name_space}, item, false);
            put(value, 0, name_value::allocated_size, round_up(stale.size, 8));
            put(value, 0, name_value::real_size, stale.size);
            const u64 reference = stale.entry | u64{stale.sequence} << 48;
            append(bytes, encode_index_entry(reference, value));
        }
        return bytes;
    }

    void add_index(u64 number, entry_state &state)
    {
        // what the root may take, so that the attributes of an index in blocks fit, too
        std::size_t used = attributes_offset(m_plan) + 8 + 32 + 152;
        for (const attribute &one : state.attributes) used += encode(one).size();
        const std::size_t least_room = 64;
        const std::size_t room = std::max(
            m_plan.record_size - std::min<std::size_t>(used, m_plan.record_size),
            least_room);
        bool end_on_top = false;
        byte_vector stale = stale_bytes(number, end_on_top);
        index_tree tree(m_plan, std::move(m_children[number]), std::move(stale),
                        end_on_top);
        tree.grow(room, state.item.index_blocks);
        state.attributes.push_back({.type = ntfs_type::index_root,
                                    .name = index_name,
                                    .content = tree.root_value()});
        if (tree.blocks().empty()) return;
        ntfs_stream blocks = {
            number, index_name, {}, state.item.stored, ntfs_type::index_allocation};
        blocks.stored.non_resident = true;
        for (const byte_vector &block : tree.blocks()) append(blocks.data, block);
        add_stream(blocks);
        byte_vector bits(round_up(tree.blocks().size(), 64) / 8);
        for (std::size_t i = 0; i < tree.blocks().size(); ++i)
            bits[i / 8] |= static_cast<u8>(1U << i % 8);
        add_stream({number, index_name, bits, {}, ntfs_type::bitmap});
        m_volume.index_blocks[number].resize(tree.blocks().size());
    }

    // $Bitmap and $BadClus are as large as the volume is, so its size is fixed here,
    // with some clusters left free.
    void add_whole_volume_streams()
    {
        const u64 taken = m_clusters.end();
        const u64 spare =
            32 + taken / 4096 + m_plan.moves.size() + m_plan.clustered_lists.size();
        m_total = std::max(m_plan.clusters, taken + spare);
        add_stream({.entry = 6,
                    .data = byte_vector(round_up(m_total, 64) / 8),
                    .stored = {.non_resident = true}});
        const u64 bytes = m_total * m_plan.cluster_size;
        m_items[8].attributes.push_back({.type = ntfs_type::data,
                                         .name = "$Bad",
                                         .non_resident = true,
                                         .runs = {{hole, m_total}},
                                         .allocated_size = bytes,
                                         .real_size = bytes});
    }

    // Attribute lists

    // Takes the runs from number `first` on away from `piece`, as a piece of their own.
    static attribute cut_off(attribute &piece, std::size_t first)
    {
        attribute rest = piece;
        const auto cut = static_cast<std::ptrdiff_t>(first - piece.first_run);
        rest.runs.erase(rest.runs.begin(), rest.runs.begin() + cut);
        piece.runs.resize(first - piece.first_run);
        rest.first_vcn = piece.first_vcn + piece.clusters(true);
        rest.first_run = first;
        return rest;
    }

    void move_attribute(const ntfs_move &move)
    {
        entry_state &state = state_of(move.entry);
        const auto fits = [&, nth = move.nth](const attribute &one) mutable {
            const std::size_t runs = std::max<std::size_t>(1, one.runs.size());
            return one.type == move.type && one.name == move.name &&
                   move.first_run - one.first_run < runs && nth-- == 0;
        };
        const auto found =
            std::find_if(state.attributes.begin(), state.attributes.end(), fits);
        if (found == state.attributes.end()) refuse(move.entry, "no attribute to move");
        m_extensions[move.record] = move.sequence;
        if (move.first_run == found->first_run) {
            found->record = move.record;
            return;
        }
        attribute rest = cut_off(*found, move.first_run);
        rest.record = move.record;
        state.attributes.insert(found + 1, std::move(rest));
    }

    u64 host_reference(u64 number, const attribute &one) const
    {
        if (!one.record) return reference(number);
        return *one.record | u64{m_extensions.at(*one.record)} << 48;
    }

    byte_vector list_content(u64 number, const entry_state &state) const
    {
        using namespace list_value;
        byte_vector list;
        for (const attribute &one : state.attributes) {
            const std::u16string text = to_utf16(one.name);
            const std::size_t at = list.size();
            list.resize(at + round_up(name + 2 * text.size(), 8));
            put(list, at, type, one.type);
            put(list, at, length, list.size() - at);
            put(list, at, name_length, text.size());
            put(list, at, name_offset, name);
            put(list, at, first_vcn, one.first_vcn);
            put(list, at, list_value::reference, host_reference(number, one));
            put(list, at, id, one.id);
            put_utf16(list, at + name, text);
        }
        return list;
    }

    // Puts the attributes in order, and makes the list where there has to be one.
    void number_attributes(u64 number, entry_state &state)
    {
        const auto before = [](const attribute &a, const attribute &b) {
            return std::tuple(a.type, upper(to_utf16(a.name)), a.first_vcn) <
                   std::tuple(b.type, upper(to_utf16(b.name)), b.first_vcn);
        };
        auto &all = state.attributes;
        std::stable_sort(all.begin(), all.end(), before);
        const bool clustered = m_plan.clustered_lists.contains(number);
        bool listed = clustered;
        std::map<u64, u16> next_ids;
        for (attribute &one : all) {
            one.id = next_ids[one.record.value_or(number)]++;
            listed = listed || one.record;
        }
        if (!listed) return;
        add_stream({number,
                    "",
                    list_content(number, state),
                    {.non_resident = clustered},
                    ntfs_type::attribute_list});
        all.back().id = next_ids[number];
        std::stable_sort(all.begin(), all.end(), before);
    }

    // The image

    u64 byte_position(const std::vector<extent> &runs, u64 offset) const
    {
        u64 vcn = offset / m_plan.cluster_size;
        for (const extent &run : runs) {
            if (vcn < run.clusters)
                return run.lcn == hole ? hole
                                       : m_plan.offset + offset % m_plan.cluster_size +
                                             (run.lcn + vcn) * m_plan.cluster_size;
            vcn -= run.clusters;
        }
        return hole;
    }

    // Bytes that fall into a hole are not stored.
    void write_at(const std::vector<extent> &runs, u64 offset, const byte_vector &bytes)
    {
        for (std::size_t done = 0; done < bytes.size();) {
            const u64 at = byte_position(runs, offset + done);
            const u64 step =
                m_plan.cluster_size - (offset + done) % m_plan.cluster_size;
            const std::size_t count = std::min<std::size_t>(step, bytes.size() - done);
            if (at != hole)
                std::copy_n(bytes.begin() + std::ptrdiff_t(done), count,
                            m_volume.image.begin() + std::ptrdiff_t(at));
            done += count;
        }
    }

    const std::vector<extent> &runs_of(u64 entry, u32 type = ntfs_type::data,
                                       const char *name = "") const
    {
        return m_volume.runs.at({entry, type, name});
    }

    void write_image()
    {
        if (m_clusters.end() > m_total) refuse(6, "the volume is too small");
        m_volume.boot_position = m_plan.offset;
        m_volume.image.resize(m_plan.offset + m_total * m_plan.cluster_size +
                              m_plan.sector_size);
        for (const bool live :
             {false, true}) // where both claim a cluster, the live wins
            for (const cluster_write &one : m_writes)
                if (one.live == live) write_at(one.runs, 0, one.bytes);
        write_at(runs_of(6), 0, m_clusters.bits(m_total, round_up(m_total, 64) / 8));
        write_boot_sectors();
        for (u64 number = 0; number < m_records; ++number)
            write_record({.entry = number}, {}, 0);
        for (const auto &[number, state] : m_items) write_entry(number, state);
        for (auto &[number, blocks] : m_volume.index_blocks)
            for (std::size_t i = 0; i < blocks.size(); ++i)
                blocks[i] = byte_position(
                    runs_of(number, ntfs_type::index_allocation, index_name),
                    i * index_block_size);
        write_mirror();
        for (const ntfs_plan::poke &poke : m_plan.pokes)
            write_at(runs_of(0), poke.entry * m_plan.record_size + poke.offset,
                     poke.bytes);
    }

    void write_boot_sectors()
    {
        using namespace boot_sector;
        byte_vector bytes(512);
        put(bytes, 0, jump, 0x9052EB);
        put_text(bytes, signature.at, "NTFS    ");
        put(bytes, 0, bytes_per_sector, m_plan.sector_size);
        put(bytes, 0, sectors_per_cluster, cluster_sectors_code());
        put(bytes, 0, media_descriptor, 0xF8);
        put(bytes, 0, sectors_per_track, 63);
        put(bytes, 0, heads, 255);
        put(bytes, 0, hidden_sectors, m_plan.offset / m_plan.sector_size);
        put(bytes, 0, drive, 0x800080);
        put(bytes, 0, total_sectors,
            m_total * m_plan.cluster_size / m_plan.sector_size);
        put(bytes, 0, mft_lcn, runs_of(0).front().lcn);
        put(bytes, 0, mirror_lcn, runs_of(1).front().lcn);
        put(bytes, 0, record_size, size_code(m_plan.record_size, m_plan.cluster_size));
        put(bytes, 0, index_size, size_code(index_block_size, m_plan.cluster_size));
        put(bytes, 0, serial, 0x5A3C17E09B2D4F68);
        put(bytes, 0, end_mark, 0xAA55);
        write_at(runs_of(7), 0, bytes);
        // the copy stands in the sector behind the last cluster
        std::copy(bytes.begin(), bytes.end(),
                  m_volume.image.end() - std::ptrdiff_t(m_plan.sector_size));
    }

    u64 cluster_sectors_code() const
    {
        const u32 sectors = m_plan.cluster_size / m_plan.sector_size;
        return sectors <= 128 ? sectors
                              : 256 - static_cast<u64>(std::countr_zero(sectors));
    }

    // `bytes` holds the attributes, from their place on.
    void write_record(const record_text &text, byte_vector bytes, u64 next_id)
    {
        bytes.resize(std::max(bytes.size(), attributes_offset(m_plan)));
        finish_record(bytes, m_plan, text, next_id);
        const u64 offset = text.entry * m_plan.record_size;
        m_volume.records[text.entry] = byte_position(runs_of(0), offset);
        write_at(runs_of(0), offset, bytes);
    }

    // Writes the record of an entry and its extension records.
    void write_entry(u64 number, const entry_state &state)
    {
        std::map<u64, byte_vector> records;
        u16 links = 0;
        for (const attribute &one : state.attributes) {
            const u64 host = one.record.value_or(number);
            byte_vector &bytes = records[host];
            bytes.resize(std::max(bytes.size(), attributes_offset(m_plan)));
            m_volume.attributes[{number, one.type, one.name}].push_back(
                m_volume.records.at(host) + bytes.size());
            append(bytes, encode(one));
            if (one.type == ntfs_type::file_name) ++links;
        }
        const u16 in_use = state.item.in_use ? 1 : 0;
        const u64 next_id = state.attributes.size();
        for (const auto &[host, bytes] : records) {
            record_text text = {.entry = host, .flags = in_use};
            if (host == number) {
                text.sequence = state.item.sequence;
                text.links = links;
                text.flags |= state.directory ? 2 : 0;
            } else {
                text.sequence = m_extensions.at(host);
                text.base = reference(number);
            }
            write_record(text, bytes, next_id);
        }
    }

    void write_mirror()
    {
        for (u64 number = 0; number < std::min(mirrored(), m_records); ++number) {
            const auto record =
                m_volume.image.begin() + std::ptrdiff_t(m_volume.records.at(number));
            write_at(runs_of(1), number * m_plan.record_size,
                     byte_vector(record, record + m_plan.record_size));
        }
    }

    struct cluster_write {
        std::vector<extent> runs;
        byte_vector bytes;
        bool live;
    };

    const ntfs_plan &m_plan;
    ntfs_volume m_volume = {};
    std::map<u64, entry_state> m_items;
    std::map<u64, u16> m_extensions; // their sequence numbers
    std::map<u64, std::vector<tree_entry>> m_children;
    std::vector<cluster_write> m_writes;
    cluster_map m_clusters;
    u64 m_records = 0;
    u64 m_total = 0;
};

bool is_power_of_two_in(u32 value, u32 least, u32 most)
{
    return std::has_single_bit(value) && value >= least && value <= most;
}

} // namespace

ntfs_volume_builder &ntfs_volume_builder::cluster_size(u32 bytes)
{
    if (!is_power_of_two_in(bytes, 512, 1U << 21)) refuse(0, "bad cluster size");
    return m_plan.cluster_size = bytes, *this;
}

ntfs_volume_builder &ntfs_volume_builder::record_size(u32 bytes)
{
    if (!is_power_of_two_in(bytes, 1024, 4096)) refuse(0, "bad record size");
    return m_plan.record_size = bytes, *this;
}

ntfs_volume_builder &ntfs_volume_builder::sector_size(u32 bytes)
{
    if (!is_power_of_two_in(bytes, 512, 4096)) refuse(0, "bad sector size");
    return m_plan.sector_size = bytes, *this;
}

ntfs_volume_builder &ntfs_volume_builder::update_step(u32 bytes)
{
    if (!is_power_of_two_in(bytes, 512, 4096)) refuse(0, "bad update step");
    return m_plan.update_step = bytes, *this;
}

ntfs_volume_builder &ntfs_volume_builder::offset(u64 bytes)
{
    return m_plan.offset = bytes, *this;
}

ntfs_volume_builder &ntfs_volume_builder::clusters(u64 count)
{
    return m_plan.clusters = count, *this;
}

ntfs_volume_builder &ntfs_volume_builder::label(std::string text)
{
    return m_plan.label = std::move(text), *this;
}

ntfs_volume_builder &ntfs_volume_builder::mft(ntfs_storage stored)
{
    return m_plan.mft = std::move(stored), *this;
}

ntfs_volume_builder &ntfs_volume_builder::directory(ntfs_item item)
{
    if (!item.data.empty()) refuse(item.entry, "a directory has no data");
    m_plan.items.insert_or_assign(item.entry, std::pair(std::move(item), true));
    return *this;
}

ntfs_volume_builder &ntfs_volume_builder::file(ntfs_item item)
{
    m_plan.items.insert_or_assign(item.entry, std::pair(std::move(item), false));
    return *this;
}

ntfs_volume_builder &ntfs_volume_builder::stream(ntfs_stream item)
{
    return m_plan.streams.push_back(std::move(item)), *this;
}

ntfs_volume_builder &ntfs_volume_builder::link(ntfs_link item)
{
    return m_plan.links.push_back(std::move(item)), *this;
}

ntfs_volume_builder &ntfs_volume_builder::stale_entry(ntfs_stale_entry item)
{
    return m_plan.stale.push_back(std::move(item)), *this;
}

ntfs_volume_builder &ntfs_volume_builder::move(ntfs_move item)
{
    return m_plan.moves.push_back(std::move(item)), *this;
}

ntfs_volume_builder &ntfs_volume_builder::list_in_clusters(u64 entry)
{
    return m_plan.clustered_lists.insert(entry), *this;
}

ntfs_volume_builder &ntfs_volume_builder::poke(u64 entry, std::size_t offset,
                                               byte_vector bytes)
{
    return m_plan.pokes.push_back({entry, offset, std::move(bytes)}), *this;
}

ntfs_volume ntfs_volume_builder::build_volume() const
{
    return volume_writer(m_plan).write();
}

} // namespace test_support
