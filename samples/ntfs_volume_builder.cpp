#include "samples/ntfs_volume_builder.h"

#include <array>
#include <bit>

namespace test_support {

using namespace ntfs_structures;

namespace {

constexpr u64 unit_clusters = 16; // of a compression unit
constexpr u32 directory_bit = 0x10000000;
constexpr const char *index_name = "$I30";

// A number as the boot sector has it: a power of two that is too large for its byte, or
// below 1, as an exponent.
u64 exponent_code(u64 power)
{
    return 256 - static_cast<u64>(std::countr_zero(power));
}

// A size that the boot sector has in clusters.
u64 size_code(u32 bytes, u32 cluster_size)
{
    return bytes >= cluster_size ? bytes / cluster_size : exponent_code(bytes);
}

void put_times(byte_vector &bytes, std::size_t at, const ntfs_times &times)
{
    put_layout(bytes,
               {{0, 8, times.created},
                {8, 8, times.modified},
                {16, 8, times.mft_changed},
                {24, 8, times.accessed}},
               at);
}

bool has_hole(const std::vector<extent> &runs)
{
    return std::any_of(runs.begin(), runs.end(),
                       [](const extent &run) { return run.lcn == hole; });
}

// Which clusters are taken. Nothing else is stored in those of deleted files, but they
// are free in $Bitmap.
class cluster_map {
public:
    void take(const extent &run, bool live, u64 entry)
    {
        for (u64 i = 0; run.lcn != hole && i < run.clusters; ++i) {
            bool &is_live = m_live[run.lcn + i];
            if (live && is_live) refuse(entry, "its clusters are taken");
            is_live = is_live || live;
        }
    }

    // Takes free clusters, in `fragments` runs of whole granules.
    std::vector<extent> place(u64 clusters, u64 fragments, u64 granule, bool live)
    {
        std::vector<extent> runs;
        const u64 each = round_up((clusters + fragments - 1) / fragments, granule);
        for (u64 left = clusters; left > 0; left -= runs.back().clusters) {
            runs.push_back({m_next, std::min(each, left)});
            while (!free(runs.back())) ++runs.back().lcn;
            take(runs.back(), live, 0);
            m_next = runs.back().lcn + runs.back().clusters + (fragments > 1 ? 1 : 0);
        }
        return runs;
    }

    void skip(u64 clusters) { m_next += clusters; }
    u64 end() const
    {
        return m_live.empty() ? m_next : std::max(m_next, m_live.rbegin()->first + 1);
    }

    byte_vector bits(u64 clusters, std::size_t bytes) const
    {
        byte_vector map(bytes);
        for (u64 lcn = clusters; lcn < bytes * 8; ++lcn) set_bit(map, lcn);
        for (const auto &[lcn, live] : m_live)
            if (live) set_bit(map, lcn);
        return map;
    }

private:
    bool free(const extent &run) const
    {
        const auto next = m_live.lower_bound(run.lcn);
        return next == m_live.end() || next->first >= run.lcn + run.clusters;
    }

    std::map<u64, bool> m_live; // of each cluster that is taken
    u64 m_next = 0;
};

// One entry on its way to the disk.
struct entry_state {
    ntfs_item item = {};
    bool directory = false;
    bool system = false;
    std::vector<attribute> attributes = {};
};

class volume_writer {
public:
    explicit volume_writer(const ntfs_plan &plan) : m_plan(plan) { check_sizes(); }

    ntfs_volume write()
    {
        add_items();
        count_records();
        take_wanted_clusters();
        for (auto &[number, state] : m_items) add_standard_information(state);
        add_system_streams();
        add_streams();
        add_names();
        for (auto &[number, state] : m_items)
            if (state.directory) add_index(number, state);
        add_whole_volume_streams();
        for (const ntfs_move &move : m_plan.moves) move_attribute(move);
        for (auto &[number, state] : m_items) number_attributes(number, state);
        write_image();
        return std::move(m_volume);
    }

private:
    void check_sizes() const
    {
        const auto check = [](u32 value, u32 least, u32 most, const char *reason) {
            if (!std::has_single_bit(value) || value < least || value > most)
                refuse(0, reason);
        };
        check(m_plan.cluster_size, 512, 1U << 21, "bad cluster size");
        check(m_plan.record.size, 1024, 4096, "bad record size");
        check(m_plan.sector_size, 512, std::min(4096U, m_plan.cluster_size),
              "bad sector size");
    }

