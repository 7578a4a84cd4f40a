// Makes an NTFS volume whose contents follow from a seed: users with bins of both
// kinds, complete and torn pairs, deleted records, attribute lists, records that free
// clusters hold, and a shadow copy. One seed makes the same bytes on every machine.
//
// Usage: make_random_volume SEED FILE [--damage flip|zero|cut] [--existing] [--mft
// FILE]
//
// With --existing, the file is damaged as it is. --mft writes a copy of the $MFT,
// without the damage. Prints the byte at which the volume starts. No expression draws
// two random numbers in an order that the compiler may choose.

#include "samples/ntfs_volume_builder.h"
#include "samples/random_source.h"
#include "samples/security_structures.h"
#include "samples/shadow_structures.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

namespace {

using namespace test_support;
using u64 = std::uint64_t;

constexpr u64 owner_id = 256;
constexpr u64 users_folder = 24, system_folder = 25; // entries
constexpr u64 unused_entries = 6; // for records that only free clusters hold

constexpr const char *extensions[] = {".txt",    ".docx", ".jpg", ".pdf",
                                      ".tar.gz", "",      ".X",   ".lnk"};
constexpr std::u16string_view folders[] = {
    u"C:\\Users\\ada\\Documents\\", u"D:\\", u"C:\\Users\\K\u00f6nig\\Desktop\\",
    u"E:\\\u6587\u66f8\\", u"\\\\server\\share\\a,b\\"};
constexpr std::u16string_view file_names[] = {
    u"report",     u"a, b; c|d", u"\u0416\u0443\u043a", u"smile \xD83D\xDE00",
    u"\"quoted\"", u"x"};

std::u16string widened(std::string_view text)
{
    return {text.begin(), text.end()};
}

// A volume on its way: the builder, and what is known of it so far.
class random_volume {
public:
    explicit random_volume(u64 seed) : m_random(seed) {}

    std::uint32_t cluster_size() const { return m_cluster; }

    ntfs_volume build()
    {
        set_geometry();
        m_builder.directory(item(users_folder, 5, "Users"))
            .directory(item(system_folder, 5, "System Volume Information"));
        const u64 users = m_random.between(1, 4);
        if (!m_random.one_in(8)) add_bin(users);
        if (m_random.one_in(3)) add_old_bin();
        add_other_files();
        if (m_random.one_in(2)) add_owner();
        ntfs_volume volume = add_shadow_copy();
        add_forgotten(volume);
        if (m_offset != 0) add_partition_table(volume);
        return volume;
    }

private:
    // ---- Sizes and places

    void set_geometry()
    {
        constexpr std::uint32_t cluster_sizes[] = {512,  1024, 2048,  4096,
                                                   4096, 4096, 16384, 65536};
        m_cluster = m_random.pick(cluster_sizes);
        m_record = m_random.one_in(4) ? 4096 : 1024;
        m_builder.cluster_size(m_cluster).record_size(m_record);
        if (m_record == 4096 && m_cluster >= 4096 && m_random.one_in(2))
            m_builder.sector_size(4096);
        if (m_random.one_in(4)) m_offset = 4096 * m_random.between(1, 40);
        m_builder.offset(m_offset);
        if (m_random.one_in(2)) m_builder.mft({.fragments = m_random.between(2, 5)});
    }

    u64 next_entry()
    {
        if (m_random.one_in(10)) m_entry += m_random.below(6);
        return m_entry++;
    }

    u64 random_time()
    {
        // A day of ticks of 100 ns, each day from 2015 to 2024.
        const u64 day = u64{24} * 3600 * 10000000;
        const u64 days = m_random.below(3500);
        return sample_filetime + days * day + m_random.below(day);
    }

    ntfs_item item(u64 entry, u64 parent, std::string name)
    {
        const u64 time = random_time();
        const u64 changed = m_random.one_in(3) ? random_time() : time;
        return {.entry = entry,
                .parent = parent,
                .name = std::move(name),
                .sequence = static_cast<std::uint16_t>(m_random.between(1, 9)),
                .security_id = m_random.one_in(5) ? 0U : std::uint32_t{owner_id},
                .times = {time, changed, changed, random_time()}};
    }

