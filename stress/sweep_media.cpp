#include "stress/sweep_media.h"

#include "stress/small_media.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace stress {

namespace {

constexpr u64 max_medium = u64{64} << 20; // what follows is cut off
constexpr u64 sector = 512;

u64 stored_bytes(std::span<const u8> bytes)
{
    u64 stored = 0;
    for (u64 at = 0; at < bytes.size(); at += sector) {
        const auto part = bytes.subspan(at, std::min<u64>(sector, bytes.size() - at));
        const bool is_zero =
            std::all_of(part.begin(), part.end(), [](u8 byte) { return byte == 0; });
        if (!is_zero) stored += part.size();
    }
    return stored;
}

} // namespace

std::vector<sweep_medium> sample_media()
{
    std::vector<sweep_medium> media;
    for (const small_medium &sample : small_media())
        media.push_back({.name = sample.name, .bytes = sample.make(), .before = {}});
    media.front().takes_bits = true;
    return media;
}

sweep_medium medium_of_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) throw std::runtime_error(path + " can't be opened");
    const u64 size = std::min(static_cast<u64>(file.tellg()), max_medium);
    sweep_medium medium{.name = path, .bytes = std::vector<u8>(size), .before = {}};
    file.seekg(0);
    // Files are read as characters.
    void *const begin = medium.bytes.data();
    if (!file.read(static_cast<char *>(begin), static_cast<std::streamsize>(size)))
        throw std::runtime_error(path + " can't be read");
    return medium;
}

void learn(sweep_medium &medium)
{
    medium.before = make_baseline(medium.bytes);
    medium.stored = stored_bytes(medium.bytes);
}

} // namespace stress