    // Entries

    void add_items()
    {
        static constexpr std::array names = {
            "$MFT",    "$MFTMirr", "$LogFile", "$Volume", "$AttrDef", ".",
            "$Bitmap", "$Boot",    "$BadClus", "$Secure", "$UpCase",  "$Extend"};
        for (u64 number = 0; number < names.size(); ++number) {
            entry_state &state = m_items[number];
            state.item = {.entry = number,
                          .name = names[number],
                          .sequence = static_cast<u16>(std::max<u64>(number, 1)),
                          .name_space = ntfs_names::win32_and_dos,
                          .attributes = 0x06}; // hidden, system
            state.directory = number == 5 || number == 11;
            state.system = true;
        }
        for (const auto &[number, planned] : m_plan.items) {
            m_items[number].item = planned.first;
            m_items[number].directory = planned.second;
        }
        for (const ntfs_move &move : m_plan.moves)
            if (m_items.contains(move.record)) refuse(move.record, "is not free");
    }

    // At least the 24 that every volume has or those asked for, and whole clusters.
    void count_records()
    {
        u64 count = std::max(m_plan.records, m_items.rbegin()->first + 1);
        for (const ntfs_move &move : m_plan.moves)
            count = std::max(count, move.record + 1);
        m_records = round_up(count * m_plan.record.size, m_plan.cluster_size) /
                    m_plan.record.size;
    }

    entry_state &state_of(u64 number)
    {
        const auto found = m_items.find(number);
        if (found == m_items.end()) refuse(number, "no such entry");
        return found->second;
    }

    // Extension records have the sequence number 1. A whole reference stays as it is.
    u64 reference(u64 number) const
    {
        if (number >> 48U != 0) return number;
        const auto found = m_items.find(number);
        const u64 sequence = found == m_items.end() ? 1 : found->second.item.sequence;
        return number | sequence << 48;
    }

    static u32 attribute_bits(const ntfs_item &item)
    {
        return item.attributes | (item.stored.compressed ? 0x800U : 0U) |
               (has_hole(item.stored.runs) ? 0x200U : 0U);
    }

    static void add_standard_information(entry_state &state)
    {
        byte_vector value(72);
        put_times(value, 0, state.item.times);
        put_layout(value, {{32, 4, attribute_bits(state.item)},
                           {52, 4, state.item.security_id}});
        state.attributes.push_back(
            {.type = ntfs_type::standard_information, .content = value});
    }

    // Names

    byte_vector name_content(const ntfs_link &link, const ntfs_item &item,
                             bool directory, u64 allocated, u64 size) const
    {
        const std::u16string name = to_utf16(link.name);
        byte_vector value(66);
        put_number(value, 0, reference(link.parent), 8);
        put_times(value, 8, item.times);
        put_layout(value,
                   {{40, 8, allocated},
                    {48, 8, size},
                    {56, 4, attribute_bits(item) | (directory ? directory_bit : 0)},
                    {64, 1, name.size()},
                    {65, 1, link.name_space}});
        put_utf16(value, 66, name);
        return value;
    }

    void add_name(entry_state &state, const ntfs_link &link)
    {
        u64 allocated = 0, size = 0;
        for (const attribute &attr : state.attributes)
            if (attr.type == ntfs_type::data && attr.name.empty())
                std::tie(allocated, size) =
                    std::tie(attr.allocated_size, attr.real_size);
        const byte_vector value =
            name_content(link, state.item, state.directory, allocated, size);
        state.attributes.push_back(
            {.type = ntfs_type::file_name, .content = value, .indexed = true});
        if (!state.item.in_use || !state.item.in_index) return;
        m_children[link.parent].push_back(
            {to_utf16(link.name), encode_index_entry(reference(link.entry), value)});
    }

    void add_names()
    {
        for (auto &[number, state] : m_items)
            if (const ntfs_item &item = state.item; !item.name.empty())
                add_name(state, {number, item.parent, item.name, item.name_space});
        for (const ntfs_link &link : m_plan.links) add_name(state_of(link.entry), link);
    }

    // Streams

    u64 clusters_for(u64 bytes) const
    {
        return round_up(bytes, m_plan.cluster_size) / m_plan.cluster_size;
    }

