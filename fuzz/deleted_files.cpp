// What Windows keeps about deleted files: every fact that is reported is in the bytes.

#include "formats/deleted_file.h"

#include "trash/deleted_records.h"

#include <cstdlib>

namespace {

void require(bool holds)
{
    if (!holds) std::abort();
}

void check_dollar_i(const hv::deleted_file &file, hv::byte_view bytes)
{
    using namespace hv::dollar_i;
    const bool is_1 = file.format == hv::metadata_format::dollar_i_1;
    require(file.length <= bytes.size());
    require(bytes.read_padded<hv::u64>(file_size.offset) == file.size);
    require(bytes.read_padded<hv::u64>(deleted_time.offset) == file.deleted);
    for (std::size_t i = 0; i < file.path.size(); ++i) {
        hv::u16 unit = 0;
        require(bytes.read((is_1 ? path_1 : path_2) + 2 * i, unit));
        require(unit == file.path[i]);
    }
}

void check_record(const hv::deleted_file &file, hv::byte_view bytes)
{
    using namespace hv::list_record;
    require(file.length <= bytes.size());
    require(bytes.read_padded<hv::u32>(file_size.offset) == file.size);
    require(bytes.read_padded<hv::u64>(deleted_time.offset) == file.deleted);
    require(bytes.read_padded<hv::u32>(number.offset) == file.number);
    // Each unit is one of the UTF-16 path, or stands for a byte of the 8-bit one. The
    // first of a struck record comes from the drive.
    for (std::size_t i = 1; i < file.path.size(); ++i) {
        const auto byte = bytes.read_padded<hv::u8>(ansi_path + i);
        require(bytes.read_padded<hv::u16>(wide_path + 2 * i) == file.path[i] ||
                byte == file.path[i] || (byte >= 0x80 && byte < 0xA0));
    }
}

// Under the fixed rules, this reader takes what the program takes.
void check_fixed_rules(hv::byte_view bytes)
{
    constexpr hv::parse_rules rules = hv::parse_rules::fixed();
    std::vector<hv::trash_entry> entries;
    hv::parse_metadata(entries, bytes, {});
    if (!hv::has_info2_header(bytes)) {
        hv::deleted_file file;
        require(hv::parse_dollar_i(file, bytes, rules) == !entries.empty());
        return;
    }
    std::vector<hv::listed_file> files;
    hv::parse_list(files, bytes, rules);
    require(files.size() == entries.size());
    for (std::size_t i = 0; i < files.size(); ++i)
        require(files[i].file.deleted == entries[i].deleted_time);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const hv::byte_view bytes{data, size};
    check_fixed_rules(bytes);
    hv::deleted_file file;
    if (hv::parse_dollar_i(file, bytes, hv::parse_rules::complete()))
        check_dollar_i(file, bytes);
    if (hv::recognize_dollar_i(file, bytes)) check_dollar_i(file, bytes);
    if (hv::recognize_list_record(file, bytes, {})) check_record(file, bytes);
    std::vector<hv::listed_file> files;
    hv::parse_list(files, bytes, hv::parse_rules::complete());
    require(files.size() <= size / 280 + 1);
    for (const hv::listed_file &listed : files)
        check_record(listed.file, bytes.from(listed.offset));
    return 0;
}