    // Gives a file bytes, kept in one of the ways that a volume has.
    void fill(ntfs_item &file)
    {
        const u64 size =
            m_random.one_in(6) ? m_random.below(40000) : m_random.below(300);
        file.data.resize(size);
        for (std::uint8_t &byte : file.data)
            byte =
                static_cast<std::uint8_t>(m_random.below(m_random.one_in(9) ? 256 : 4));
        file.stored.non_resident = size != 0 && m_random.one_in(8);
        if (size > 8192 && m_random.one_in(2))
            file.stored.fragments = m_random.between(2, 6);
        if (size > 8192 && m_cluster <= 4096 && m_random.one_in(4))
            file.stored.compressed = true;
    }

    // ---- Bins

    std::string id_text()
    {
        constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
        std::string id;
        for (int i = 0; i < 6; ++i) id += letters[m_random.below(letters.size())];
        return id + m_random.pick(extensions);
    }

    std::u16string path_text()
    {
        std::u16string path(m_random.pick(folders));
        for (u64 depth = m_random.below(4); depth > 0; --depth)
            path += std::u16string(m_random.pick(file_names)) + u"\\";
        path += m_random.pick(file_names);
        return path + widened(m_random.pick(extensions));
    }

    byte_vector random_metadata()
    {
        dollar_i_builder metadata;
        metadata.version(m_random.one_in(3) ? 1 : 2)
            .size(m_random.below(u64{1} << m_random.between(1, 40)))
            .time(random_time())
            .path(path_text());
        byte_vector bytes = metadata.bytes();
        if (m_random.one_in(20)) bytes.resize(m_random.below(bytes.size()));
        return bytes;
    }

    ntfs_item metadata_item(u64 entry, u64 parent, const std::string &id)
    {
        ntfs_item file = item(entry, parent, "$I" + id);
        file.data = random_metadata();
        return file;
    }

    // What a deletion or a restore leaves of an item.
    void maybe_gone(ntfs_item &file)
    {
        if (m_random.one_in(6)) file.in_use = false;
        if (m_random.one_in(12)) file.in_index = false;
    }

    void add_folder(u64 parent, std::string name, int depth)
    {
        const u64 entry = next_entry();
        ntfs_item folder = item(entry, parent, std::move(name));
        if (depth == 0) maybe_gone(folder);
        folder.index_blocks = m_random.one_in(6);
        m_builder.directory(folder);
        for (u64 files = m_random.below(4); files > 0; --files) {
            const u64 inner = next_entry();
            ntfs_item file = item(inner, entry, "inner " + id_text());
            fill(file);
            maybe_gone(file);
            m_builder.file(file);
        }
        if (depth < 2 && m_random.one_in(2)) add_folder(entry, "folder", depth + 1);
    }

    void add_data_file(u64 parent, const std::string &name)
    {
        if (m_random.one_in(5)) {
            add_folder(parent, name, 0);
            return;
        }
        ntfs_item file = item(next_entry(), parent, name);
        fill(file);
        maybe_gone(file);
        m_builder.file(file);
        if (file.stored.fragments > 1 && !file.stored.compressed &&
            file.data.size() > m_cluster)
            m_moved = file.entry;
        if (m_random.one_in(6))
            m_builder.stream(
                {.entry = file.entry, .name = "Zone.Identifier", .data = zone_text()});
        if (m_random.one_in(12))
            m_builder.link({.entry = file.entry,
                            .parent = parent,
                            .name = "SHORT~1.TXT",
                            .name_space = ntfs_names::dos});
    }

    byte_vector zone_text()
    {
        const std::string text =
            "[ZoneTransfer]\r\nZoneId=" + std::to_string(m_random.below(5)) +
            "\r\nHostUrl=https://example.org/a,b\r\n";
        return {text.begin(), text.end()};
    }

    void add_pair(u64 parent)
    {
        const std::string id = id_text();
        if (!m_random.one_in(6)) {
            ntfs_item metadata = metadata_item(next_entry(), parent, id);
            maybe_gone(metadata);
            m_builder.file(metadata);
        }
        if (!m_random.one_in(6)) add_data_file(parent, "$R" + id);
    }

