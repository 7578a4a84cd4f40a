#include "disk/hv_file_source.h"
#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/proof_fields.h"
#include "recyclebin/range_bytes.h"
#include "recyclebin/row_comparison.h"
#include "recyclebin/sha256.h"
#include "recyclebin/update_sequence.h"

namespace hv {

namespace {

constexpr std::size_t max_ranges_in_text = 4;

// Settles a statement of metadata, if the row has it.
template <class Value, class Text>
void settle(row_findings &findings, const std::string &where,
            const std::optional<Value> &written, const std::optional<Value> &read,
            Text text)
{
    if (!written) return;
    if (written == read) return findings.hold();
    findings.fail(where + text(*written) + "; the bytes say " +
                  (read ? text(*read) : "nothing"));
}

void settle_all(row_findings &findings, const std::string &where,
                const row_statement &written, const row_statement &read)
{
    settle(findings, where + "deleted ", written.deleted, read.deleted, whole_moment);
    settle(findings, where + "size ", written.size, read.size, grouped);
    settle(findings, where + "path ", written.path, read.path,
           [](const std::u16string &path) { return escaped(path); });
}

// A path that the row has in part counts up to where it is cut off.
row_statement statement_in(byte_view bytes, const row_proof &proof)
{
    std::optional<deleted_file> read = read_statement(bytes, *proof.format);
    if (!read) return {};
    if (!proof.path_is_whole && proof.stated.path &&
        read->path.starts_with(*proof.stated.path))
        read->path = *proof.stated.path;
    // JSON has no member for an empty path.
    const auto path = read->path.empty() ? std::nullopt : std::optional(read->path);
    return {read->deleted, read->size, path};
}

// Whether the bytes could be read. If not, nothing can be said of them, unless the
// medium ends before them.
bool read_proof_bytes(row_findings &findings, std::vector<u8> &bytes,
                      const row_proof &proof, const std::string &where,
                      const byte_source &medium)
{
    const u64 unreadable = medium.unreadable();
    const bool is_read = read_ranges(bytes, medium, proof.ranges);
    if (is_read && medium.unreadable() == unreadable) return true;
    bool is_beyond = false;
    for (const byte_range &range : proof.ranges)
        is_beyond |=
            range.offset > medium.size() || range.length > medium.size() - range.offset;
    const std::string text =
        where + "bytes " + ranges_text(proof.ranges, max_ranges_in_text);
    if (is_beyond)
        findings.fail(text + "; the medium ends before");
    else
        findings.leave(1, text + " can't be read");
    return false;
}

void check_sum(row_findings &findings, byte_view bytes, const row_proof &proof,
               const std::string &where)
{
    if (proof.sum.empty()) return;
    sha256 sum;
    sum.add(bytes);
    if (sum.finish() == proof.sum) return findings.hold();
    findings.fail(where + "bytes " + ranges_text(proof.ranges, max_ranges_in_text) +
                  " have another SHA-256 now");
}

// Checks the bytes of one sighting, and returns what its metadata states now.
std::optional<row_statement>
check_proof(row_findings &findings, std::set<std::string> &settled,
            const row_proof &proof, const std::string &where, const byte_source &medium)
{
    std::vector<u8> bytes;
    settled.insert("sha256");
    if (!read_proof_bytes(findings, bytes, proof, where, medium)) return {};
    const byte_view view{bytes.data(), bytes.size()};
    check_sum(findings, view, proof, where);
    // Compressed metadata isn't on the medium as it reads.
    if (!proof.format || bytes.size() != proof.length) return {};
    undo_update_sequence(bytes, medium, proof.ranges);
    const row_statement read = statement_in(view, proof);
    settle_all(findings, where + "metadata.", proof.stated, read);
    settled.insert({"metadata.deleted", "metadata.deleted_filetime", "metadata.size",
                    "metadata.path"});
    return read;
}

// The same for a sighting in a file below the folder. A row that names one elsewhere
// isn't followed there.
std::optional<row_statement> check_proof_in_file(row_findings &findings,
                                                 std::set<std::string> &settled,
                                                 const row_proof &proof,
                                                 const std::string &where,
                                                 const std::string &folder)
{
    const file_source file(path_below(folder, proof.file));
    // A folder is proved by being there, which an examination shows.
    if (file.failure() == open_failure::none || proof.ranges.empty())
        return check_proof(findings, settled, proof, where, file);
    settled.insert("sha256");
    findings.fail(where + "file " + escaped(proof.file) + " can't be read");
    return {};
}

bool states_all(const row_statement &wanted, const row_statement &read)
{
    return (!wanted.deleted || wanted.deleted == read.deleted) &&
           (!wanted.size || wanted.size == read.size) &&
           (!wanted.path || wanted.path == read.path);
}

} // namespace

settled_statements check_bytes(row_findings &findings, const written_row &row,
                               const byte_source &medium, const std::string &folder)
{
    settled_statements settled;
    bool is_stated = false;
    for (const row_proof &proof : row.proofs) {
        const std::string where =
            "sighting " + std::to_string(settled.of_sightings.size() + 1) + ": ";
        std::set<std::string> &of_sighting = settled.of_sightings.emplace_back();
        const auto read =
            proof.file.empty()
                ? check_proof(findings, of_sighting, proof, where, medium)
                : check_proof_in_file(findings, of_sighting, proof, where, folder);
        is_stated |= read && states_all(row.stated, *read);
    }
    if (!is_stated) return settled;
    findings.hold(u64{row.stated.deleted.has_value()} + row.stated.size.has_value() +
                  row.stated.path.has_value());
    settled.of_row = {"@timestamp", "recyclebin.deleted_filetime", "file.path",
                      "recyclebin.stated_size"};
    return settled;
}

} // namespace hv
