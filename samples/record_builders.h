#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Builders of the records that Windows leaves in a bin. They know the layouts on their
/// own, so that a slip in the program's tables can't hide.
namespace test_support {

using byte_vector = std::vector<std::uint8_t>;

/// 2015-04-04 17:24:09.614 UTC, a moment that real metadata holds.
inline constexpr std::uint64_t sample_filetime = 130726418496140000;

inline void put_number(byte_vector &bytes, std::size_t at, std::uint64_t value,
                       std::size_t width)
{
    if (bytes.size() < at + width) bytes.resize(at + width);
    for (std::size_t i = 0; i < width; ++i)
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

inline void put_utf16(byte_vector &bytes, std::size_t at, std::u16string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
        put_number(bytes, at + 2 * i, text[i], 2);
}

inline void put_text(byte_vector &bytes, std::size_t at, std::string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
        put_number(bytes, at + i, static_cast<std::uint8_t>(text[i]), 1);
}

/// A `$I` file of version 2, or of version 1.
class dollar_i_builder {
public:
    dollar_i_builder &version(std::uint64_t value) { return m_version = value, *this; }
    dollar_i_builder &size(std::uint64_t value) { return m_size = value, *this; }
    dollar_i_builder &time(std::uint64_t filetime) { return m_time = filetime, *this; }
    dollar_i_builder &path(std::u16string value)
    {
        return m_path = std::move(value), *this;
    }
    /// States another length than the path has; version 2 only.
    dollar_i_builder &path_units(std::uint64_t value) { return m_units = value, *this; }

    byte_vector bytes() const
    {
        const bool first = (m_version & 0xFFFFFFFF) == 1;
        byte_vector file(first ? 544 : 28);
        put_number(file, 0, m_version, 8);
        put_number(file, 8, m_size, 8);
        put_number(file, 16, m_time, 8);
        put_utf16(file, first ? 24 : 28, m_path);
        if (first) return file;
        put_number(file, 24, m_units != 0 ? m_units : m_path.size() + 1, 4);
        put_number(file, file.size(), 0, 2);
        return file;
    }

    /// The same, cut or filled with zeros to `size` bytes.
    byte_vector bytes(std::size_t size) const
    {
        byte_vector file = bytes();
        file.resize(size);
        return file;
    }

private:
    std::uint64_t m_version = 2;
    std::uint64_t m_size = 14;
    std::uint64_t m_time = sample_filetime;
    std::uint64_t m_units = 0;
    std::u16string m_path = u"C:\\Temp\\a.txt";
};

/// One record of an `INFO2` file.
struct info2_item {
    std::string ansi_path = "C:\\a.txt";
    std::u16string path = u"C:\\a.txt";
    std::uint32_t number = 1;
    std::uint32_t drive = 2;
    std::uint64_t time = sample_filetime;
    std::uint32_t size = 4096;
};

inline byte_vector info2_file(const std::vector<info2_item> &items)
{
    byte_vector file(20);
    put_number(file, 0, 5, 4);
    put_number(file, 12, 800, 4);
    for (const info2_item &item : items) {
        const std::size_t at = file.size();
        file.resize(at + 800);
        put_text(file, at, item.ansi_path);
        put_number(file, at + 260, item.number, 4);
        put_number(file, at + 264, item.drive, 4);
        put_number(file, at + 268, item.time, 8);
        put_number(file, at + 276, item.size, 4);
        put_utf16(file, at + 280, item.path);
    }
    return file;
}

/// A `$I` file that says no more than the path.
inline byte_vector metadata(std::u16string path)
{
    return dollar_i_builder().path(std::move(path)).bytes();
}

inline byte_vector bytes_of(std::string_view text)
{
    return {text.begin(), text.end()};
}

inline std::string text(const byte_vector &bytes)
{
    return {bytes.begin(), bytes.end()};
}

} // namespace test_support
