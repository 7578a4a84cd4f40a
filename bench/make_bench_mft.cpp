// Writes an $MFT of COUNT records to standard output, as it would be cut out of a
// volume: a bin with PAIRS pairs, and folders of a thousand files with names and times
// of their own. Usage: make_bench_mft COUNT PAIRS

#include "samples/ntfs_structures.h"

#include <cstdio>
#include <iostream>
#include <random>
#include <string>

namespace {

using namespace test_support;
using namespace test_support::ntfs_structures;

constexpr u64 root = 5;
constexpr u64 bin = 24;
constexpr u64 user = 25;
constexpr u64 first_pair = 26;
constexpr u64 files_in_folder = 1000;
constexpr u64 directory = 0x10000000;
constexpr u16 in_use = 1;
constexpr u16 is_directory = 2;

class mft_maker {
public:
    explicit mft_maker(u64 count) : m_count(count) {}

    void write_all(u64 pairs)
    {
        const u64 first_file = first_pair + 2 * pairs;
        u64 folder = 0;
        for (u64 entry = 0; entry < m_count; ++entry) {
            if (entry < bin)
                write(entry, root, entry == root ? "." : "$System", entry == root);
            else if (entry == bin)
                write(entry, root, "$Recycle.Bin", true);
            else if (entry == user)
                write(entry, bin, "S-1-5-21-1-2-3-1001", true);
            else if (entry < first_file)
                write_half(entry, (entry - first_pair) / 2);
            else if ((entry - first_file) % (files_in_folder + 1) == 0)
                write(folder = entry, root, "folder " + std::to_string(entry), true);
            else
                write(entry, folder,
                      "document number " + std::to_string(entry) + ".txt", false);
        }
    }

private:
    void write_half(u64 entry, u64 pair)
    {
        char name[24];
        const bool is_metadata = entry % 2 == 0;
        std::snprintf(name, sizeof name, "$%c%06llX.txt", is_metadata ? 'I' : 'R',
                      static_cast<unsigned long long>(pair));
        write(entry, user, name, false,
              is_metadata ? metadata(u"C:\\Users\\x\\" + to_utf16(name))
                          : byte_vector(5));
    }

    void write(u64 entry, u64 parent, const std::string &name, bool folder,
               const byte_vector &content = byte_vector(40))
    {
        byte_vector times(72);
        for (std::size_t at = 0; at < 32; at += 8)
            put_number(times, at, sample_filetime + m_random() % 1'000'000'000'000'000,
                       8);
        const std::u16string units = to_utf16(name);
        byte_vector value(66);
        put_layout(value, {{0, 8, parent | u64{1} << 48U},
                           {56, 4, folder ? directory : 0},
                           {64, 1, units.size()},
                           {65, 1, 1}});
        put_bytes(value, 8, cut(times, 0, 32));
        put_utf16(value, 66, units);
        byte_vector attributes =
            encode({.type = ntfs_type::standard_information, .content = times});
        append(attributes, encode({.type = ntfs_type::file_name,
                                   .content = value,
                                   .indexed = true,
                                   .id = 1}));
        if (!folder) append(attributes, encode(data_of(entry, content)));
        const u16 flags = folder ? in_use | is_directory : in_use;
        const byte_vector record = encode_record(
            {}, {.entry = entry, .links = 1, .flags = flags, .next_id = 3}, attributes);
        std::cout.write(
            static_cast<const char *>(static_cast<const void *>(record.data())),
            static_cast<std::streamsize>(record.size()));
    }

    // The first record's is the $MFT itself.
    attribute data_of(u64 entry, const byte_vector &content) const
    {
        attribute made{.type = ntfs_type::data, .id = 2};
        if (entry != 0) {
            made.content = content;
            return made;
        }
        const u64 clusters = (m_count * 1024 + 4095) / 4096;
        made.non_resident = true;
        made.runs = {{4, clusters}};
        made.allocated_size = clusters * 4096;
        made.real_size = made.valid_size = m_count * 1024;
        return made;
    }

    u64 m_count;
    std::mt19937_64 m_random{1};
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::cerr << "usage: make_bench_mft COUNT PAIRS >FILE\n";
        return 1;
    }
    mft_maker(std::stoull(argv[1])).write_all(std::stoull(argv[2]));
    std::cout.flush();
    return std::cout.good() ? 0 : 1;
}