    u64 add_user(u64 bin, u64 number)
    {
        const u64 user = next_entry();
        m_builder.directory(
            item(user, bin, "S-1-5-21-7-8-9-" + std::to_string(1000 + number)));
        m_builder.file(item(next_entry(), user, "desktop.ini"));
        return user;
    }

    void add_bin(u64 users)
    {
        const u64 bin = next_entry();
        m_builder.directory(
            item(bin, 5, m_random.one_in(2) ? "$Recycle.Bin" : "$RECYCLE.BIN"));
        for (u64 number = 1; number <= users; ++number) {
            const u64 user = add_user(bin, number);
            for (u64 pairs = m_random.below(10); pairs > 0; --pairs) add_pair(user);
            if (number == 1) m_user = user;
        }
        for (u64 stale = m_random.below(4); stale > 0; --stale) {
            const std::string kind = m_random.one_in(3) ? "$R" : "$I";
            m_builder.stale_entry({.directory = m_user,
                                   .entry = m_random.between(24, m_entry + 20),
                                   .name = kind + id_text(),
                                   .size = m_random.below(9000)});
        }
    }

    byte_vector random_list(u64 count)
    {
        std::vector<info2_item> records;
        for (u64 i = 0; i < count; ++i)
            records.push_back(
                {.ansi_path = m_random.one_in(6) ? "" : "C:\\ansi.txt",
                 .path = path_text(),
                 .number = static_cast<std::uint32_t>(i + 1 + m_random.below(2)),
                 .drive = static_cast<std::uint32_t>(m_random.below(28)),
                 .time = random_time(),
                 .size = static_cast<std::uint32_t>(m_random.below(1U << 31))});
        return info2_file(records);
    }

    void add_old_bin()
    {
        const u64 bin = next_entry();
        m_builder.directory(item(bin, 5, "RECYCLER"));
        const u64 user = add_user(bin, 500);
        const u64 count = m_random.below(6);
        ntfs_item list = item(next_entry(), user, "INFO2");
        list.data = random_list(count);
        if (count > 3) list.stored.fragments = 2;
        m_builder.file(list);
        for (u64 number = 1; number <= count; ++number)
            if (!m_random.one_in(3))
                add_data_file(user, "Dc" + std::to_string(number) + ".txt");
    }

    // ---- Everything else

    void add_other_files()
    {
        for (u64 files = m_random.below(20); files > 0; --files) {
            const u64 entry = next_entry();
            ntfs_item file = item(entry, users_folder, "file " + id_text());
            fill(file);
            maybe_gone(file);
            m_builder.file(file);
        }
        if (m_moved != 0) {
            const std::size_t first_run = m_random.below(2);
            m_builder.move(
                {.entry = m_moved, .record = m_entry++, .first_run = first_run});
            if (m_random.one_in(2)) m_builder.list_in_clusters(m_moved);
        }
        m_unused = m_entry;
        m_entry += unused_entries;
        m_builder.file(item(m_entry++, users_folder, "last"));
    }

    void add_owner()
    {
        const byte_vector user = sid(5, {21, 7, 8, 9, 1001});
        const byte_vector owned =
            descriptor({user, sid(5, {32, 545}), {}, acl({ace(0, 3, 0x1F01FF, user)})});
        m_builder.stream({.entry = 9,
                          .name = "$SDS",
                          .data = sds_stream(sds_of(owner_id, 0, owned)),
                          .stored = {.non_resident = true}});
    }

    // Metadata that the index of its folder doesn't name, so that it changes nothing
    // but its own record.
    ntfs_item unindexed_metadata(u64 entry)
    {
        ntfs_item file =
            metadata_item(entry, m_user != 0 ? m_user : users_folder, id_text());
        file.data = dollar_i_builder().path(path_text()).time(random_time()).bytes();
        file.in_index = false;
        return file;
    }

    // ---- Shadow copy

