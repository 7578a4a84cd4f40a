#include "base/hv_text_convert.h"

namespace uni {

using hv::byte_view;
using hv::u16;
using hv::u32;
using hv::u8;

namespace {

void append_utf8(std::string &text, u32 c)
{
    const auto put = [&text](u32 byte) {
        text.push_back(static_cast<char>(byte & 0xFF));
    };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xC0 | c >> 6);
        put(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        put(0xE0 | c >> 12);
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    } else {
        put(0xF0 | (c >> 18 & 0x07));
        put(0x80 | (c >> 12 & 0x3F));
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    }
}

bool is_high_surrogate(u32 unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool is_low_surrogate(u32 unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Calls `put` with each code point of `count` units, which `unit_at` returns by index.
// False at a high surrogate without its partner.
template <class UnitAt, class Put>
bool decode_utf16(std::size_t count, UnitAt unit_at, Put put)
{
    for (std::size_t i = 0; i < count; ++i) {
        const u32 unit = unit_at(i);
        if (!is_high_surrogate(unit)) {
            put(unit);
            continue;
        }
        if (i + 1 >= count) return false;
        const u32 low = unit_at(++i);
        if (!is_low_surrogate(low)) return false;
        put((unit - 0xD800) * 1024 + (low - 0xDC00) + 0x10000);
    }
    return true;
}

// The caller has counted the whole units.
u32 unit_in(byte_view units, std::size_t index)
{
    return hv::little_endian<u16>(units.bytes().data() + index * 2);
}

// The part of `units` before the first NUL unit, cut to whole units.
byte_view before_nul(byte_view units)
{
    const std::size_t count = units.size() / 2;
    std::size_t length = 0;
    while (length < count && unit_in(units, length) != 0) ++length;
    return units.clip(0, length * 2);
}

// Fills `result` and returns true if all units are ASCII. Most names are, and a scan
// decodes millions.
bool decode_ascii(byte_view units, std::string &result)
{
    const auto bytes = units.bytes();
    result.resize(units.size() / 2);
    for (std::size_t i = 0; i < result.size(); ++i) {
        if (bytes[2 * i] >= 0x80 || bytes[2 * i + 1] != 0) return false;
        result[i] = static_cast<char>(bytes[2 * i]);
    }
    return true;
}

// The number of bytes that follow a lead byte, or -1 if it can't lead.
int continuation_count(u8 lead)
{
    if (lead < 0x80) return 0;
    if ((lead & 0xE0) == 0xC0) return 1;
    if ((lead & 0xF0) == 0xE0) return 2;
    if ((lead & 0xF8) == 0xF0) return 3;
    return -1;
}

} // namespace

bool utf16_to_utf8(std::string &result, byte_view units)
{
    result.clear();
    if (units.size() < 2) return false;
    const std::size_t count = units.size() / 2;
    result.reserve(count);
    return decode_utf16(
        count, [units](std::size_t i) { return unit_in(units, i); },
        [&result](u32 c) { append_utf8(result, c); });
}

bool utf16_vector_to_wide(std::wstring &result, const std::vector<char16_t> &units)
{
    result.clear();
    if (units.empty()) return false;
    return decode_utf16(
        units.size(), [&units](std::size_t i) -> u32 { return units[i]; },
        [&result](u32 c) { result.push_back(static_cast<wchar_t>(c)); });
}

std::size_t utf16_to_wide(byte_view units, std::wstring &result)
{
    const byte_view taken = before_nul(units);
    const std::size_t count = taken.size() / 2;
    result.clear();
    const auto unit_at = [taken](std::size_t i) { return unit_in(taken, i); };
    const auto put = [&result](u32 c) { result.push_back(static_cast<wchar_t>(c)); };
    if (!decode_utf16(count, unit_at, put)) {
        // Of a name with a bad surrogate, every unit is kept.
        result.clear();
        for (std::size_t i = 0; i < count; ++i) put(unit_at(i));
    }
    return taken.size();
}

bool utf8_to_wide(std::wstring &result, std::string_view text)
{
    result.clear();
    if (text.empty()) return false;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const u8 lead = static_cast<u8>(text[i]);
        const int more = continuation_count(lead);
        if (more < 0) return false;
        u32 c = more == 0 ? lead : lead & (0x3Fu >> more);
        for (int k = 0; k < more; ++k) {
            if (++i >= text.size()) return false;
            const u8 next = static_cast<u8>(text[i]);
            if ((next & 0xC0) != 0x80) return false;
            c = c << 6 | (next & 0x3Fu);
        }
        result.push_back(static_cast<wchar_t>(c));
    }
    return true;
}

std::wstring to_wide(std::string_view text)
{
    std::wstring result;
    if (!utf8_to_wide(result, text)) result.clear();
    return result;
}

void wide_to_utf8(std::string &result, std::wstring_view text)
{
    result.clear();
    result.reserve(text.size());
    for (const wchar_t c : text) append_utf8(result, static_cast<u32>(c));
}

std::string to_utf8(std::wstring_view text)
{
    std::string result;
    wide_to_utf8(result, text);
    return result;
}

std::size_t utf16_name_to_utf8(byte_view units, std::string &result)
{
    // Without a wide text in between, which would cost more than all the rest.
    const byte_view name = before_nul(units);
    if (!decode_ascii(name, result)) {
        const std::size_t count = name.size() / 2;
        const auto unit_at = [name](std::size_t i) { return unit_in(name, i); };
        const auto put = [&result](u32 c) { append_utf8(result, c); };
        result.clear();
        if (!decode_utf16(count, unit_at, put)) {
            result.clear();
            for (std::size_t i = 0; i < count; ++i) put(unit_at(i));
        }
    }
    return name.size();
}

} // namespace uni
