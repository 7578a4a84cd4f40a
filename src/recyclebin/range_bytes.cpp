#include "recyclebin/range_bytes.h"

#include "disk/hv_file_source.h"
#include "evidence/system_name.h"
#include "recyclebin/sha256.h"

#include <algorithm>
#include <filesystem>

namespace hv {

bool read_ranges(std::vector<u8> &bytes, const byte_source &medium,
                 const std::vector<byte_range> &ranges)
{
    bytes.clear();
    std::vector<u8> found;
    for (const byte_range &range : ranges) {
        if (range.length > max_proof_bytes - found.size()) return false;
        const std::size_t before = found.size();
        found.resize(before + range.length);
        const std::span<u8> target = std::span(found).subspan(before);
        if (medium.read(range.offset, target) != range.length ||
            !medium.unreadable_in(range.offset, range.length).empty())
            return false;
    }
    bytes.swap(found);
    return true;
}

bool read_proof(std::vector<u8> &bytes, const byte_source &medium, const sighting &seen)
{
    if (seen.file.empty()) return read_ranges(bytes, medium, seen.ranges);
    // A file that can't be opened has no bytes, and so the ranges pass its end.
    return read_ranges(bytes, file_source(seen.file), seen.ranges);
}

std::string sha256_of_ranges(const byte_source &medium,
                             const std::vector<byte_range> &ranges)
{
    std::vector<u8> bytes;
    if (ranges.empty() || !read_ranges(bytes, medium, ranges)) return {};
    sha256 sum;
    sum.add({bytes.data(), bytes.size()});
    return sum.finish();
}

std::string sha256_of_proof(const byte_source &medium, const sighting &seen)
{
    return seen.file.empty() ? sha256_of_ranges(medium, seen.ranges)
                             : sha256_of_ranges(file_source(seen.file), seen.ranges);
}

std::u16string relative_path(const std::string &file, const std::string &folder)
{
    const std::string start = folder.ends_with('/') ? folder : folder + '/';
    return file.starts_with(start) ? from_system_name(file.substr(start.size()))
                                   : std::u16string();
}

std::string path_below(const std::string &folder, const std::u16string &relative)
{
    const std::filesystem::path path = to_system_name(relative);
    const bool leads_out =
        path.is_absolute() || std::ranges::find(path, "..") != path.end();
    if (folder.empty() || path.empty() || leads_out) return {};
    return folder / path;
}

} // namespace hv
