#include "base/hv_checked_math.h"
#include "evidence/bin_items.h"
#include "evidence/examine.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <set>
#include <span>
#include <tuple>

namespace hv {

namespace {

// Two moments that are one event for Windows: it writes the time into the metadata, and
// the file system another when the record changes.
constexpr u64 one_event = 20'000'000;  // ticks of 100 ns
constexpr std::size_t item_digits = 6; // of a random name, before its extension
// Hostile media repeat what honest ones have a few times; more isn't looked at.
constexpr std::size_t max_of_one_name = 4096;
constexpr std::size_t max_of_one_moment = 4096;

u64 apart(u64 a, u64 b)
{
    return a > b ? a - b : b - a;
}

// What sightings of metadata have in common if they are of one deletion.
using statement = std::tuple<u64, std::u16string, u64, u32>;

statement statement_of(const sighting &seen)
{
    const deleted_file &file = *seen.metadata;
    const bool listed = file.format != metadata_format::dollar_i_1 &&
                        file.format != metadata_format::dollar_i_2;
    return {file.deleted, file.path, file.size, listed ? file.number + 1 : 0};
}

// A deletion on its way, and what its sightings are called.
struct group {
    std::vector<const sighting *> seen;
    std::u16string item; ///< empty: not known
    std::u16string user;
    std::optional<entry_id> parent;
    const sighting *metadata = nullptr;
    std::optional<entry_id> data_entry;
    bool is_joined_by_time = false;

    void add(const sighting &more)
    {
        seen.push_back(&more);
        if (item.empty() && !more.name.empty()) item = item_of_name(more.name);
        if (user.empty()) user = more.user;
        if (!parent) parent = more.parent;
        if (metadata == nullptr && more.metadata) metadata = &more;
    }
};

bool is_list(const sighting &seen)
{
    return seen.metadata && seen.metadata->format != metadata_format::dollar_i_1 &&
           seen.metadata->format != metadata_format::dollar_i_2;
}

// Sightings in an order of their own, so that the order in which they came can't count.
bool comes_before(const sighting &a, const sighting &b)
{
    const auto key = [](const sighting &seen) {
        return std::tuple(seen.volume, seen.kind, seen.name, seen.file, seen.ranges,
                          seen.views, seen.source, seen.entry, seen.parent, seen.in_use,
                          seen.reason, seen.logged);
    };
    return key(a) < key(b);
}

// Joins the sightings of one region.
class assembly {
public:
    explicit assembly(const std::vector<sighting> &sightings) : m_sightings(sightings)
    {
    }

    std::vector<group> groups()
    {
        join_metadata();
        join_torn_metadata();
        index_groups();
        for (const sighting &seen : m_sightings)
            if (!seen.metadata) m_named[item_of_name(seen.name)].push_back(&seen);
        for (auto &[item, seen] : m_named) join_named(item, seen);
        join_bare_metadata();
        return std::move(m_groups);
    }

private:
    void join_metadata()
    {
        std::map<statement, std::size_t> known;
        for (const sighting &seen : m_sightings) {
            if (!seen.metadata || !seen.metadata->path_is_whole) continue;
            const auto [place, fresh] =
                known.try_emplace(statement_of(seen), m_groups.size());
            if (fresh) m_groups.emplace_back();
            m_groups[place->second].add(seen);
        }
    }

    // Metadata that is cut off in its path is of the deletion that states the same time
    // and size, and a path that begins so.
    void join_torn_metadata()
    {
        std::map<std::tuple<u64, u64, std::u16string>, std::size_t> known;
        const auto key = [](const sighting &seen) {
            const deleted_file &file = *seen.metadata;
            return std::tuple(file.deleted, file.size, file.path);
        };
        for (std::size_t i = 0; i < m_groups.size(); ++i)
            known.try_emplace(key(*m_groups[i].metadata), i);
        for (const sighting &seen : m_sightings) {
            if (!seen.metadata || seen.metadata->path_is_whole) continue;
            const auto [deleted, size, path] = key(seen);
            auto whole = known.lower_bound({deleted, size, path});
            if (whole == known.end() || std::get<0>(whole->first) != deleted ||
                std::get<1>(whole->first) != size ||
                !std::get<2>(whole->first).starts_with(path)) {
                whole = known.emplace(key(seen), m_groups.size()).first;
                m_groups.emplace_back();
            }
            m_groups[whole->second].add(seen);
        }
    }

