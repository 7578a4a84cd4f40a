#include "evidence/volume_view.h"

#include "base/hv_checked_math.h"
#include "base/hv_text_convert.h"
#include "disk/hv_source_bytes.h"
#include "ntfs/hv_attribute_list.h"
#include "ntfs/hv_lznt1.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u64 batch_bytes = u64{1} << 20;
constexpr u64 max_bitmap = u64{1} << 28; // of a volume with 2^31 clusters
constexpr std::size_t max_extensions = 1024;
// Of the content of one file. In a snapshot each block may be in another place.
constexpr std::size_t max_ranges = 65536;
constexpr u32 min_record = 512, max_record = 65536; // bytes

const parse_rules rules = parse_rules::complete();

} // namespace

void append_range(std::vector<byte_range> &ranges, const byte_range &range)
{
    if (range.length == 0) return;
    if (!ranges.empty() && ranges.back().offset + ranges.back().length == range.offset)
        ranges.back().length += range.length;
    else
        ranges.push_back(range);
}

bool file_content::has_unread(u64 offset, u64 length) const
{
    const auto first =
        std::lower_bound(unread.begin(), unread.end(), offset,
                         [](const byte_source::unread_part &bad, u64 at) {
                             return bad.offset + bad.length <= at;
                         });
    return first != unread.end() && first->offset < saturating_sum(offset, length);
}

volume_view::volume_view(byte_source_ptr source, u64 offset, u32 number)
    : m_source(std::move(source)),
      m_offset(offset),
      m_number(number)
{
}

bool volume_view::open(cluster_map map)
{
    m_volume = std::make_unique<CNtfs>(m_source, m_offset, rules);
    if (!m_volume->validate_volume()) return false;
    m_mft_runs = m_volume->get_mft_runs();
    m_record_size = m_volume->get_mft_record_size();
    m_cluster_size = m_volume->get_cluster_size();
    // Hostile runs may claim more than there is.
    m_entry_count =
        std::min(m_volume->get_mft_entry_count(), m_source->size() / record_size() + 1);
    const u64 end =
        (m_source->size() - std::min(m_source->size(), m_offset)) / cluster_size();
    m_cluster_count = std::min(m_volume->get_total_clusters(), end);
    if (map == cluster_map::load) load_bitmap();
    return true;
}

bool volume_view::open_mft_copy()
{
    const std::vector<u8> head = read_bytes(*m_source, 0, file_record::header_size);
    const byte_view header{head};
    const u32 size = header.read_padded<u32>(file_record::bytes_allocated.offset);
    // A sparse file could claim any number of records.
    const u64 bytes =
        std::min(m_source->size(), saturating_product(64, m_source->stored_size()));
    const u64 count = size == 0 ? 0 : bytes / size + 1;
    if (header.read_padded<u32>(file_record::signature_field.offset) !=
            file_record::signature ||
        size < min_record || size > max_record || size % min_record != 0 ||
        count > UINT32_MAX)
        return false;
    // The copy is taken for one run of clusters that each hold a record.
    m_record_size = m_cluster_size = size;
    m_mft_runs = {{.clusters = static_cast<u32>(count)}};
    m_entry_count = count;
    for_each_record([this](u64 entry, byte_view raw) {
        const u64 base = raw.read_padded<u64>(file_record::base_reference.offset);
        if (base != 0) m_extensions.emplace(reference_entry(base), entry);
    });
    return true;
}

void volume_view::load_bitmap()
{
    file_facts facts;
    record_bytes record;
    if (!read_file(facts, record, bitmap_entry_number) ||
        !read_stream(m_bitmap, facts, std::min(max_bitmap, m_cluster_count / 8 + 8)))
        m_bitmap = {};
    // A cluster of which nothing is known isn't free.
    for (const auto &bad : m_bitmap.unread)
        std::ranges::fill(std::span(m_bitmap.bytes).subspan(bad.offset, bad.length),
                          u8{0xFF});
}

bool volume_view::is_in_use(u64 cluster) const
{
    const u64 at = cluster / 8;
    return at >= m_bitmap.bytes.size() || (m_bitmap.bytes[at] >> cluster % 8 & 1U) != 0;
}

bool volume_view::is_use_known(u64 cluster) const
{
    return cluster / 8 < m_bitmap.bytes.size() && !m_bitmap.has_unread(cluster / 8, 1);
}

// A cluster of an impossible number is after the end of every medium.
u64 volume_view::position_of(u64 lcn) const
{
    return saturating_product(lcn, cluster_size());
}

std::vector<u8> volume_view::read_at(u64 position, u64 length) const
{
    std::vector<u8> bytes(length);
    m_source->read(saturating_sum(m_offset, position), bytes);
    return bytes;
}

byte_source::place volume_view::place_at(u64 position) const
{
    const u64 at = saturating_sum(m_offset, position);
    if (at >= m_source->size()) return {.position = 0, .length = 0, .is_stored = false};
    return m_source->locate(at);
}

