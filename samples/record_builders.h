#pragma once

#include "samples/bytes.h"

/// The records that Windows leaves in a bin. The layouts are written down here a second
/// time, so that a slip in the program's tables can't hide. The same code of the
/// program reads them and real files.
namespace test_support {

/// Windows counts 100 ns ticks from 1601, 11644473600 seconds before 1970.
constexpr u64 filetime(u64 unix_seconds, u64 milliseconds)
{
    return (unix_seconds + 11644473600) * 10000000 + milliseconds * 10000;
}

/// 2015-04-04 17:24:09.614 UTC, a moment that real metadata holds.
inline constexpr u64 sample_filetime = filetime(1428168249, 614);

/// A `$I` file of version 2, or of version 1.
class dollar_i_builder {
public:
    dollar_i_builder &version(u64 value) { return m_version = value, *this; }
    dollar_i_builder &size(u64 value) { return m_size = value, *this; }
    dollar_i_builder &time(u64 filetime) { return m_time = filetime, *this; }
    dollar_i_builder &path(std::u16string value)
    {
        return m_path = std::move(value), *this;
    }
    /// States another length than the path has; version 2 only.
    dollar_i_builder &path_units(u64 value) { return m_units = value, *this; }

    byte_vector bytes() const
    {
        const bool first = (m_version & 0xFFFFFFFF) == 1;
        byte_vector file(first ? 544 : 28);
        put_layout(file, {{0, 8, m_version}, {8, 8, m_size}, {16, 8, m_time}});
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
    u64 m_version = 2;
    u64 m_size = 14;
    u64 m_time = sample_filetime;
    u64 m_units = 0;
    std::u16string m_path = u"C:\\Temp\\a.txt";
};

/// A `$I` file of version 2 that says no more than the path.
inline byte_vector metadata(std::u16string path)
{
    return dollar_i_builder().path(std::move(path)).bytes();
}

/// One record of an `INFO2` file.
struct info2_item {
    std::string ansi_path = "C:\\a.txt";
    std::u16string path = u"C:\\a.txt";
    u32 number = 1;
    u32 drive = 2; ///< 0 is A
    u64 time = sample_filetime;
    u32 size = 4096; ///< in clusters, as bytes
};

/// 800 bytes, or the first 280, as Windows 95 to ME wrote them.
inline byte_vector info2_record(const info2_item &item, std::size_t size = 800)
{
    byte_vector record(size);
    put_text(record, 0, item.ansi_path);
    put_layout(record, {{260, 4, item.number},
                        {264, 4, item.drive},
                        {268, 8, item.time},
                        {276, 4, item.size}});
    if (size > 280) put_utf16(record, 280, item.path);
    return record;
}

inline byte_vector info2_header(u64 version = 5, std::size_t record_size = 800)
{
    byte_vector header(20);
    put_layout(header, {{0, 4, version}, {12, 4, record_size}});
    return header;
}

inline byte_vector info2_file(const std::vector<info2_item> &items)
{
    byte_vector file = info2_header();
    for (const info2_item &item : items) append(file, info2_record(item));
    return file;
}

/// A record of the change journal, version 2 or 3.
struct journal_line {
    u64 version = 2;
    u64 usn = 0; ///< its place in the journal
    std::u16string name = u"$RAB12CD.txt";
    u64 time = sample_filetime;
    u64 reason = 0x1000;
    u64 reference = 64 | u64{3} << 48;
    u64 parent = 5 | u64{5} << 48;
};

inline byte_vector journal_line_bytes(const journal_line &line)
{
    const std::size_t wide = line.version == 3 ? 16 : 8, after = 8 + 2 * wide;
    byte_vector record((after + 36 + 2 * line.name.size() + 7) / 8 * 8);
    put_layout(record, {{0, 4, record.size()},
                        {4, 2, line.version},
                        {8, 8, line.reference},
                        {8 + wide, 8, line.parent},
                        {after, 8, line.usn},
                        {after + 8, 8, line.time},
                        {after + 16, 4, line.reason},
                        {after + 28, 4, 0x20},
                        {after + 32, 2, 2 * line.name.size()},
                        {after + 34, 2, after + 36}});
    put_utf16(record, after + 36, line.name);
    return record;
}

} // namespace test_support
