#include "recyclebin/row_comparison.h"

#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/json_text.h"

#include <algorithm>
#include <array>
#include <map>

namespace hv {

namespace {

using json = nlohmann::ordered_json;
using statement_list = std::map<std::string, const json *>;

constexpr int max_depth = 4; // of members in rows; deeper ones are compared as a whole
constexpr std::size_t max_values_in_text = 4;
constexpr std::size_t max_ranges_in_text = 4;

// They say what kind of line it is, and nothing of the medium.
constexpr std::array<std::string_view, 6> constant_members = {
    "ecs",        "event.kind",   "event.category",
    "event.type", "event.action", "recyclebin.schema_version"};
// Sightings are compared one by one.
constexpr std::string_view sightings_member = "recyclebin.sightings";
constexpr std::array<std::string_view, 5> row_members = {"@timestamp", "message",
                                                         "file", "user", "recyclebin"};

// All statements below a value, by the names that lead to them.
void collect(statement_list &statements, const json &value, const std::string &name,
             int depth = 0)
{
    if (name == sightings_member || std::ranges::count(constant_members, name) > 0)
        return;
    if (!value.is_object() || depth == max_depth) {
        statements.emplace(name, &value);
        return;
    }
    for (const auto &item : value.items())
        collect(statements, item.value(),
                name.empty() ? item.key() : name + "." + item.key(), depth + 1);
}

// The lists of a row hold at most pairs.
std::string value_text(const json &value, int depth = 0)
{
    if (value.is_string()) return escaped(text_of(value));
    if (value.is_object()) return "{...}";
    if (!value.is_array()) return value.dump();
    if (depth > 1) return "[...]";
    std::string text = "[";
    for (std::size_t at = 0; at < value.size() && at < max_values_in_text; ++at)
        text += (at > 0 ? ", " : "") + value_text(value[at], depth + 1);
    if (value.size() > max_values_in_text)
        text += " and " + std::to_string(value.size() - max_values_in_text) + " more";
    return text + "]";
}

// Whether rows have members that begin like this one. Other programs add their own.
bool is_row_member(const std::string &name)
{
    const std::string first = name.substr(0, name.find('.'));
    return std::ranges::count(row_members, first) > 0 || name == "event.id";
}

// Two sets of statements of which some are settled already.
struct statement_pair {
    statement_list written, found;
    bool is_other_version = false;

    void drop(const std::set<std::string> &settled)
    {
        for (const std::string &name : settled) {
            written.erase(name);
            found.erase(name);
        }
    }
};

void compare(row_findings &findings, const statement_pair &pair,
             const std::string &where)
{
    for (const auto &[name, value] : pair.written) {
        const std::string shown = escaped(std::string_view(name));
        const auto same = pair.found.find(name);
        if (same != pair.found.end() && *same->second == *value)
            findings.hold();
        else if (same != pair.found.end())
            findings.fail(where + shown + " " + value_text(*value) + "; now " +
                          value_text(*same->second));
        else if (pair.is_other_version || (where.empty() && !is_row_member(name)))
            findings.leave(1, where + shown + " isn't a field that is known here");
        else
            findings.fail(where + shown + " " + value_text(*value) + "; now nothing");
    }
    if (pair.is_other_version) return;
    for (const auto &[name, value] : pair.found)
        if (!pair.written.contains(name))
            findings.fail(where + escaped(std::string_view(name)) +
                          " isn't in the line; now " + value_text(*value));
}

const json &sightings_of(const written_row &row)
{
    return row.line.at("recyclebin").at("sightings");
}

// The sighting of the same kind at the same place that no other one was compared with;
// the same source before another.
std::size_t match(const row_proof &written, const std::vector<row_proof> &found,
                  const std::vector<bool> &taken)
{
    std::size_t best = found.size();
    for (std::size_t at = 0; at < found.size(); ++at) {
        if (taken[at] || found[at].kind != written.kind ||
            found[at].ranges != written.ranges)
            continue;
        if (found[at].source == written.source) return at;
        if (best == found.size()) best = at;
    }
    return best;
}

std::string proof_text(const row_proof &proof)
{
    return escaped(std::string_view(proof.kind)) + " at bytes " +
           ranges_text(proof.ranges, max_ranges_in_text);
}

void compare_sightings(row_findings &findings, const written_row &row,
                       const written_row &found, const settled_statements &settled)
{
    std::vector<bool> taken(found.proofs.size());
    for (std::size_t at = 0; at < row.proofs.size(); ++at) {
        const std::string where = "sighting " + std::to_string(at + 1) + ": ";
        const std::size_t same = match(row.proofs[at], found.proofs, taken);
        statement_pair pair{{}, {}, row.is_other_version};
        collect(pair.written, sightings_of(row)[at], "");
        if (same < found.proofs.size())
            collect(pair.found, sightings_of(found)[same], "");
        pair.drop(settled.of_sightings[at]);
        if (same < found.proofs.size()) {
            taken[same] = true;
            compare(findings, pair, where);
            continue;
        }
        findings.fail(where + proof_text(row.proofs[at]) + " doesn't count for it now");
        findings.leave(pair.written.size(), where + "isn't found any more");
    }
    for (std::size_t at = 0; at < taken.size(); ++at)
        if (!taken[at])
            findings.fail("a sighting isn't in the line: " +
                          proof_text(found.proofs[at]));
}

// Nothing is left to compare with.
void leave_all(row_findings &findings, const written_row &row,
               const settled_statements &settled)
{
    statement_pair pair;
    collect(pair.written, row.line, "");
    pair.drop(settled.of_row);
    u64 count = pair.written.size();
    for (std::size_t at = 0; at < row.proofs.size(); ++at) {
        statement_pair proof;
        collect(proof.written, sightings_of(row)[at], "");
        proof.drop(settled.of_sightings[at]);
        count += proof.written.size();
    }
    findings.fail("the medium doesn't show this deletion any more");
    findings.leave(count, "they follow from the deletion as a whole");
}

} // namespace

void row_findings::leave(u64 statements, const std::string &reason)
{
    if (statements == 0) return;
    m_unchecked += statements;
    m_reasons.push_back(reason);
}

void compare_rows(row_findings &findings, const written_row &row,
                  const written_row *found, const settled_statements &settled)
{
    if (found == nullptr) return leave_all(findings, row, settled);
    statement_pair pair{{}, {}, row.is_other_version};
    collect(pair.written, row.line, "");
    collect(pair.found, found->line, "");
    pair.drop(settled.of_row);
    compare(findings, pair, "");
    compare_sightings(findings, row, *found, settled);
}

} // namespace hv