    // Clusters that an item asks for are not free for anything else.
    void take_wanted_clusters()
    {
        m_clusters.take({0, clusters_for(8192)}, true, 7); // $Boot
        for (const extent &run : m_plan.mft.runs) m_clusters.take(run, true, 0);
        for (const auto &[number, state] : m_items)
            for (const extent &run : state.item.stored.runs)
                m_clusters.take(run, state.item.in_use, number);
        for (const ntfs_stream &stream : m_plan.streams)
            for (const extent &run : stream.stored.runs)
                m_clusters.take(run, state_of(stream.entry).item.in_use, stream.entry);
    }

    bool stays_in_record(const ntfs_stream &stream) const
    {
        const ntfs_storage &how = stream.stored;
        return how.resident ||
               (!how.non_resident && how.runs.empty() && how.fragments == 1 &&
                !how.compressed && stream.data.size() <= m_plan.record.size / 2);
    }

    void add_stream(const ntfs_stream &stream)
    {
        entry_state &state = state_of(stream.entry);
        attribute made = {.type = stream.type, .name = stream.name};
        made.real_size = stream.data.size();
        if (stays_in_record(stream)) {
            made.content = stream.data;
            made.allocated_size = round_up(stream.data.size(), 8);
        } else {
            store(made, stream, state.item.in_use);
            m_volume.runs[{stream.entry, stream.type, stream.name}] = made.runs;
        }
        state.attributes.push_back(std::move(made));
    }

    void store(attribute &made, const ntfs_stream &stream, bool live)
    {
        const ntfs_storage &how = stream.stored;
        made.non_resident = true;
        if (how.compressed) {
            store_units(made, stream.data, how, live);
        } else {
            made.runs = how.runs;
            if (made.runs.empty())
                made.runs = m_clusters.place(clusters_for(made.real_size),
                                             how.fragments, granule(stream), live);
            m_writes.push_back({made.runs, stream.data, live});
        }
        made.flags = how.compressed        ? flag_compressed
                     : has_hole(made.runs) ? flag_sparse
                                           : 0;
        made.allocated_size = made.clusters(true) * m_plan.cluster_size;
        made.packed_size = made.clusters(false) * m_plan.cluster_size;
        made.valid_size = how.valid_size.value_or(made.real_size);
        if (made.allocated_size < made.real_size)
            refuse(stream.entry, "the runs are too short for the data");
    }

    // A cut between two runs doesn't divide records and index blocks.
    u64 granule(const ntfs_stream &stream) const
    {
        const u32 whole = stream.type == ntfs_type::index_allocation ? index_block_size
                          : stream.entry == 0 ? m_plan.record.size
                                              : 1;
        return clusters_for(whole);
    }

    // A unit that compression makes no cluster smaller is stored plain, and a unit of
    // zeros isn't stored.
    void store_units(attribute &made, const byte_vector &data, const ntfs_storage &how,
                     bool live)
    {
        const u64 gap = how.fragments > 1 ? 1 : 0;
        u64 next = how.runs.empty() ? 0 : how.runs.front().lcn;
        const std::size_t unit_size = unit_clusters * m_plan.cluster_size;
        for (std::size_t at = 0; at < data.size(); at += unit_size) {
            const auto begin = data.begin() + std::ptrdiff_t(at);
            const byte_vector plain(
                begin, begin + std::ptrdiff_t(std::min(unit_size, data.size() - at)));
            byte_vector bytes = compress_unit(plain);
            u64 clusters = clusters_for(bytes.size());
            if (clusters >= unit_clusters) {
                bytes = plain;
                clusters = unit_clusters;
            }
            if (std::count(plain.begin(), plain.end(), 0) == std::ssize(plain))
                clusters = 0;
            std::vector<extent> placed;
            if (how.runs.empty())
                placed = m_clusters.place(clusters, 1, 1, live);
            else if (clusters != 0)
                placed = {{next, clusters}};
            for (const extent &run : placed) {
                append_run(made.runs, run);
                m_writes.push_back({{run}, bytes, live});
            }
            if (clusters < unit_clusters)
                append_run(made.runs, {hole, unit_clusters - clusters});
            next += clusters + gap;
            m_clusters.skip(gap);
        }
    }

    // Runs that touch become one run, and so do neighbouring holes.
    static void append_run(std::vector<extent> &runs, const extent &run)
    {
        const auto end = [](const extent &last) {
            return last.lcn == hole ? hole : last.lcn + last.clusters;
        };
        if (!runs.empty() && run.lcn == end(runs.back()))
            runs.back().clusters += run.clusters;
        else
            runs.push_back(run);
    }

