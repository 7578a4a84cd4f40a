#include "scan/record_parse.h"

#include "base/hv_string.h"
#include "base/hv_text_convert.h"

#include <algorithm>
#include <set>

namespace hv {

namespace {

// Records are written in sectors of this size, whatever the medium's.
constexpr u32 store_sector_size = 512;

// What the first entry of an attribute list has to be like, for the list to be
// believed.
constexpr u32 type_step = 16;
constexpr u32 max_type = 256;
constexpr u16 min_list_entry = 32;

constexpr std::string_view zone_stream = "zone.identifier";

class record_parser {
public:
    record_parser(parsed_record &result, const parse_options &options,
                  const record_source &source)
        : m_result(result),
          m_options(options),
          m_source(source)
    {
    }

    bool parse(std::span<u8> record)
    {
        if (!passes_record_test(byte_view{record})) return false;
        m_base = byte_view{record};
        read_header(m_base);
        walk(record);
        return m_result.has_parents() || m_result.has_related;
    }

private:
    void read_header(byte_view record)
    {
        m_result.entry = record.read_padded<u32>(file_record::entry.offset);
        m_result.sequence = record.read_padded<u16>(file_record::sequence.offset);
        m_result.flags = record.read_padded<u16>(file_record::flags.offset);
        m_result.base_reference =
            record.read_padded<u64>(file_record::base_reference.offset);
        m_result.has_related = m_result.base_reference != 0;
    }

    void walk(std::span<u8> record)
    {
        restore_sector_tails(
            record, file_record::required_fixup_offset,
            byte_view{record}.read_padded<u16>(file_record::fixup_count.offset),
            store_sector_size);
        for_each_attribute(byte_view{record}, [this](attribute_ref one) {
            read_attribute(one);
            return true;
        });
    }

    void read_attribute(attribute_ref one)
    {
        switch (static_cast<attribute_type>(one.type())) {
        case attribute_type::standard_information: read_times(one.content()); break;
        case attribute_type::attribute_list: follow_list(one); break;
        case attribute_type::file_name: read_name(one.content()); break;
        case attribute_type::data: read_data(one); break;
        default: break;
        }
    }

    void read_times(byte_view content)
    {
        using namespace standard_information;
        if (content.empty()) return;
        m_result.si_created = content.read_padded<u64>(created);
        m_result.si_modified = content.read_padded<u64>(modified);
        m_result.si_mft_changed = content.read_padded<u64>(mft_changed);
        m_result.si_accessed = content.read_padded<u64>(accessed);
    }

    void read_name(byte_view content)
    {
        if (content.empty()) return;
        const u64 parent = reference_entry(content.read_padded<u64>(file_name::parent));
        m_result.first_parent = std::min(m_result.first_parent, parent);
        if (content.read_padded<u8>(file_name::name_space) == file_name::dos_name_space)
            return;
        const u64 units = content.read_padded<u8>(file_name::name_length);
        uni::utf16_name_to_utf8(content.clip(file_name::name, 2 * units),
                                m_result.name);
        if (m_result.real_size == 0)
            m_result.real_size = content.read_padded<u64>(file_name::real_size);
    }

    void read_data(attribute_ref one)
    {
        const byte_view content = one.content();
        if (one.non_resident() ? !m_options.runs : content.empty()) return;
        if (one.has_name()) {
            read_named_stream(one, content);
            return;
        }
        const bool first = m_result.data.empty() && m_result.data_runs.empty();
        if (m_result.real_size == 0)
            m_result.real_size = one.non_resident() ? one.real_size() : content.size();
        // The name is still to come, and what it will be decides whether runs matter.
        const bool too_early = m_result.name.empty() && !m_options.target_name.empty();
        if (!one.non_resident()) {
            if (first)
                m_result.data.assign(content.bytes().begin(), content.bytes().end());
        } else if (!too_early) {
            decode_flat_runs(one.bytes(), m_result.data_runs);
        }
    }

    void read_named_stream(attribute_ref one, byte_view content)
    {
        if (!m_options.named_streams || one.non_resident() ||
            !m_result.zone_data.empty())
            return;
        if (lower_copy(one.name()) == zone_stream)
            m_result.zone_data.assign(content.bytes().begin(), content.bytes().end());
    }

    static bool is_believable(byte_view list)
    {
        const u32 type = list.read_padded<u32>(list_entry::type);
        const u16 length = list.read_padded<u16>(list_entry::length);
        const u32 name_end = list.read_padded<u8>(list_entry::name_offset) +
                             u32{list.read_padded<u8>(list_entry::name_length)};
        return type % type_step == 0 && type <= max_type && length >= min_list_entry &&
               length <= list.size() && name_end <= length;
    }

    void follow_list(attribute_ref one)
    {
        std::vector<u8> outside;
        byte_view rest = one.content();
        if (one.non_resident()) {
            std::vector<flat_run> runs;
            decode_flat_runs(one.bytes(), runs);
            outside = m_source.read_clusters(runs);
            rest = byte_view{outside};
        }
        if (!is_believable(rest)) return;
        u32 type = 0;
        while (rest.read(list_entry::type, type) && type != attribute::end_marker) {
            const u16 length = rest.read_padded<u16>(list_entry::length);
            add_pending(reference_entry(rest.read_padded<u64>(list_entry::reference)));
            if (length == 0) break;
            rest = rest.from(length);
        }
        read_pending();
    }

    // Each record is read once, so lists that lead to each other end here.
    void add_pending(u64 entry)
    {
        if (entry != 0 && entry != m_result.entry && m_visited.insert(entry).second)
            m_pending.push_back(entry);
    }

    // A list inside an extension only adds to what is pending: however deep hostile
    // lists are nested, the walk here stays flat.
    void read_pending()
    {
        if (m_reading) return;
        m_reading = true;
        for (std::size_t i = 0; i < m_pending.size(); ++i) {
            std::vector<u8> bytes;
            if (!m_source.read_record(m_pending[i], bytes) ||
                !passes_record_test(byte_view{bytes}) ||
                !is_extension_of(byte_view{bytes}, m_result.entry, m_base))
                continue;
            m_result.has_related = true;
            walk(bytes);
        }
        m_pending.clear();
        m_reading = false;
    }

    parsed_record &m_result;
    const parse_options &m_options;
    const record_source &m_source;
    byte_view m_base; ///< the record itself
    std::set<u64> m_visited;
    std::vector<u64> m_pending;
    bool m_reading = false;
};

} // namespace

void parsed_record::clear()
{
    static_cast<record_facts &>(*this) = {};
    name.clear();
    data_runs.clear();
    data.clear();
    zone_data.clear();
    has_related = false;
}

bool parse_record(parsed_record &result, std::span<u8> record,
                  const parse_options &options, const record_source &source)
{
    result.clear();
    return record_parser(result, options, source).parse(record);
}

} // namespace hv
