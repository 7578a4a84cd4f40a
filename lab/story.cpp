#include "lab/story.h"

#include "samples/security_structures.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace lab {

using namespace test_support;
using ntfs_structures::round_up;

namespace {

constexpr u64 root = 5, secure = 9, extend = 11;
constexpr u32 owner_id = 256;
constexpr u64 ticks_per_second = 10'000'000;
constexpr u64 ticks_per_day = 86400 * ticks_per_second;
constexpr u64 journal_size = 262144;
constexpr u64 first_moment = 133'497'504'000'000'000; // 2024-01-15 00:00 UTC
constexpr u32 block_size = ntfs_structures::index_block_size;
constexpr u32 bin_attributes = 0x06; // hidden, system

u64 get_number(const byte_vector &bytes, std::size_t at, std::size_t width)
{
    u64 value = 0;
    for (std::size_t i = width; i > 0; --i) value = value << 8U | bytes.at(at + i - 1);
    return value;
}

// Puts back what the update sequence of a record or a block took away. Returns the
// place of its array; 0 if there is none.
std::size_t unprotect(byte_vector &bytes)
{
    const std::size_t array = get_number(bytes, 4, 2), count = get_number(bytes, 6, 2);
    const std::size_t step = ntfs_structures::update_step;
    if (array == 0 || count != 1 + bytes.size() / step) return 0;
    for (std::size_t i = 1; i < count; ++i)
        put_number(bytes, i * step - 2, get_number(bytes, array + 2 * i, 2), 2);
    return array;
}

bool begins_with(const byte_vector &bytes, std::string_view signature)
{
    return std::equal(signature.begin(), signature.end(), bytes.begin());
}

// A record or a block as it is written over an older one: what lies after its last used
// byte stays.
byte_vector over(byte_vector fresh, byte_vector old, std::string_view signature)
{
    if (!begins_with(fresh, signature) || !begins_with(old, signature)) return fresh;
    const std::size_t array = unprotect(fresh);
    if (array == 0 || unprotect(old) == 0) return fresh;
    const u64 used =
        signature == "FILE" ? get_number(fresh, 24, 4) : 24 + get_number(fresh, 28, 4);
    std::copy(old.begin() + static_cast<std::ptrdiff_t>(used), old.end(),
              fresh.begin() + static_cast<std::ptrdiff_t>(used));
    ntfs_structures::protect(fresh, array);
    return fresh;
}

u64 clusters_of(const std::vector<extent> &runs)
{
    return std::accumulate(
        runs.begin(), runs.end(), u64{0},
        [](u64 sum, const extent &run) { return sum + run.clusters; });
}

// The bytes of a run list, up to its end.
byte_vector run_list(const byte_vector &record, u64 at)
{
    u64 end = at;
    while (record.at(end) != 0) end += 1 + (record[end] & 0xFU) + (record[end] >> 4U);
    return cut(record, at, end - at);
}

// Those that the builder keeps free, with an attribute list in each.
u64 spare_clusters(const volume_form &form)
{
    return form.clusters / 4096 + (form.cluster_size > 65536 ? 40 : 128);
}

std::string extension_of(std::u16string_view path)
{
    const std::size_t dot = path.find_last_of(u".\\");
    if (dot == std::u16string_view::npos || path[dot] != u'.') return {};
    return utf8(path.substr(dot));
}

// A path in the code page of Western Europe, as far as it has the letters.
std::string in_8_bits(std::u16string_view path)
{
    std::string text;
    for (const char16_t unit : path.substr(0, 259))
        text += unit < 0x100 ? static_cast<char>(unit) : '?';
    return text;
}

// Splits at backslashes.
std::vector<std::string> split(const std::string &path)
{
    std::vector<std::string> parts(1);
    for (const char letter : path)
        if (letter == '\\')
            parts.emplace_back();
        else
            parts.back() += letter;
    return parts;
}

} // namespace

byte_vector stamped(u32 stamp, u64 size)
{
    byte_vector bytes(round_up(size, 512));
    for (u64 at = 0; at < bytes.size(); at += 16)
        put_layout(bytes,
                   {{0, 4, 0x0142414C}, {4, 4, stamp}, {8, 8, at / 512}}, // "LAB", 1
                   at);
    bytes.resize(size);
    return bytes;
}

