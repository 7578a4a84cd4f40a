#include "recyclebin/bytes_command.h"
#include "recyclebin/deletion_text.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/proof_fields.h"
#include "recyclebin/range_bytes.h"
#include "recyclebin/run_context.h"
#include "recyclebin/sha256.h"
#include "recyclebin/update_sequence.h"

#include <cstdio>

namespace hv {

namespace {

constexpr std::size_t max_field_bytes = 8;     // shown of one field
constexpr std::size_t max_unnamed_bytes = 256; // shown of bytes of no known form
constexpr std::size_t max_commands = 16;

std::string hex_bytes(byte_view bytes)
{
    std::string text;
    char pair[4];
    for (const u8 byte : bytes.bytes()) {
        std::snprintf(pair, sizeof pair, "%02x ", byte);
        text += pair;
    }
    return text;
}

void write_field(std::ostream &out, byte_view bytes, const proof_field &field)
{
    const byte_view shown =
        bytes.clip(field.offset, std::min<u64>(field.length, max_field_bytes));
    std::string text = hex_bytes(shown);
    if (field.length > shown.size()) text += "...";
    char line[64];
    std::snprintf(line, sizeof line, "     +%-4llu %-28s ",
                  static_cast<unsigned long long>(field.offset), text.c_str());
    out << line << field.meaning << '\n';
}

void write_fields(std::ostream &out, const sighting &seen, byte_view bytes)
{
    // A data item that is a file is proved by its content, not by a record.
    const bool is_content = seen.kind == sighting_kind::data_item && !seen.file.empty();
    const std::vector<proof_field> fields =
        is_content ? std::vector<proof_field>() : proof_fields(seen, bytes);
    for (const proof_field &field : fields) write_field(out, bytes, field);
    if (!fields.empty()) return;
    for (u64 at = 0; at < bytes.size() && at < max_unnamed_bytes; at += max_field_bytes)
        write_field(out, bytes,
                    {at, std::min<u64>(max_field_bytes, bytes.size() - at), ""});
}

void write_proof(std::ostream &out, const sighting &seen, const run_context &context)
{
    std::vector<u8> bytes;
    if (seen.ranges.empty() || !read_proof(bytes, *context.medium, seen)) {
        out << "     its bytes can't be shown\n";
        return;
    }
    const byte_view view{bytes.data(), bytes.size()};
    sha256 sum;
    sum.add(view);
    if (seen.file.empty() &&
        undo_update_sequence(bytes, *context.medium, seen.ranges) > 0)
        out << "     at the ends of sectors, what the update sequence keeps is put "
               "back\n";
    write_fields(out, seen, view);
    out << "     sha256 " << sum.finish() << '\n';
    if (seen.ranges.size() <= max_commands)
        out << "     check it yourself: "
            << escaped(std::string_view(
                   bytes_command(seen, context.line.medium, context.input.access())))
            << '\n';
}

bool is_called(const deletion &item, const std::string &id, const std::u16string &name)
{
    return item.id == id || equal_ignoring_case(item.metadata_name, name) ||
           equal_ignoring_case(item.data_name, name);
}

std::vector<const deletion *> find_called(const run_context &context)
{
    const std::string &id = context.line.id;
    const std::u16string name = from_lossless_utf8(id);
    std::vector<const deletion *> items;
    for (const deletion *item : context.selected()) {
        if (item->id == id) return {item};
        if (is_called(*item, id, name)) items.push_back(item);
    }
    return items;
}

} // namespace

exit_status run_explain(std::ostream &out, const run_context &context)
{
    const std::vector<const deletion *> items = find_called(context);
    if (items.empty()) {
        complain("no deletion is called " + context.line.id);
        return exit_status::no_rows;
    }
    if (items.size() > 1) {
        complain(counted(items.size(), "deletion") + " are called " + context.line.id +
                 "; give one of their ids:");
        for (const deletion *item : items)
            std::fprintf(stderr, "  %s  %s  %s\n", item->id.c_str(),
                         deleted_text(*item).c_str(), path_text(*item).c_str());
        return exit_status::usage;
    }
    const deletion &item = *items.front();
    write_story_head(out, item);
    for (std::size_t at = 0; at < item.sightings.size(); ++at) {
        write_sighting(out, at + 1, item.sightings[at]);
        write_proof(out, item.sightings[at], context);
    }
    write_story_end(out, item);
    return exit_status::rows;
}

} // namespace hv
