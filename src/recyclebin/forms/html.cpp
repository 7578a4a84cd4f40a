#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/forms/html_assets.h"
#include "recyclebin/forms/html_detail.h"
#include "recyclebin/forms/html_text.h"
#include "recyclebin/forms/html_timeline.h"
#include "recyclebin/forms/user_labels.h"
#include "recyclebin/forms/writers.h"
#include "recyclebin/moments.h"
#include "recyclebin/views.h"

#include <algorithm>

namespace hv {

namespace {

// What browsers open and sort within seconds.
constexpr std::size_t max_rows = 25'000;
constexpr std::size_t max_details = 10'000;

void write_head(std::ostream &out, const std::string &medium)
{
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        << "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
        << "style-src '" << policy_hash(html_style) << "'; script-src '"
        << policy_hash(html_script) << "'; base-uri 'none'; form-action 'none'\">\n"
        << "<meta name=\"viewport\" content=\"width=device-width\">\n"
        << "<meta name=\"referrer\" content=\"no-referrer\">\n<title>Deletions on "
        << html_escaped(medium) << "</title>\n<style>" << html_style
        << "</style>\n</head>\n<body>\n";
}

// A cell of the head, with the name by which the script knows its column.
struct column {
    const char *name = "";
    const char *title = "";
    bool is_number = false;
};

void write_header(std::ostream &out, std::initializer_list<column> columns)
{
    out << "<thead><tr>";
    for (const column &each : columns)
        out << "<th scope=\"col\" data-column=\"" << each.name << "\""
            << (each.is_number ? " class=\"number\"" : "") << ">" << each.title
            << "</th>";
    out << "</tr></thead>\n";
}

// ---- Summary

void write_volumes(std::ostream &out, const listing &told)
{
    const volume_numbers volumes(told.found);
    out << "<table>\n";
    write_header(out, {{"volume", "Volume"},
                       {"offset", "First byte", true},
                       {"size", "Bytes", true},
                       {"label", "Label"},
                       {"snapshots", "Snapshots", true},
                       {"trouble", "Not read"}});
    for (u32 at = 0; at < told.found.regions.size(); ++at) {
        const examined_region &region = told.found.regions[at];
        if (!region.is_volume && region.trouble.empty()) continue;
        out << "<tr><td>" << volumes.text(at) << "</td><td class=\"number\">"
            << grouped(region.offset) << "</td><td class=\"number\">"
            << grouped(region.size) << "</td><td>"
            << evidence_html(escaped(std::string_view(region.label)))
            << "</td><td class=\"number\">" << region.snapshots.size()
            << "</td><td class=\"alert\">"
            << evidence_html(escaped(std::string_view(region.trouble)))
            << "</td></tr>\n";
    }
    out << "</table>\n";
}

struct user_summary {
    u64 count = 0;
    std::optional<u64> first, last; // FILETIMEs
};

std::map<std::u16string, user_summary> summarize_users(const listing &told)
{
    std::map<std::u16string, user_summary> users;
    for (const deletion *item : told.items) {
        user_summary &of_user = users[item->user];
        ++of_user.count;
        if (!item->deleted) continue;
        of_user.first =
            std::min(of_user.first.value_or(*item->deleted), *item->deleted);
        of_user.last = std::max(of_user.last.value_or(0), *item->deleted);
    }
    return users;
}

void write_users(std::ostream &out, const listing &told)
{
    const auto moment = [](const std::optional<u64> &filetime) {
        return filetime ? short_moment(*filetime) : "-";
    };
    const user_labels labels(told);
    out << "<table>\n";
    write_header(out, {{"user", "User"},
                       {"name", "Name"},
                       {"count", "Deletions", true},
                       {"first", "First (UTC)"},
                       {"last", "Last (UTC)"}});
    for (const auto &[folder, of_user] : summarize_users(told))
        out << "<tr><td>" << evidence_html(folder.empty() ? "-" : escaped(folder))
            << "</td><td>" << evidence_html(labels.name_of(folder))
            << "</td><td class=\"number\">" << grouped(of_user.count)
            << "</td><td class=\"time\">" << moment(of_user.first)
            << "</td><td class=\"time\">" << moment(of_user.last) << "</td></tr>\n";
    out << "</table>\n";
}

void write_states(std::ostream &out, const listing &told)
{
    std::map<deletion_state, u64> counts;
    for (const deletion *item : told.items) ++counts[item->state];
    out << "<table>\n";
    write_header(out, {{"state", "State"}, {"count", "Deletions", true}});
    for (const auto &[state, count] : counts)
        out << "<tr><td>" << sentence_for(state) << "</td><td class=\"number\">"
            << grouped(count) << "</td></tr>\n";
    out << "<tr><td>all</td><td class=\"number\">" << grouped(told.items.size())
        << "</td></tr>\n</table>\n";
}

void write_summary(std::ostream &out, const listing &told, const std::string &medium)
{
    out << "<h1>Deletions on " << evidence_html(medium) << "</h1>\n<p>"
        << html_escaped(told.medium_kind) << (told.medium_kind.empty() ? "" : ", ")
        << counted(told.medium.size(), "byte")
        << (told.is_carved ? "; free clusters and gaps were searched, too"
                           : "; free clusters weren't searched")
        << ". Made by recyclebin " << RECYCLEBIN_VERSION << ".</p>\n";
    if (told.found.unreadable_bytes > 0)
        out << "<p class=\"alert\">" << counted(told.found.unreadable_bytes, "byte")
            << " couldn't be read.</p>\n";
    write_volumes(out, told);
    out << "<h2>States</h2>\n";
    write_states(out, told);
    out << "<h2>Users</h2>\n";
    write_users(out, told);
    out << "<h2>Timeline</h2>\n";
    write_timeline_picture(out, told);
}

// ---- Table

// What rows call volumes and users.
struct row_names {
    volume_numbers volumes;
    user_labels users;
};

enum class detail { shown, left_out };

void write_row(std::ostream &out, const deletion &item, const listing &told,
               const row_names &names, detail with)
{
    const std::string path = evidence_html(path_text(item));
    out << "<tr><td>" << names.volumes.text(item.volume) << "</td><td class=\"time\">"
        << deleted_text(item) << "</td><td class=\"number\">" << size_text(item)
        << "</td><td class=\"user\">" << evidence_html(names.users.of(item))
        << "</td><td>" << word_for(item.state) << "</td><td>" << data_text(item)
        << "</td><td>" << places_of(item).text() << "</td><td>";
    const char *alert = " <span class=\"alert\">sightings disagree</span>";
    if (with == detail::shown) {
        out << "<details><summary>" << path << (item.conflicts.empty() ? "" : alert)
            << "</summary><div>\n";
        write_deletion_detail(out, item, told);
        out << "</div></details>";
    } else {
        out << path << (item.conflicts.empty() ? "" : alert);
    }
    out << "</td></tr>\n";
}

void write_controls(std::ostream &out)
{
    out << "<form id=\"view\" hidden>\n"
           "<label>Find <input name=\"filter\" type=\"search\"></label>\n"
           "<label>User <select name=\"user\"><option value=\"\">all</option></select>"
           "</label>\n"
           "<label>State <select name=\"state\"><option value=\"\">all</option>"
           "</select></label>\n"
           "<span id=\"shown\" class=\"quiet\" role=\"status\"></span>\n</form>\n";
}

// What the page leaves out, in words.
std::string limits_text(std::size_t count)
{
    std::string text;
    if (count > max_details)
        text += "How it is known is shown for the first " + grouped(max_details) +
                " deletions only. ";
    if (count > max_rows)
        text += grouped(count - max_rows) +
                " deletions are counted above, but have no row here. ";
    return text.empty() ? text : text + "The forms sqlite and jsonl hold all of it.";
}

void write_deletions(std::ostream &out, const listing &told)
{
    out << "<h2>Deletions</h2>\n";
    const std::string limits = limits_text(told.items.size());
    if (!limits.empty()) out << "<p class=\"alert\">" << limits << "</p>\n";
    if (told.items.empty()) {
        out << "<p>There are none.</p>\n";
        return;
    }
    out << "<p class=\"screen quiet\">Open a path to see how its deletion is known."
           "</p>\n";
    write_controls(out);
    out << "<table id=\"deletions\">\n";
    write_header(out, {{"volume", "Volume"},
                       {"deleted", "Deleted (UTC)"},
                       {"size", "Size", true},
                       {"user", "User"},
                       {"state", "State"},
                       {"data", "Data"},
                       {"seen", "Seen in"},
                       {"path", "Path"}});
    out << "<tbody>\n";
    const row_names names{volume_numbers(told.found), user_labels(told)};
    const std::size_t shown = std::min(told.items.size(), max_rows);
    for (std::size_t at = 0; at < shown; ++at)
        write_row(out, *told.items[at], told, names,
                  at < max_details ? detail::shown : detail::left_out);
    out << "</tbody>\n</table>\n";
}

} // namespace

void write_html(std::ostream &out, const listing &told,
                const form_options & /*options*/)
{
    const std::string medium = escaped(std::string_view(told.medium_name));
    write_head(out, medium);
    write_summary(out, told, medium);
    write_deletions(out, told);
    out << "<script>" << html_script << "</script>\n</body>\n</html>\n";
}

} // namespace hv