std::vector<byte_range> volume_view::places_at(u64 position, u64 length) const
{
    std::vector<byte_range> ranges;
    u64 at = saturating_sum(m_offset, position);
    const u64 end = std::min(m_source->size(), saturating_sum(at, length));
    while (at < end && ranges.size() < max_ranges) {
        const byte_source::place place = m_source->locate(at);
        const u64 count = std::min(place.length, end - at);
        if (count == 0) break;
        if (place.is_stored) append_range(ranges, {place.position, count});
        at += count;
    }
    return ranges;
}

// ---- Records

void volume_view::for_each_record(
    const std::function<void(u64, byte_view)> &visit) const
{
    const u32 size = record_size();
    std::vector<u8> batch;
    for (const cluster_run &run : m_mft_runs) {
        if (run.is_sparse) continue;
        const u64 bytes = u64{run.clusters} * cluster_size();
        u64 at = (size - run.vcn * cluster_size() % size) % size;
        while (at + size <= bytes) {
            const u64 count = std::min(batch_bytes, (bytes - at) / size * size);
            batch.resize(count);
            const std::size_t got =
                m_source->read(m_offset + run.lcn * cluster_size() + at, batch);
            if (got == 0) break;
            const u64 first = (run.vcn * cluster_size() + at) / size;
            // The medium may end in a record: zeros stand for its rest.
            std::fill(batch.begin() + static_cast<std::ptrdiff_t>(got), batch.end(),
                      u8{0});
            for (u64 i = 0; i * size < got; ++i)
                visit(first + i, byte_view(batch.data() + i * size, size));
            at += count;
        }
    }
}

bool volume_view::raw_record(std::vector<u8> &out, u64 entry) const
{
    if (entry >= m_entry_count) return false;
    out.resize(record_size());
    if (!has_clusters()) return m_source->read(entry * out.size(), out) != 0;
    const u64 position = m_volume->get_entry_position(entry);
    if (position == 0) return false;
    // A record may be divided between two runs.
    const u64 cluster = cluster_size();
    if (cluster >= out.size()) return m_source->read(m_offset + position, out) != 0;
    for (u64 done = 0; done < out.size(); done += cluster) {
        std::size_t index = 0;
        u64 lcn = 0;
        const u64 vcn = (entry * out.size() + done) / cluster;
        if (!find_vcn(m_mft_runs, vcn, index, lcn)) return false;
        const std::span<u8> part = std::span(out).subspan(done, cluster);
        if (m_source->read(m_offset + lcn * cluster, part) != cluster) return false;
    }
    return true;
}

bool volume_view::read_file(file_facts &out, record_bytes &record, u64 entry) const
{
    std::vector<u8> raw;
    if (!raw_record(raw, entry) || !hv::read_record(record, byte_view{raw}, rules))
        return false;
    out = read_facts(record, entry);
    follow_list(out, record, entry);
    return true;
}

// The records that extend a file's own, by its attribute list. Where that is in
// clusters that aren't there, those that name the file as their base.
std::set<u64> volume_view::extensions_of(const file_facts &facts, u64 entry) const
{
    std::set<u64> records;
    file_content list;
    if (read_stream(list, facts, max_list_bytes, attribute_type::attribute_list)) {
        for_each_list_entry(
            byte_view{list.bytes}, [&](const attribute_list_entry &each) {
                if (each.record != entry && records.size() < max_extensions)
                    records.insert(each.record);
            });
        return records;
    }
    if (facts.stream(attribute_type::attribute_list) == nullptr) return records;
    const auto [begin, end] = m_extensions.equal_range(entry);
    for (auto each = begin; each != end && records.size() < max_extensions; ++each)
        records.insert(each->second);
    return records;
}

// Adds the facts of the records that extend a file's own.
void volume_view::follow_list(file_facts &facts, const record_bytes &record,
                              u64 entry) const
{
    for (const u64 number : extensions_of(facts, entry)) {
        std::vector<u8> raw;
        record_bytes extension;
        if (!raw_record(raw, number) ||
            !hv::read_record(extension, byte_view{raw}, rules) ||
            !is_extension_of(extension.view(), entry, record.view()))
            continue;
        file_facts more = read_facts(extension, number);
        // Their places are in another record: nothing here points to them.
        for (file_name_fact &name : more.names) {
            name.length = 0;
            facts.names.push_back(std::move(name));
        }
        for (stream_fact &stream : more.streams) {
            stream.place = 0;
            facts.streams.push_back(std::move(stream));
        }
    }
}

std::vector<byte_range> volume_view::places_in_record(u64 entry, u64 at,
                                                      u64 length) const
{
    std::vector<byte_range> ranges;
    const u64 cluster = cluster_size();
    for (u64 done = 0; done < length;) {
        const u64 offset = entry * record_size() + at + done;
        std::size_t index = 0;
        u64 lcn = 0;
        if (!find_vcn(m_mft_runs, offset / cluster, index, lcn)) break;
        const u64 count = std::min(cluster - offset % cluster, length - done);
        for (const byte_range &range :
             places_at(lcn * cluster + offset % cluster, count))
            append_range(ranges, range);
        done += count;
    }
    return ranges;
}

// ---- Streams

