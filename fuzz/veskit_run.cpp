// `veskit` in all its modes over a small medium that is damaged. What a later pass
// finds is added to what the volume itself states, and a row takes bytes of the medium.

#include "fuzz/damaged_medium.h"

#include <set>
#include <sstream>

namespace {

using stress::veskit_mode;

std::string check_size(const stress::veskit_run &run, std::size_t medium_size)
{
    // A row costs at least an index entry or a file name, and states little that isn't
    // on the medium.
    if (run.rows.size() > medium_size / 64 + 1)
        return std::to_string(run.rows.size()) + " rows";
    if (run.output.size() > 64 * medium_size + (std::size_t{1} << 16))
        return std::to_string(run.output.size()) + " bytes of rows";
    return {};
}

// The time and path of each row with metadata. Its other cells are about the data item,
// which only the later pass may have found; a data item alone may get its metadata.
std::set<std::string> metadata_of(const stress::veskit_run &run)
{
    constexpr int path_column = 8;
    std::set<std::string> found;
    for (const std::string &row : run.rows) {
        std::istringstream cells(row);
        std::string time, path;
        std::getline(cells, time, '|');
        for (int column = 1; column < path_column; ++column)
            std::getline(cells, path, '|');
        if (!path.starts_with("<unk path")) found.insert(time + " " + path);
    }
    return found;
}

std::string check_kept(const stress::veskit_run &volume, const stress::veskit_run &more)
{
    const std::set<std::string> some = metadata_of(volume), all = metadata_of(more);
    for (const std::string &each : some)
        if (!all.contains(each)) return "a later pass takes a row away: " + each;
    return {};
}

hv::u64 volume_offset(std::size_t number)
{
    for (const stress::structure &each : fuzz::whole_medium_of(number).structures)
        if (each.kind == stress::structure_kind::boot_sector) return each.offset;
    return 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const fuzz::damaged_medium medium = fuzz::damage_medium(data, size);
    const hv::u64 offset = volume_offset(medium.number);
    const stress::file_in_memory file(medium.bytes);
    const auto run = [&](veskit_mode mode) {
        stress::veskit_run made = stress::run_veskit(file, mode, offset);
        fuzz::require_no(check_size(made, medium.bytes.size()), medium);
        return made;
    };
    const stress::veskit_run volume = run(veskit_mode::image);
    for (const veskit_mode mode : {veskit_mode::image_unallocated,
                                   veskit_mode::image_shadows, veskit_mode::image_all})
        fuzz::require_no(check_kept(volume, run(mode)), medium);
    run(veskit_mode::raw_scan);
    return 0;
}
