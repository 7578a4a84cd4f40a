#include "stress/fields.h"

#include "stress/numbers.h"

#include <algorithm>

namespace stress {

namespace {

using enum field_kind;

// clang-format off

constexpr field boot_fields[] = {
    {11, 2, power}, {13, 1, power}, {40, 8}, {48, 8, cluster}, {56, 8, cluster},
    {64, 1, power}, {68, 1, power}, {72, 8}};

constexpr field mbr_entry[] = {{0, 1}, {4, 1}, {8, 4, position}, {12, 4}};
constexpr field gpt_header[] = {
    {8, 4}, {12, 4}, {24, 8, position}, {32, 8, position}, {40, 8, position},
    {48, 8, position}, {72, 8, position}, {80, 4}, {84, 4}};
constexpr field gpt_entry[] = {
    {0, 8}, {8, 8}, {16, 8}, {32, 8, position}, {40, 8, position}, {48, 8}, {56, 40, text16}};

constexpr field record_header[] = {
    {4, 2}, {6, 2}, {8, 8}, {16, 2}, {18, 2}, {20, 2}, {22, 2}, {24, 4}, {28, 4},
    {32, 8, reference}, {40, 2}, {44, 4}};
constexpr field attribute_header[] = {{0, 4}, {4, 4}, {8, 1}, {9, 1}, {10, 2}, {12, 2}, {14, 2}};
constexpr field resident_header[] = {{16, 4}, {20, 2}, {22, 1}};
constexpr field clustered_header[] = {
    {16, 8}, {24, 8}, {32, 2}, {34, 2}, {40, 8}, {48, 8}, {56, 8}};

constexpr field standard_information[] = {
    {0, 8, time}, {8, 8, time}, {16, 8, time}, {24, 8, time}, {32, 4}, {52, 4}};
constexpr field file_name[] = {
    {0, 8, reference}, {8, 8, time}, {16, 8, time}, {24, 8, time}, {32, 8, time},
    {40, 8}, {48, 8}, {56, 4}, {64, 1}, {65, 1}};
constexpr field list_entry[] = {
    {0, 4}, {4, 2}, {6, 1}, {7, 1}, {8, 8}, {16, 8, reference}, {24, 2}};
constexpr field index_root[] = {{0, 4}, {4, 4}, {8, 4}, {12, 1}};
constexpr field index_header[] = {{0, 4}, {4, 4}, {8, 4}, {12, 1}};
constexpr field index_entry[] = {{0, 8, reference}, {8, 2}, {10, 2}, {12, 2}};
constexpr field block_header[] = {{4, 2}, {6, 2}, {8, 8}, {16, 8}};

constexpr field dollar_i_header[] = {{0, 8}, {8, 8}, {16, 8, time}};
constexpr field list_header[] = {{0, 4}, {4, 4}, {8, 4}, {12, 4}, {16, 4}};
constexpr field list_record[] = {{0, 260, text8}, {260, 4}, {264, 4}, {268, 8, time}, {276, 4}};

constexpr field journal_v2[] = {
    {0, 4}, {4, 2}, {6, 2}, {8, 8, reference}, {16, 8, reference}, {24, 8}, {32, 8, time},
    {40, 4}, {44, 4}, {52, 4}, {56, 2}, {58, 2}};
constexpr field journal_v3[] = {
    {0, 4}, {4, 2}, {6, 2}, {8, 8, reference}, {16, 8}, {24, 8, reference}, {40, 8}, {48, 8, time},
    {56, 4}, {60, 4}, {68, 4}, {72, 2}, {74, 2}};

constexpr field shadow_header[] = {
    {16, 4}, {20, 4}, {24, 8, place}, {32, 8, place}, {40, 8, place}, {48, 8}};
constexpr field catalog_entry[] = {
    {0, 8}, {8, 8, place}, {16, 8}, {24, 8}, {32, 8, place}, {40, 8, place}, {48, 8, place},
    {56, 8, reference}, {64, 8}, {72, 8, place}};
constexpr field shadow_descriptor[] = {
    {0, 8, place}, {8, 8, place}, {16, 8, place}, {24, 4}, {28, 4}};
constexpr field shadow_range[] = {{0, 8, place}, {8, 8, place}, {16, 8}};
constexpr field shadow_bits[] = {{0, 8}};
constexpr field shadow_machine[] = {{0, 8}, {16, 8}, {24, 8}, {48, 4}, {52, 4}, {56, 4}, {64, 2}};

// clang-format on

class grammar {
public:
    explicit grammar(std::span<const u8> bytes) : m_bytes(bytes) {}