    // Builds the volume with the shadow copy files in it, the store's content given.
    ntfs_volume with_store(ntfs_volume_builder builder, u64 area,
                           const byte_vector &content) const
    {
        const u64 store_entry = m_entry, catalog_entry = m_entry + 1;
        const shadow_store store{.created = sample_filetime + 5,
                                 .block_list = area + shadow_block_size,
                                 .header = area,
                                 .bitmap = area + 2 * shadow_block_size,
                                 .reference = store_entry | u64{1} << 48};
        const auto at = [this](u64 position, u64 bytes) {
            const u64 first = position / m_cluster;
            const u64 end = (position + bytes + m_cluster - 1) / m_cluster;
            return ntfs_storage{.runs = {{first, end - first}}, .valid_size = 0};
        };
        const byte_vector header = shadow_store_header(store, u"host", u"host");
        const std::string id = "{01010101-0101-0101-0101-010101010101}";
        return builder
            .file({.entry = store_entry,
                   .parent = system_folder,
                   .name = id + shadow_name,
                   .data = joined({header, content}),
                   .stored = at(area, store_bytes)})
            .file({.entry = catalog_entry,
                   .parent = system_folder,
                   .name = shadow_name,
                   .data = shadow_catalog({store}),
                   .stored = at(area + store_bytes, shadow_block_size)})
            .build_volume();
    }

    // The area of the shadow copy lies after all else; some clusters after it stay
    // free.
    ntfs_volume add_shadow_copy()
    {
        const u64 low_end = m_builder.build().size() - m_offset;
        const u64 area = (low_end / area_step + 3) * area_step;
        m_free_at = area + 2 * area_step;
        m_builder.clusters((m_free_at + 2 * area_step) / m_cluster);
        if (m_random.one_in(3)) return m_builder.build_volume();
        const byte_vector no_blocks(3 * shadow_block_size);
        const u64 entry = m_unused + unused_entries - 1;
        ntfs_item purged = unindexed_metadata(entry);
        ntfs_volume_builder with_purged = m_builder;
        const ntfs_volume then = with_store(with_purged.file(purged), area, no_blocks);
        const u64 record = then.record_position(entry) - m_offset;
        const u64 block = record - record % shadow_block_size;
        const auto kept =
            then.image.begin() + static_cast<std::ptrdiff_t>(m_offset + block);
        return with_store(
            m_builder, area,
            joined({shadow_descriptors({{block, area + 3 * shadow_block_size}},
                                       area + shadow_block_size),
                    shadow_bitmap({}, area + 2 * shadow_block_size),
                    {kept, kept + shadow_block_size}}));
    }

    // ---- Free clusters

    // Records of an older state of the volume, and lists, in clusters that nothing
    // uses.
    void add_forgotten(ntfs_volume &volume)
    {
        ntfs_volume_builder older = m_builder;
        for (u64 i = 0; i + 1 < unused_entries; ++i)
            older.file(unindexed_metadata(m_unused + i));
        const ntfs_volume old = older.build_volume();
        for (u64 at = m_free_at; at < m_free_at + area_step; at += m_cluster) {
            byte_vector cluster;
            switch (m_random.below(4)) {
            case 0: cluster = random_list(m_random.between(1, 3)); break;
            case 1: cluster = records_of(old); break;
            case 2: cluster = random_metadata(); break;
            default: continue;
            }
            cluster.resize(std::min<std::size_t>(cluster.size(), m_cluster));
            put_bytes(volume.image, m_offset + at, cluster);
        }
    }

    byte_vector records_of(const ntfs_volume &volume)
    {
        byte_vector bytes;
        for (u64 count = m_random.between(1, 3); count > 0; --count) {
            const u64 entry = m_unused + m_random.below(unused_entries - 1);
            const auto from = volume.image.begin() + static_cast<std::ptrdiff_t>(
                                                         volume.record_position(entry));
            bytes.insert(bytes.end(), from, from + m_record);
        }
        return bytes;
    }

    // One partition, of the type that NTFS has.
    void add_partition_table(ntfs_volume &volume) const
    {
        const u64 sectors = (volume.image.size() - m_offset) / 512;
        put_number(volume.image, 446 + 4, 7, 1);
        put_number(volume.image, 446 + 8, m_offset / 512, 4);
        put_number(volume.image, 446 + 12, sectors, 4);
        put_number(volume.image, 510, 0xAA55, 2);
    }

    static constexpr u64 area_step = 0x20000;
    static constexpr u64 store_bytes = 4 * shadow_block_size;