    // Windows keeps four records, or a whole cluster of them.
    u64 mirrored() const
    {
        return std::max<u64>(4, m_plan.cluster_size / m_plan.record.size);
    }

    byte_vector record_bits() const
    {
        byte_vector bits(round_up(m_records, 64) / 8);
        for (const auto &[number, state] : m_items)
            if (state.item.in_use) set_bit(bits, number);
        for (const ntfs_move &move : m_plan.moves) set_bit(bits, move.record);
        return bits;
    }

    void add_system_streams()
    {
        const byte_vector version = {0, 0, 0, 0, 0, 0, 0, 0, 3, 1, 0, 0};
        const byte_vector empty_log(m_plan.is_small ? 512 : 65536, 0xFF);
        byte_vector upcase = upcase_table();
        if (m_plan.is_small) upcase.resize(512);
        byte_vector label;
        put_utf16(label, 0, u"sample");
        const ntfs_storage in_record = {}, in_clusters = {.non_resident = true};
        const ntfs_storage boot = {.runs = {{0, clusters_for(8192)}}};
        ntfs_storage mft = m_plan.mft;
        mft.non_resident = true;
        const u64 record = m_plan.record.size;

        add_stream({0, "", byte_vector(m_records * record), mft});
        add_stream({0, "", record_bits(), in_clusters, ntfs_type::bitmap});
        add_stream({1, "", byte_vector(mirrored() * record), in_clusters});
        add_stream({2, "", empty_log, in_clusters});
        add_stream({3, "", label, in_record, ntfs_type::volume_name});
        add_stream({3, "", version, in_record, ntfs_type::volume_information});
        add_stream({3});
        add_stream({4, "", attribute_definitions(), in_clusters});
        add_stream({7, "", byte_vector(8192), boot});
        add_stream({8});
        add_stream({10, "", upcase, in_clusters});
    }

    void add_streams()
    {
        for (const auto &[number, state] : m_items)
            if (!state.system && !state.directory && !state.item.without_data)
                add_stream({number, "", state.item.data, state.item.stored});
        for (const ntfs_stream &stream : m_plan.streams) add_stream(stream);
    }

    // Directories

    byte_vector slack_of(u64 directory) const
    {
        byte_vector slack;
        for (const ntfs_stale_entry &stale : m_plan.stale) {
            if (stale.directory != directory) continue;
            const ntfs_link link = {stale.entry, directory, stale.name,
                                    stale.name_space};
            const ntfs_item item = {.attributes = stale.attributes,
                                    .times = stale.times};
            const byte_vector value =
                name_content(link, item, false, round_up(stale.size, 8), stale.size);
            append(slack,
                   encode_index_entry(stale.entry | u64{stale.sequence} << 48, value));
        }
        return slack;
    }

    // The largest index root with which the attributes of an index in blocks still fit.
    std::size_t root_room(const entry_state &state) const
    {
        const std::size_t end_mark = 8, root_header = 32, others = 152, least = 64;
        std::size_t used =
            m_plan.record.first_attribute() + end_mark + root_header + others;
        for (const attribute &attr : state.attributes) used += encode(attr).size();
        return used + least > m_plan.record.size ? least : m_plan.record.size - used;
    }

    void add_index(u64 number, entry_state &state)
    {
        index_tree tree(m_plan.cluster_size, std::move(m_children[number]),
                        slack_of(number));
        tree.grow(root_room(state), state.item.index_blocks);
        state.attributes.push_back({.type = ntfs_type::index_root,
                                    .name = index_name,
                                    .content = tree.root_value()});
        const std::size_t count = tree.blocks().size();
        if (count == 0) return;
        byte_vector blocks, bits(round_up(count, 64) / 8);
        for (const byte_vector &block : tree.blocks()) append(blocks, block);
        for (std::size_t i = 0; i < count; ++i) set_bit(bits, i);
        ntfs_storage stored = state.item.stored;
        stored.non_resident = true;
        add_stream({number, index_name, blocks, stored, ntfs_type::index_allocation});
        add_stream({number, index_name, bits, {}, ntfs_type::bitmap});
        m_volume.index_blocks[number].resize(count);
    }

