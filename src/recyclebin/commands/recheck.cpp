#include "recyclebin/deletion_json.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/interruption.h"
#include "recyclebin/progress.h"
#include "recyclebin/row_comparison.h"
#include "recyclebin/run_context.h"

#include <cstdio>
#include <fstream>

namespace hv {

namespace {

using row_list = std::vector<written_row>;

// An examination whose deletions are found by their ids or, if a row's id isn't that of
// any, by the places of their sightings.
class searchable_examination {
public:
    searchable_examination(const run_context &context, bool carve)
        : m_medium(context.medium)
    {
        progress_line_on_terminal progress;
        examine_options options;
        options.carve = carve;
        options.progress = [&](u64 done, u64 all) { progress.show(done, all); };
        options.should_stop = is_interrupted;
        context.input.examine(m_found, options);
        for (const deletion &item : m_found.deletions) {
            m_by_id.emplace(item.id, &item);
            for (const sighting &seen : item.sightings)
                if (!seen.ranges.empty()) m_by_place.emplace(seen.ranges[0], &item);
        }
    }

    // The row of this deletion as `list` would write it now; nothing without one.
    std::optional<written_row> find(const written_row &row) const
    {
        const deletion *item = find_deletion(row);
        if (item == nullptr) return {};
        std::optional<written_row> found{std::in_place};
        std::string problem;
        const std::string line = deletion_json(*item, m_found, *m_medium);
        return read_row(*found, problem, line) ? std::move(found) : std::nullopt;
    }

private:
    const deletion *find_deletion(const written_row &row) const
    {
        const auto same = m_by_id.find(row.id);
        if (same != m_by_id.end()) return same->second;
        std::map<const deletion *, u64> shared;
        const deletion *best = nullptr;
        for (const row_proof &proof : row.proofs) {
            if (proof.ranges.empty()) continue;
            const auto [first, last] = m_by_place.equal_range(proof.ranges[0]);
            for (auto at = first; at != last; ++at)
                if (++shared[at->second] > shared[best]) best = at->second;
        }
        return best;
    }

    byte_source_ptr m_medium;
    examination m_found;
    std::map<std::string, const deletion *> m_by_id;
    std::multimap<byte_range, const deletion *> m_by_place;
};

// Examines the medium in both ways, each when the first row needs it.
class rechecker {
public:
    rechecker(const run_context &context, const row_list &rows) : m_context(context)
    {
        for (const written_row &row : rows) m_is_carved |= row.is_carved;
    }

    row_findings check(const written_row &row)
    {
        row_findings by_bytes;
        const settled_statements settled =
            check_bytes(by_bytes, row, *m_context.medium, m_context.input.folder());
        const auto compared = [&](const std::optional<written_row> &found) {
            row_findings findings = by_bytes;
            compare_rows(findings, row, found ? &*found : nullptr, settled);
            return findings;
        };
        if (row.is_carved) return compared(carved().find(row));
        const std::optional<written_row> plain = examined(m_plain, false).find(row);
        row_findings findings = compared(plain);
        // A row of a list with --carve may owe to it more than sightings of its own:
        // the volume that it is on.
        const bool may_be_carved =
            m_is_carved || (!plain && by_bytes.failures().empty());
        if (findings.failures().empty() || !may_be_carved) return findings;
        row_findings others = compared(carved().find(row));
        return others.failures().size() < findings.failures().size() ? others
                                                                     : findings;
    }

private:
    using examination_slot = std::optional<searchable_examination>;

    const searchable_examination &examined(examination_slot &slot, bool carve)
    {
        if (!slot) slot.emplace(m_context, carve);
        return *slot;
    }
    const searchable_examination &carved() { return examined(m_carved, true); }

    const run_context &m_context;
    bool m_is_carved = false; // some row is
    examination_slot m_plain, m_carved;
};

bool read_rows(row_list &rows, const std::string &path)
{
    std::ifstream file(path);
    if (!file) {
        complain(path + " can't be opened");
        return false;
    }
    std::string line, problem;
    while (std::getline(file, line)) {
        if (read_row(rows.emplace_back(), problem, line)) continue;
        complain(path + ", line " + std::to_string(rows.size()) + " " + problem);
        return false;
    }
    if (!file.bad()) return true;
    complain(path + " can't be read");
    return false;
}

void write_findings(std::ostream &out, const written_row &row,
                    const row_findings &findings)
{
    const u64 failed = findings.failures().size();
    const u64 all = findings.held() + failed + findings.unchecked();
    out << (failed > 0                 ? "changed    "
            : findings.unchecked() > 0 ? "unchecked  "
                                       : "same       ")
        << escaped(std::string_view(row.id)) << "  " << grouped(findings.held())
        << " of " << counted(all, "statement") << " hold";
    out << "  "
        << (row.stated.path ? escaped(*row.stated.path) : "<" + escaped(row.name) + ">")
        << '\n';
    for (const std::string &failure : findings.failures())
        out << "  " << failure << '\n';
    if (findings.unchecked() == 0) return;
    out << "  " << grouped(findings.unchecked()) << " can't be checked:\n";
    for (const std::string &reason : findings.reasons())
        out << "    " << reason << '\n';
}

} // namespace

exit_status run_recheck(std::ostream &out, const run_context &context)
{
    row_list rows;
    if (!read_rows(rows, context.line.rows_file)) return exit_status::no_source;
    rechecker checker(context, rows);
    u64 changed = 0, unchecked = 0;
    u64 checked = 0;
    for (const written_row &row : rows) {
        const row_findings findings = checker.check(row);
        // Half an examination says nothing of a row.
        if (is_interrupted()) break;
        ++checked;
        write_findings(out, row, findings);
        if (!findings.failures().empty())
            ++changed;
        else
            unchecked += findings.unchecked() > 0;
    }
    out.flush();
    if (checked < rows.size())
        complain("interrupted; " + counted(rows.size() - checked, "row") +
                 " not checked");
    std::fprintf(stderr, "%s: %s the same, %s changed", counted(checked, "row").c_str(),
                 grouped(checked - changed - unchecked).c_str(),
                 grouped(changed).c_str());
    if (unchecked > 0)
        std::fprintf(stderr, ", %s not checked whole", grouped(unchecked).c_str());
    std::fputc('\n', stderr);
    if (changed > 0) return exit_status::no_rows;
    return unchecked > 0 || checked < rows.size() ? exit_status::partly
                                                  : exit_status::rows;
}

} // namespace hv
