#include "media/block_map.h"

#include "disk/hv_source_bytes.h"
#include "media/block_source.h"

namespace hv {

// Without overlaps the tables take no more than the file, and have an entry for each
// step. A disk that isn't much larger than its file costs little, whatever they say.
bool fits_its_file(const block_map &map)
{
    constexpr u64 min_steps = u64{1} << 24; // entries of the first table
    const u64 stored = map.file().stored_size();
    const u64 most = most_stored_bytes(stored, map.size());
    if (map.table_bytes() / 2 > map.file().size()) return false;
    if (most == map.size()) return true;
    u64 listed = 0;
    u64 steps = min_steps + stored;
    for (u64 offset = 0; offset < map.size(); --steps) {
        const block_map::answer found = map.find(offset);
        const bool is_stored = found.what == block_map::holding::plain ||
                               found.what == block_map::holding::packed;
        if (is_stored) listed += found.bytes;
        if (listed > most || steps == 0) return false;
        offset += found.bytes;
    }
    return true;
}

std::vector<u8> read_table(const byte_source &file, u64 place, u64 length)
{
    const u64 data = file.next_data(place);
    if (data >= place && data - place >= length) return {};
    return read_bytes(file, place, length);
}

} // namespace hv
