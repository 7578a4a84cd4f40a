#include "ntfs/hv_mft_entries_ctx.h"

#include "base/hv_text_convert.h"
#include "ntfs/ntfs.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

namespace hv {

namespace {

// Readers of an entry take times and names from its record, and nobody needs the list
// after the analysis.
bool is_kept(u32 type, attribute_scope scope)
{
    using enum attribute_type;
    if (scope == attribute_scope::directory_index)
        return is_type(type, index_root) || is_type(type, index_allocation);
    return !is_type(type, standard_information) && !is_type(type, attribute_list) &&
           !is_type(type, file_name);
}

constexpr std::size_t object_id_size = 16;

std::string_view label_of(attribute_ref attribute)
{
    switch (static_cast<attribute_type>(attribute.type())) {
    case attribute_type::object_id:
        return attribute.content().size() >= object_id_size ? "obj id"
                                                            : "volume version";
    case attribute_type::security_descriptor: return "security descr";
    case attribute_type::volume_name: return "vol name";
    case attribute_type::volume_information: return "vol info";
    case attribute_type::data: return attribute.has_name() ? "ads" : "unnamed data";
    case attribute_type::index_root: return "indx root";
    case attribute_type::index_allocation: return "indx alloc";
    case attribute_type::bitmap: return "bitmap";
    case attribute_type::reparse_point:
        return attribute.non_resident() ? "symbolic link" : "reparse point";
    case attribute_type::ea_information: return "extended attribs info";
    case attribute_type::ea: return "extended attribs";
    case attribute_type::property_set: return "property set";
    case attribute_type::logged_stream: return "logged stream";
    default: return "unk";
    }
}

void read_sizes(attrib_info &info, attribute_ref attribute)
{
    info.allocated_size = attribute.allocated_size();
    info.real_size = attribute.real_size();
    info.valid_size = attribute.valid_size();
    const byte_view bytes = attribute.bytes();
    info.compression_unit = bytes.read_padded<u16>(attribute::compression_unit);
    // Only headers of compressed streams have the field; in others, the runs or the
    // name take its place.
    constexpr u16 compressed = 1;
    if ((info.attribute_flags & compressed) != 0)
        info.compressed_size = bytes.read_padded<u64>(attribute::compressed_size);
}

attribute_view view_of(attribute_ref attribute, u64 source_entry)
{
    attribute_view view;
    view.label = label_of(attribute);
    attrib_info &info = view.info;
    info.type = attribute.type();
    info.attribute_id = attribute.id();
    info.attribute_flags = attribute.flags();
    info.non_resident = attribute.non_resident();
    info.source_entry = source_entry;
    info.stream_name = attribute.name();
    if (info.non_resident) {
        view.first_vcn = attribute.bytes().read_padded<u64>(attribute::first_vcn);
        read_sizes(info, attribute);
        decode_attribute_runs(attribute.bytes(), view.runs);
        return view;
    }
    const auto content = attribute.content().bytes();
    info.content.assign(content.begin(), content.end());
    if (attribute.is(attribute_type::volume_name))
        uni::utf16_name_to_utf8(attribute.content(), info.value_text);
    return view;
}

template <class Run> void order_by_vcn(std::vector<Run> &runs)
{
    std::ranges::stable_sort(runs, {}, &Run::vcn);
}

// Each extent takes at least one cluster, with at most one hole on either side. More
// runs than that for the whole medium can only come from a list that repeats itself.
u64 max_runs(const CNtfs &volume)
{
    const RAW_DISK_IO *disk = volume.get_disk();
    const u32 cluster_size = volume.get_cluster_size();
    if (disk == nullptr || cluster_size == 0) return 0;
    return disk->get_size() / cluster_size * 2 + 2;
}

// Gathers the attributes of one entry, from its own record and from those of its lists.
class entry_analysis {
public:
    entry_analysis(mft_entry &result, const CNtfs &volume, attribute_scope scope)
        : m_result(result),
          m_scope(scope),
          m_runs_left(max_runs(volume))
    {
    }

    bool wants(u32 type) const { return is_kept(type, m_scope); }

    // Keeps an attribute of the record `source_entry`, if it is wanted.
    void add(attribute_ref attribute, u64 source_entry)
    {
        if (!wants(attribute.type())) return;
        attribute_view view = view_of(attribute, source_entry);
        if (view.runs.size() > m_runs_left) view.runs.resize(m_runs_left);
        m_runs_left -= view.runs.size();
        const attribute_key key{view.info.type, view.info.attribute_id};
        if (!attribute.is(attribute_type::data)) {
            m_result.attributes.try_emplace(key, std::move(view));
            return;
        }
        const auto known = m_streams.find(view.info.stream_name);
        if (known != m_streams.end()) {
            merge_runs(m_result.attributes.at(known->second), std::move(view));
            return;
        }
        const std::string name = view.info.stream_name;
        if (m_result.attributes.try_emplace(key, std::move(view)).second)
            m_streams.emplace(name, key);
    }

