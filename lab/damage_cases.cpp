// Media that lost bytes: cut off, with bad sectors, with the head of the $MFT gone,
// with records that were written by half.

#include "lab/cases.h"
#include "lab/people.h"

#include <algorithm>

namespace lab {

namespace {

using namespace test_support;

void overwrite(byte_vector &medium, u64 at, u64 count, std::string_view pattern)
{
    for (u64 i = 0; i < count && at + i < medium.size(); ++i)
        medium[at + i] =
            pattern.empty() ? u8{0} : static_cast<u8>(pattern[i % pattern.size()]);
}

// A volume with live and purged items.
story half_purged(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, size, seed);
    for (std::size_t i = 0; i < size; i += 2) volume.purge(i);
    volume.settle();
    told.volumes[0].mounts = false;
    return volume;
}

// The medium ends after the $MFT, in the middle of the data.
byte_vector cut_after_mft(told_case &told, u64 size, u64 seed)
{
    story volume = half_purged(told, size, seed);
    const extent mft = volume.layout().stream_runs(0).back();
    const u64 end = volume.position(mft.lcn + mft.clusters) + 262144;
    volume.image().resize(end + volume.random().below(size) * 8192);
    volume.tell("the medium is cut off");
    return volume.image();
}

// The medium ends in the $MFT itself.
byte_vector cut_in_mft(told_case &told, u64 size, u64 seed)
{
    story volume = half_purged(told, size, seed);
    const u64 last = volume.deletion(size / 2).metadata_entry->entry;
    volume.image().resize(volume.layout().record_position(last) + 512);
    volume.tell("the medium is cut off");
    return volume.image();
}

// Sectors that couldn't be read: imagers fill them with zeros, or with a word.
byte_vector bad_sectors(told_case &told, u64 size, u64 seed)
{
    story volume = half_purged(told, size, seed);
    const std::string_view pattern = seed % 2 == 0 ? "BAD SECTOR " : "";
    for (u64 i = 0; i < size; ++i) {
        const std::size_t number = volume.random().below(size);
        const u64 entry = volume.deletion(number).metadata_entry->entry;
        const u64 record = volume.layout().record_position(entry);
        overwrite(volume.image(), record + 512 * volume.random().below(2), 512,
                  pattern);
        const u64 sectors = volume.image().size() / 512;
        overwrite(volume.image(), 512 * volume.random().between(16, sectors - 2), 512,
                  pattern);
    }
    volume.tell("sectors can't be read");
    return volume.image();
}

// The system's own records are zeros, in the $MFT and (odd seeds) in its mirror as
// well.
byte_vector mft_head(told_case &told, u64 size, u64 seed)
{
    story volume = half_purged(told, size, seed);
    overwrite(volume.image(), volume.layout().record_position(0), 16384, "");
    const extent mirror = volume.layout().stream_runs(1).front();
    if (seed % 2 == 1) overwrite(volume.image(), volume.position(mirror.lcn), 4096, "");
    volume.tell("the first 16 records are zeros");
    return volume.image();
}

// Records whose second sector is of another write than the first: the update sequence
// tells.
byte_vector torn(told_case &told, u64 size, u64 seed)
{
    story volume = half_purged(told, size, seed);
    told.volumes[0].mounts = true;
    for (std::size_t i = 0; i < size; i += 3) {
        const u64 entry = volume.deletion(i).metadata_entry->entry;
        const u64 record = volume.layout().record_position(entry);
        put_number(volume.image(), record + 1022, 0x0106, 2);
    }
    volume.tell("the power fails");
    return volume.image();
}

// The second half of a record is that of the file that had it before.
byte_vector mixed(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, size, seed);
    const byte_vector before = volume.image();
    for (std::size_t i = 0; i < size; ++i) volume.purge(i);
    volume.settle();
    std::vector<u64> records;
    for (std::size_t i = 0; i < size; i += 2) {
        const u64 entry = volume.deletion(i).metadata_entry->entry;
        volume.reuse_record(entry, "new " + std::to_string(i), 500);
        records.push_back(volume.layout().record_position(entry));
    }
    volume.settle();
    for (const u64 record : records) {
        const auto begin = before.begin() + static_cast<std::ptrdiff_t>(record + 512);
        put_bytes(volume.image(), record + 512, {begin, begin + 512});
        put_number(volume.image(), record + 1022, 0x0106, 2);
    }
    volume.tell("the power fails");
    return volume.image();
}

} // namespace

void add_damage_cases(case_makers &all)
{
    const auto add = [&](const char *name, case_kind kind) {
        add_cases(all, std::string("damage/") + name, kind, {6, 40});
    };
    add("cut-after-mft", cut_after_mft);
    add("cut-in-mft", cut_in_mft);
    add("bad-sectors", bad_sectors);
    add("mft-head", mft_head);
    add("torn-records", torn);
    add("mixed-records", mixed);
}

} // namespace lab