    void index_groups()
    {
        for (std::size_t i = 0; i < m_groups.size(); ++i)
            if (!m_groups[i].item.empty()) m_by_item[m_groups[i].item].push_back(i);
    }

    static bool agree(const group &of, const sighting &seen)
    {
        if (!of.user.empty() && !seen.user.empty()) return of.user == seen.user;
        return !of.parent || !seen.parent || *of.parent == *seen.parent ||
               of.user.empty() != seen.user.empty();
    }

    // Names of items are random, so a `$R` or a `$I` belongs to the metadata of the
    // same name in the same folder. A list gives its numbers out again: of several
    // records, that one counts whose time the record of the data item has.
    std::size_t owner_of(const std::u16string &item, const sighting &seen)
    {
        const std::vector<std::size_t> &named = m_by_item[item];
        std::vector<std::size_t> fitting;
        for (const std::size_t number :
             std::span(named).first(std::min(named.size(), max_of_one_name)))
            if (agree(m_groups[number], seen)) fitting.push_back(number);
        const auto is_of_list = [&](std::size_t number) {
            return m_groups[number].metadata != nullptr &&
                   is_list(*m_groups[number].metadata);
        };
        if (fitting.size() == 1 && !is_of_list(fitting[0])) return fitting[0];
        std::size_t best = m_groups.size();
        for (const std::size_t number : fitting) {
            const group &candidate = m_groups[number];
            if (candidate.data_entry && seen.entry &&
                *candidate.data_entry == *seen.entry)
                return number;
            if (candidate.metadata == nullptr || seen.times.record_changed == 0)
                continue;
            const u64 distance =
                apart(candidate.metadata->metadata->deleted, seen.times.record_changed);
            if (distance <= one_event) best = number;
        }
        if (best != m_groups.size()) return best;
        if (fitting.size() != 1) return m_groups.size();
        const std::optional<entry_id> &other = m_groups[fitting[0]].data_entry;
        const bool is_another = other && seen.entry && *other != *seen.entry;
        return is_another ? m_groups.size() : fitting[0];
    }

    void join_named(const std::u16string &item, std::vector<const sighting *> &seen)
    {
        // Records say more than names: they come first.
        std::ranges::stable_sort(seen, {}, [](const sighting *each) {
            return std::pair(each->kind != sighting_kind::data_item, !each->in_use);
        });
        for (const sighting *each : seen) {
            std::size_t owner = owner_of(item, *each);
            if (owner == m_groups.size()) {
                m_groups.emplace_back();
                m_by_item[item].push_back(owner);
            }
            group &of = m_groups[owner];
            of.add(*each);
            const bool is_data = kind_of_name(each->name) == bin_name_kind::data ||
                                 kind_of_name(each->name) == bin_name_kind::listed_data;
            if (is_data && each->entry && !of.data_entry) of.data_entry = each->entry;
        }
    }

    // When items without metadata came into the bin, by size. Of a folder, and of an
    // item whose name alone is left, the size isn't known.
    using arrivals = std::map<std::pair<u64, u64>, std::vector<std::size_t>>;
    static constexpr u64 no_size = ~u64{0};

    arrivals find_arrivals() const
    {
        arrivals found;
        for (std::size_t i = 0; i < m_groups.size(); ++i) {
            if (m_groups[i].metadata != nullptr) continue;
            u64 size = no_size;
            std::set<u64> moments;
            for (const sighting *seen : m_groups[i].seen) {
                moments.insert(arrival_of(*seen));
                if (seen->kind == sighting_kind::data_item && !seen->is_directory)
                    size = seen->data_size;
            }
            for (const u64 moment : moments)
                if (moment != 0) found[{size, moment}].push_back(i);
        }
        return found;
    }