    // Pieces come in the order of the records; readers want them in that of the stream.
    void finish()
    {
        for (auto &[key, view] : m_result.attributes) {
            if (is_type(key.first, attribute_type::data)) order_by_vcn(view.runs);
            runs_to_cluster_runs(view.runs, view.info.cluster_runs);
        }
    }

private:
    mft_entry &m_result;
    attribute_scope m_scope;
    u64 m_runs_left;
    std::map<std::string, attribute_key> m_streams; ///< the key of each $DATA, by name
};

// Adds what a list attribute of `result.entry` names in other records.
void follow_attribute_list(listed_records &listed, mft_entry &result,
                           const CNtfs &volume, attribute_ref attribute, u64 &budget,
                           const entry_analysis &analysis, log_handle log)
{
    result.has_attribute_list = true;
    if (attribute.non_resident()) result.list_non_resident = true;
    const std::vector<u8> content = read_attribute_list(volume, attribute, budget);
    for_each_list_entry(byte_view{content}, [&](const attribute_list_entry &named) {
        if (named.record == result.entry) return;
        debug_log(log, "primary entry %llu pointing to ref entry %llu",
                  static_cast<unsigned long long>(result.entry),
                  static_cast<unsigned long long>(named.record));
        if (analysis.wants(named.key.first)) listed.add(named.record, named.key);
    });
}

} // namespace

void merge_runs(attribute_view &into, attribute_view &&piece)
{
    if (!into.info.non_resident || !piece.info.non_resident) return;
    if (piece.first_vcn < into.first_vcn) {
        into.first_vcn = piece.first_vcn;
        into.info.allocated_size = piece.info.allocated_size;
        into.info.real_size = piece.info.real_size;
        into.info.valid_size = piece.info.valid_size;
        into.info.compressed_size = piece.info.compressed_size;
        into.info.compression_unit = piece.info.compression_unit;
    }
    into.runs.insert(into.runs.end(), std::make_move_iterator(piece.runs.begin()),
                     std::make_move_iterator(piece.runs.end()));
}

mft_entries_ctx::mft_entries_ctx(const CNtfs &volume, log_handle log)
    : m_volume(volume),
      m_log(log)
{
}

bool mft_entries_ctx::is_open() const
{
    return m_volume.is_validated();
}

bool mft_entries_ctx::read_entry(std::vector<u8> &out_record, bool &out_bad,
                                 u64 entry) const
{
    out_bad = false;
    out_record.clear();
    const RAW_DISK_IO *disk = m_volume.get_disk();
    if (disk == nullptr || !is_open()) return false;
    u64 position = m_volume.get_entry_position(entry);
    if (position == 0 ||
        __builtin_add_overflow(position, m_volume.get_volume_offset(), &position))
        return false;

    u32 length = m_volume.get_mft_record_size();
    out_record.resize(length);
    if (!disk->read_checked(out_record.data(), length, position)) length = 0;
    out_record.resize(length);
    if (has_signature(byte_view{out_record}, file_record::bad_signature)) {
        debug_log(m_log, "err: fixup_mft type: BAAD");
        out_bad = true;
        return true;
    }
    return apply_fixup(out_record, m_volume.get_bytes_per_sector(), m_volume.rules());
}

bool mft_entries_ctx::analyze_entry(mft_entry &out_result, u64 entry) const
{
    out_result = {};
    std::vector<u8> bytes;
    bool bad = false;
    if (!read_entry(bytes, bad, entry)) {
        debug_log(m_log, "err: mftfixup %llx", static_cast<unsigned long long>(entry));
        return false;
    }
    if (bad) {
        debug_log(m_log, "err: recd bad %llx", static_cast<unsigned long long>(entry));
        return false;
    }
    const byte_view record{bytes};
    out_result.entry = entry;
    out_result.sequence = record.read_padded<u16>(file_record::sequence.offset);
    out_result.base_reference =
        record.read_padded<u64>(file_record::base_reference.offset);
    out_result.has_base = out_result.base_reference != 0;
    if (record.read_padded<u16>(file_record::first_attribute.offset) == 0) return true;

    entry_analysis analysis(out_result, m_volume, scope);
    listed_records listed;
    u64 budget = max_list_bytes; // for all lists of the entry; one is usual
    for_each_attribute(record, [&](attribute_ref attribute) {
        if (attribute.is(attribute_type::attribute_list))
            follow_attribute_list(listed, out_result, m_volume, attribute, budget,
                                  analysis, m_log);
        analysis.add(attribute, entry);
        return true;
    });
    std::vector<u8> other;
    for (const listed_records::listed_record &extension : listed.records()) {
        if (!read_entry(other, bad, extension.entry) || bad ||
            !is_extension_of(byte_view{other}, entry, record))
            continue;
        for_each_listed(byte_view{other}, extension.keys, [&](attribute_ref attribute) {
            analysis.add(attribute, extension.entry);
        });
    }
    analysis.finish();
    return true;
}

bool get_attribute_list(const CNtfs &volume, u64 entry,
                        std::vector<attrib_info> &out_list, attribute_scope scope)
{
    out_list.clear();
    mft_entries_ctx context(volume);
    context.scope = scope;
    mft_entry result;
    if (!context.is_open() || !context.analyze_entry(result, entry)) return false;
    out_list.reserve(result.attributes.size());
    for (auto &[key, view] : result.attributes) {
        view.info.record_size = volume.get_mft_record_size();
        out_list.push_back(std::move(view.info));
    }
    return true;
}

} // namespace hv
