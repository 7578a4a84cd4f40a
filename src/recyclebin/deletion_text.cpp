#include "recyclebin/deletion_text.h"

#include "recyclebin/evidence_text.h"
#include "recyclebin/moments.h"

#include <cstdio>
#include <set>

namespace hv {

namespace {

constexpr std::size_t max_ranges_in_story = 4;
constexpr std::size_t max_members_in_story = 20;

std::string hex(u64 number)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

std::string entry_text(const std::optional<entry_id> &entry)
{
    if (!entry) return {};
    return ", record " + std::to_string(entry->entry) + " (sequence " +
           std::to_string(entry->sequence) + ")";
}

// What a sighting of metadata states.
std::string statement_text(const deleted_file &stated)
{
    std::string text(word_for(stated.format));
    if (stated.number != 0) text += " record " + std::to_string(stated.number);
    text += ": deleted " + whole_moment(stated.deleted) + ", " + grouped(stated.size) +
            " bytes, " + escaped(stated.path);
    if (!stated.path_is_whole) text += " (cut off)";
    if (stated.is_struck) text += ", struck out";
    return text;
}

std::string data_item_text(const sighting &seen)
{
    const char *what = seen.is_directory ? "folder" : "data file";
    std::string text = std::string(what) + " " + escaped(seen.name);
    if (!seen.is_directory)
        text += ", " + grouped(seen.data_size) + " bytes, content " +
                std::string(word_for(seen.content));
    if (!seen.outside_path.empty()) text += ", now " + escaped(seen.outside_path);
    return text;
}

std::string journal_text(const sighting &seen)
{
    char reason[24];
    std::snprintf(reason, sizeof reason, "0x%08x", seen.reason);
    return escaped(seen.name) + " logged " + whole_moment(seen.logged) + ", reason " +
           reason;
}

std::string what_was_seen(const sighting &seen)
{
    switch (seen.kind) {
    case sighting_kind::metadata:
        if (seen.metadata) return statement_text(*seen.metadata);
        return "metadata " + escaped(seen.name);
    case sighting_kind::data_item:
    case sighting_kind::restored_item: return data_item_text(seen);
    case sighting_kind::index_name: return "name " + escaped(seen.name);
    case sighting_kind::journal_line: return journal_text(seen);
    }
    return {};
}

// "volume and snapshots 1-3", "free cluster"
std::string where_text(const sighting &seen)
{
    deletion alone;
    alone.sightings.push_back(seen);
    const std::string views = seen.views.empty() ? "" : places_of(alone).text();
    const bool is_by_view = seen.source == evidence_source::live ||
                            seen.source == evidence_source::snapshot;
    return is_by_view && !views.empty() ? views
                                        : std::string(sentence_for(seen.source));
}

void write_members(std::ostream &out, const deletion &item)
{
    if (item.members.empty()) return;
    out << "  holds " << counted(item.members.size(), "item") << ":\n";
    for (std::size_t at = 0; at < item.members.size() && at < max_members_in_story;
         ++at)
        out << "     " << escaped(item.members[at]) << '\n';
    if (item.members.size() > max_members_in_story)
        out << "     and " << item.members.size() - max_members_in_story << " more\n";
}

// "S-1-5-32-544 (Administrators)"
std::string named(const std::string &sid, const found_name &name)
{
    return sid + (name.name.empty() ? "" : " (" + escaped(name.name) + ")");
}

// Whom the data belongs to, if not to the bin's user, and where the names are from.
void write_people(std::ostream &out, const deletion &item)
{
    if (has_other_owner(item))
        out << "  the data belongs to " << named(item.owner, item.owner_name)
            << " by $Secure, which needn't be who deleted it\n";
    std::set<std::string> sources = {item.user_name.from};
    if (has_other_owner(item)) sources.insert(item.owner_name.from);
    for (const std::string &source : sources)
        if (!source.empty()) out << "  named by " << escaped(source) << '\n';
}

void write_verdict(std::ostream &out, const deletion &item)
{
    out << "  " << sentence_for(item.state);
    if (!item.outside_path.empty()) out << ", to " << escaped(item.outside_path);
    if (item.content != data_state::none) out << "; content " << word_for(item.content);
    out << '\n';
    if (item.stated_size && item.found_size && *item.stated_size != *item.found_size)
        out << "  sizes differ: " << grouped(*item.stated_size) << " bytes stated, "
            << grouped(*item.found_size) << " found\n";
    if (item.record_changed)
        out << "  record of the data last changed "
            << whole_moment(*item.record_changed)
            << ", which needn't be the deletion\n";
    for (const std::string &conflict : item.conflicts)
        out << "  conflict: " << escaped(std::string_view(conflict)) << '\n';
}

} // namespace

std::string path_text(const deletion &item)
{
    if (item.path)
        return escaped(*item.path) + (item.path_is_whole ? "" : "...") +
               (item.is_directory && !item.path->ends_with(u'\\') ? "\\" : "");
    const std::u16string &name =
        item.data_name.empty() ? item.metadata_name : item.data_name;
    return "<" + escaped(name) + ">";
}

std::string size_text(const deletion &item)
{
    const auto size = item.stated_size ? item.stated_size : item.found_size;
    return size ? grouped(*size) : "-";
}

std::string deleted_text(const deletion &item)
{
    return item.deleted ? short_moment(*item.deleted) : "-";
}

std::string data_text(const deletion &item)
{
    switch (item.content) {
    case data_state::none: return item.is_directory ? "folder" : "-";
    case data_state::whole: return "whole";
    case data_state::partly: return "partly";
    case data_state::gone: return "gone";
    case data_state::unknown: return "unknown";
    }
    return "-";
}

std::string ranges_text(const std::vector<byte_range> &ranges, std::size_t limit)
{
    std::string text;
    for (std::size_t at = 0; at < ranges.size() && at < limit; ++at) {
        const byte_range &range = ranges[at];
        const u64 last = range.offset + (range.length > 0 ? range.length - 1 : 0);
        text += (at > 0 ? ", " : "") + hex(range.offset) + "-" + hex(last);
    }
    if (ranges.size() > limit)
        text += " and " + std::to_string(ranges.size() - limit) + " more";
    return text;
}

void write_story_head(std::ostream &out, const deletion &item)
{
    out << path_text(item);
    if (item.stated_size || item.found_size)
        out << "   " << size_text(item) << " bytes";
    if (item.deleted) out << "   deleted " << whole_moment(*item.deleted);
    if (!item.user.empty()) out << " by " << named(escaped(item.user), item.user_name);
    out << "\n  id " << escaped(std::string_view(item.id)) << '\n';
}

void write_sighting(std::ostream &out, std::size_t number, const sighting &seen)
{
    out << "  " << number << "  " << where_text(seen)
        << (seen.file.empty() ? "" : ", file " + escaped(std::string_view(seen.file)))
        << ", bytes " << ranges_text(seen.ranges, max_ranges_in_story)
        << entry_text(seen.entry) << (knows_use(seen) && !seen.in_use ? ", freed" : "")
        << (seen.is_torn ? ", torn" : "") << "\n     " << what_was_seen(seen) << '\n';
}

void write_story_end(std::ostream &out, const deletion &item)
{
    write_members(out, item);
    write_verdict(out, item);
    write_people(out, item);
}

void write_story(std::ostream &out, const deletion &item)
{
    write_story_head(out, item);
    for (std::size_t at = 0; at < item.sightings.size(); ++at)
        write_sighting(out, at + 1, item.sightings[at]);
    write_story_end(out, item);
}

} // namespace hv
