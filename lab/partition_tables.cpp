#include "lab/partition_tables.h"

#include "samples/crc32.h"

namespace lab {

using namespace test_support;

namespace {

constexpr u64 sector = 512;
constexpr u64 table_sectors = 32; // of a GPT: 128 entries of 128 bytes
constexpr u64 logical_gap = 63;   // from a logical partition's table to its volume
constexpr u8 extended_type = 5, protective_type = 0xEE;

// Cylinders, heads and sectors are given as too large to state.
void put_entry(byte_vector &disk, u64 table, std::size_t number, const partition &what,
               u64 relative_to)
{
    put_layout(disk,
               {{0, 4, 0xFFFFFE00},
                {4, 4, what.type | 0xFFFFFE00U},
                {8, 4, what.first - relative_to},
                {12, 4, what.sectors}},
               table * sector + 446 + 16 * number);
    put_number(disk, table * sector + 510, 0xAA55, 2);
}

byte_vector gpt_entries(const std::vector<partition> &partitions)
{
    static const byte_vector basic_data = {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9,
                                           0x33, 0x44, 0x87, 0xC0, 0x68, 0xB6,
                                           0xB7, 0x26, 0x99, 0xC7};
    byte_vector entries(table_sectors * sector);
    for (std::size_t i = 0; i < partitions.size(); ++i) {
        const std::size_t at = 128 * i;
        put_bytes(entries, at, basic_data);
        put_bytes(entries, at + 16, byte_vector(16, static_cast<u8>(0x11 * (i + 1))));
        put_layout(entries,
                   {{32, 8, partitions[i].first},
                    {40, 8, partitions[i].first + partitions[i].sectors - 1}},
                   at);
        put_utf16(entries, at + 56, u"Basic data partition");
    }
    return entries;
}

byte_vector gpt_header(u64 here, u64 other, u64 entries_at, u64 last,
                       const byte_vector &entries)
{
    byte_vector header(92);
    put_text(header, 0, "EFI PART");
    put_layout(header, {{8, 4, 0x10000},
                        {12, 4, 92},
                        {24, 8, here},
                        {32, 8, other},
                        {40, 8, 2 + table_sectors},
                        {48, 8, last - table_sectors - 1},
                        {72, 8, entries_at},
                        {80, 4, 128},
                        {84, 4, 128},
                        {88, 4, crc32(entries)}});
    put_bytes(header, 56, byte_vector(16, 0x5A));
    put_number(header, 16, crc32(header), 4);
    header.resize(sector);
    return header;
}

} // namespace

void write_mbr(byte_vector &disk, const std::vector<partition> &partitions)
{
    const std::size_t primary = partitions.size() > 4 ? 3 : partitions.size();
    put_number(disk, 440, 0x1AB5C0DE, 4); // the disk's signature
    for (std::size_t i = 0; i < primary; ++i) put_entry(disk, 0, i, partitions[i], 0);
    if (primary == partitions.size()) return;
    const u64 begin = partitions[primary].first - logical_gap;
    const u64 end = disk.size() / sector;
    put_entry(disk, 0, primary, {begin, end - begin, extended_type}, 0);
    for (std::size_t i = primary; i < partitions.size(); ++i) {
        const u64 table = partitions[i].first - logical_gap;
        put_entry(disk, table, 0, partitions[i], table);
        if (i + 1 == partitions.size()) break;
        const u64 next = partitions[i + 1].first - logical_gap;
        put_entry(disk, table, 1,
                  {next, partitions[i + 1].sectors + logical_gap, extended_type},
                  begin);
    }
}

void write_gpt(byte_vector &disk, const std::vector<partition> &partitions)
{
    disk.resize(disk.size() + (table_sectors + 1) * sector);
    const u64 last = disk.size() / sector - 1;
    put_entry(disk, 0, 0, {1, last, protective_type}, 0);
    const byte_vector entries = gpt_entries(partitions);
    put_bytes(disk, sector, gpt_header(1, last, 2, last, entries));
    put_bytes(disk, 2 * sector, entries);
    put_bytes(disk, (last - table_sectors) * sector, entries);
    put_bytes(disk, last * sector,
              gpt_header(last, 1, last - table_sectors, last, entries));
}

} // namespace lab