story::story(told_case &told, const volume_form &form, u64 seed)
    : m_told(&told),
      m_volume(told.volumes.size()),
      m_form(form),
      m_random(seed),
      m_now(first_moment + seed % 400 * ticks_per_day),
      m_next_stamp(static_cast<u32>(1 + 100'000 * told.volumes.size()))
{
    told.volumes.emplace_back();
    format(form);
    tell("the volume is formatted");
}

// ---- Time, names, words

u64 story::later()
{
    m_now += m_random.between(ticks_per_second, ticks_per_day / 4);
    return m_now;
}

std::string story::new_id(std::u16string_view path)
{
    static constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::string id;
    for (int i = 0; i < 6; ++i) id += letters[m_random.below(letters.size())];
    return id + extension_of(path);
}

std::u16string story::new_path()
{
    static constexpr std::string_view names[] = {"offer", "Report 3, final", "photo",
                                                 "notes", "K\u00f6ln",       "backup"};
    static constexpr std::string_view endings[] = {".txt", ".docx", ".jpg", ".pdf", ""};
    std::string path = "C:\\Users\\ann\\Documents\\";
    path += m_random.pick(names);
    path += " " + std::to_string(m_told->deletions.size()) + "-" +
            std::to_string(m_random.below(1'000'000));
    path += m_random.pick(endings);
    return ntfs_structures::to_utf16(path);
}

void story::tell(const std::string &event)
{
    m_told->events.push_back(iso_time(m_now) + " volume " + std::to_string(m_volume) +
                             ": " + event);
}

// ---- Files and folders

// A freed record is about to be used again. What was below it goes on naming the old
// one.
void story::part_children(u64 entry)
{
    const u64 reference = entry | u64{m_nodes.at(entry).item.sequence} << 48U;
    for (auto &[number, child] : m_nodes)
        if (child.item.parent == entry && number != entry)
            child.item.parent = reference;
}

// Gives the item a record: a new one, or one that is free again.
void story::number(ntfs_item &item)
{
    const auto freed =
        std::find_if(m_nodes.begin(), m_nodes.end(),
                     [](const auto &entry) { return !entry.second.item.in_use; });
    if (m_uses_freed && freed != m_nodes.end()) {
        item.entry = freed->first;
        item.sequence = static_cast<u16>(freed->second.item.sequence + 1);
        part_children(item.entry);
        return;
    }
    item.entry = next_entry();
}

u64 story::next_entry()
{
    if (m_next_entry >= m_form.records) ntfs_structures::refuse(0, "the $MFT is full");
    return m_next_entry++;
}

std::vector<extent> story::take_clusters(u64 bytes, u64 fragments)
{
    const u64 clusters = round_up(bytes, m_form.cluster_size) / m_form.cluster_size;
    const u64 each = (clusters + fragments - 1) / fragments;
    std::vector<extent> runs;
    for (u64 left = clusters; left > 0; left -= runs.back().clusters) {
        runs.push_back({m_next_cluster, std::min(each, left)});
        m_next_cluster += runs.back().clusters + (fragments > 1 ? 1 : 0);
    }
    if (m_next_cluster > m_end_cluster)
        ntfs_structures::refuse(0, "the volume is full");
    return runs;
}

extent story::unused_clusters(u64 count)
{
    return take_clusters(count * m_form.cluster_size, 1).front();
}

u64 story::add(ntfs_item item, bool directory)
{
    if (item.entry == 0) number(item);
    const u64 entry = item.entry;
    node made{std::move(item), directory};
    made.item.security_id = owner_id;
    made.item.times.created = m_now - m_random.below(90 * ticks_per_day);
    made.item.times.modified = made.item.times.created + m_random.below(1'000'000'000);
    made.item.times.accessed = made.item.times.modified;
    made.item.times.mft_changed = m_now;
    m_nodes.insert_or_assign(entry, std::move(made));
    return entry;
}

// What Windows itself makes for a bin is as old as the moment.
u64 story::add_new(ntfs_item made, bool directory)
{
    const u64 entry = add(std::move(made), directory);
    item(entry).times = {m_now, m_now, m_now, m_now};
    return entry;
}

u64 story::folder(u64 parent, const std::string &name)
{
    return add({.parent = parent, .name = name}, true);
}

// Content stays in the record if it has room.
void story::keep(node &of, byte_vector content, const file_shape &shape)
{
    const u64 name = 96 + 2 * of.item.name.size();
    const bool listed = shape.moved != extension::none || shape.list_in_clusters;
    const u64 used = 80 + 96 + (shape.hard_link ? 2 : 1) * name +
                     (shape.zone ? 120 : 0) + (listed ? 240 : 0) + 32;
    const bool fits = used + content.size() <= m_form.record_size;
    auto &stored = of.item.stored;
    if (shape.compressed) {
        stored.compressed = true;
        stored.runs = take_clusters(content.size() + u64{16} * m_form.cluster_size, 1);
    } else if (!fits || shape.fragments > 1 || shape.hole_clusters > 0) {
        stored.non_resident = true;
        stored.runs = take_clusters(content.size(), shape.fragments);
        if (shape.hole_clusters > 0) {
            stored.runs.push_back({hole, shape.hole_clusters});
            content.resize(clusters_of(stored.runs) * m_form.cluster_size);
        }
    } else {
        stored.resident = true;
    }
    of.item.data = std::move(content);
    const u64 entry = of.item.entry;
    if (shape.zone)
        of.streams.push_back({.entry = entry,
                              .name = "Zone.Identifier",
                              .data = bytes_of("[ZoneTransfer]\r\nZoneId=3\r\n")});
    if (shape.hard_link)
        of.links.push_back(
            {.entry = entry, .name = "link " + std::to_string(entry) + ".txt"});
    if (shape.moved != extension::none)
        of.moves.push_back({.entry = entry,
                            .record = next_entry(),
                            .type = shape.moved == extension::name
                                        ? ntfs_type::file_name
                                        : ntfs_type::data});
    of.list_in_clusters = shape.list_in_clusters;
}

u64 story::file_with(u64 parent, const std::string &name, byte_vector content,
                     bool in_clusters)
{
    const u64 entry = add({.parent = parent, .name = name}, false);
    node &made = m_nodes.at(entry);
    if (!in_clusters) {
        keep(made, std::move(content), {});
        return entry;
    }
    made.item.stored = {.non_resident = true, .runs = take_clusters(content.size(), 1)};
    made.item.data = std::move(content);
    return entry;
}

u64 story::file(u64 parent, const std::string &name, u64 size, const file_shape &shape)
{
    const u64 entry = add({.parent = parent, .name = name}, false);
    keep(m_nodes.at(entry), stamped(m_next_stamp++, size), shape);
    return entry;
}

u64 story::file_over(const std::string &name, const std::vector<extent> &runs)
{
    const u64 entry = add({.parent = root, .name = name}, false);
    ntfs_item &made = m_nodes.at(entry).item;
    made.stored = {.non_resident = true, .runs = runs};
    made.data = stamped(m_next_stamp++, clusters_of(runs) * m_form.cluster_size);
    tell(name + " is written over " + std::to_string(clusters_of(runs)) +
         " freed clusters");
    return entry;
}

u64 story::reuse_record(u64 entry, const std::string &name, u64 size)
{
    const u16 sequence = m_nodes.at(entry).item.sequence;
    part_children(entry);
    add({.entry = entry, .name = name, .sequence = static_cast<u16>(sequence + 1)},
        false);
    keep(m_nodes.at(entry), stamped(m_next_stamp++, size), {});
    tell(name + " gets the record of entry " + std::to_string(entry));
    return entry;
}

void story::remove(u64 entry)
{
    for (auto &[number, child] : m_nodes)
        if (child.item.parent == entry && child.item.in_use && number != entry)
            remove(number);
    node &gone = m_nodes.at(entry);
    if (m_journal == entry) m_journal.reset();
    if (gone.item.in_use) journal({.entry = entry, .reason = 0x80000200});
    gone.item.in_use = false;
    gone.item.counted_up = true;
}

// ---- Bins

u64 story::bin(const std::string &name)
{
    const auto known = m_bins.find(name);
    if (known != m_bins.end()) return known->second;
    return m_bins[name] = add_new(
               {.parent = root, .name = name, .attributes = bin_attributes}, true);
}

u64 story::user(const std::string &sid, const std::string &bin_name)
{
    const u64 entry = add_new(
        {.parent = bin(bin_name), .name = sid, .attributes = bin_attributes}, true);
    m_users[entry] = m_told->users.size();
    m_told->users.push_back({.volume = m_volume, .sid = sid});
    file_with(entry, "desktop.ini", bytes_of("[.ShellClassInfo]\r\n"));
    return entry;
}

told_deletion story::new_deletion(u64 user_folder, sent_item &what)
{
    told_deletion made;
    if (what.path.empty()) what.path = new_path();
    made.path = what.path;
    made.size = what.size;
    made.deleted = what.deleted != 0 ? what.deleted : later();
    made.directory = what.directory || !what.members.empty();
    made.members = what.members;
    made.volume = m_volume;
    if (m_users.contains(user_folder))
        made.user = m_told->users[m_users.at(user_folder)].sid;
    tell((made.user.empty() ? "someone" : made.user) + " deletes " + utf8(made.path));
    return made;
}

void story::add_members(u64 folder_entry, const std::vector<std::string> &members)
{
    std::map<std::string, u64> folders = {{"", folder_entry}};
    for (const std::string &member : members) {
        std::string path;
        u64 parent = folder_entry;
        const std::vector<std::string> parts = split(member);
        for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
            path += '\\' + parts[i];
            const auto [known, fresh] = folders.try_emplace(path, 0);
            if (fresh) known->second = folder(parent, parts[i]);
            parent = known->second;
        }
        file(parent, parts.back(), m_random.below(400));
    }
}

u64 story::add_data_item(told_deletion &made, u64 parent, const sent_item &what)
{
    const u64 entry = add(
        {.parent = parent, .name = made.data_name, .sequence = what.sequence}, false);
    made.data_entry = {entry, item(entry).sequence};
    if (made.directory) {
        m_nodes.at(entry).directory = true;
        add_members(entry, what.members);
        return entry;
    }
    const u32 stamp = m_next_stamp++;
    node &kept = m_nodes.at(entry);
    keep(kept, stamped(stamp, what.size), what.shape);
    made.data = {.kept = kept.item.stored.compressed ? "compressed"
                         : kept.item.stored.resident ? "resident"
                                                     : "stamped",
                 .stamp = stamp,
                 .size = what.size};
    if (kept.item.data.size() != what.size) made.found_size = kept.item.data.size();
    return entry;
}

std::size_t story::send(u64 user_folder, sent_item what)
{
    told_deletion made = new_deletion(user_folder, what);
    made.format = what.version == 1 ? "$I v1" : "$I v2";
    made.id = what.id.empty() ? new_id(what.path) : what.id;
    if (!what.without_data) {
        made.data_name = "$R" + made.id;
        const u64 entry = add_data_item(made, user_folder, what);
        journal(
            {entry, 0x1000, utf8(made.path.substr(made.path.rfind(u'\\') + 1)), root});
        journal({entry, 0x2000});
        journal({entry, 0x80002000});
    }
    if (!what.without_metadata) {
        made.metadata_name = "$I" + made.id;
        byte_vector content = dollar_i_builder()
                                  .version(what.version)
                                  .size(made.size)
                                  .time(made.deleted)
                                  .path(made.path)
                                  .bytes();
        if (what.metadata_size != 0) content.resize(what.metadata_size);
        made.traces.push_back({"metadata", "", {content}});
        const u64 entry =
            add_new({.parent = user_folder, .name = made.metadata_name}, false);
        keep(m_nodes.at(entry), std::move(content), what.metadata_shape);
        made.metadata_entry = {entry, item(entry).sequence};
        for (const u32 reason : {0x100U, 0x102U, 0x80000102U}) journal({entry, reason});
    } else {
        made.fate = "data only";
    }
    m_told->deletions.push_back(std::move(made));
    m_open[m_told->deletions.size() - 1] = true;
    return m_told->deletions.size() - 1;
}

void story::set_list(u64 user_folder, const list_form &form)
{
    const u64 entry = add_new({.parent = user_folder, .name = form.name}, false);
    ntfs_item &list = item(entry);
    list.data = info2_header(form.version, form.record_size);
    const u64 each = form.fragments > 1 ? 1 : 16 * form.record_size;
    list.stored = {.non_resident = true, .runs = take_clusters(each, 1)};
    m_lists[user_folder] = {form, entry};
}

std::size_t story::send_to_list(u64 user_folder, sent_item what, u32 drive)
{
    if (!m_lists.contains(user_folder)) set_list(user_folder, {});
    bin_list &list = m_lists.at(user_folder);
    told_deletion made = new_deletion(user_folder, what);
    const u32 number = static_cast<u32>(list.deletions.size() + 1);
    made.format =
        list.form.record_size == 280 ? list.form.name + " 280" : list.form.name;
    made.metadata_name = list.form.name;
    made.metadata_entry = {list.entry, item(list.entry).sequence};
    made.data_name = "D" + std::string(1, static_cast<char>('a' + drive)) +
                     std::to_string(number) + extension_of(made.path);
    made.id = made.data_name;
    if (!what.without_data) add_data_item(made, user_folder, what);
    const byte_vector record = info2_record({.ansi_path = in_8_bits(made.path),
                                             .path = made.path,
                                             .number = number,
                                             .drive = drive,
                                             .time = made.deleted,
                                             .size = static_cast<u32>(made.size)},
                                            list.form.record_size);
    append(item(list.entry).data, record);
    made.traces.push_back({"metadata", "", {record}});
    list.deletions.push_back(m_told->deletions.size());
    m_told->deletions.push_back(std::move(made));
    m_open[m_told->deletions.size() - 1] = true;
    write_list(user_folder);
    return m_told->deletions.size() - 1;
}

// Gives the list the clusters that it needs.
void story::write_list(u64 user_folder)
{
    const bin_list &list = m_lists.at(user_folder);
    ntfs_item &file = item(list.entry);
    while (clusters_of(file.stored.runs) * m_form.cluster_size < file.data.size()) {
        if (list.form.fragments > 1) take_clusters(1, 1);
        const extent more = take_clusters(1, 1).front();
        extent &last = file.stored.runs.back();
        if (last.lcn + last.clusters == more.lcn)
            ++last.clusters;
        else
            file.stored.runs.push_back(more);
    }
}

void story::purge(std::size_t number)
{
    told_deletion &gone = deletion(number);
    tell("purged from the bin: " + utf8(gone.path));
    gone.fate = "emptied";
    m_open.erase(number);
    if (gone.data_entry) remove(gone.data_entry->entry);
    if (!gone.metadata_entry) return;
    if (gone.format.front() == '$') {
        remove(gone.metadata_entry->entry);
        return;
    }
    // The list keeps the record, and loses the first letter of the 8-bit path.
    byte_vector &list = item(gone.metadata_entry->entry).data;
    trace marked = gone.traces.front();
    const auto at = std::search(list.begin(), list.end(), marked.parts[0].begin(),
                                marked.parts[0].end());
    if (at == list.end()) return;
    *at = 0;
    marked.parts[0][0] = 0;
    gone.traces.push_back(std::move(marked));
}

void story::empty_bin(u64 user_folder)
{
    std::vector<std::size_t> all;
    for (const auto &[number, open] : m_open)
        if (deletion(number).volume == m_volume &&
            m_told->users[m_users.at(user_folder)].sid == deletion(number).user)
            all.push_back(number);
    for (const std::size_t number : all) purge(number);
    const auto list = m_lists.find(user_folder);
    if (list == m_lists.end()) return;
    ntfs_item &file = item(list->second.entry);
    file.data.resize(20);
    file.stored.runs.resize(1);
    file.stored.runs[0].clusters = 1;
    list->second.deletions.clear();
}

void story::restore(std::size_t number)
{
    told_deletion &back = deletion(number);
    tell("restored from the bin: " + utf8(back.path));
    back.fate = "restored";
    m_open.erase(number);
    const std::vector<std::string> parts = split(utf8(back.path));
    u64 parent = root;
    for (std::size_t i = 1; i + 1 < parts.size(); ++i) {
        const auto known =
            std::find_if(m_nodes.begin(), m_nodes.end(), [&](const auto &entry) {
                const ntfs_item &one = entry.second.item;
                return one.in_use && one.parent == parent && one.name == parts[i];
            });
        parent = known != m_nodes.end() ? known->first : folder(parent, parts[i]);
    }
    const u64 entry = back.data_entry->entry;
    journal({entry, 0x1000});
    item(entry).parent = parent;
    item(entry).name = parts.back();
    for (const u32 reason : {0x2000U, 0x80002000U}) journal({entry, reason});
    m_restored.push_back(number);
    if (back.format.front() == '$') remove(back.metadata_entry->entry);
}

std::vector<extent> story::data_runs(std::size_t number) const
{
    return m_layout.stream_runs(m_told->deletions.at(number).data_entry->entry);
}

// ---- The change journal

u64 story::start_journal(u16 major_version)
{
    m_journal_version = major_version;
    m_journal = add({.parent = extend,
                     .name = "$UsnJrnl",
                     .without_data = true,
                     .attributes = 0x06},
                    false);
    const u64 cluster = m_form.cluster_size;
    node &made = m_nodes.at(*m_journal);
    std::vector<extent> runs = take_clusters(journal_size, 1);
    runs.insert(runs.begin(), {hole, 16}); // what is old is given up
    made.streams.push_back({.entry = *m_journal,
                            .name = "$J",
                            .data = byte_vector(16 * cluster),
                            .stored = {.non_resident = true, .runs = std::move(runs)}});
    byte_vector limits(32);
    put_layout(limits, {{0, 8, 0x2000000}, {8, 8, 0x800000}, {16, 8, m_now}});
    made.streams.push_back({.entry = *m_journal, .name = "$Max", .data = limits});
    return *m_journal;
}

// A record of version 2, or of version 3, whose references have 16 bytes.
void story::journal(const journal_line &line)
{
    if (!m_journal) return;
    const ntfs_item &of = item(line.entry);
    const std::u16string name =
        ntfs_structures::to_utf16(line.name.empty() ? of.name : line.name);
    const u64 parent = line.parent != 0 ? line.parent : of.parent;
    const u64 parent_sequence =
        m_nodes.contains(parent) ? m_nodes.at(parent).item.sequence : parent;
    const std::size_t wide = m_journal_version == 3 ? 16 : 8, after = 8 + 2 * wide;
    byte_vector record(round_up(after + 36 + 2 * name.size(), 8));
    byte_vector &stream = m_nodes.at(*m_journal).streams.front().data;
    // No record crosses a page.
    if (stream.size() / 4096 != (stream.size() + record.size() - 1) / 4096)
        stream.resize(round_up(stream.size(), 4096));
    put_layout(record, {{0, 4, record.size()},
                        {4, 2, m_journal_version},
                        {8, 8, line.entry | u64{of.sequence} << 48U},
                        {8 + wide, 8, parent | parent_sequence << 48U},
                        {after, 8, stream.size()},
                        {after + 8, 8, m_now},
                        {after + 16, 4, line.reason},
                        {after + 28, 4, of.attributes},
                        {after + 32, 2, 2 * name.size()},
                        {after + 34, 2, after + 36}});
    put_utf16(record, after + 36, name);
    append(stream, record);
    m_journal_lines.emplace_back(line.entry, std::move(record));
}

// ---- The medium

void story::format(const volume_form &form)
{
    later();
    for (const auto &[number, open] : m_open)
        if (deletion(number).volume == m_volume)
            deletion(number).fate = "formatted over";
    m_nodes.clear();
    m_bins.clear();
    m_users.clear();
    m_lists.clear();
    m_open.clear();
    m_journal.reset();
    m_uses_freed = false;
    m_form = form;
    m_next_entry = 40;
    m_layout = plan().build_volume();
    // The system's own streams are always put in the same places: after them there is
    // room for attribute lists, and then for what the story puts down.
    u64 end = 0;
    for (const auto &[key, runs] : m_layout.runs)
        for (const extent &run : runs)
            if (run.lcn != hole) end = std::max(end, run.lcn + run.clusters);
    m_next_cluster = end + 16;
    m_end_cluster = form.clusters - spare_clusters(form);
    told_volume &told = m_told->volumes[m_volume];
    told.offset = form.offset;
    told.size = form.clusters * form.cluster_size;
    told.cluster_size = form.cluster_size;
    told.record_size = form.record_size;
    told.sector_size = form.sector_size;
    lay_over(m_layout);
}

ntfs_volume_builder story::plan() const
{
    ntfs_volume_builder builder;
    builder.cluster_size(m_form.cluster_size)
        .record_size(m_form.record_size)
        .sector_size(m_form.sector_size)
        .update_array(m_form.update_array)
        .clusters(m_form.clusters)
        .records(m_form.records);
    if (m_form.mft_cluster != 0)
        builder.mft(
            {.runs = {{m_form.mft_cluster, round_up(m_form.records * m_form.record_size,
                                                    m_form.cluster_size) /
                                               m_form.cluster_size}}});
    const byte_vector owner = sid(5, {32, 544}); // administrators
    const byte_vector owned =
        descriptor({owner, owner, {}, acl({ace(0, 3, 0x1F01FF, owner)})});
    builder.stream({.entry = secure,
                    .name = "$SDS",
                    .data = sds_stream(sds_of(owner_id, 0, owned)),
                    .stored = {.non_resident = true}});
    for (const auto &[entry, each] : m_nodes) {
        if (each.directory)
            builder.directory(each.item);
        else
            builder.file(each.item);
        for (const ntfs_stream &stream : each.streams) builder.stream(stream);
        for (const ntfs_link &link : each.links) builder.link(link);
        for (const ntfs_move &move : each.moves) builder.move(move);
        if (each.list_in_clusters) builder.list_in_clusters(entry);
    }
    return builder;
}

// Gives each folder whose names don't fit in its record enough blocks.
void story::grow_folders()
{
    std::map<u64, u64> bytes;
    for (const auto &[entry, each] : m_nodes)
        if (each.item.in_use)
            bytes[each.item.parent] +=
                100 + 2 * ntfs_structures::to_utf16(each.item.name).size();
    for (auto &[entry, each] : m_nodes) {
        if (!each.directory || !each.item.in_use) continue;
        auto &stored = each.item.stored;
        if (stored.runs.empty() && bytes[entry] <= m_form.record_size / 4) continue;
        each.item.index_blocks = true;
        const u64 wanted = (bytes[entry] * 3 / 2 / block_size + 2) * block_size;
        const u64 have = clusters_of(stored.runs) * m_form.cluster_size;
        if (wanted <= have) continue;
        for (const extent &run :
             take_clusters(round_up(2 * (wanted - have), block_size), 1))
            stored.runs.push_back(run);
    }
}

void story::settle()
{
    grow_folders();
    m_layout = plan().build_volume();
    for (const auto &[entry, number] : m_users)
        describe_user(m_told->users[number], entry);
    for (auto &[number, fresh] : m_open) {
        const told_deletion &told = deletion(number);
        if (told.volume == m_volume && (fresh || told.format.front() != '$'))
            describe(number);
        fresh = false;
    }
    for (const std::size_t number : m_restored)
        deletion(number).traces.push_back(
            record_trace("restored record", deletion(number).data_entry->entry));
    m_restored.clear();
    ntfs_volume fresh = m_layout;
    lay_over(fresh);
}

void story::keep_slack(ntfs_volume &fresh) const
{
    const auto merge = [&](u64 at, u64 size, std::string_view signature) {
        put_bytes(fresh.image, at,
                  over(cut(fresh.image, at, size), cut(m_image, at, size), signature));
    };
    for (const auto &[entry, at] : fresh.records) merge(at, m_form.record_size, "FILE");
    for (const auto &[entry, blocks] : fresh.index_blocks)
        for (const u64 at : blocks) merge(at, block_size, "INDX");
    // The system writes whole pages: what is after them in the last cluster stays.
    for (const auto &[entry, each] : m_nodes) {
        const auto &stored = each.item.stored;
        if (each.directory || !stored.non_resident || stored.compressed) continue;
        u64 left = round_up(each.item.data.size(), 4096);
        for (const extent &run : stored.runs) {
            const u64 bytes = run.clusters * m_form.cluster_size;
            const u64 used = std::min(left, bytes);
            left -= used;
            if (run.lcn == hole || used == bytes || !each.item.in_use) continue;
            const u64 at = position(run.lcn) + used;
            put_bytes(fresh.image, at, cut(m_image, at, bytes - used));
        }
    }
}

// What the volume uses is written, all else stays.
void story::lay_over(ntfs_volume fresh)
{
    m_image.resize(fresh.image.size());
    keep_slack(fresh);
    byte_vector bits;
    for (const extent &run : fresh.stream_runs(6))
        append(bits,
               cut(fresh.image, position(run.lcn), run.clusters * m_form.cluster_size));
    for (u64 cluster = 0; cluster < m_form.clusters; ++cluster)
        if ((bits[cluster / 8] >> cluster % 8 & 1U) != 0)
            std::copy_n(
                fresh.image.begin() + static_cast<std::ptrdiff_t>(position(cluster)),
                m_form.cluster_size,
                m_image.begin() + static_cast<std::ptrdiff_t>(position(cluster)));
    const u64 copy = m_form.clusters * m_form.cluster_size; // of the boot sector
    put_bytes(m_image, copy, cut(fresh.image, copy, m_form.sector_size));
}

// ---- Traces

// The content of a resident attribute, or the run list of another; empty if it isn't in
// the entry's own record.
byte_vector story::attribute_content(u64 entry, u32 type) const
{
    const u64 at = m_layout.attribute_position(entry, type);
    const u64 begin = m_layout.record_position(entry);
    if (at < begin || at >= begin + m_form.record_size) return {};
    byte_vector record = m_layout.record(entry);
    unprotect(record);
    const u64 offset = at - begin;
    if (record.at(offset + 8) != 0)
        return run_list(record, offset + get_number(record, offset + 32, 2));
    return cut(record, offset + get_number(record, offset + 20, 2),
               get_number(record, offset + 16, 4));
}

// The value of the first $FILE_NAME of an entry, in whichever record.
byte_vector story::name_value(u64 entry) const
{
    const u64 at = m_layout.attribute_position(entry, ntfs_type::file_name);
    const auto holder = std::find_if(
        m_layout.records.begin(), m_layout.records.end(), [&](const auto &record) {
            return at >= record.second && at < record.second + m_form.record_size;
        });
    byte_vector record = m_layout.record(holder->first);
    unprotect(record);
    const u64 offset = at - holder->second;
    return cut(record, offset + get_number(record, offset + 20, 2),
               get_number(record, offset + 16, 4));
}

trace story::record_trace(const char *kind, u64 entry) const
{
    trace made{kind, "FILE", {name_value(entry)}};
    const node &of = m_nodes.at(entry);
    if (of.directory || !of.moves.empty() || of.item.data.empty()) return made;
    byte_vector second = attribute_content(entry, ntfs_type::data);
    if (!second.empty()) made.parts.push_back(std::move(second));
    return made;
}

// In an index the value follows its length and the flags of its entry: 1 if there is a
// block below it.
void story::add_name_traces(std::vector<trace> &traces, const char *kind,
                            u64 entry) const
{
    const byte_vector value = name_value(entry);
    for (const u64 flags : {0U, 1U}) {
        byte_vector part;
        put_layout(part, {{0, 2, value.size()}, {2, 4, flags}});
        append(part, value);
        traces.push_back({kind, "index", {std::move(part)}});
    }
}

void story::describe_user(told_user &user, u64 entry) const
{
    if (!user.traces.empty()) return;
    user.traces.push_back({"user folder", "FILE", {name_value(entry)}});
    add_name_traces(user.traces, "user folder", entry);
}

// The stretches of a list's record, or of a `$I` file, whose clusters aren't in a row.
void story::describe_pieces(trace &metadata, u64 entry) const
{
    const auto &stored = m_nodes.at(entry).item.stored;
    if (stored.resident || stored.runs.size() < 2) return;
    const byte_vector &file = m_nodes.at(entry).item.data, &part = metadata.parts[0];
    const auto found = std::search(file.begin(), file.end(), part.begin(), part.end());
    u64 from = static_cast<u64>(found - file.begin()), run_begin = 0;
    const u64 end = from + part.size();
    metadata.pieces.clear();
    for (const extent &run : stored.runs) {
        const u64 run_end = run_begin + run.clusters * m_form.cluster_size;
        if (from < std::min(run_end, end)) {
            const u64 count = std::min(run_end, end) - from;
            metadata.pieces.emplace_back(cut(file, from, count), m_form.offset +
                                                                     position(run.lcn) +
                                                                     from - run_begin);
            from += count;
        }
        run_begin = run_end;
    }
    if (metadata.pieces.size() < 2) metadata.pieces.clear();
}

// A compressed `$I` file as it is kept.
void story::describe_packed(told_deletion &told, u64 entry) const
{
    if (!m_nodes.at(entry).item.stored.compressed) return;
    const extent run = m_layout.stream_runs(entry).front();
    byte_vector packed =
        cut(m_layout.image, position(run.lcn), run.clusters * m_form.cluster_size);
    while (packed.back() == 0) packed.pop_back();
    told.traces.push_back({"packed metadata", "", {std::move(packed)}});
}

void story::describe(std::size_t number)
{
    told_deletion &told = deletion(number);
    const bool first = told.traces.size() < 2;
    std::erase_if(told.traces,
                  [](const trace &old) { return old.kind == "metadata record"; });
    if (told.metadata_entry) {
        const u64 entry = told.metadata_entry->entry;
        describe_pieces(told.traces.front(), entry);
        told.traces.push_back(record_trace("metadata record", entry));
        if (first) describe_packed(told, entry);
        if (first && told.format.front() == '$')
            add_name_traces(told.traces, "metadata name", entry);
    }
    if (!first || !told.data_entry) return;
    told.traces.push_back(record_trace("data record", told.data_entry->entry));
    add_name_traces(told.traces, "data name", told.data_entry->entry);
    for (const auto &[entry, record] : m_journal_lines)
        if (entry == told.data_entry->entry ||
            (told.metadata_entry && entry == told.metadata_entry->entry))
            told.traces.push_back({"journal", "", {record}});
}

} // namespace lab