    // $Bitmap and $BadClus are as large as the volume, so its size is fixed here, with
    // some clusters left free.
    void add_whole_volume_streams()
    {
        const u64 taken = m_clusters.end();
        const u64 spare =
            32 + taken / 4096 + m_plan.moves.size() + m_plan.clustered_lists.size();
        m_total = std::max(m_plan.clusters, taken + spare);
        add_stream({.entry = 6,
                    .data = byte_vector(round_up(m_total, 64) / 8),
                    .stored = {.non_resident = true}});
        const u64 bytes = m_total * m_plan.cluster_size;
        m_items[8].attributes.push_back({.type = ntfs_type::data,
                                         .name = "$Bad",
                                         .non_resident = true,
                                         .runs = {{hole, m_total}},
                                         .allocated_size = bytes,
                                         .real_size = bytes});
    }

    // Attribute lists

    // Moves the runs from number `first` on from `piece` to a piece of their own.
    static attribute cut_off(attribute &piece, std::size_t first)
    {
        attribute rest = piece;
        const auto cut = static_cast<std::ptrdiff_t>(first - piece.first_run);
        rest.runs.erase(rest.runs.begin(), rest.runs.begin() + cut);
        piece.runs.resize(first - piece.first_run);
        rest.first_vcn = piece.first_vcn + piece.clusters(true);
        rest.first_run = first;
        return rest;
    }

    static bool covers(const attribute &attr, const ntfs_move &move)
    {
        return attr.type == move.type && attr.name == move.name &&
               attr.first_run <= move.first_run &&
               move.first_run <
                   attr.first_run + std::max<std::size_t>(1, attr.runs.size());
    }

    void move_attribute(const ntfs_move &move)
    {
        auto &all = state_of(move.entry).attributes;
        const auto found =
            std::find_if(all.begin(), all.end(),
                         [&](const attribute &attr) { return covers(attr, move); });
        if (found == all.end()) refuse(move.entry, "no attribute to move");
        if (move.first_run == found->first_run) {
            found->record = move.record;
            return;
        }
        attribute rest = cut_off(*found, move.first_run);
        rest.record = move.record;
        all.insert(found + 1, std::move(rest));
    }

    // Puts the attributes in order, and makes the attribute list where one is needed.
    void number_attributes(u64 number, entry_state &state)
    {
        const auto before = [](const attribute &a, const attribute &b) {
            return std::tuple(a.type, upper(to_utf16(a.name)), a.first_vcn) <
                   std::tuple(b.type, upper(to_utf16(b.name)), b.first_vcn);
        };
        auto &all = state.attributes;
        std::stable_sort(all.begin(), all.end(), before);
        const bool clustered = m_plan.clustered_lists.contains(number);
        bool listed = clustered;
        std::map<u64, u16> next_ids;
        for (attribute &attr : all) {
            attr.id = next_ids[attr.record.value_or(number)]++;
            listed = listed || attr.record;
        }
        if (!listed) return;
        byte_vector list;
        for (const attribute &attr : all)
            append(list,
                   encode_list_entry(attr, reference(attr.record.value_or(number))));
        add_stream(
            {number, "", list, {.non_resident = clustered}, ntfs_type::attribute_list});
        all.back().id = next_ids[number];
        std::stable_sort(all.begin(), all.end(), before);
    }

    // The image

    u64 byte_position(const std::vector<extent> &runs, u64 offset) const
    {
        u64 vcn = offset / m_plan.cluster_size;
        for (const extent &run : runs) {
            if (vcn < run.clusters)
                return run.lcn == hole ? hole
                                       : m_plan.offset + offset % m_plan.cluster_size +
                                             (run.lcn + vcn) * m_plan.cluster_size;
            vcn -= run.clusters;
        }
        return hole;
    }

    // Bytes that fall into a hole are not stored.
    void write_at(const std::vector<extent> &runs, u64 offset, const byte_vector &bytes)
    {
        for (std::size_t done = 0; done < bytes.size();) {
            const u64 at = byte_position(runs, offset + done);
            const u64 step =
                m_plan.cluster_size - (offset + done) % m_plan.cluster_size;
            const std::size_t count = std::min<std::size_t>(step, bytes.size() - done);
            if (at != hole)
                std::copy_n(bytes.begin() + std::ptrdiff_t(done), count,
                            m_volume.image.begin() + std::ptrdiff_t(at));
            done += count;
        }
    }

    const std::vector<extent> &runs_of(u64 entry, u32 type = ntfs_type::data,
                                       const char *name = "") const
    {
        return m_volume.runs.at({entry, type, name});
    }

