#include "recyclebin/row_reading.h"

#include "recyclebin/deletion_json.h"
#include "recyclebin/json_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/views.h"

namespace hv {

namespace {

using json = nlohmann::ordered_json;

// The member of an object; null where there is none.
const json &member(const json &object, const char *name)
{
    static const json none;
    if (!object.is_object()) return none;
    const auto found = object.find(name);
    return found == object.end() ? none : *found;
}

std::string plain_text(const json &value)
{
    return value.is_string() ? value.get<std::string>() : std::string();
}

std::optional<u64> number_of(const json &value)
{
    return value.is_number_unsigned() ? std::optional(value.get<u64>()) : std::nullopt;
}

// A moment, or else the number of one that RFC 3339 can't write.
std::optional<u64> moment_of(const json &moment, const json &number)
{
    if (moment.is_string())
        return parse_rfc3339(plain_text(moment), day_end::first_moment);
    return number_of(number);
}

std::optional<std::u16string> path_of(const json &value)
{
    return value.is_string() ? std::optional(text_of(value)) : std::nullopt;
}

bool read_ranges_of(std::vector<byte_range> &ranges, const json &value)
{
    if (!value.is_array()) return false;
    for (const json &pair : value) {
        if (!pair.is_array() || pair.size() != 2) return false;
        const auto offset = number_of(pair[0]);
        const auto length = number_of(pair[1]);
        if (!offset || !length) return false;
        ranges.push_back({*offset, *length});
    }
    return true;
}

bool read_proof(row_proof &proof, const json &value)
{
    proof.kind = plain_text(member(value, "kind"));
    proof.source = plain_text(member(value, "source"));
    proof.file = path_of(member(value, "file")).value_or(u"");
    proof.sum = plain_text(member(value, "sha256"));
    const json &metadata = member(value, "metadata");
    proof.format = format_for(plain_text(member(metadata, "format")));
    proof.length = number_of(member(metadata, "length")).value_or(0);
    proof.path_is_whole = member(metadata, "path_is_whole") != json(false);
    proof.stated.deleted =
        moment_of(member(metadata, "deleted"), member(metadata, "deleted_filetime"));
    proof.stated.size = number_of(member(metadata, "size"));
    proof.stated.path = path_of(member(metadata, "path"));
    return read_ranges_of(proof.ranges, member(value, "ranges"));
}

// Rows of a later form with the same first number hold all that these do.
bool is_known_schema(const std::string &version)
{
    const std::string_view known = json_schema_version;
    return version.starts_with(known.substr(0, known.find('.') + 1));
}

} // namespace

bool read_row(written_row &row, std::string &problem, std::string_view line)
{
    json value;
    if (!parse_json(value, line) || !value.is_object()) {
        problem = "isn't JSON";
        return false;
    }
    const json &own = member(value, "recyclebin");
    if (!is_known_schema(plain_text(member(own, "schema_version")))) {
        problem = "isn't a row of a known schema version";
        return false;
    }
    row.id = plain_text(member(member(value, "event"), "id"));
    row.name = text_of(member(own, "data_file"));
    if (row.name.empty()) row.name = text_of(member(own, "metadata_file"));
    row.stated.deleted =
        moment_of(member(value, "@timestamp"), member(own, "deleted_filetime"));
    row.stated.size = number_of(member(own, "stated_size"));
    row.stated.path = path_of(member(member(value, "file"), "path"));
    const json &sightings = member(own, "sightings");
    if (!sightings.is_array() || sightings.empty()) {
        problem = "has no sightings";
        return false;
    }
    for (const json &proof : sightings) {
        if (!read_proof(row.proofs.emplace_back(), proof)) {
            problem = "has a sighting without ranges of bytes";
            return false;
        }
        const auto source = source_for(row.proofs.back().source);
        row.is_carved |= source && needs_carving(*source);
    }
    row.is_other_version =
        plain_text(member(own, "schema_version")) != json_schema_version;
    row.line = std::move(value);
    return true;
}

} // namespace hv
