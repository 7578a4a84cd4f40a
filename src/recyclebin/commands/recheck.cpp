#include "disk/hv_file_source.h"
#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/proof_fields.h"
#include "recyclebin/range_bytes.h"
#include "recyclebin/row_reading.h"
#include "recyclebin/run_context.h"
#include "recyclebin/sha256.h"
#include "recyclebin/update_sequence.h"

#include <cstdio>
#include <fstream>

namespace hv {

namespace {

constexpr std::size_t max_ranges_in_text = 4;

// What the bytes of one row were asked, and what they answered.
struct row_findings {
    std::size_t held = 0;              // statements that the bytes still make
    std::vector<std::string> failures; // those that they don't, in words

    void add(bool holds, const std::string &failure)
    {
        if (holds)
            ++held;
        else
            failures.push_back(failure);
    }
};

// Compares what the row says metadata states with what its bytes state.
void compare(row_findings &findings, const std::string &where,
             const row_statement &written, const row_statement &read)
{
    if (written.deleted)
        findings.add(written.deleted == read.deleted,
                     where + ": deletion time " + whole_moment(*written.deleted) +
                         (read.deleted
                              ? ", the bytes say " + whole_moment(*read.deleted)
                              : ", the bytes say none"));
    if (written.size)
        findings.add(written.size == read.size,
                     where + ": size " + grouped(*written.size) +
                         (read.size ? ", the bytes say " + grouped(*read.size)
                                    : ", the bytes say none"));
    if (written.path)
        findings.add(written.path == read.path,
                     where + ": path " + escaped(*written.path) +
                         (read.path ? ", the bytes say " + escaped(*read.path)
                                    : ", the bytes say none"));
}

// A path that the row has in part counts as far as it goes.
row_statement statement_in(byte_view bytes, const row_proof &proof)
{
    std::optional<deleted_file> read = read_statement(bytes, *proof.format);
    if (!read) return {};
    if (!proof.path_is_whole && proof.stated.path &&
        read->path.starts_with(*proof.stated.path))
        read->path = *proof.stated.path;
    return {read->deleted, read->size, read->path};
}

// Checks the bytes of one sighting, and returns what its metadata states now.
std::optional<row_statement> check_proof(row_findings &findings, const row_proof &proof,
                                         const std::string &where,
                                         const byte_source &medium)
{
    std::vector<u8> bytes;
    const std::string ranges = ranges_text(proof.ranges, max_ranges_in_text);
    if (!read_ranges(bytes, medium, proof.ranges)) {
        findings.add(false, where + ": bytes " + ranges + " can't be read");
        return {};
    }
    const byte_view view{bytes.data(), bytes.size()};
    if (!proof.sum.empty()) {
        sha256 sum;
        sum.add(view);
        findings.add(sum.finish() == proof.sum,
                     where + ": bytes " + ranges + " have another SHA-256");
    }
    if (!proof.format) return {};
    // Compressed metadata isn't on the medium as it reads.
    if (bytes.size() != proof.length) return proof.stated;
    undo_update_sequence(bytes, medium, proof.ranges);
    const row_statement read = statement_in(view, proof);
    compare(findings, where, proof.stated, read);
    return read;
}

bool states_all(const row_statement &wanted, const row_statement &read)
{
    return (!wanted.deleted || wanted.deleted == read.deleted) &&
           (!wanted.size || wanted.size == read.size) &&
           (!wanted.path || wanted.path == read.path);
}

// What holds the bytes of a proof: the medium, or a file of the examined folder. A row
// that names a file elsewhere gets a source without bytes.
byte_source_ptr source_of(const row_proof &proof, const run_context &context)
{
    if (proof.file.empty()) return context.medium;
    const std::string path = path_below(context.found.folder, proof.file);
    return std::make_shared<file_source>(path);
}

row_findings check_row(const written_row &row, const run_context &context)
{
    row_findings findings;
    bool is_stated = !row.stated.deleted && !row.stated.size && !row.stated.path;
    for (std::size_t at = 0; at < row.proofs.size(); ++at) {
        const std::string where = "sighting " + std::to_string(at + 1);
        const auto read = check_proof(findings, row.proofs[at], where,
                                      *source_of(row.proofs[at], context));
        is_stated |= read && states_all(row.stated, *read);
    }
    findings.add(is_stated,
                 "no sighting's bytes state the time, size and path of the row");
    return findings;
}

void write_findings(std::ostream &out, const written_row &row,
                    const row_findings &findings)
{
    out << (findings.failures.empty() ? "same     " : "changed  ")
        << escaped(std::string_view(row.id)) << "  " << findings.held << " of "
        << counted(findings.held + findings.failures.size(), "statement") << " hold";
    if (row.stated.path) out << "  " << escaped(*row.stated.path);
    out << '\n';
    for (const std::string &failure : findings.failures) out << "  " << failure << '\n';
}

} // namespace

exit_status run_recheck(std::ostream &out, const run_context &context)
{
    std::ifstream rows(context.line.rows_file);
    if (!rows) {
        complain(context.line.rows_file + " can't be opened");
        return exit_status::no_source;
    }
    u64 count = 0, changed = 0;
    std::string line;
    while (std::getline(rows, line)) {
        written_row row;
        std::string problem;
        if (!read_row(row, problem, line)) {
            complain(context.line.rows_file + ", line " + std::to_string(count + 1) +
                     " " + problem);
            return exit_status::no_source;
        }
        const row_findings findings = check_row(row, context);
        write_findings(out, row, findings);
        ++count;
        changed += !findings.failures.empty();
    }
    out.flush();
    std::fprintf(stderr, "%s: %s the same, %s changed\n", counted(count, "row").c_str(),
                 grouped(count - changed).c_str(), grouped(changed).c_str());
    return changed == 0 ? exit_status::rows : exit_status::no_rows;
}

} // namespace hv
