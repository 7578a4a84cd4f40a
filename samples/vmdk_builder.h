#pragma once

#include "samples/record_builders.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace test_support {

/// A virtual disk file in its smallest form: header, descriptor, directory, tables, and
/// grains of one letter each in the order given. All sizes are in sectors; a directory
/// entry of a table without grains stays 0.
struct sparse_file {
    std::string cid;
    std::string parent = "ffffffff";
    std::string extra = {}; ///< further lines of the descriptor
    std::uint64_t capacity = 24;
    std::uint64_t grain = 1;
    std::uint32_t entries = 4; ///< of a table
    std::vector<std::pair<std::uint64_t, char>> grains = {};

    std::string bytes() const
    {
        const std::uint64_t tables =
            (capacity + grain * entries - 1) / (grain * entries);
        const std::uint64_t table_sectors = (std::uint64_t{entries} * 4 + 511) / 512;
        const std::uint64_t first_table = 3 + (tables * 4 + 511) / 512;
        byte_vector out((first_table + tables * table_sectors) * 512);
        put_header(out, out.size() / 512);
        const std::string text = "# Disk DescriptorFile\nCid=" + cid +
                                 "\n CID=no\n\nparentCID=" + parent + "\r\n" + extra;
        std::copy(text.begin(), text.end(), out.begin() + 512);
        put_number(out, directory * 512, first_table, 4);
        std::uint64_t next = out.size();
        out.resize(next + grains.size() * grain * 512);
        for (const auto &[index, letter] : grains) {
            const std::uint64_t table = first_table + index / entries * table_sectors;
            put_number(out, directory * 512 + index / entries * 4, table, 4);
            put_number(out, table * 512 + index % entries * 4, next / 512, 4);
            std::fill_n(out.begin() + static_cast<std::ptrdiff_t>(next), grain * 512,
                        static_cast<std::uint8_t>(letter));
            next += grain * 512;
        }
        return {out.begin(), out.end()};
    }

private:
    static constexpr std::uint64_t directory = 3;

    void put_header(byte_vector &out, std::uint64_t overhead) const
    {
        put_number(out, 0, 0x564D444B, 4);
        put_number(out, 4, 1, 4);
        put_number(out, 8, 3, 4);
        put_number(out, 12, capacity, 8);
        put_number(out, 20, grain, 8);
        put_number(out, 28, 1, 8);
        put_number(out, 36, 2, 8);
        put_number(out, 44, entries, 4);
        put_number(out, 56, directory, 8);
        put_number(out, 64, overhead, 8);
        put_number(out, 73, 0x0A, 1);
        put_number(out, 74, 0x20, 1);
        put_number(out, 75, 0x0A0D, 2);
    }
};

} // namespace test_support
