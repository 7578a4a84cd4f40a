// Whole disks: several volumes and their tables, tables that are gone, boot sectors
// that only their copy remembers.

#include "lab/cases.h"
#include "lab/partition_tables.h"
#include "lab/people.h"
#include "samples/vmdk_builder.h"

namespace lab {

namespace {

using namespace test_support;

constexpr u64 sector = 512;

// A disk, and where its volumes are.
struct whole_disk {
    byte_vector bytes = {};
    std::vector<partition> partitions = {};
};

// Adds a volume that two users have used, at the first sector from `least` on that has
// the remainder `odd` when divided by 8.
void add_volume(whole_disk &disk, told_case &told, u64 size, u64 seed, u64 least = 2048,
                const std::vector<std::string> &sids = {ann, ben})
{
    const u64 first = std::max<u64>(least, disk.bytes.size() / sector + 200);
    story volume = used_volume(told, size, seed, {.offset = first * sector}, sids);
    byte_vector &image = volume.image();
    for (const u64 boot : {u64{0}, image.size() - sector})
        put_number(image, boot + 28, first, 4);
    disk.partitions.push_back({first, image.size() / sector});
    put_bytes(disk.bytes, first * sector, image);
}

void hide_volumes(told_case &told)
{
    for (told_volume &volume : told.volumes) volume.known = false;
}

// Three partitions and two logical ones, with users of their own.
byte_vector mbr(told_case &told, u64 size, u64 seed)
{
    whole_disk disk;
    for (u64 i = 0; i < 5; ++i) {
        const std::vector<std::string> sids[] = {{ann, ben}, {cid}, {dora, service}};
        add_volume(disk, told, size, seed + 10 * i, 2048, sids[i % 3]);
    }
    write_mbr(disk.bytes, disk.partitions);
    return disk.bytes;
}

// A disk of the old days: its volume begins at sector 63.
byte_vector mbr_sector_63(told_case &told, u64 size, u64 seed)
{
    whole_disk disk;
    story volume = used_volume(told, size, seed, {.offset = 63 * sector});
    byte_vector &image = volume.image();
    for (const u64 boot : {u64{0}, image.size() - sector})
        put_number(image, boot + 28, 63, 4);
    put_bytes(disk.bytes, 63 * sector, image);
    write_mbr(disk.bytes, {{63, image.size() / sector}});
    return disk.bytes;
}

// A volume on a virtual disk.
byte_vector vmdk(told_case &told, u64 size, u64 seed)
{
    byte_vector disk = used_volume(told, size, seed).image();
    told.container = {"medium.vmdk", sparse_vmdk(disk)};
    return disk;
}

whole_disk gpt_disk(told_case &told, u64 size, u64 seed)
{
    whole_disk disk;
    add_volume(disk, told, size, seed, 2048, {ann});
    add_volume(disk, told, size, seed + 10, 2048, {ben, cloud});
    write_gpt(disk.bytes, disk.partitions);
    return disk;
}

byte_vector gpt(told_case &told, u64 size, u64 seed)
{
    return gpt_disk(told, size, seed).bytes;
}

void wipe(byte_vector &disk, u64 first, u64 sectors)
{
    std::fill_n(disk.begin() + static_cast<std::ptrdiff_t>(first * sector),
                sectors * sector, u8{0});
}

// The first sectors of a GPT disk are wiped; the copy of the table is there.
byte_vector gpt_copy_only(told_case &told, u64 size, u64 seed)
{
    byte_vector disk = gpt_disk(told, size, seed).bytes;
    wipe(disk, 0, 34);
    told.events.emplace_back("the first 34 sectors of the disk are wiped");
    return disk;
}

// No table at all, but whole volumes.
byte_vector table_gone(told_case &told, u64 size, u64 seed)
{
    whole_disk disk = gpt_disk(told, size, seed);
    wipe(disk.bytes, 0, 34);
    wipe(disk.bytes, disk.bytes.size() / sector - 33, 33);
    hide_volumes(told);
    told.events.emplace_back("both tables of the disk are wiped");
    return disk.bytes;
}

// The boot sector of a volume is destroyed; its copy after the last cluster is intact.
byte_vector boot_copy_only(told_case &told, u64 size, u64 seed)
{
    story volume = used_volume(told, size, seed);
    wipe(volume.image(), 0, 8);
    volume.tell("the first 8 sectors are wiped");
    told.volumes[0].mounts = false;
    return volume.image();
}

} // namespace

void add_disk_cases(case_makers &all)
{
    const auto add = [&](const char *name, case_kind kind) {
        add_cases(all, std::string("disks/") + name, kind, {2, 12});
    };
    add("mbr", mbr);
    add("mbr-sector-63", mbr_sector_63);
    add("gpt", gpt);
    add("gpt-copy-only", gpt_copy_only);
    add("table-gone", table_gone);
    add("boot-copy-only", boot_copy_only);
    add("vmdk", vmdk);
}

} // namespace lab
