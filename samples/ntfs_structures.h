#pragma once

#include "samples/record_builders.h"

#include <algorithm>
#include <initializer_list>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

/// The single structures of a volume, as bytes: names, attributes, records, index
/// blocks. The builder of volumes puts them together.
namespace test_support {

/// A stretch of clusters.
struct extent {
    u64 lcn = 0; ///< `hole` where nothing is stored
    u64 clusters = 0;
};
inline constexpr u64 hole = ~u64{0};

namespace ntfs_type {
inline constexpr u32 standard_information = 0x10;
inline constexpr u32 attribute_list = 0x20;
inline constexpr u32 file_name = 0x30;
inline constexpr u32 volume_name = 0x60;
inline constexpr u32 volume_information = 0x70;
inline constexpr u32 data = 0x80;
inline constexpr u32 index_root = 0x90;
inline constexpr u32 index_allocation = 0xA0;
inline constexpr u32 bitmap = 0xB0;
} // namespace ntfs_type

namespace ntfs_structures {

inline constexpr u32 index_block_size = 4096;
inline constexpr u32 update_step = 512; // whatever the sector size
inline constexpr u16 flag_compressed = 0x0001;
inline constexpr u16 flag_sparse = 0x8000;

constexpr u64 round_up(u64 value, u64 step)
{
    return (value + step - 1) / step * step;
}

[[noreturn]] inline void refuse(u64 entry, const char *reason)
{
    throw std::logic_error("entry " + std::to_string(entry) + ": " + reason);
}

// Names

inline std::u16string to_utf16(std::string_view text)
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

/// What the volume's $UpCase does: enough of the alphabets that names in tests use.
inline char16_t upper_unit(u32 unit)
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

inline std::u16string upper(std::u16string text)
{
    for (char16_t &unit : text) unit = upper_unit(unit);
    return text;
}

// Content of system files

inline byte_vector upcase_table()
{
    byte_vector table(0x20000);
    for (u32 unit = 0; unit < 0x10000; ++unit)
        put_number(table, 2 * std::size_t{unit}, upper_unit(unit), 2);
    return table;
}

inline byte_vector attribute_definitions()
{
    struct definition {
        const char16_t *name;
        u32 type, flags;
        u64 least, most;
    };
    constexpr u64 any = ~u64{0};
    static constexpr definition definitions[] = {
        {u"$STANDARD_INFORMATION", 0x10, 0x40, 48, 72},
        {u"$ATTRIBUTE_LIST", 0x20, 0x80, 0, any},
        {u"$FILE_NAME", 0x30, 0x42, 68, 578},
        {u"$OBJECT_ID", 0x40, 0x40, 0, 256},
        {u"$SECURITY_DESCRIPTOR", 0x50, 0x80, 0, any},
        {u"$VOLUME_NAME", 0x60, 0x40, 2, 256},
        {u"$VOLUME_INFORMATION", 0x70, 0x40, 12, 12},
        {u"$DATA", 0x80, 0, 0, any},
        {u"$INDEX_ROOT", 0x90, 0x40, 0, any},
        {u"$INDEX_ALLOCATION", 0xA0, 0x80, 0, any},
        {u"$BITMAP", 0xB0, 0x80, 0, any},
        {u"$REPARSE_POINT", 0xC0, 0x80, 0, 16384},
        {u"$EA_INFORMATION", 0xD0, 0x40, 8, 8},
        {u"$EA", 0xE0, 0, 0, 65536},
        {u"$LOGGED_UTILITY_STREAM", 0x100, 0x80, 0, 65536},
    };
    byte_vector table;
    for (const auto &[name, type, flags, least, most] : definitions) {
        const std::size_t at = table.size();
        table.resize(at + 160);
        put_utf16(table, at, name);
        put_layout(table,
                   {{128, 4, type}, {140, 4, flags}, {144, 8, least}, {152, 8, most}},
                   at);
    }
    table.resize(table.size() + 160);
    return table;
}

// LZNT1

/// Compresses a chunk. At each place, only the last earlier place with the same three
/// bytes is tried. Empty if the result isn't shorter.
inline byte_vector compress_chunk(const byte_vector &data, std::size_t begin,
                                  std::size_t end)
{
    byte_vector out;
    std::map<u32, std::size_t> last_seen;
    std::size_t flags_at = 0;
    for (std::size_t at = begin, item = 0; at < end; ++item) {
        if (item % 8 == 0) {
            flags_at = out.size();
            out.push_back(0);
        }
        int shift = 12; // bits of the length; the further on, the fewer
        for (std::size_t k = at == begin ? 0 : (at - begin - 1) / 16; k > 0; k /= 2)
            --shift;
        std::size_t match = 0, from = at;
        if (end - at >= 3) {
            const u32 key = data[at] | u32{data[at + 1]} << 8 | u32{data[at + 2]} << 16;
            const auto [known, fresh] = last_seen.try_emplace(key, at);
            if (!fresh) from = std::exchange(known->second, at);
            const std::size_t most = std::min<std::size_t>(end - at, 2 + (1U << shift));
            while (from < at && match < most && data[from + match] == data[at + match])
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

/// Up to a unit of bytes as LZNT1 chunks.
inline byte_vector compress_unit(const byte_vector &data)
{
    byte_vector out;
    for (std::size_t at = 0; at < data.size(); at += 4096) {
        const std::size_t end = std::min(at + 4096, data.size());
        byte_vector chunk = compress_chunk(data, at, end);
        u64 header = 0xB000 | (chunk.size() - 1);
        if (chunk.empty()) { // stored, always as 4096 bytes
            header = 0x3FFF;
            chunk.assign(data.begin() + std::ptrdiff_t(at),
                         data.begin() + std::ptrdiff_t(end));
            chunk.resize(4096);
        }
        put_number(out, out.size(), header, 2);
        append(out, chunk);
    }
    return out;
}

// Attributes

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
    std::optional<u64> record = {}; // number of the extension record that holds it
    u16 id = 0;

    u64 clusters(bool with_holes) const
    {
        u64 count = 0;
        for (const extent &run : runs)
            if (with_holes || run.lcn != hole) count += run.clusters;
        return count;
    }
};

/// Appends a number in the fewest bytes that keep its sign, and returns their count.
inline std::size_t append_signed(byte_vector &bytes, u64 number)
{
    auto value = static_cast<std::int64_t>(number);
    std::size_t count = 0;
    for (bool more = true; more; ++count) {
        bytes.push_back(static_cast<u8>(value));
        const std::int64_t sign = (value & 0x80) != 0 ? -1 : 0;
        value >>= 8;
        more = value != sign;
    }
    return count;
}

inline byte_vector encode_runs(const std::vector<extent> &runs)
{
    byte_vector bytes;
    u64 previous = 0;
    for (const extent &run : runs) {
        const std::size_t header = bytes.size();
        bytes.push_back(0);
        std::size_t widths = append_signed(bytes, run.clusters);
        if (run.lcn != hole) {
            widths |= append_signed(bytes, run.lcn - previous) << 4;
            previous = run.lcn;
        }
        bytes[header] = static_cast<u8>(widths);
    }
    bytes.push_back(0);
    return bytes;
}

/// An attribute without the fields that both forms have in common. Only the first piece
/// of a stream has sizes.
inline byte_vector encode_form(const attribute &from, std::size_t name_bytes)
{
    const bool sized = from.non_resident && from.first_vcn == 0;
    const bool packed = sized && from.flags != 0;
    const std::size_t name_at = !from.non_resident ? 24 : packed ? 72 : 64;
    const std::size_t body_at = round_up(name_at + name_bytes, 8);
    byte_vector bytes(body_at);
    append(bytes, from.non_resident ? encode_runs(from.runs) : from.content);
    put_layout(bytes, {{8, 1, from.non_resident}, {10, 2, name_at}});
    if (!from.non_resident) {
        put_layout(
            bytes,
            {{16, 4, from.content.size()}, {20, 2, body_at}, {22, 1, from.indexed}});
        return bytes;
    }
    put_layout(bytes, {{16, 8, from.first_vcn},
                       {24, 8, from.first_vcn + from.clusters(true) - 1},
                       {32, 2, body_at}});
    if (sized)
        put_layout(bytes, {{40, 8, from.allocated_size},
                           {48, 8, from.real_size},
                           {56, 8, from.valid_size}});
    if (packed)
        put_layout(bytes, {{34, 1, 4}, {64, 8, from.packed_size}}); // 2^4 clusters
    return bytes;
}

inline byte_vector encode(const attribute &from)
{
    const std::u16string name = to_utf16(from.name);
    byte_vector bytes = encode_form(from, 2 * name.size());
    bytes.resize(round_up(bytes.size(), 8));
    put_layout(bytes, {{0, 4, from.type},
                       {4, 4, bytes.size()},
                       {9, 1, name.size()},
                       {12, 2, from.flags},
                       {14, 2, from.id}});
    put_utf16(bytes, bytes[10], name);
    return bytes;
}

/// An entry of an attribute list.
inline byte_vector encode_list_entry(const attribute &listed, u64 reference)
{
    const std::u16string name = to_utf16(listed.name);
    byte_vector bytes(round_up(26 + 2 * name.size(), 8));
    put_layout(bytes, {{0, 4, listed.type},
                       {4, 2, bytes.size()},
                       {6, 1, name.size()},
                       {7, 1, 26},
                       {8, 8, listed.first_vcn},
                       {16, 8, reference},
                       {24, 2, listed.id}});
    put_utf16(bytes, 26, name);
    return bytes;
}

// Records

/// Puts the check value at the end of each 512 bytes, and what was there into the
/// array.
inline void protect(byte_vector &bytes, std::size_t array)
{
    const std::size_t step = update_step;
    const u16 check = 0x0107;
    put_layout(bytes,
               {{4, 2, array}, {6, 2, 1 + bytes.size() / step}, {array, 2, check}});
    for (std::size_t i = 1; i * step <= bytes.size(); ++i) {
        for (std::size_t k = 0; k < 2; ++k)
            bytes[array + 2 * i + k] = bytes[i * step - 2 + k];
        put_number(bytes, i * step - 2, check, 2);
    }
}

/// Where the content begins after the update sequence of a whole record or block.
inline std::size_t after_updates(std::size_t array, u32 size)
{
    return round_up(array + std::size_t{2} * (1 + size / update_step), 8);
}

/// The size of records, and where in them the array of the update sequence is: at 48,
/// or at 42 where the record doesn't hold its own number (before Windows XP).
struct record_layout {
    u32 size = 1024;
    u32 array = 48;

    std::size_t first_attribute() const { return after_updates(array, size); }
};

struct record_header {
    u64 entry = 0;
    u16 sequence = 1;
    u16 links = 0;
    u16 flags = 0; // 1: in use, 2: a directory
    u64 base = 0;  // reference
    u64 next_id = 0;
};

inline byte_vector encode_record(const record_layout &layout,
                                 const record_header &header,
                                 const byte_vector &attributes)
{
    byte_vector bytes(layout.first_attribute());
    append(bytes, attributes);
    put_number(bytes, bytes.size(), 0xFFFFFFFF, 8);
    if (bytes.size() > layout.size) refuse(header.entry, "the record is too full");
    put_text(bytes, 0, "FILE");
    put_layout(bytes, {{16, 2, header.sequence},
                       {18, 2, header.links},
                       {20, 2, layout.first_attribute()},
                       {22, 2, header.flags},
                       {24, 4, bytes.size()},
                       {28, 4, layout.size},
                       {32, 8, header.base},
                       {40, 2, header.next_id}});
    if (layout.array >= 48) put_number(bytes, 44, header.entry, 4);
    bytes.resize(layout.size);
    protect(bytes, layout.array);
    return bytes;
}

// Indexes

struct tree_entry {
    std::u16string name;
    byte_vector bytes; // without a child
    std::optional<u64> child = {};
};

/// Entries in order, and the child after the last of them.
struct tree_node {
    std::vector<tree_entry> entries = {};
    std::optional<u64> end_child = {};
};

/// `value` is the content of the $FILE_NAME.
inline byte_vector encode_index_entry(u64 reference, const byte_vector &value)
{
    byte_vector bytes(16);
    append(bytes, value);
    bytes.resize(round_up(bytes.size(), 8));
    put_layout(bytes, {{0, 8, reference}, {8, 2, bytes.size()}, {10, 2, value.size()}});
    return bytes;
}

inline void append_with_child(byte_vector &out, byte_vector entry,
                              std::optional<u64> child)
{
    if (child) {
        entry[12] |= 1;
        put_number(entry, entry.size(), *child, 8);
    }
    put_number(entry, 8, entry.size(), 2);
    append(out, entry);
}

inline byte_vector encode_node(const tree_node &node)
{
    byte_vector out;
    for (const tree_entry &entry : node.entries)
        append_with_child(out, entry.bytes, entry.child);
    byte_vector end(16);
    end[12] = 2;
    append_with_child(out, end, node.end_child);
    return out;
}

/// The index of one directory: what stays in the root, and the blocks below it.
class index_tree {
public:
    /// `slack` are the old entries after the live ones.
    index_tree(u32 cluster_size, std::vector<tree_entry> entries, byte_vector slack)
        : m_cluster_size(cluster_size),
          m_slack(std::move(slack)),
          m_root{std::move(entries)}
    {
        const auto before = [](const tree_entry &a, const tree_entry &b) {
            return std::pair(upper(a.name), a.name) < std::pair(upper(b.name), b.name);
        };
        std::sort(m_root.entries.begin(), m_root.entries.end(), before);
    }

    /// Moves entries into blocks, level by level, until the root takes no more than
    /// `room`.
    void grow(std::size_t room, bool at_least_once)
    {
        while (at_least_once || root_value().size() > room) {
            const bool leaves = m_blocks.empty();
            if (m_slack.size() > block_room()) refuse(0, "too many stale entries");
            split(block_room() - (leaves ? m_slack.size() : 0));
            if (leaves)
                m_blocks.back() = block(m_last_filled, m_blocks.size() - 1, true);
            at_least_once = false;
        }
    }

    byte_vector root_value() const
    {
        byte_vector bytes(32);
        const u64 live = append_node(bytes, m_root, m_blocks.empty());
        put_layout(bytes, {{0, 4, ntfs_type::file_name},
                           {4, 4, 1}, // ordered as names are
                           {8, 4, index_block_size},
                           {12, 1, block_vcn(1)}});
        put_header(bytes, 16, 32, live, m_root);
        return bytes;
    }

    const std::vector<byte_vector> &blocks() const { return m_blocks; }

private:
    // Blocks count in clusters, or in 512 bytes where a cluster is larger than a block.
    u64 block_vcn(u64 number) const
    {
        return number * (index_block_size /
                         (m_cluster_size > index_block_size ? 512 : m_cluster_size));
    }

    std::size_t first_entry() const { return after_updates(40, index_block_size); }
    std::size_t block_room() const { return index_block_size - first_entry(); }

    // The index header at `at`; its numbers count from there.
    static void put_header(byte_vector &bytes, std::size_t at, std::size_t entries_at,
                           u64 live, const tree_node &node)
    {
        put_layout(bytes,
                   {{0, 4, entries_at - at},
                    {4, 4, entries_at - at + live},
                    {8, 4, bytes.size() - at},
                    {12, 4, node.end_child.has_value()}},
                   at);
    }

    // Returns the count of live bytes. The slack follows them.
    u64 append_node(byte_vector &bytes, const tree_node &node, bool with_slack) const
    {
        const byte_vector live = encode_node(node);
        append(bytes, live);
        if (with_slack) append(bytes, m_slack);
        return live.size();
    }

    byte_vector block(const tree_node &node, u64 number, bool with_slack) const
    {
        byte_vector bytes(first_entry());
        const u64 live = append_node(bytes, node, with_slack);
        bytes.resize(index_block_size);
        put_text(bytes, 0, "INDX");
        put_number(bytes, 16, block_vcn(number), 8);
        put_header(bytes, 24, first_entry(), live, node);
        protect(bytes, 40);
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
        tree_node above, filling;
        const auto take_last = [&filling] {
            tree_entry last = std::move(filling.entries.back());
            filling.entries.pop_back();
            return last;
        };
        for (tree_entry &entry : m_root.entries) {
            filling.entries.push_back(std::move(entry));
            if (encode_node(filling).size() + 8 <= room) continue;
            if (filling.entries.size() < 3) refuse(0, "too many stale entries");
            tree_entry spilled = take_last(), between = take_last();
            filling.end_child = between.child;
            between.child = add_block(filling);
            above.entries.push_back(std::move(between));
            filling = {{std::move(spilled)}};
        }
        filling.end_child = m_root.end_child;
        above.end_child = add_block(filling);
        m_last_filled = std::move(filling);
        m_root = std::move(above);
    }

    u32 m_cluster_size;
    byte_vector m_slack;
    tree_node m_root, m_last_filled;
    std::vector<byte_vector> m_blocks;
};

} // namespace ntfs_structures
} // namespace test_support
