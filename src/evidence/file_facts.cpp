#include "evidence/file_facts.h"

#include "ntfs/hv_file_record.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u32 step = 512; // of update sequences, whatever the sector size
constexpr u16 array_of_old_systems = 42;
constexpr u32 max_record = 65536;

entry_id entry_of(u64 reference)
{
    return {reference_entry(reference), reference_sequence(reference)};
}

// Whether a record of `size` bytes begins here.
bool has_sound_header(byte_view raw, u64 size, const parse_rules &rules)
{
    using namespace file_record;
    fixed_view<header_size> header;
    if (!raw.fixed(0, header) || header.get<signature_field>() != signature)
        return false;
    const u16 array = header.get<fixup_offset>();
    const bool old = rules.records_of_old_systems && array == array_of_old_systems;
    return (array == required_fixup_offset || old) &&
           header.get<fixup_count>() == 1 + size / step &&
           header.get<first_attribute>() >= array &&
           header.get<first_attribute>() < size;
}

// The update sequence of one sector: what its tail has, and what belongs there.
struct sector_tail {
    u16 check = 0;
    u16 truth = 0;
};

// `head` is where the record begins that sector `number`, counted from 0 in `raw`, is
// of.
sector_tail tail_of(byte_view raw, std::size_t head, std::size_t number)
{
    const u64 array =
        head + u64{raw.read_padded<u16>(head + file_record::fixup_offset.offset)};
    const u64 element = number - head / step + 1;
    return {raw.read_padded<u16>(array), raw.read_padded<u16>(array + 2 * element)};
}

void read_standard_information(file_facts &facts, byte_view content)
{
    using namespace standard_information;
    facts.times = {
        content.read_padded<u64>(created), content.read_padded<u64>(modified),
        content.read_padded<u64>(mft_changed), content.read_padded<u64>(accessed)};
    facts.security_id = content.read_padded<u32>(hv::standard_information::security_id);
}

bool read_name(file_name_fact &out, byte_view content, u64 place)
{
    if (content.size() < hv::file_name::name) return false;
    const u64 units = content.read_padded<u8>(hv::file_name::name_length);
    byte_view text;
    if (!content.sub(hv::file_name::name, 2 * units, text)) return false;
    out.parent = entry_of(content.read_padded<u64>(hv::file_name::parent));
    out.name = units_of(text);
    out.name_space = content.read_padded<u8>(hv::file_name::name_space);
    out.place = place;
    out.length = hv::file_name::name + text.size();
    return true;
}

stream_fact read_stream(attribute_ref attribute, u64 place)
{
    stream_fact made;
    const byte_view bytes = attribute.bytes();
    made.type = attribute.type();
    made.name =
        units_of(bytes.clip(bytes.read_padded<u16>(attribute::name_offset),
                            u64{2} * bytes.read_padded<u8>(attribute::name_length)));
    made.is_resident = !attribute.non_resident();
    if (made.is_resident) {
        const byte_view content = attribute.content();
        made.place = place + bytes.read_padded<u16>(attribute::content_offset);
        made.length = content.size();
        made.content.assign(content.bytes().begin(), content.bytes().end());
        return made;
    }
    made.first_vcn = bytes.read_padded<u64>(attribute::first_vcn);
    made.length = attribute.real_size();
    made.valid = attribute.valid_size();
    made.is_compressed = (attribute.flags() & 1U) != 0;
    made.is_encrypted = (attribute.flags() & 0x4000U) != 0;
    const u16 shift = bytes.read_padded<u16>(attribute::compression_unit);
    // Windows has units of 16 clusters. Larger ones would only cost memory.
    made.unit_clusters = shift > 0 && shift <= 4 ? 1U << shift : 16;
    decode_flat_runs(bytes, made.runs);
    return made;
}

} // namespace

std::u16string units_of(byte_view text)
{
    std::u16string units(text.size() / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = static_cast<char16_t>(text.read_padded<u16>(2 * i));
    return units;
}

bool read_record(record_bytes &out, byte_view raw, const parse_rules &rules)
{
    if (raw.size() % step != 0 || raw.size() > max_record ||
        !has_sound_header(raw, raw.size(), rules))
        return false;
    out.bytes.assign(raw.bytes().begin(), raw.bytes().end());
    out.sound = raw.size();
    std::size_t head = 0;
    for (std::size_t number = 0; (number + 1) * step <= raw.size(); ++number) {
        const std::size_t begin = number * step, tail = begin + step - 2;
        const u16 stored = raw.read_padded<u16>(tail);
        // Records are written with the same few check values: a sector of another
        // record that got here may have this one's.
        if (number > 0 && has_sound_header(raw.from(begin), raw.size(), rules) &&
            tail_of(raw, begin, number).check == stored)
            head = begin;
        const sector_tail own = tail_of(raw, head, number);
        if (head > 0 || stored != own.check) out.sound = std::min(out.sound, begin);
        if (stored != own.check) continue;
        out.bytes[tail] = static_cast<u8>(own.truth);
        out.bytes[tail + 1] = static_cast<u8>(own.truth >> 8U);
    }
    out.used = std::min<std::size_t>(
        raw.size(), raw.read_padded<u32>(file_record::bytes_in_use.offset));
    return true;
}

const file_name_fact *file_facts::name() const
{
    const auto shown = std::ranges::find_if(names, [](const file_name_fact &each) {
        return each.name_space != hv::file_name::dos_name_space;
    });
    return shown != names.end() ? &*shown : names.empty() ? nullptr : &names.front();
}

const stream_fact *file_facts::stream(attribute_type type,
                                      std::u16string_view name) const
{
    const auto found = std::ranges::find_if(streams, [&](const stream_fact &each) {
        return is_type(each.type, type) && each.name == name;
    });
    return found == streams.end() ? nullptr : &*found;
}

file_facts read_facts(const record_bytes &record, std::optional<u64> entry)
{
    using namespace file_record;
    const byte_view bytes = record.view();
    file_facts facts;
    facts.knows_entry =
        bytes.read_padded<u16>(fixup_offset.offset) >= required_fixup_offset;
    facts.id = {facts.knows_entry ? bytes.read_padded<u32>(file_record::entry.offset)
                                  : entry.value_or(0),
                bytes.read_padded<u16>(sequence.offset)};
    if (entry) facts.id.entry = *entry;
    const u16 state = bytes.read_padded<u16>(flags.offset);
    facts.in_use = (state & flag_in_use) != 0;
    facts.is_directory = (state & flag_directory) != 0;
    const u64 base = bytes.read_padded<u64>(base_reference.offset);
    if (base != 0) facts.base = entry_of(base);
    for_each_attribute(bytes.clip(0, record.used), [&](attribute_ref attribute) {
        const auto place =
            static_cast<u64>(attribute.bytes().bytes().data() - bytes.bytes().data());
        const u64 content_place =
            place + attribute.bytes().read_padded<u16>(attribute::content_offset);
        file_name_fact name;
        if (attribute.is(attribute_type::standard_information))
            read_standard_information(facts, attribute.content());
        else if (attribute.is(attribute_type::file_name)) {
            if (read_name(name, attribute.content(), content_place))
                facts.names.push_back(std::move(name));
        } else
            facts.streams.push_back(read_stream(attribute, place));
        return true;
    });
    return facts;
}

} // namespace hv