volume_view::stream_pieces volume_view::pieces_of(const file_facts &facts,
                                                  attribute_type type,
                                                  std::u16string_view name) const
{
    stream_pieces found;
    std::vector<const stream_fact *> pieces;
    for (const stream_fact &stream : facts.streams)
        if (is_type(stream.type, type) && stream.name == name)
            pieces.push_back(&stream);
    std::ranges::stable_sort(pieces, {}, &stream_fact::first_vcn);
    for (const stream_fact *piece : pieces)
        found.runs.insert(found.runs.end(), piece->runs.begin(), piece->runs.end());
    if (!pieces.empty()) found.first = pieces.front();
    return found;
}

std::vector<byte_range> volume_view::places(const std::vector<flat_run> &runs,
                                            u64 limit) const
{
    std::vector<byte_range> ranges;
    if (!has_clusters()) return ranges;
    for (const flat_run &run : runs) {
        const u64 bytes = std::min(limit, u64{run.clusters} * cluster_size());
        if (!is_hole(run))
            for (const byte_range &range : places_at(position_of(run.lcn), bytes))
                append_range(ranges, range);
        limit -= bytes;
        if (limit == 0 || ranges.size() >= max_ranges) break;
    }
    return ranges;
}

// Appends the bytes that are stored from a cluster on.
void volume_view::append_stored(file_content &out, u64 lcn, u64 length) const
{
    const u64 position = position_of(lcn);
    const u64 begin = out.bytes.size();
    for (const u8 byte : read_at(position, length)) out.bytes.push_back(byte);
    const u64 at = saturating_sum(m_offset, position);
    for (const auto &bad : m_source->unreadable_in(at, length))
        out.unread.push_back({begin + (bad.offset - at), bad.length});
    const u64 left = m_source->size() - std::min(m_source->size(), at);
    if (left < length) out.unread.push_back({begin + left, length - left});
}

void volume_view::read_runs(file_content &out, const std::vector<flat_run> &runs,
                            u64 limit) const
{
    for (const flat_run &run : runs) {
        // What a hostile run list claims beyond the medium isn't there.
        const u64 bytes =
            std::min({limit - out.bytes.size(), u64{run.clusters} * cluster_size(),
                      m_source->size()});
        if (is_hole(run))
            out.bytes.resize(out.bytes.size() + bytes);
        else
            append_stored(out, run.lcn, bytes);
        if (out.bytes.size() >= limit) break;
    }
    out.ranges = places(runs, limit);
}

// A compressed stream: each unit is stored in fewer clusters than it has.
void volume_view::expand(file_content &out, const stream_pieces &pieces,
                         u64 limit) const
{
    out.is_plain = false;
    out.ranges = places(pieces.runs, ~u64{0});
    const u64 unit = pieces.first->unit_clusters;
    std::vector<u64> clusters; // all ones for one that isn't stored
    for (const flat_run &run : pieces.runs)
        for (u64 i = 0; i < run.clusters && clusters.size() * cluster_size() <
                                                limit + unit * cluster_size();
             ++i)
            clusters.push_back(is_hole(run) ? sparse_lcn : run.lcn + i);
    for (u64 first = 0; first < clusters.size() && out.bytes.size() < limit;
         first += unit) {
        file_content packed;
        bool has_hole = false;
        for (u64 i = first; i < std::min<u64>(first + unit, clusters.size()); ++i) {
            has_hole = has_hole || clusters[i] == sparse_lcn;
            if (clusters[i] == sparse_lcn) continue;
            append_stored(packed, clusters[i], cluster_size());
        }
        std::vector<u8> plain(
            std::min(unit * cluster_size(), limit - out.bytes.size()));
        std::size_t count = 0;
        // What is missing of a unit costs all of it.
        if (!packed.unread.empty())
            out.unread.push_back({out.bytes.size(), plain.size()});
        else if (!packed.bytes.empty())
            expand_unit(plain, count, byte_view{packed.bytes}, has_hole);
        out.bytes.insert(out.bytes.end(), plain.begin(), plain.end());
    }
}

bool volume_view::read_stream(file_content &out, const file_facts &facts, u64 limit,
                              attribute_type type, std::u16string_view name) const
{
    const stream_pieces pieces = pieces_of(facts, type, name);
    if (pieces.first == nullptr) return false;
    out = {};
    if (pieces.first->is_resident) {
        out.bytes = pieces.first->content;
        if (pieces.first->place != 0)
            out.ranges =
                places_in_record(facts.id.entry, pieces.first->place, out.bytes.size());
        return true;
    }
    if (!has_clusters()) return false;
    limit = std::min(limit, pieces.first->length);
    if (pieces.first->is_compressed)
        expand(out, pieces, limit);
    else
        read_runs(out, pieces.runs, limit);
    return true;
}

std::string label_of(const volume_view &view)
{
    constexpr u64 volume_entry = 3, max_label = 256;
    file_facts facts;
    record_bytes record;
    file_content content;
    std::string label;
    if (view.read_file(facts, record, volume_entry) &&
        view.read_stream(content, facts, max_label, attribute_type::volume_name))
        uni::utf16_name_to_utf8(byte_view{content.bytes}, label);
    return label;
}

} // namespace hv
