#include "recyclebin/forms/html_detail.h"

#include "recyclebin/bytes_command.h"
#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/forms/html_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/proof_command.h"
#include "recyclebin/range_bytes.h"
#include "recyclebin/views.h"

#include <algorithm>

namespace hv {

namespace {

constexpr std::size_t max_sightings = 50;
constexpr std::size_t max_ranges = 8;
constexpr std::size_t max_commands = 8;
constexpr std::size_t max_members = 50;

// The rows of a list of facts.
class fact_list {
public:
    explicit fact_list(std::ostream &out) : m_out(out) { m_out << "<dl>\n"; }
    ~fact_list() { m_out << "</dl>\n"; }
    fact_list(const fact_list &) = delete;
    fact_list &operator=(const fact_list &) = delete;

    // A text of the program's own.
    void add(const char *label, const std::string &text)
    {
        if (!text.empty()) add_html(label, html_escaped(text));
    }
    void add_evidence(const char *label, const std::u16string &text)
    {
        if (!text.empty()) add_html(label, evidence_html(escaped(text)));
    }
    void add_evidence(const char *label, const std::string &utf8)
    {
        if (!utf8.empty())
            add_html(label, evidence_html(escaped(std::string_view(utf8))));
    }
    void add_moment(const char *label, u64 filetime)
    {
        if (filetime != 0) add(label, whole_moment(filetime));
    }
    void add_html(const char *label, const std::string &html)
    {
        m_out << "<dt>" << label << "</dt><dd>" << html << "</dd>\n";
    }

private:
    std::ostream &m_out;
};

std::string entry_text(const std::optional<entry_id> &entry)
{
    if (!entry) return {};
    return std::to_string(entry->entry) + " (sequence " +
           std::to_string(entry->sequence) + ")";
}

// "volume", "snapshots 1-3", "free cluster"
std::string place_text(const sighting &seen)
{
    deletion alone;
    alone.sightings.push_back(seen);
    const bool is_by_view = seen.source == evidence_source::live ||
                            seen.source == evidence_source::snapshot;
    const std::string views =
        is_by_view && !seen.views.empty() ? places_of(alone).text() : "";
    return views.empty() ? std::string(sentence_for(seen.source)) : views;
}

void add_times(fact_list &facts, const record_times &times)
{
    facts.add_moment("Data created", times.created);
    facts.add_moment("Data modified", times.modified);
    facts.add_moment("Record changed", times.record_changed);
    facts.add_moment("Data accessed", times.accessed);
}

void add_statement(fact_list &facts, const deleted_file &stated)
{
    std::string format(word_for(stated.format));
    if (stated.number != 0) format += ", record " + std::to_string(stated.number);
    if (stated.is_struck) format += ", struck out";
    facts.add("Format", format);
    facts.add("States deletion", whole_moment(stated.deleted));
    facts.add("States size", counted(stated.size, "byte"));
    facts.add_html("States path", evidence_html(escaped(stated.path)) +
                                      (stated.path_is_whole ? "" : " (cut off)"));
}

void add_data_item(fact_list &facts, const sighting &seen)
{
    if (seen.is_directory)
        facts.add("Data", "folder");
    else
        facts.add("Data", counted(seen.data_size, "byte") + ", content " +
                              std::string(word_for(seen.content)));
    if (!seen.data.empty())
        facts.add("Data is at bytes", ranges_text(seen.data, max_ranges));
    facts.add_evidence("Now at", seen.outside_path);
    facts.add_evidence("Owner of the data", seen.owner);
    add_times(facts, seen.times);
}

// The bytes that prove it, and how to see them.
void add_proof(fact_list &facts, const sighting &seen, const listing &told)
{
    facts.add_evidence("File", seen.file);
    if (!seen.ranges.empty())
        facts.add("Proved by bytes", ranges_text(seen.ranges, max_ranges));
    facts.add("SHA-256 of these", sha256_of_proof(told.medium, seen));
    if (seen.ranges.empty() || seen.ranges.size() > max_commands) return;
    const std::string command = bytes_command(seen, told.medium_name, told.access);
    facts.add_html("Shown by", "<code>" +
                                   evidence_html(escaped(std::string_view(command))) +
                                   "</code>");
}

void write_sighting_html(std::ostream &out, const sighting &seen, const listing &told)
{
    out << "<li><strong>" << word_for(seen.kind) << "</strong>, "
        << html_escaped(place_text(seen))
        << (knows_use(seen) && !seen.in_use ? ", freed" : "")
        << (seen.is_torn ? ", torn" : "") << '\n';
    fact_list facts(out);
    facts.add_evidence("Name", seen.name);
    facts.add("Record", entry_text(seen.entry));
    if (seen.metadata) add_statement(facts, *seen.metadata);
    if (seen.kind == sighting_kind::data_item ||
        seen.kind == sighting_kind::restored_item)
        add_data_item(facts, seen);
    if (seen.kind == sighting_kind::journal_line)
        facts.add_moment("Logged", seen.logged);
    add_proof(facts, seen, told);
}

void add_members(fact_list &facts, const std::vector<std::u16string> &members)
{
    if (members.empty()) return;
    std::string html = "<ul>";
    const std::size_t shown = std::min(members.size(), max_members);
    for (std::size_t at = 0; at < shown; ++at)
        html += "<li>" + evidence_html(escaped(members[at])) + "</li>";
    if (shown < members.size())
        html += "<li>and " + grouped(members.size() - shown) + " more</li>";
    facts.add_html("Holds", html + "</ul>");
}

// What follows from all sightings.
void write_conclusions(std::ostream &out, const deletion &item, const listing &told)
{
    fact_list facts(out);
    facts.add("Id", item.id);
    facts.add("State", std::string(sentence_for(item.state)));
    facts.add_evidence("To", item.outside_path);
    if (item.deleted) facts.add("Deleted", whole_moment(*item.deleted));
    facts.add_evidence("User", item.user);
    if (escaped(item.user) != item.owner)
        facts.add_evidence("Owner of the data", item.owner);
    if (item.stated_size) facts.add("Stated size", counted(*item.stated_size, "byte"));
    if (item.found_size) facts.add("Found size", counted(*item.found_size, "byte"));
    if (item.record_changed)
        facts.add("Record of the data", "last changed " +
                                            whole_moment(*item.record_changed) +
                                            ", which needn't be the deletion");
    for (const std::string &conflict : item.conflicts)
        facts.add_html("Conflict",
                       "<strong>" + evidence_html(escaped(std::string_view(conflict))) +
                           "</strong>");
    add_members(facts, item.members);
    const std::string command = "recyclebin explain " + shell_quoted(told.medium_name) +
                                " " + item.id + (told.is_carved ? " --carve" : "") +
                                std::string(key_comment(told.access));
    facts.add_html("Explained by",
                   "<code>" + evidence_html(escaped(std::string_view(command))) +
                       "</code>");
}

} // namespace

void write_deletion_detail(std::ostream &out, const deletion &item, const listing &told)
{
    write_conclusions(out, item, told);
    const std::size_t shown = std::min(item.sightings.size(), max_sightings);
    out << "<ol>\n";
    for (std::size_t at = 0; at < shown; ++at) {
        write_sighting_html(out, item.sightings[at], told);
        out << "</li>\n";
    }
    out << "</ol>\n";
    if (shown < item.sightings.size())
        out << "<p>and " << counted(item.sightings.size() - shown, "sighting")
            << " more</p>\n";
}

} // namespace hv
