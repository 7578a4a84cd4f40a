#pragma once

#include "samples/record_builders.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace test_support {

/// A virtual disk file in its smallest form: header, descriptor, directory, tables, and
/// grains of one letter each in the order given. All sizes are in sectors. The
/// directory entry of a table without grains is 0. That the layout is the right one is
/// checked by tests that read files of other tools.
struct sparse_file {
    std::string cid;
    std::string parent = "ffffffff";
    std::string extra = {};      ///< further lines of the descriptor
    std::string descriptor = {}; ///< instead of one with odd lines
    u64 capacity = 24;
    u64 grain = 1;
    u32 entries = 4; ///< of a table
    std::vector<std::pair<u64, char>> grains = {};

    std::string bytes() const
    {
        const u64 tables = (capacity + grain * entries - 1) / (grain * entries);
        const u64 table_sectors = (u64{entries} * 4 + 511) / 512;
        const u64 first_table = 3 + (tables * 4 + 511) / 512;
        byte_vector out((first_table + tables * table_sectors) * 512);
        put_header(out, out.size() / 512);
        const std::string odd = "# Disk DescriptorFile\nCid=" + cid +
                                "\n CID=no\n\nparentCID=" + parent + "\r\n" + extra;
        put_text(out, 512, descriptor.empty() ? odd : descriptor);
        put_number(out, directory * 512, first_table, 4);
        u64 next = out.size();
        out.resize(next + grains.size() * grain * 512);
        for (const auto &[index, letter] : grains) {
            const u64 table = first_table + index / entries * table_sectors;
            put_number(out, directory * 512 + index / entries * 4, table, 4);
            put_number(out, table * 512 + index % entries * 4, next / 512, 4);
            std::fill_n(out.begin() + static_cast<std::ptrdiff_t>(next), grain * 512,
                        static_cast<u8>(letter));
            next += grain * 512;
        }
        return {out.begin(), out.end()};
    }

private:
    static constexpr u64 directory = 3;

    void put_header(byte_vector &out, u64 overhead) const
    {
        put_text(out, 0, "KDMV");
        put_layout(out, {{4, 4, 1}, // version
                         {8, 4, 3}, // newlines are checked, second table used
                         {12, 8, capacity},
                         {20, 8, grain},
                         {28, 8, 1}, // sector of the descriptor
                         {36, 8, 2}, // its sectors
                         {44, 4, entries},
                         {56, 8, directory},
                         {64, 8, overhead},
                         {73, 4, 0x0A0D200A}}); // newlines in four ways
    }
};

/// A disk as a virtual disk file that leaves out grains of zeros.
inline byte_vector sparse_vmdk(const byte_vector &disk)
{
    constexpr u64 grain = 65536;
    sparse_file file{.cid = "12345678",
                     .capacity = (disk.size() + 511) / 512,
                     .grain = grain / 512,
                     .entries = 512};
    file.descriptor = "# Disk DescriptorFile\nversion=1\nCID=12345678\n"
                      "parentCID=ffffffff\ncreateType=\"monolithicSparse\"\nRW " +
                      std::to_string(file.capacity) + " SPARSE \"medium.vmdk\"\n";
    byte_vector content;
    for (u64 at = 0; at < disk.size(); at += grain) {
        const auto begin = disk.begin() + static_cast<std::ptrdiff_t>(at);
        byte_vector bytes(begin, begin + static_cast<std::ptrdiff_t>(
                                             std::min(grain, disk.size() - at)));
        if (std::count(bytes.begin(), bytes.end(), 0) == std::ssize(bytes)) continue;
        bytes.resize(grain);
        append(content, bytes);
        file.grains.emplace_back(at / grain, 0);
    }
    byte_vector out = bytes_of(file.bytes());
    put_bytes(out, out.size() - content.size(), content);
    return out;
}

} // namespace test_support