    // Metadata that lost its name belongs to the only item that came into the bin at
    // its time, with its extension and size.
    void join_bare_metadata()
    {
        const arrivals items = find_arrivals();
        for (group &bare : m_groups) {
            if (bare.metadata == nullptr || !bare.item.empty()) continue;
            group *const only = only_arrival(items, *bare.metadata->metadata);
            if (only == nullptr) continue;
            bare.is_joined_by_time = true;
            bare.data_entry = only->data_entry;
            for (const sighting *seen : only->seen) bare.add(*seen);
            only->seen.clear();
        }
        std::erase_if(m_groups, [](const group &of) { return of.seen.empty(); });
    }

    // Null if none fits, or several.
    group *only_arrival(const arrivals &items, const deleted_file &file)
    {
        std::set<std::size_t> fitting;
        std::size_t tried = 0;
        for (const u64 size : {file.size, no_size}) {
            const u64 first = file.deleted - std::min(file.deleted, one_event);
            for (auto at = items.lower_bound({size, first});
                 at != items.end() && at->first.first == size &&
                 at->first.second <= saturating_sum(file.deleted, one_event);
                 ++at)
                for (const std::size_t number : at->second) {
                    if (fits(m_groups[number], file)) fitting.insert(number);
                    if (fitting.size() > 1 || ++tried > max_of_one_moment)
                        return nullptr;
                }
        }
        return fitting.empty() ? nullptr : &m_groups[*fitting.begin()];
    }

    // When what was seen came into the bin; 0 if it doesn't say.
    static u64 arrival_of(const sighting &seen)
    {
        if (seen.kind == sighting_kind::data_item) return seen.times.record_changed;
        return kind_of_name(seen.name) == bin_name_kind::metadata ? seen.times.created
                                                                  : 0;
    }

    // Whether an item came into the bin when the metadata says.
    static bool fits(const group &named, const deleted_file &file)
    {
        const std::u16string extension = named.item.size() > item_digits
                                             ? named.item.substr(item_digits)
                                             : std::u16string();
        if (named.item.size() < item_digits || !file.path.ends_with(extension))
            return false;
        bool is_then = false;
        for (const sighting *seen : named.seen) {
            if (seen->kind == sighting_kind::data_item && !seen->is_directory &&
                seen->data_size != file.size)
                return false;
            const u64 moment = arrival_of(*seen);
            is_then =
                is_then || (moment != 0 && apart(moment, file.deleted) <= one_event);
        }
        return is_then;
    }