    void write_image()
    {
        if (m_clusters.end() > m_total) refuse(6, "the volume is too small");
        m_volume.boot_position = m_plan.offset;
        m_volume.record_size = m_plan.record.size;
        m_volume.image.resize(m_plan.offset + m_total * m_plan.cluster_size +
                              m_plan.sector_size);
        // Where both claim a cluster, the live file has it.
        for (const bool live : {false, true})
            for (const cluster_write &write : m_writes)
                if (write.live == live) write_at(write.runs, 0, write.bytes);
        write_at(runs_of(6), 0, m_clusters.bits(m_total, round_up(m_total, 64) / 8));
        write_boot_sectors();
        for (u64 number = 0; number < m_records; ++number)
            write_record({.entry = number}, {});
        for (const auto &[number, state] : m_items) write_entry(number, state);
        for (auto &[number, blocks] : m_volume.index_blocks)
            for (std::size_t i = 0; i < blocks.size(); ++i)
                blocks[i] = byte_position(
                    runs_of(number, ntfs_type::index_allocation, index_name),
                    i * index_block_size);
        write_mirror();
    }

    void write_boot_sectors()
    {
        const u32 sectors = m_plan.cluster_size / m_plan.sector_size;
        byte_vector bytes(512);
        put_text(bytes, 3, "NTFS    ");
        put_layout(bytes, {{0, 3, 0x9052EB}, // a jump
                           {11, 2, m_plan.sector_size},
                           {13, 1, sectors <= 128 ? sectors : exponent_code(sectors)},
                           {21, 1, 0xF8}, // a fixed disk
                           {24, 2, 63},   // sectors in a track
                           {26, 2, 255},  // heads
                           {28, 4, m_plan.offset / m_plan.sector_size},
                           {36, 4, 0x800080},
                           {40, 8, m_total * m_plan.cluster_size / m_plan.sector_size},
                           {48, 8, runs_of(0).front().lcn},
                           {56, 8, runs_of(1).front().lcn},
                           {64, 1, size_code(m_plan.record.size, m_plan.cluster_size)},
                           {68, 1, size_code(index_block_size, m_plan.cluster_size)},
                           {72, 8, 0x5A3C17E09B2D4F68}, // serial number
                           {510, 2, 0xAA55}});
        write_at(runs_of(7), 0, bytes);
        // The copy is in the sector after the last cluster.
        put_bytes(m_volume.image, m_volume.image.size() - m_plan.sector_size, bytes);
    }

    void write_record(const record_header &header, const byte_vector &attributes)
    {
        const u64 offset = header.entry * m_plan.record.size;
        m_volume.records[header.entry] = byte_position(runs_of(0), offset);
        write_at(runs_of(0), offset, encode_record(m_plan.record, header, attributes));
    }

    // Writes the record of an entry and its extension records.
    void write_entry(u64 number, const entry_state &state)
    {
        std::map<u64, byte_vector> records;
        u16 links = 0;
        for (const attribute &attr : state.attributes) {
            const u64 host = attr.record.value_or(number);
            byte_vector &bytes = records[host];
            m_volume.attributes[{number, attr.type, attr.name}].push_back(
                m_volume.records.at(host) + m_plan.record.first_attribute() +
                bytes.size());
            append(bytes, encode(attr));
            if (attr.type == ntfs_type::file_name) ++links;
        }
        for (const auto &[host, bytes] : records) {
            record_header header = {.entry = host, .next_id = state.attributes.size()};
            header.flags = state.item.in_use ? 1 : 0;
            if (host == number) {
                header.sequence =
                    static_cast<u16>(state.item.sequence + state.item.counted_up);
                header.links = links;
                header.flags |= state.directory ? 2 : 0;
            } else {
                header.base = reference(number);
            }
            write_record(header, bytes);
        }
    }

    void write_mirror()
    {
        for (u64 number = 0; number < std::min(mirrored(), m_records); ++number)
            write_at(runs_of(1), number * m_plan.record.size, m_volume.record(number));
    }

    struct cluster_write {
        std::vector<extent> runs;
        byte_vector bytes;
        bool live;
    };

    const ntfs_plan &m_plan;
    ntfs_volume m_volume = {};
    std::map<u64, entry_state> m_items;
    std::map<u64, std::vector<tree_entry>> m_children;
    std::vector<cluster_write> m_writes;
    cluster_map m_clusters;
    u64 m_records = 0;
    u64 m_total = 0;
};

} // namespace

ntfs_volume ntfs_volume_builder::build_volume() const
{
    return volume_writer(m_plan).write();
}

} // namespace test_support
