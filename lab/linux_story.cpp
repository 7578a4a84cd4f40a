#include "lab/linux_story.h"

#include "lab/story.h"
#include "samples/ntfs_structures.h"
#include "samples/record_builders.h"

#include <algorithm>

namespace lab {

using test_support::put_number;
using test_support::put_utf16;

namespace {

constexpr std::size_t list_header_size = 20, list_record_size = 800;

// From the last dot of the name on, or nothing.
std::u16string extension_of(const std::u16string &path)
{
    const std::size_t name = path.rfind(u'\\') + 1, dot = path.rfind(u'.');
    return dot == std::u16string::npos || dot < name ? u"" : path.substr(dot);
}

// The folder of a path, and the name in it.
std::pair<std::u16string, std::u16string> split(const std::u16string &path)
{
    const std::size_t slash = path.rfind(u'\\');
    return {path.substr(0, slash), path.substr(slash + 1)};
}

// Windows puts a question mark for what the machine's code page lacks.
std::string in_code_page(const std::u16string &path)
{
    std::string text;
    for (const char16_t unit : path)
        text += unit < 0x80 ? static_cast<char>(unit) : '?';
    return text;
}

// The 8.3 form of a name: the name itself if it has that form.
std::string short_form(const std::u16string &name)
{
    std::string base, extension;
    const std::size_t dot = name.size() - extension_of(name).size();
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool letter = name[i] >= u'a' && name[i] <= u'z';
        const bool kept = letter || (name[i] >= u'A' && name[i] <= u'Z') ||
                          (name[i] >= u'0' && name[i] <= u'9') || name[i] == u'$';
        if (kept)
            (i < dot ? base : extension) +=
                static_cast<char>(name[i] - (letter ? 32 : 0));
    }
    const std::size_t dots = dot < name.size() ? 1 : 0;
    if (base.size() + dots + extension.size() != name.size() || base.size() > 8 ||
        extension.size() > 3)
        base = base.substr(0, 6) + "~1";
    return extension.empty() ? base : base + '.' + extension.substr(0, 3);
}

bool has_short_form(const std::u16string &name)
{
    return short_form(name).size() == name.size() &&
           short_form(name).find('~') == std::string::npos;
}

// The name spaces of $FILE_NAME. The library makes names of the first.
constexpr u8 posix = 0, win32 = 1, win32_and_dos = 3;

// What an index entry and a record hold of a name: the parent, and the name after its
// length and name space. Between them are times and sizes.
std::vector<byte_vector> name_parts(const linux_volume::place &at, u8 name_space)
{
    byte_vector parent, name;
    put_number(parent, 0, at.folder.entry | u64{at.folder.sequence} << 48, 8);
    put_number(name, 0, at.name.size(), 1);
    put_number(name, 1, name_space, 1);
    put_utf16(name, 2, at.name);
    return {parent, name};
}

// What is known of a data item's record: its name, and content that it holds itself.
trace record_trace(const std::string &kind, const linux_story::item &of,
                   const std::vector<byte_vector> &name)
{
    trace record{.kind = kind, .frame = "FILE", .parts = name};
    if (of.data.kept == "resident")
        record.parts.push_back(stamped(of.data.stamp, of.data.size));
    return record;
}

// Only what isn't in one place needs them.
void add_pieces(trace &of, const std::vector<linux_volume::stretch> &stretches)
{
    if (stretches.size() < 2) return;
    auto from = of.parts.front().begin();
    for (const auto &[position, size] : stretches) {
        const auto to = from + static_cast<std::ptrdiff_t>(size);
        of.pieces.emplace_back(byte_vector(from, to), position);
        from = to;
    }
}

const char *name_of(bin_format format)
{
    switch (format) {
    case bin_format::first: return "$I v1";
    case bin_format::second: return "$I v2";
    case bin_format::list: break;
    }
    return "INFO2";
}

} // namespace

std::u16string as_units(std::string_view ascii)
{
    return {ascii.begin(), ascii.end()};
}