    const std::vector<sighting> &m_sightings;
    std::vector<group> m_groups;
    std::map<std::u16string, std::vector<std::size_t>> m_by_item;
    std::map<std::u16string, std::vector<const sighting *>> m_named;
};

// ---- What a group says

std::u16string list_name(metadata_format format)
{
    const bool is_old =
        format == metadata_format::info_280 || format == metadata_format::info_800;
    return is_old ? u"INFO" : u"INFO2";
}

void take_metadata(deletion &made, const group &from)
{
    const deleted_file &file = *from.metadata->metadata;
    made.format = file.format;
    made.deleted = file.deleted;
    made.stated_size = file.size;
    if (!file.path.empty()) made.path = file.path;
    made.path_is_whole = file.path_is_whole;
}

// Facts of the data item: the record that is in use now before others.
void take_data_item(deletion &made, const group &from)
{
    const sighting *best = nullptr;
    for (const sighting *seen : from.seen) {
        if (seen->kind != sighting_kind::data_item) continue;
        const auto rank = [](const sighting &each) {
            return std::tuple(each.in_use && each.views.contains(0),
                              each.views.contains(0), !each.views.empty());
        };
        if (best == nullptr || rank(*seen) > rank(*best)) best = seen;
    }
    if (best == nullptr) return;
    made.data_entry = best->entry;
    made.data_name = best->name;
    made.is_directory = best->is_directory;
    made.times = best->times;
    made.data = best->data;
    made.members = best->members;
    made.owner = best->owner;
    made.content = best->is_directory ? data_state::none : best->content;
    // Of what wasn't opened, no size is known.
    if (!best->is_directory &&
        (best->content != data_state::unknown || best->data_size > 0))
        made.found_size = best->data_size;
    if (!from.metadata) made.record_changed = best->times.record_changed;
}

void take_names(deletion &made, const group &from)
{
    for (const sighting *seen : from.seen) {
        const bin_name_kind kind = kind_of_name(seen->name);
        if (is_list(*seen)) {
            made.metadata_name = list_name(seen->metadata->format);
            if (made.data_name.empty()) made.data_name = seen->name;
            if (!made.metadata_entry) made.metadata_entry = seen->entry;
        } else if (kind == bin_name_kind::metadata) {
            made.metadata_name = seen->name;
            if (!made.metadata_entry && seen->kind == sighting_kind::metadata)
                made.metadata_entry = seen->entry;
        } else if (is_data_name(*seen)) {
            if (made.data_name.empty()) made.data_name = seen->name;
            if (!made.data_entry) made.data_entry = seen->entry;
        }
        if (seen->kind == sighting_kind::index_name && seen->in_use &&
            seen->views.contains(0) && shows_data(*seen) &&
            made.content == data_state::none)
            made.content = data_state::unknown;
        if (seen->kind == sighting_kind::restored_item) {
            made.outside_path = seen->outside_path;
            made.content = seen->content;
        }
        constexpr u32 enters = 0x2000; // USN_REASON_RENAME_NEW_NAME
        if (seen->kind == sighting_kind::journal_line && is_data_name(*seen) &&
            (seen->reason & enters) != 0 &&
            (!made.logged || seen->logged < *made.logged))
            made.logged = seen->logged;
    }
}

deletion_state state_of(const group &from)
{
    bool metadata_lives = false, data_lives = false, only_journal = true;
    for (const sighting *seen : from.seen) {
        if (seen->kind == sighting_kind::restored_item) return deletion_state::restored;
        only_journal = only_journal && seen->kind == sighting_kind::journal_line;
        if (!seen->in_use || !seen->views.contains(0)) continue;
        metadata_lives = metadata_lives || shows_metadata(*seen);
        data_lives = data_lives || shows_data(*seen);
    }
    if (only_journal) return deletion_state::journal_only;
    if (metadata_lives && data_lives) return deletion_state::in_bin;
    if (metadata_lives) return deletion_state::metadata_only;
    return data_lives ? deletion_state::data_only : deletion_state::emptied;
}

void add_conflicts(deletion &made, const group &from)
{
    for (const sighting *seen : from.seen) {
        if (!seen->metadata || from.metadata == seen) continue;
        if (seen->metadata->size != from.metadata->metadata->size)
            made.conflicts.emplace_back("metadata of this time states another size");
    }
    if (made.found_size && made.stated_size && *made.found_size != *made.stated_size &&
        !made.is_directory && from.metadata && !is_list(*from.metadata))
        made.conflicts.emplace_back(
            "the data item has another size than the metadata states");
    if (from.is_joined_by_time)
        made.conflicts.emplace_back(
            "the metadata has no name any more: its item is the only "
            "one that came into the bin at its time");
    std::ranges::sort(made.conflicts);
    const auto end = std::unique(made.conflicts.begin(), made.conflicts.end());
    made.conflicts.erase(end, made.conflicts.end());
}

// ---- What a deletion is called

// Sums texts and numbers to the twelve digits of an id (FNV-1a).
class id_sum {
public:
    void add(u64 value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            m_sum = (m_sum ^ (value >> (8 * i) & 0xFFU)) * 0x100000001B3;
    }
    void add(const std::u16string &text)
    {
        for (const char16_t unit : text) add(unit, 2);
        add(0xFFFF, 2);
    }
    void add(const entry_id &entry)
    {
        add(entry.entry, 8);
        add(entry.sequence, 2);
    }
    std::string digits() const
    {
        static constexpr std::string_view all = "0123456789abcdef";
        std::string text;
        for (int i = 0; i < 12; ++i) text += all[m_sum >> (4 * i) & 0xFU];
        return text;
    }

private:
    u64 m_sum = 0xCBF29CE484222325;
};

// By how much an id follows from more than the least that identifies a deletion.
enum class id_detail {
    least,
    all,     // for deletions that have the least in common
    numbered // for those that have all in common
};

void add_statement(id_sum &sum, const group &from)
{
    if (from.metadata == nullptr) return;
    const auto [deleted, path, size, number] = statement_of(*from.metadata);
    sum.add(deleted, 8);
    sum.add(path);
    sum.add(size, 8);
    sum.add(number, 4);
}

// The least is what carving doesn't change when it learns more of a deletion: the
// random name that its two files share. Names of lists count up and come again, so
// there the record of the data item, or else what the list states, is part of it.
id_sum sum_of(const group &from, const deletion &made, u64 region_offset,
              id_detail detail)
{
    id_sum sum;
    sum.add(region_offset, 8);
    sum.add(from.item);
    const bool is_random =
        !from.item.empty() && kind_of_name(from.item) != bin_name_kind::listed_data;
    if (!is_random && made.data_entry)
        sum.add(*made.data_entry);
    else if (!is_random)
        add_statement(sum, from);
    if (detail == id_detail::least) return sum;
    sum.add(from.user);
    if (made.data_entry) sum.add(*made.data_entry);
    add_statement(sum, from);
    return sum;
}

// Gives each deletion of a region an id of its own.
void set_ids(std::span<deletion> made, const std::vector<group> &groups,
             u64 region_offset)
{
    std::vector<std::size_t> rest(made.size());
    std::iota(rest.begin(), rest.end(), std::size_t{0});
    for (const id_detail detail :
         {id_detail::least, id_detail::all, id_detail::numbered}) {
        std::map<std::string, std::vector<std::size_t>> called;
        for (const std::size_t at : rest) {
            id_sum sum = sum_of(groups[at], made[at], region_offset, detail);
            if (detail == id_detail::numbered) sum.add(at, 8);
            made[at].id = sum.digits();
            called[made[at].id].push_back(at);
        }
        rest.clear();
        for (const auto &[id, same] : called)
            if (same.size() > 1) rest.insert(rest.end(), same.begin(), same.end());
    }
}

deletion tell(const group &from)
{
    deletion made;
    made.volume = from.seen.front()->volume;
    made.user = from.user;
    if (from.metadata != nullptr) take_metadata(made, from);
    take_data_item(made, from);
    take_names(made, from);
    if (from.metadata != nullptr) add_conflicts(made, from);
    made.state = state_of(from);
    return made;
}

// Hands the sightings over to their deletions: each is of one.
void take_sightings(std::span<deletion> made, std::vector<sighting> &sightings,
                    const std::vector<group> &groups)
{
    for (std::size_t i = 0; i < made.size(); ++i) {
        made[i].sightings.reserve(groups[i].seen.size());
        for (const sighting *seen : groups[i].seen) {
            const std::ptrdiff_t place = seen - sightings.data();
            made[i].sightings.push_back(
                std::move(sightings[static_cast<std::size_t>(place)]));
        }
        std::ranges::sort(made[i].sightings, comes_before);
    }
}

} // namespace

void assemble(std::vector<deletion> &out, std::vector<sighting> sightings,
              u64 region_offset)
{
    std::ranges::sort(sightings, comes_before);
    const std::vector<group> groups = assembly(sightings).groups();
    const std::size_t before = out.size();
    for (const group &from : groups) out.push_back(tell(from));
    const std::span made = std::span(out).subspan(before);
    set_ids(made, groups, region_offset);
    take_sightings(made, sightings, groups);
}

} // namespace hv
