#include "stress/edit_field.h"

#include "samples/ntfs_structures.h"
#include "stress/fields.h"
#include "stress/numbers.h"

#include <algorithm>
#include <array>

namespace stress {

namespace {

using namespace test_support::ntfs_structures;
using test_support::append;
using test_support::byte_vector;
using test_support::extent;
using test_support::hole;
using test_support::put_bytes;
using test_support::put_number;

// A structure of a kind; if there is none, the one that is edited.
const structure &other_of(const editing &context, structure_kind kind)
{
    const auto is_wanted = [kind](const structure &each) { return each.kind == kind; };
    const auto count = std::ranges::count_if(context.structures, is_wanted);
    u64 left = context.decide.below(static_cast<u64>(count));
    for (const structure &each : context.structures)
        if (is_wanted(each) && left-- == 0) return each;
    return context.target;
}

const structure &any_other(const editing &context)
{
    return context.structures[context.decide.below(context.structures.size())];
}

// The volume that a structure is on, by the last boot sector before it.
struct volume {
    u64 offset = 0;
    u64 cluster_size = 4096;
};

volume volume_of(const editing &context)
{
    volume found;
    for (const structure &each : context.structures) {
        if (each.offset > context.target.offset) break;
        if (each.kind != structure_kind::boot_sector) continue;
        const u64 size = number_at(context.medium, each.offset + 11, 2) *
                         number_at(context.medium, each.offset + 13, 1);
        found = {each.offset, std::max<u64>(size, 512)};
    }
    return found;
}

// Where a structure is, as others of its volume refer to it. What is before the volume
// gets a number too large for it.
u64 place_of(const structure &other, const editing &context)
{
    return other.offset - volume_of(context).offset;
}

u64 cluster_of(const structure &other, const editing &context)
{
    const volume on = volume_of(context);
    return (other.offset - on.offset) / on.cluster_size;
}

u64 reference_of(const structure &record, const editing &context)
{
    const u64 entry = number_at(context.medium, record.offset + 44, 4);
    return entry | number_at(context.medium, record.offset + 16, 2) << 48;
}

// Values, each made of the old one or of what else there is on the medium

using idea = u64 (*)(u64 old, const editing &context);

constexpr u64 day = u64{24} * 3600 * 10'000'000; // of a FILETIME

u64 flipped(u64 old, const editing &context)
{
    return old ^ u64 { 1 } << context.decide.below(64);
}
u64 structure_size(u64, const editing &context)
{
    return context.target.length;
}

constexpr std::array<idea, 16> number_ideas = {
    [](u64, const editing &) -> u64 { return 0; },
    [](u64, const editing &) -> u64 { return 1; },
    [](u64 old, const editing &) -> u64 { return old + 1; },
    [](u64 old, const editing &) -> u64 { return old - 1; },
    [](u64 old, const editing &) -> u64 { return old + 8; },
    [](u64 old, const editing &) -> u64 { return old - 8; },
    [](u64 old, const editing &) -> u64 { return 2 * old; },
    [](u64 old, const editing &) -> u64 { return old / 2; },
    [](u64, const editing &) -> u64 { return ~u64{0}; },
    [](u64, const editing &) -> u64 { return 0x7FFFFFFFFFFFFFFF; },
    [](u64, const editing &) -> u64 { return 0x7FFFFFFF; },
    [](u64, const editing &context) -> u64 { return context.decide.below(256); },
    [](u64, const editing &context) -> u64 { return context.decide.below(65536); },
    structure_size,
    flipped,
    flipped};

constexpr std::array<idea, 6> reference_ideas = {
    [](u64, const editing &context) {
        return reference_of(other_of(context, structure_kind::file_record), context);
    },
    [](u64, const editing &context) {
        return reference_of(other_of(context, structure_kind::file_record), context);
    },
    [](u64, const editing &context) { return reference_of(context.target, context); },
    [](u64, const editing &) { return 5 | u64{5} << 48; }, // the root
    [](u64, const editing &) { return u64{1} << 48; },     // the $MFT
    [](u64 old, const editing &) { return old + (u64{1} << 48); }};

constexpr std::array<idea, 5> time_ideas = {
    [](u64 old, const editing &) { return old + 1; },
    [](u64 old, const editing &context) {
        return old + context.decide.below(256) * day;
    },
    [](u64 old, const editing &context) {
        return old - context.decide.below(256) * day;
    },
    [](u64 old, const editing &) { return old + 36525 * day; },
    [](u64, const editing &) { return u64{1} << 63; }};

constexpr std::array<idea, 4> cluster_ideas = {
    [](u64, const editing &context) { return cluster_of(any_other(context), context); },
    [](u64, const editing &context) {
        return cluster_of(other_of(context, structure_kind::file_record), context);
    },
    [](u64, const editing &context) { return cluster_of(context.target, context); },
    [](u64 old, const editing &context) { return old + context.decide.below(16) - 8; }};

constexpr std::array<idea, 4> place_ideas = {
    [](u64, const editing &context) {
        return place_of(other_of(context, structure_kind::shadow_block), context);
    },
    [](u64, const editing &context) {
        return place_of(other_of(context, structure_kind::shadow_block), context);
    },
    [](u64, const editing &context) { return place_of(context.target, context); },
    [](u64, const editing &context) { return place_of(any_other(context), context); }};

constexpr std::array<idea, 3> position_ideas = {
    [](u64, const editing &context) { return any_other(context).offset / 512; },
    [](u64, const editing &context) { return context.target.offset / 512; },
    [](u64 old, const editing &context) { return old + context.decide.below(16) - 8; }};

constexpr std::array<idea, 2> power_ideas = {
    [](u64, const editing &context) { return u64{1} << context.decide.below(16); },
    [](u64, const editing &context) { return 256 - context.decide.below(32); }};

struct kind_ideas {
    field_kind kind;
    std::span<const idea> ideas;
};
constexpr std::array<kind_ideas, 6> ideas_by_kind = {
    {{field_kind::reference, reference_ideas},
     {field_kind::time, time_ideas},
     {field_kind::cluster, cluster_ideas},
     {field_kind::place, place_ideas},
     {field_kind::position, position_ideas},
     {field_kind::power, power_ideas}}};

// One time in four, a field gets a value that any number might.
std::span<const idea> ideas_for(field_kind kind, choices &decide)
{
    for (const kind_ideas &each : ideas_by_kind)
        if (each.kind == kind && decide.below(4) != 0) return each.ideas;
    return number_ideas;
}

std::string edit_number(std::vector<u8> &bytes, const field &at, const editing &context)
{
    const u64 old = number_at(bytes, at.offset, at.length);
    const std::span<const idea> ideas = ideas_for(at.kind, context.decide);
    const u64 value = ideas[context.decide.below(ideas.size())](old, context);
    put_number(bytes, at.offset, value, at.length);
    return "field " + std::to_string(at.offset) + " was " + std::to_string(old) +
           ", is " + std::to_string(number_at(bytes, at.offset, at.length));
}

// Texts

std::string edit_text(std::vector<u8> &bytes, const field &at, const editing &context)
{
    using namespace std::string_view_literals;
    static constexpr std::array<std::u16string_view, 16> texts = {
        u"\x1B[2J\x1B]0;x\a", u"\r\n\t",       u"=1+1",         u"\",\"",
        u"\u202Egpj.exe",     u"\xD800",       u"\xDC00\xD800", u"\0x"sv,
        u"..\\..\\",          u"$R",           u"$I",           u"INFO2",
        u"Dc1.txt",           u"$Recycle.Bin", u"S-1-5-21-1",   u"C:\\"};
    const u64 width = at.kind == field_kind::text8 ? 1 : 2;
    const u64 units = at.length / width;
    const u64 start = context.decide.below(2) == 0 ? 0 : context.decide.below(units);
    const u64 number = context.decide.below(texts.size());
    const std::u16string_view text = texts[number];
    for (u64 i = 0; i < text.size() && start + i < units; ++i)
        put_number(bytes, at.offset + width * (start + i), text[i], width);
    return "text " + std::to_string(number) + " at " +
           std::to_string(at.offset + width * start);
}

// Run lists

std::vector<extent> decode_runs(std::span<const u8> list)
{
    std::vector<extent> runs;
    u64 lcn = 0;
    for (u64 at = 0; at < list.size() && list[at] != 0;) {
        const std::size_t wide = list[at] & 0xFU, delta_wide = list[at] >> 4U;
        if (wide == 0 || wide > 8 || delta_wide > 8) break;
        const u64 clusters = number_at(list, at + 1, wide);
        u64 delta = number_at(list, at + 1 + wide, delta_wide);
        if (delta_wide > 0 && delta_wide < 8 && delta >> (8 * delta_wide - 1) != 0)
            delta |= ~u64{0} << 8 * delta_wide;
        lcn += delta;
        runs.push_back({delta_wide == 0 ? hole : lcn, clusters});
        at += 1 + wide + delta_wide;
    }
    return runs;
}

struct run_edit {
    const char *name;
    void (*apply)(std::vector<extent> &runs, extent &run, const editing &context);
};
constexpr std::array<run_edit, 11> run_edits = {{
    {"elsewhere",
     [](auto &, extent &run, const editing &context) {
         run.lcn = cluster_of(any_other(context), context);
     }},
    {"onto a record",
     [](auto &, extent &run, const editing &context) {
         run.lcn = cluster_of(other_of(context, structure_kind::file_record), context);
     }},
    {"near", [](auto &, extent &run,
                const editing &context) { run.lcn += context.decide.below(16) - 8; }},
    {"before the volume",
     [](auto &, extent &run, const editing &) { run.lcn = 0 - run.lcn; }},
    {"far away", [](auto &, extent &run, const editing &) { run.lcn = u64{1} << 50; }},
    {"sparse", [](auto &, extent &run, const editing &) { run.lcn = hole; }},
    {"of another length",
     [](auto &, extent &run, const editing &context) {
         run.clusters = context.decide.below(64);
     }},
    {"very long",
     [](auto &, extent &run, const editing &context) {
         run.clusters <<= context.decide.below(48);
     }},
    {"dropped",
     [](auto &runs, extent &run, const editing &) {
         runs.erase(runs.begin() + (&run - runs.data()));
     }},
    {"repeated",
     [](auto &runs, extent &run, const editing &) {
         const extent copy = run;
         runs.insert(runs.end(), 8, copy);
     }},
    {"exchanged with the first",
     [](auto &runs, extent &run, const editing &) { std::swap(runs.front(), run); }},
}};

// Half the time, the attribute then says how many clusters it has now. A list that has
// no room ends without an end.
std::string edit_runs(std::vector<u8> &bytes, const field &at, const editing &context)
{
    const u64 from = number_at(bytes, at.offset + 32, 2);
    if (from >= at.length) return "no run list";
    const std::span<const u8> all = bytes;
    const u64 room = at.length - from;
    std::vector<extent> runs = decode_runs(clipped(all, at.offset + from, room));
    if (runs.empty()) return "an empty run list";
    extent &run = runs[context.decide.below(runs.size())];
    const run_edit &edit = run_edits[context.decide.below(run_edits.size())];
    edit.apply(runs, run, context);
    byte_vector encoded = encode_runs(runs);
    encoded.resize(std::min<u64>(encoded.size(), room));
    put_bytes(bytes, at.offset + from, encoded);
    if (context.decide.below(2) == 0) {
        u64 clusters = 0;
        for (const extent &each : runs) clusters += each.clusters;
        const u64 first = number_at(bytes, at.offset + 16, 8);
        put_number(bytes, at.offset + 24, first + clusters - 1, 8);
    }
    return "a run of " + std::to_string(at.offset) + " is " + edit.name;
}

// Records

std::vector<byte_vector> attributes_of(const std::vector<u8> &record)
{
    std::vector<byte_vector> found;
    u64 at = number_at(record, 20, 2);
    while (at + 16 <= record.size() && number_at(record, at, 4) != 0xFFFFFFFF) {
        const u64 length = number_at(record, at + 4, 4);
        if (length < 16 || length > record.size() - at) break;
        found.push_back(test_support::cut(record, at, length));
        at += length;
    }
    return found;
}

// An attribute list whose entries lead to records by chance, this one among them.
byte_vector wild_list(const editing &context)
{
    static constexpr std::array<u32, 4> types = {0x80, 0x30, 0xA0, 0x20};
    attribute list;
    list.type = test_support::ntfs_type::attribute_list;
    for (u64 left = 1 + context.decide.below(6); left > 0; --left) {
        attribute listed;
        listed.type = types[context.decide.below(types.size())];
        listed.first_vcn = context.decide.below(3);
        const idea leads_to =
            reference_ideas[context.decide.below(reference_ideas.size())];
        append(list.content, encode_list_entry(listed, leads_to(0, context)));
    }
    return encode(list);
}

struct record_edit {
    const char *name;
    void (*apply)(std::vector<byte_vector> &attributes, u64 chosen,
                  const editing &context);
};
constexpr std::array<record_edit, 6> record_edits = {{
    {"gets an attribute list",
     [](auto &attributes, u64, const editing &context) {
         attributes.insert(attributes.begin() + 1, wild_list(context));
     }},
    {"gets an attribute list, and gives up all after it",
     [](auto &attributes, u64, const editing &context) {
         attributes.resize(1);
         attributes.push_back(wild_list(context));
     }},
    {"has an attribute twice",
     [](auto &attributes, u64 chosen, const editing &) {
         const byte_vector copy = attributes[chosen];
         attributes.push_back(copy);
     }},
    {"loses an attribute",
     [](auto &attributes, u64 chosen, const editing &) {
         attributes.erase(attributes.begin() + static_cast<std::ptrdiff_t>(chosen));
     }},
    {"has its attributes in another order",
     [](auto &attributes, u64 chosen, const editing &) {
         std::swap(attributes.front(), attributes[chosen]);
     }},
    {"has attributes of another one",
     [](auto &attributes, u64, const editing &context) {
         const structure &from = other_of(context, structure_kind::file_record);
         const auto bytes = clipped(context.medium, from.offset, 1024);
         for (const byte_vector &each : attributes_of({bytes.begin(), bytes.end()}))
             attributes.push_back(each);
     }},
}};

// What doesn't fit any more is left out.
void put_attributes(std::vector<u8> &record, const std::vector<byte_vector> &attributes)
{
    const u64 end_size = 8;
    u64 at = number_at(record, 20, 2);
    if (at + end_size > record.size()) return;
    for (const byte_vector &each : attributes) {
        if (each.size() + end_size > record.size() - at) break;
        put_bytes(record, at, each);
        at += each.size();
    }
    put_number(record, at, 0xFFFFFFFF, 8);
    put_number(record, 24, at + end_size, 4);
}

std::string edit_record(std::vector<u8> &bytes, const editing &context)
{
    std::vector<byte_vector> attributes = attributes_of(bytes);
    if (attributes.empty()) return "a record without attributes";
    const u64 chosen = context.decide.below(attributes.size());
    const record_edit &edit = record_edits[context.decide.below(record_edits.size())];
    edit.apply(attributes, chosen, context);
    put_attributes(bytes, attributes);
    return std::string("the record ") + edit.name;
}

} // namespace

std::string edit_field(std::vector<u8> &bytes, const editing &context)
{
    const structure_kind kind = context.target.kind;
    if (kind == structure_kind::file_record && context.decide.below(8) == 7)
        return edit_record(bytes, context);
    const std::vector<field> fields = fields_of(kind, bytes);
    if (fields.empty()) return "no field";
    const field &chosen = fields[context.decide.below(fields.size())];
    switch (chosen.kind) {
    case field_kind::text8:
    case field_kind::text16: return edit_text(bytes, chosen, context);
    case field_kind::runs: return edit_runs(bytes, chosen, context);
    default: return edit_number(bytes, chosen, context);
    }
}

} // namespace stress