linux_story::linux_story(told_case &told, const volume_form &form, u64 seed, u64 begin)
    : m_told(&told),
      m_form(form),
      m_random(seed),
      m_now(begin),
      m_volume(form.size, form.cluster_size, begin)
{
    told.volumes.push_back({.size = form.size, .cluster_size = form.cluster_size});
    tell("mkntfs formats the volume");
}

void linux_story::tell(const std::string &event)
{
    std::string time = iso_time(m_now).substr(0, 19);
    time[10] = ' ';
    m_told->events.push_back(time + ' ' + event);
}

void linux_story::later()
{
    m_now += m_random.between(10'000'000, 9'000'000'000);
    m_volume.set_clock(m_now);
}

// Users and folders

linux_story::user linux_story::add_user(const std::u16string &name, bin_format format)
{
    later();
    const u64 number = 1001 + m_bins.size();
    const std::string sid =
        "S-1-5-21-2025429265-1801674531-725345543-" + std::to_string(number);
    const std::u16string bin_name =
        format == bin_format::list ? u"C:\\RECYCLER" : u"C:\\$Recycle.Bin";
    const entry_number bin_folder = folder(bin_name);
    m_volume.set_attributes(bin_folder, linux_volume::hidden | linux_volume::system);
    bin of{.user_name = name, .format = format, .sid = sid};
    const linux_volume::place at{.folder = bin_folder, .name = as_units(sid)};
    of.folder = m_volume.make_folder(at);
    m_volume.make_file(
        {of.folder, u"desktop.ini"},
        test_support::bytes_of("[.ShellClassInfo]\r\nCLSID={645FF040-5081-"
                               "101B-9F08-00AA002F954E}\r\n"));
    if (format == bin_format::list)
        of.list =
            m_volume.make_file({of.folder, u"INFO2"}, test_support::info2_header());
    told_user told{.sid = sid};
    for (const char *frame : {"FILE", "index"})
        told.traces.push_back({.kind = "user folder",
                               .frame = frame,
                               .parts = lab::name_parts(at, posix)});
    m_told->users.push_back(told);
    m_bins.push_back(of);
    tell(sid + " gets a bin");
    return m_bins.size() - 1;
}

entry_number linux_story::folder(const std::u16string &path)
{
    if (path == u"C:") return linux_volume::root;
    const auto known = m_folders.find(path);
    if (known != m_folders.end()) return known->second;
    const auto [above, name] = split(path);
    return m_folders[path] = m_volume.make_folder({folder(above), name});
}

std::u16string linux_story::new_path(user owner)
{
    static constexpr const char *words[] = {
        "report", "invoice", "draft",   "holiday", "budget", "Letter to the bank",
        "scan",   "notes",   "minutes", "backup",  "plan",   "photo of the house"};
    static constexpr const char *folders[] = {"", "\\2019", "\\Work", "\\Work\\old"};
    static constexpr const char *extensions[] = {".txt", ".docx", ".jpg",
                                                 ".pdf", "",      ".tar.gz"};
    const bin &of = m_bins.at(owner);
    const std::u16string documents =
        of.format == bin_format::list
            ? u"C:\\Documents and Settings\\" + of.user_name + u"\\My Documents"
            : u"C:\\Users\\" + of.user_name + u"\\Documents";
    const std::u16string below = as_units(m_random.pick(folders));
    const std::u16string name =
        as_units(m_random.pick(words)) + u" " + as_units(std::to_string(m_next_name++));
    return documents + below + u"\\" + name + as_units(m_random.pick(extensions));
}

// Files

u64 linux_story::new_size()
{
    return m_random.one_in(4) ? m_random.between(1, 300)
                              : m_random.between(1000, 24000);
}

void linux_story::write_stamped(const item &of, u64 position, u64 size)
{
    byte_vector content = stamped(of.data.stamp, position + size);
    content.erase(content.begin(),
                  content.begin() + static_cast<std::ptrdiff_t>(position));
    m_volume.write(of.number, position, content);
}

// The library moves resident content to clusters when it needs room for a name.
void linux_story::note_residence(item &of)
{
    if (of.data.kept == "stamped" && m_volume.is_resident(of.number))
        of.data.kept = "resident";
    else if (of.data.kept == "resident" && !m_volume.is_resident(of.number))
        of.data.kept = "stamped";
}

linux_story::item linux_story::new_file(const std::u16string &path, u64 size)
{
    const auto [above, name] = split(path);
    item made{.path = path, .at = {folder(above), name}, .size = size};
    later();
    made.number = m_volume.make_file(made.at);
    if (size == 0) return made;
    made.data = {.kept = "stamped", .stamp = m_next_stamp++, .size = size};
    write_stamped(made, 0, size);
    note_residence(made);
    return made;
}

linux_story::item linux_story::new_document(user owner)
{
    const std::u16string path = new_path(owner);
    return new_file(path, new_size());
}

std::vector<linux_story::item> linux_story::new_fragmented(user owner,
                                                           std::size_t count, u64 size)
{
    std::vector<item> made;
    for (std::size_t i = 0; i < count; ++i)
        made.push_back(new_file(new_path(owner), 0));
    for (item &file : made) {
        file.data = {.kept = "stamped", .stamp = m_next_stamp++, .size = size};
        file.size = size;
    }
    for (u64 at = 0; at < size;) {
        const u64 step =
            std::min(size - at, m_random.between(1, 3) * m_form.cluster_size);
        for (item &file : made) write_stamped(file, at, step);
        at += step;
    }
    return made;
}

linux_story::item linux_story::new_sparse(const std::u16string &path, u64 stamped_size,
                                          u64 size)
{
    item made = new_file(path, stamped_size);
    m_volume.write(made.number, size - 1, {1});
    made.size = size;
    return made;
}

linux_story::item linux_story::new_compressed(const std::u16string &path, u64 size)
{
    const auto [above, name] = split(path);
    m_volume.set_attributes(folder(above), linux_volume::compressed);
    item made = new_file(path, 0);
    made.data.kept = "compressed";
    made.size = size;
    byte_vector content(size);
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<u8>(i % 4000 < 100 ? m_random.below(256) : i / 4000);
    m_volume.write(made.number, 0, content);
    return made;
}

linux_story::item linux_story::new_folder(const std::u16string &path, std::size_t count,
                                          std::size_t depth)
{
    const auto [above, name] = split(path);
    item made{.path = path, .at = {folder(above), name}, .directory = true};
    later();
    made.number = folder(path);
    const std::size_t here = std::max<std::size_t>(1, count / (depth + 1));
    for (std::size_t i = 1; i <= std::min(here, count); ++i)
        made.members.push_back(
            new_file(path + u"\\m" + as_units(std::to_string(i)) + u".dat",
                     m_random.between(0, 900)));
    if (depth > 0 && count > here)
        made.members.push_back(new_folder(path + u"\\sub", count - here, depth - 1));
    for (const item &member : made.members) made.size += member.size;
    return made;
}

void linux_story::remove(const item &what)
{
    for (const item &member : what.members) remove(member);
    m_volume.remove(what.number, what.at);
}

// Deletions

u8 linux_story::name_space(const std::u16string &name) const
{
    if (!m_form.short_names) return posix;
    return has_short_form(name) ? win32_and_dos : win32;
}

// Of a name in the bin; others have no short form.
std::vector<byte_vector> linux_story::name_parts(const linux_volume::place &at) const
{
    return lab::name_parts(at, name_space(at.name));
}

void linux_story::put_short_name(entry_number file, const linux_volume::place &at)
{
    if (m_form.short_names) m_volume.set_short_name(file, at, short_form(at.name));
}

namespace {

void add_member_paths(std::vector<std::string> &paths, const linux_story::item &of,
                      std::size_t prefix)
{
    for (const linux_story::item &member : of.members) {
        if (!member.directory) paths.push_back(utf8(member.path.substr(prefix)));
        add_member_paths(paths, member, prefix);
    }
}

} // namespace

linux_story::deletion linux_story::send(user owner, item what)
{
    later();
    const bin &of = m_bins.at(owner);
    told_deletion told;
    told.path = what.path;
    told.size = what.size;
    told.deleted = m_now;
    told.user = of.sid;
    told.format = name_of(of.format);
    told.directory = what.directory;
    add_member_paths(told.members, what, what.path.size() + 1);
    sent_item sent{.owner = owner, .data = std::move(what)};
    sent.original = sent.data.at;
    if (of.format == bin_format::list)
        write_list_record(sent, told);
    else
        write_metadata_file(sent, told);
    move_to_bin(sent, told);
    tell(of.sid + " deletes " + utf8(told.path));
    m_told->deletions.push_back(std::move(told));
    m_sent.push_back(std::move(sent));
    return m_sent.size() - 1;
}

linux_story::deletion linux_story::send_new(user owner)
{
    return send(owner, new_document(owner));
}

void linux_story::write_metadata_file(sent_item &sent, told_deletion &out_told)
{
    const bin &of = m_bins.at(sent.owner);
    static constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::string random_part;
    for (int i = 0; i < 6; ++i) random_part += letters[m_random.below(letters.size())];
    const std::u16string id = as_units(random_part) + extension_of(sent.data.path);
    const byte_vector content = test_support::dollar_i_builder()
                                    .version(of.format == bin_format::first ? 1 : 2)
                                    .size(sent.data.size)
                                    .time(m_now)
                                    .path(sent.data.path)
                                    .bytes();
    sent.metadata = {of.folder, u"$I" + id};
    const entry_number file = m_volume.make_file(sent.metadata, content);
    put_short_name(file, sent.metadata);
    sent.metadata_number = file;
    out_told.id = utf8(id);
    out_told.metadata_name = utf8(sent.metadata.name);
    out_told.data_name = "$R" + out_told.id;
    out_told.metadata_entry = file;
    trace bare{.kind = "metadata", .frame = {}, .parts = {content}};
    add_pieces(bare, m_volume.stretches(file, 0, content.size()));
    trace record{
        .kind = "metadata record", .frame = "FILE", .parts = name_parts(sent.metadata)};
    if (m_volume.is_resident(file)) record.parts.push_back(content);
    out_told.traces = {bare,
                       record,
                       {.kind = "metadata name",
                        .frame = "index",
                        .parts = name_parts(sent.metadata)}};
}

void linux_story::write_list_record(const sent_item &sent, told_deletion &out_told)
{
    bin &of = m_bins.at(sent.owner);
    // The list states what the file takes up in clusters.
    const u64 clusters =
        (sent.data.size + m_form.cluster_size - 1) / m_form.cluster_size;
    out_told.size = clusters * m_form.cluster_size;
    if (!sent.data.directory) out_told.found_size = sent.data.size;
    const byte_vector record =
        test_support::info2_record({.ansi_path = in_code_page(sent.data.path),
                                    .path = sent.data.path,
                                    .number = ++of.last_number,
                                    .time = m_now,
                                    .size = static_cast<u32>(out_told.size)});
    m_volume.write(of.list, list_header_size + list_record_size * of.listed.size(),
                   record);
    of.listed.push_back(m_sent.size());
    out_told.data_name =
        "Dc" + std::to_string(of.last_number) + utf8(extension_of(sent.data.path));
    out_told.id = out_told.data_name;
    out_told.metadata_name = "INFO2";
    out_told.metadata_entry = of.list;
    const std::vector<byte_vector> list_name =
        lab::name_parts({of.folder, u"INFO2"}, posix);
    out_told.traces = {{.kind = "metadata", .frame = {}, .parts = {record}},
                       {.kind = "metadata record", .frame = "FILE", .parts = list_name},
                       {.kind = "metadata name", .frame = "index", .parts = list_name}};
}

void linux_story::move_to_bin(sent_item &sent, told_deletion &out_told)
{
    item &data = sent.data;
    const linux_volume::place to{
        m_bins.at(sent.owner).folder,
        test_support::ntfs_structures::to_utf16(out_told.data_name)};
    m_volume.rename(data.number, data.at, to);
    put_short_name(data.number, to);
    data.at = to;
    note_residence(data);
    out_told.data_entry = data.number;
    out_told.data = data.data;
    out_told.traces.push_back(
        {.kind = "data name", .frame = "index", .parts = name_parts(to)});
    out_told.traces.push_back(record_trace("data record", data, name_parts(to)));
}

// What becomes of deletions

// The list keeps its records; the first letter of the path becomes zero.
void linux_story::strike_record(deletion number)
{
    const bin &of = m_bins.at(m_sent.at(number).owner);
    const auto found = std::find(of.listed.begin(), of.listed.end(), number);
    const auto index = static_cast<u64>(found - of.listed.begin());
    m_volume.write(of.list, list_header_size + list_record_size * index, {0});
    told(number).traces.front().parts.front().front() = 0;
}

void linux_story::leave_bin(deletion number, const std::string &fate)
{
    sent_item &sent = m_sent.at(number);
    const bin &of = m_bins.at(sent.owner);
    if (of.format == bin_format::list)
        strike_record(number);
    else
        m_volume.remove(sent.metadata_number, sent.metadata);
    sent.in_bin = false;
    told(number).fate = fate;
}

void linux_story::purge(deletion number)
{
    later();
    remove(m_sent.at(number).data);
    leave_bin(number, "emptied");
    tell(told(number).user + " deletes " + told(number).data_name + " from the bin");
}

void linux_story::empty_bin(user owner)
{
    later();
    bin &of = m_bins.at(owner);
    for (deletion number = 0; number < m_sent.size(); ++number) {
        sent_item &sent = m_sent[number];
        if (sent.owner != owner || !sent.in_bin) continue;
        remove(sent.data);
        if (of.format != bin_format::list)
            m_volume.remove(sent.metadata_number, sent.metadata);
        sent.in_bin = false;
        told(number).fate = "emptied";
        // The list is cut: it leads to none of its records any more.
        if (of.format == bin_format::list)
            std::erase_if(told(number).traces, [](const trace &each) {
                return each.kind.starts_with("metadata ");
            });
    }
    if (of.format == bin_format::list) {
        m_volume.truncate(of.list, list_header_size);
        of.listed.clear();
    }
    tell(of.sid + " empties the bin");
}

void linux_story::restore(deletion number)
{
    later();
    sent_item &sent = m_sent.at(number);
    item &data = sent.data;
    m_volume.rename(data.number, data.at, sent.original);
    data.at = sent.original;
    note_residence(data);
    told(number).data = data.data;
    told(number).traces.push_back(
        record_trace("restored record", data, lab::name_parts(data.at, posix)));
    leave_bin(number, "restored");
    tell(told(number).user + " restores " + utf8(told(number).path));
}

// A record of the list can lie in several places, which are known best once the list
// doesn't change any more.
void linux_story::locate_records(const bin &of)
{
    for (std::size_t i = 0; i < of.listed.size(); ++i)
        add_pieces(told(of.listed[i]).traces.front(),
                   m_volume.stretches(of.list, list_header_size + list_record_size * i,
                                      list_record_size));
}

void linux_story::fill_and_clear()
{
    later();
    std::vector<item> fillers(64);
    // Small ones take the free MFT records, then the last one takes all clusters.
    for (item &filler : fillers)
        filler = new_file(
            u"C:\\fill\\" + as_units(std::to_string(m_next_name++)) + u".tmp", 200);
    u64 size = 0;
    for (const u64 step : {u64{1} << 16, u64{m_form.cluster_size}}) {
        const byte_vector content(step, 0xF1);
        while (m_volume.write_if_room(fillers.back().number, size, content))
            size += step;
    }
    tell("the volume is full");
    for (const item &filler : fillers) remove(filler);
    tell("what filled it is deleted");
}

byte_vector linux_story::medium()
{
    for (const bin &of : m_bins)
        if (of.format == bin_format::list) locate_records(of);
    return m_volume.close();
}

} // namespace lab
