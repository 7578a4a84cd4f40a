#include "recyclebin/range_bytes.h"

#include "recyclebin/sha256.h"

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
        if (medium.read(range.offset, target) != range.length) return false;
    }
    bytes.swap(found);
    return true;
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

} // namespace hv
