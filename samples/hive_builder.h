#pragma once

#include "samples/security_structures.h"

#include <utility>

/// Registry hives: a header of 4096 bytes, and bins of cells. The layouts are written
/// down here a second time, so that a slip in the program can't hide.
namespace test_support {

namespace hive_types {
inline constexpr u32 expanded_text = 2;
inline constexpr u32 binary = 3;
} // namespace hive_types

struct hive_value {
    std::u16string name = {}; ///< empty: the default value
    u32 type = hive_types::binary;
    byte_vector data = {};
};

struct hive_key {
    std::u16string name = {};
    std::vector<hive_value> values = {};
    std::vector<hive_key> keys = {}; ///< in the order of their names
};

class hive_builder {
public:
    /// A hive with this root, last written at a FILETIME.
    static byte_vector build(const hive_key &root, u64 written = sample_filetime)
    {
        hive_builder hive;
        hive.open_bin();
        const u32 first = hive.add_key(root, no_cell, root_flags);
        hive.close_bin();
        byte_vector header(header_size);
        put_text(header, 0, "regf");
        put_layout(header, {{4, 4, 1},
                            {8, 4, 1},
                            {12, 8, written},
                            {20, 4, 1}, // version 1.5
                            {24, 4, 5},
                            {32, 4, 1},
                            {36, 4, first},
                            {40, 4, hive.m_bins.size()},
                            {44, 4, 1}});
        u32 sum = 0;
        for (std::size_t at = 0; at < 508; ++at) // the exclusive or of all words
            sum ^= u32{header[at]} << (8 * (at % 4));
        put_number(header, 508, sum, 4);
        return joined({header, hive.m_bins});
    }

private:
    static constexpr std::size_t header_size = 4096, bin_header = 32;
    static constexpr u32 no_cell = 0xFFFFFFFF;
    static constexpr u16 root_flags = 0x0C; // the root, which can't be deleted

    // Cells begin with their size, negative if they are in use, at multiples of 8. A
    // bin has as many pages as its first cell needs.
    u32 add_cell(const byte_vector &content)
    {
        const u64 size = (4 + content.size() + 7) / 8 * 8;
        const std::size_t page_end = m_bin + header_size;
        if (m_bins.size() + size > page_end && m_bins.size() > m_bin + bin_header) {
            close_bin();
            open_bin();
        }
        const std::size_t at = m_bins.size();
        put_number(m_bins, at, ~size + 1, 4);
        put_bytes(m_bins, at + 4, content);
        m_bins.resize(at + size);
        return static_cast<u32>(at);
    }

    void open_bin()
    {
        m_bin = m_bins.size();
        m_bins.resize(m_bin + bin_header);
    }

    // What the bin has over is one free cell.
    void close_bin()
    {
        const std::size_t used = m_bins.size();
        const std::size_t pages = (used - m_bin + header_size - 1) / header_size;
        m_bins.resize(m_bin + pages * header_size);
        if (m_bins.size() > used) put_number(m_bins, used, m_bins.size() - used, 4);
        put_text(m_bins, m_bin, "hbin");
        put_layout(m_bins, {{4, 4, m_bin}, {8, 4, pages * header_size}}, m_bin);
    }

    // Names of ASCII have a byte for each character, as Windows writes them.
    static bool is_ascii(const std::u16string &name)
    {
        return std::ranges::all_of(name, [](char16_t unit) { return unit < 0x80; });
    }
    static byte_vector name_bytes(const std::u16string &name)
    {
        byte_vector bytes;
        if (is_ascii(name)) return {name.begin(), name.end()};
        put_utf16(bytes, 0, name);
        return bytes;
    }

    u32 add_value(const hive_value &value)
    {
        byte_vector cell(20);
        const byte_vector name = name_bytes(value.name);
        const bool is_inside = value.data.size() <= 4;
        put_text(cell, 0, "vk");
        put_layout(cell, {{2, 2, name.size()},
                          {4, 4, value.data.size() | (is_inside ? 0x80000000 : 0)},
                          {12, 4, value.type},
                          {16, 2, is_ascii(value.name) ? 1U : 0U}});
        if (is_inside)
            put_bytes(cell, 8, value.data);
        else
            put_number(cell, 8, add_cell(value.data), 4);
        put_bytes(cell, 20, name);
        return add_cell(cell);
    }