    random_source m_random;
    ntfs_volume_builder m_builder;
    std::uint32_t m_cluster = 4096, m_record = 1024;
    u64 m_offset = 0;
    u64 m_entry = 26;  // the next one
    u64 m_user = 0;    // a folder in the bin
    u64 m_moved = 0;   // a file whose runs go into an extension record
    u64 m_unused = 0;  // first of the entries that stay unused
    u64 m_free_at = 0; // where clusters stay free, in bytes of the volume
};

byte_vector mft_of(const ntfs_volume &volume, u64 cluster_size)
{
    byte_vector bytes;
    for (const extent &run : volume.stream_runs(0)) {
        const auto from =
            volume.image.begin() +
            static_cast<std::ptrdiff_t>(volume.boot_position + run.lcn * cluster_size);
        bytes.insert(bytes.end(), from,
                     from + static_cast<std::ptrdiff_t>(run.clusters * cluster_size));
    }
    return bytes;
}

// ---- Damage

// Where damage shows: sectors of records, of index blocks and of boot sectors, and
// others that hold anything.
struct sector_list {
    std::vector<u64> structures, others;
};

sector_list used_sectors(const std::string &path)
{
    sector_list sectors;
    std::ifstream file(path, std::ios::binary);
    std::string sector(512, '\0');
    bool after_header = false;
    for (u64 at = 0; file.read(sector.data(), 512); at += 512) {
        const bool header = sector.starts_with("FILE") || sector.starts_with("INDX") ||
                            sector.compare(3, 4, "NTFS") == 0;
        if (header || after_header)
            sectors.structures.push_back(at);
        else if (sector.find_first_not_of('\0') != std::string::npos)
            sectors.others.push_back(at);
        after_header = header;
    }
    return sectors;
}

void overwrite(const std::string &path, u64 at, const std::string &bytes)
{
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(at)).write(bytes.data(), std::ssize(bytes));
}

bool damage(const std::string &path, const std::string &kind, u64 seed)
{
    random_source random(seed + 1000003);
    if (kind == "cut") {
        const u64 size = std::filesystem::file_size(path);
        const u64 wanted = random.below(size + 1);
        std::filesystem::resize_file(path,
                                     random.one_in(2) ? wanted : wanted - wanted % 512);
        return true;
    }
    if (kind != "flip" && kind != "zero") return false;
    const sector_list sectors = used_sectors(path);
    const u64 count = kind == "zero" ? random.between(1, 4) : random.between(1, 30);
    for (u64 i = 0; i < count; ++i) {
        const auto &list = random.one_in(4) ? sectors.others : sectors.structures;
        if (list.empty()) continue;
        const u64 sector = list[random.below(list.size())];
        if (kind == "zero")
            overwrite(path, sector, std::string(512, '\0'));
        else
            overwrite(path, sector + random.below(512),
                      std::string(1, static_cast<char>(random.below(256))));
    }
    return true;
}

bool write_file(const std::string &path, const byte_vector &bytes)
{
    std::ofstream file(path, std::ios::binary);
    file << text(bytes) << std::flush;
    return file.good();
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    const auto take = [&args](const std::string &name, bool with_value) {
        const auto at = std::find(args.begin(), args.end(), name);
        if (at == args.end() || (with_value && at + 1 == args.end()))
            return std::string();
        std::string value = with_value ? at[1] : name;
        args.erase(at, at + (with_value ? 2 : 1));
        return value;
    };
    const std::string kind = take("--damage", true), mft = take("--mft", true);
    const bool existing = !take("--existing", false).empty();
    if (args.size() != 2) {
        std::cerr << "usage: make_random_volume SEED FILE [--damage flip|zero|cut] "
                     "[--existing] [--mft FILE]\n";
        return 1;
    }
    const u64 seed = std::stoull(args[0]);
    if (!existing) {
        random_volume maker(seed);
        const ntfs_volume volume = maker.build();
        if (!write_file(args[1], volume.image)) return 1;
        if (!mft.empty() && !write_file(mft, mft_of(volume, maker.cluster_size())))
            return 1;
        std::cout << volume.boot_position << '\n';
    }
    return kind.empty() || damage(args[1], kind, seed) ? 0 : 1;
}
