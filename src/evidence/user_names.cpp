#include "evidence/user_names.h"

#include "ntfs/hv_path_lookup.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <tuple>

namespace hv {

namespace {

// The hives of a computer have some 100 MiB. Of all hives together, no more is read
// than what several snapshots of large ones take.
constexpr u64 max_hive = u64{256} << 20;
constexpr u64 max_hives = u64{1} << 30;
constexpr int max_damaged = 4;     // hives, each of which may take its time
constexpr u64 header_bytes = 4097; // what tells a hive: its header, and something after

// Folders that hold a Windows: its own, that of older versions, and that of the
// installation before.
constexpr std::array<std::string_view, 3> roots = {"Windows", "WINNT",
                                                   "Windows.old\\Windows"};

// Only these are of people.
bool is_of_person(std::string_view sid)
{
    return sid.starts_with("S-1-5-21-") || sid.starts_with("S-1-12-1-");
}

bool find_path(u64 &entry, const CNtfs &volume, std::string_view path)
{
    entry = root_entry_number;
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('\\'));
        if (!find_child_by_name(entry, name, entry, volume)) return false;
        path.remove_prefix(std::min(path.size(), name.size() + 1));
    }
    return true;
}

// The text of a user's folder, if it can be a SID.
std::string sid_text(const std::u16string &user)
{
    std::string text;
    for (const char16_t unit : user) {
        if (unit >= 0x80) return {};
        text += static_cast<char>(unit);
    }
    return text;
}

// Windows allows 20 units for an account and 255 for a folder.
bool is_name(const std::u16string &name)
{
    return !name.empty() && name.size() <= 255;
}

// The SIDs of the people among users and owners. Those that are the same everywhere
// have their names at once.
std::set<std::string> collect_people(examination &out)
{
    std::set<std::string> people;
    const auto collect = [&](const std::string &sid) {
        const std::u16string known = well_known_name(sid);
        if (!known.empty())
            out.users[sid] = {known, "the SID, which is the same on every computer"};
        else if (is_of_person(sid))
            people.insert(sid);
    };
    for (const deletion &item : out.deletions) {
        collect(sid_text(item.user));
        collect(item.owner);
    }
    return people;
}

// Copies the names to where they are looked for.
void hand_out_names(examination &out)
{
    for (deletion &item : out.deletions) {
        const auto user = out.users.find(sid_text(item.user));
        const auto owner = out.users.find(item.owner);
        if (user != out.users.end()) item.user_name = user->second;
        if (owner != out.users.end()) item.owner_name = owner->second;
    }
    for (examined_region &region : out.regions)
        for (const auto &[sid, found] : out.users)
            region.user_names[{sid.begin(), sid.end()}] = found.name;
}

} // namespace

std::u16string well_known_name(std::string_view sid)
{
    struct known {
        std::string_view sid;
        std::u16string_view name;
    };
    static constexpr auto all = std::to_array<known>({
        {"S-1-5-18", u"SYSTEM"},
        {"S-1-5-19", u"LOCAL SERVICE"},
        {"S-1-5-20", u"NETWORK SERVICE"},
        {"S-1-5-32-544", u"Administrators"},
        {"S-1-5-32-545", u"Users"},
    });
    const auto found = std::ranges::find(all, sid, &known::sid);
    return std::u16string(found == all.end() ? std::u16string_view() : found->name);
}

std::string user_names::found_hive::text() const
{
    char place[24];
    std::snprintf(place, sizeof place, "0x%llx",
                  static_cast<unsigned long long>(when.volume));
    std::string text = "\\" + path + " of the volume at byte " + place;
    if (when.taken) text += ", snapshot " + std::to_string(view);
    return text;
}

bool user_names::found_hive::comes_before(const found_hive &other) const
{
    const auto key = [](const found_hive &hive) {
        return std::tuple(~hive.when.taken.value_or(~u64{0}), hive.kind, ~hive.written,
                          hive.when.volume, std::string_view(hive.path));
    };
    return key(*this) < key(other);
}

// A hive that wasn't written since says nothing new.
bool user_names::found_hive::is_copy_of(const found_hive &other) const
{
    return std::tie(when.volume, path, written) ==
           std::tie(other.when.volume, other.path, other.written);
}

void user_names::note_hives(const volume_view &view, const moment_of_view &when)
{
    for (const std::string_view root : roots) {
        const std::string folder = std::string(root) + "\\System32\\config";
        u64 entry = 0;
        if (!find_path(entry, view.volume(), folder)) continue;
        for (const auto &[kind, name] : {std::pair(hive_kind::accounts, "SAM"),
                                         {hive_kind::profiles, "SOFTWARE"}}) {
            found_hive hive{view.source(), view.offset(), view.number(),
                            when,          kind,          folder + "\\" + name};
            if (find_child_by_name(entry, name, hive.entry, view.volume()))
                note_hive(view, std::move(hive));
        }
    }
}

void user_names::note_hive(const volume_view &view, found_hive hive)
{
    file_facts facts;
    record_bytes record;
    file_content head;
    if (!view.read_file(facts, record, hive.entry) ||
        !view.read_stream(head, facts, header_bytes))
        return;
    hive.written = hive_written(head.bytes);
    m_hives.push_back(std::move(hive));
}

std::vector<user_names::found_hive> user_names::in_order() const
{
    std::vector<found_hive> hives;
    for (const found_hive &hive : m_hives) {
        const auto same = std::ranges::find_if(
            hives, [&](const found_hive &other) { return hive.is_copy_of(other); });
        if (same == hives.end())
            hives.push_back(hive);
        else if (hive.comes_before(*same))
            *same = hive;
    }
    std::ranges::sort(hives, [](const found_hive &a, const found_hive &b) {
        return a.comes_before(b);
    });
    return hives;
}

// Why it can't be read; empty if it was.
std::string user_names::read_hive(names_by_sid &out, const found_hive &hive,
                                  u64 &budget)
{
    volume_view view(hive.source, hive.offset, hive.view);
    file_facts facts;
    record_bytes record;
    file_content content;
    if (!view.open(cluster_map::skip) || !view.read_file(facts, record, hive.entry))
        return "it can't be found again";
    const stream_fact *data = facts.stream(attribute_type::data);
    const u64 limit = std::min({max_hive, budget, view.source_size()});
    if (data != nullptr && data->length > limit)
        return "it is larger than what is read of hives";
    if (!view.read_stream(content, facts, limit)) return "it has no data";
    budget -= std::min<u64>(budget, content.bytes.size());
    return read_names(out, hive.kind, content.bytes) ? "" : "it is damaged";
}

void user_names::name_users(examination &out) const
{
    std::set<std::string> wanted = collect_people(out);
    u64 budget = max_hives;
    int damaged = 0;
    std::string first_problem;
    for (const found_hive &hive : in_order()) {
        if (wanted.empty() || damaged == max_damaged) break;
        names_by_sid names;
        const std::string problem =
            can_read_hives() ? read_hive(names, hive, budget)
                             : "libregf is missing (Debian's libregf1; to build "
                               "the program, libregf-dev and libbfio-dev)";
        if (!problem.empty() && damaged++ == 0)
            first_problem = "no names of users from " + hive.text() + ": " + problem;
        for (const auto &[sid, name] : names)
            if (is_name(name) && wanted.erase(sid) > 0)
                out.users[sid] = {name, hive.text()};
    }
    if (!wanted.empty()) out.names_trouble = first_problem;
    hand_out_names(out);
}

} // namespace hv