    // Names are hashed in capital letters.
    static u32 hash_of(const std::u16string &name)
    {
        u32 hash = 0;
        for (const char16_t unit : name) {
            const bool is_small = unit >= u'a' && unit <= u'z';
            hash = 37 * hash + unit - (is_small ? 0x20 : 0);
        }
        return hash;
    }

    u32 add_key(const hive_key &key, u32 parent, u16 flags = 0)
    {
        byte_vector cell(76);
        const byte_vector name = name_bytes(key.name);
        const u32 form = is_ascii(key.name) ? 0x20 : 0;
        put_text(cell, 0, "nk");
        put_layout(cell, {{2, 2, flags | form},
                          {4, 8, sample_filetime},
                          {16, 4, parent},
                          {20, 4, key.keys.size()},
                          {28, 4, no_cell},
                          {32, 4, no_cell},
                          {36, 4, key.values.size()},
                          {40, 4, no_cell},
                          {44, 4, no_cell},
                          {48, 4, no_cell},
                          {72, 2, name.size()}});
        put_bytes(cell, 76, name);
        const u32 place = add_cell(cell);
        byte_vector values;
        for (const hive_value &value : key.values)
            put_number(values, values.size(), add_value(value), 4);
        byte_vector list = bytes_of("lh");
        put_number(list, 2, key.keys.size(), 2);
        for (const hive_key &child : key.keys) {
            put_number(list, list.size(), add_key(child, place), 4);
            put_number(list, list.size(), hash_of(child.name), 4);
        }
        if (!values.empty()) put_number(m_bins, place + 4 + 40, add_cell(values), 4);
        if (!key.keys.empty()) put_number(m_bins, place + 4 + 28, add_cell(list), 4);
        return place;
    }

    byte_vector m_bins;
    std::size_t m_bin = 0; ///< where the last bin begins
};

/// The numbers of a computer's SID, "S-1-5-21-a-b-c".
using computer_sid = std::vector<u32>;
/// The last number of an account's SID, and its name.
using hive_accounts = std::vector<std::pair<u32, std::u16string>>;

/// A SAM hive: the type of the value that each account's key has is its number.
inline byte_vector sam_hive(const computer_sid &computer, const hive_accounts &accounts,
                            u64 written = sample_filetime)
{
    std::vector<u32> parts = {21};
    parts.insert(parts.end(), computer.begin(), computer.end());
    hive_key names = {.name = u"Names"};
    for (const auto &[number, name] : accounts)
        names.keys.push_back({.name = name, .values = {{.type = number}}});
    const byte_vector description = joined({byte_vector(40), sid(5, parts)});
    return hive_builder::build(
        {.name = u"ROOT",
         .keys =
             {{.name = u"SAM",
               .keys = {{.name = u"Domains",
                         .keys = {{.name = u"Account",
                                   .values = {{.name = u"V", .data = description}},
                                   .keys = {{.name = u"Users", .keys = {names}}}}}}}}}},
        written);
}

/// A SOFTWARE hive with the folders of these profiles, by SID.
inline byte_vector
software_hive(const std::vector<std::pair<std::u16string, std::u16string>> &profiles,
              u64 written = sample_filetime)
{
    hive_key list = {.name = u"ProfileList"};
    for (const auto &[user, folder] : profiles) {
        byte_vector path;
        put_utf16(path, 0, folder);
        path.resize(path.size() + 2);
        list.keys.push_back({.name = user,
                             .values = {{.name = u"ProfileImagePath",
                                         .type = hive_types::expanded_text,
                                         .data = path}}});
    }
    return hive_builder::build(
        {.name = u"ROOT",
         .keys = {{.name = u"Microsoft",
                   .keys = {{.name = u"Windows NT",
                             .keys = {{.name = u"CurrentVersion", .keys = {list}}}}}}}},
        written);
}

} // namespace test_support