    u64 number(u64 at, std::size_t width) const
    {
        return number_at(m_bytes, at, width);
    }
    u64 size() const { return m_bytes.size(); }
    bool has(u64 at, std::string_view text) const
    {
        return has_text(m_bytes, at, text);
    }
    const std::vector<field> &fields() const { return m_fields; }

    template <std::size_t N> void add(const field (&layout)[N], u64 base)
    {
        for (const field &each : layout) add(each, base);
    }
    void add(const field &each, u64 base)
    {
        if (base > size() || each.offset + each.length > size() - base) return;
        m_fields.push_back({base + each.offset, each.length, each.kind});
    }
    /// A text of `units`, as many of them as there are.
    void add_text(u64 at, u64 units)
    {
        if (at >= size() || units == 0) return;
        const u64 length = std::min<u64>(2 * units, size() - at);
        m_fields.push_back({at, length, text16});
    }

private:
    std::span<const u8> m_bytes;
    std::vector<field> m_fields;
};

void add_file_name(grammar &out, u64 at)
{
    out.add(file_name, at);
    out.add_text(at + 66, out.number(at + 64, 1));
}

// Entries from `at` to `end`, and the slack after the last of them, by their lengths.
void add_index_entries(grammar &out, u64 at, u64 end)
{
    constexpr u64 has_child = 1;
    while (at + 16 <= end) {
        const u64 length = out.number(at + 8, 2);
        out.add(index_entry, at);
        if (out.number(at + 10, 2) >= 66) add_file_name(out, at + 16);
        if ((out.number(at + 12, 2) & has_child) != 0 && length >= 24)
            out.add({length - 8, 8}, at);
        if (length < 16) return;
        at += length;
    }
}

// An index header and what follows it up to `end`.
void add_index(grammar &out, u64 header, u64 end)
{
    out.add(index_header, header);
    add_index_entries(out, header + out.number(header, 4), end);
}

void add_dollar_i(grammar &out, u64 at)
{
    out.add(dollar_i_header, at);
    const bool has_length = out.number(at, 8) != 1;
    if (has_length) out.add({24, 4}, at);
    out.add_text(at + (has_length ? 28 : 24),
                 has_length ? out.number(at + 24, 4) : 260);
}

void add_list(grammar &out, u64 at, u64 end)
{
    out.add(list_header, at);
    const u64 size = out.number(at + 12, 4) == 280 ? 280 : 800;
    for (at += 20; at + 280 <= end; at += size) {
        out.add(list_record, at);
        if (size > 280) out.add_text(at + 280, 260);
    }
}

// The contents of a file in the bin. What is neither a list nor a `$I` file has no
// fields that matter.
void add_bin_metadata(grammar &out, u64 at, u64 end)
{
    const u64 record_size = out.number(at + 12, 4);
    if (out.number(at, 4) <= 5 && (record_size == 800 || record_size == 280))
        add_list(out, at, end);
    else if (const u64 version = out.number(at, 8); version == 1 || version == 2)
        add_dollar_i(out, at);
}

void add_attribute_list(grammar &out, u64 at, u64 end)
{
    while (at + 26 <= end) {
        out.add(list_entry, at);
        const u64 length = out.number(at + 4, 2);
        if (length < 26) return;
        at += length;
    }
}

struct value_layout {
    u64 type;
    void (*add)(grammar &out, u64 at, u64 end);
};
constexpr value_layout value_layouts[] = {
    {0x10, [](grammar &out, u64 at, u64) { out.add(standard_information, at); }},
    {0x20, add_attribute_list},
    {0x30, [](grammar &out, u64 at, u64) { add_file_name(out, at); }},
    {0x60, [](grammar &out, u64 at, u64 end) { out.add_text(at, (end - at) / 2); }},
    {0x80, add_bin_metadata},
    {0x90,
     [](grammar &out, u64 at, u64 end) {
         out.add(index_root, at);
         add_index(out, at + 16, end);
     }},
};

void add_resident_value(grammar &out, u64 attribute, u64 attribute_end)
{
    const u64 at = attribute + out.number(attribute + 20, 2);
    const u64 end = std::min(at + out.number(attribute + 16, 4), attribute_end);
    const u64 type = out.number(attribute, 4);
    for (const value_layout &each : value_layouts)
        if (each.type == type && at < end) each.add(out, at, end);
}

void add_attribute(grammar &out, u64 at, u64 length)
{
    out.add(attribute_header, at);
    out.add_text(at + out.number(at + 10, 2), out.number(at + 9, 1));
    if (out.number(at + 8, 1) == 0) {
        out.add(resident_header, at);
        add_resident_value(out, at, at + length);
        return;
    }
    out.add(clustered_header, at);
    out.add({0, length, runs}, at);
}

void add_record(grammar &out)
{
    out.add(record_header, 0);
    u64 at = out.number(20, 2);
    while (at + 16 <= out.size() && out.number(at, 4) != 0xFFFFFFFF) {
        const u64 length = out.number(at + 4, 4);
        if (length < 16 || length > out.size() - at) return;
        add_attribute(out, at, length);
        at += length;
    }
}

void add_block(grammar &out)
{
    out.add(block_header, 0);
    add_index(out, 24, out.size());
}

void add_partition_table(grammar &out)
{
    if (out.has(0, "EFI PART")) return out.add(gpt_header, 0);
    if (out.number(510, 2) == 0xAA55) {
        for (u64 at = 446; at < 510; at += 16) out.add(mbr_entry, at);
        return;
    }
    for (u64 at = 0; at < out.size(); at += 128) out.add(gpt_entry, at);
}

void add_journal(grammar &out)
{
    for (u64 at = 0; at + 60 <= out.size();) {
        const bool is_3 = out.number(at + 4, 2) == 3;
        if (is_3)
            out.add(journal_v3, at);
        else
            out.add(journal_v2, at);
        const u64 lengths = at + (is_3 ? 72 : 56), length = out.number(at, 4);
        out.add_text(at + out.number(lengths + 2, 2), out.number(lengths, 2) / 2);
        if (length < 60) return;
        at += length;
    }
}

// Items of one layout until one is all zeros, and that one too.
template <std::size_t N>
void add_items(grammar &out, const field (&layout)[N], u64 at, u64 step)
{
    for (bool is_used = true; is_used && at + step <= out.size(); at += step) {
        out.add(layout, at);
        is_used = out.number(at, 8) != 0 || out.number(at + 16, 8) != 0;
    }
}

void add_shadow_block(grammar &out)
{
    constexpr u64 content = 128;
    out.add(shadow_header, 0);
    switch (out.number(20, 4)) {
    case 1: return out.add({48, 8, place}, 0);
    case 2: return add_items(out, catalog_entry, content, 128);
    case 3: return add_items(out, shadow_descriptor, content, 32);
    case 4:
        out.add(shadow_machine, content);
        return out.add_text(content + 66, out.number(content + 64, 2) / 2);
    case 5: return add_items(out, shadow_range, content, 24);
    default:
        for (u64 at = content; at < content + 64; at += 8) out.add(shadow_bits, at);
    }
}

struct structure_layout {
    structure_kind kind;
    void (*add)(grammar &out);
};
constexpr structure_layout structure_layouts[] = {
    {structure_kind::partition_table, add_partition_table},
    {structure_kind::boot_sector, [](grammar &out) { out.add(boot_fields, 0); }},
    {structure_kind::file_record, add_record},
    {structure_kind::index_block, add_block},
    {structure_kind::bin_metadata,
     [](grammar &out) { add_bin_metadata(out, 0, out.size()); }},
    {structure_kind::journal_page, add_journal},
    {structure_kind::shadow_block, add_shadow_block},
};

} // namespace

std::vector<field> fields_of(structure_kind kind, std::span<const u8> bytes)
{
    grammar out(bytes);
    for (const structure_layout &each : structure_layouts)
        if (each.kind == kind) each.add(out);
    return out.fields();
}

} // namespace stress
