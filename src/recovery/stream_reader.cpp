#include "recovery/stream_reader.h"

#include "base/hv_checked_math.h"
#include "ntfs/hv_lznt1.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u64 step = u64{1} << 20;
constexpr u64 max_unit = u64{64} << 20; // Windows has units of 64 KiB
constexpr u64 encrypted_sector = 512;
// A hostile bitmap could make each cluster a gap of its own.
constexpr std::size_t max_gaps = 65536;

u64 round_up(u64 size, u64 unit)
{
    return saturating_sum(size, unit - 1) / unit * unit;
}

} // namespace

stream_reader::stream_reader(const volume_view &view, const byte_source &medium,
                             const stream_choice &choice)
    : m_view(view),
      m_medium(medium),
      m_is_freed(choice.is_freed && view.has_bitmap()),
      m_sound(choice.sound),
      m_record_position(choice.record_position),
      m_entry(choice.facts.id.entry)
{
    collect_runs(choice);
    if (m_first == nullptr) return;
    m_size = m_first->length;
    m_valid = m_first->is_resident ? m_size : m_first->valid;
    if (m_first->is_resident || m_first->first_vcn == 0) {
        // Encryption is of whole sectors: without the end of the last one, its bytes
        // can't be decrypted.
        if (!m_first->is_resident && m_first->is_encrypted)
            m_size = round_up(m_size, encrypted_sector);
        if (m_first->is_encrypted) m_valid = round_up(m_valid, encrypted_sector);
        return;
    }
    // The record that states the size is lost: what its runs hold is what is known.
    const flat_run &last = m_runs.back();
    m_size = saturating_product(last.vcn + last.clusters, m_view.cluster_size());
    m_valid = m_size;
}

void stream_reader::collect_runs(const stream_choice &choice)
{
    std::vector<const stream_fact *> pieces;
    for (const stream_fact &stream : choice.facts.streams)
        if (is_type(stream.type, choice.type) && stream.name == choice.name &&
            (stream.is_resident || stream.first_vcn == 0 || !stream.runs.empty()))
            pieces.push_back(&stream);
    if (pieces.empty()) return;
    std::ranges::stable_sort(pieces, {}, &stream_fact::first_vcn);
    m_first = pieces.front();
    for (const stream_fact *piece : pieces)
        m_runs.insert(m_runs.end(), piece->runs.begin(), piece->runs.end());
    std::erase_if(m_runs, [](const flat_run &run) { return run.clusters == 0; });
    std::ranges::stable_sort(m_runs, {}, &flat_run::vcn);
    if (!m_first->is_resident && m_first->first_vcn != 0 && m_runs.empty())
        m_first = nullptr;
}

stream_reader::stretch stream_reader::stretch_at(u64 vcn) const
{
    const auto next = std::ranges::upper_bound(m_runs, vcn, {}, &flat_run::vcn);
    const u64 begin_of_next = next == m_runs.end() ? ~u64{0} : next->vcn;
    if (next != m_runs.begin()) {
        const flat_run &run = *std::prev(next);
        const u64 skip = vcn - run.vcn;
        if (skip < run.clusters)
            return {.lcn = is_hole(run) ? 0 : saturating_sum(run.lcn, skip),
                    .clusters = std::min(run.clusters - skip, begin_of_next - vcn),
                    .is_hole = is_hole(run)};
    }
    return {.clusters = begin_of_next - vcn,
            .is_known = false,
            .is_last = next == m_runs.end()};
}

u64 stream_reader::hole_bytes() const
{
    if (m_first->is_resident) return 0;
    const u64 stored = saturating_product(stored_clusters(), m_view.cluster_size());
    return m_size - std::min(m_size, stored);
}

u64 stream_reader::stored_clusters() const
{
    u64 stored = 0;
    for (const flat_run &run : m_runs)
        if (!is_hole(run)) stored = saturating_sum(stored, run.clusters);
    return stored;
}

stream_reader::cluster_count stream_reader::count_clusters() const
{
    cluster_count count;
    for (const flat_run &run : m_runs) {
        if (is_hole(run)) continue;
        // No honest stream has more clusters than its volume.
        if (run.clusters > m_view.cluster_count() ||
            count.stored > m_view.cluster_count())
            return {count.stored + 1, count.stored + 1};
        count.stored += run.clusters;
        const u64 end = std::max(run.lcn, m_view.cluster_count());
        const u64 inside = std::min<u64>(run.clusters, end - run.lcn);
        count.taken += run.clusters - inside;
        for (u64 i = 0; m_is_freed && i < inside; ++i)
            count.taken +=
                m_view.is_in_use(run.lcn + i) && m_view.is_use_known(run.lcn + i);
    }
    return count;
}

std::vector<byte_range> stream_reader::ranges() const
{
    if (!m_first->is_resident)
        return m_view.places(m_runs, m_first->is_compressed ? ~u64{0} : m_size);
    if (m_first->place == 0 || m_size == 0) return {};
    if (m_record_position) return {{*m_record_position + m_first->place, m_size}};
    return m_view.places_in_record(m_entry, m_first->place, m_size);
}

void stream_reader::add_gap(u64 offset, u64 length, gap_reason why)
{
    length = std::min(length, m_size - std::min(offset, m_size));
    if (length == 0) return;
    if (!m_gaps.empty()) {
        stream_gap &last = m_gaps.back();
        const bool follows = last.offset + last.length == offset && last.why == why;
        // The last one takes in the rest, rather than that any is left out.
        if (follows || m_gaps.size() >= max_gaps) {
            last.length = offset + length - last.offset;
            return;
        }
    }
    m_gaps.push_back({offset, length, why});
}

byte_view stream_reader::next()
{
    m_bytes.clear();
    if (m_first == nullptr || m_done >= m_size) return {};
    if (m_first->is_resident)
        read_resident();
    else if (m_done >= m_valid)
        m_bytes.resize(std::min(step, m_size - m_done));
    else if (m_first->is_compressed)
        read_unit();
    else
        read_plain();
    m_done += m_bytes.size();
    return byte_view{m_bytes};
}

void stream_reader::read_resident()
{
    m_bytes = m_first->content;
    const u64 begin = m_first->place;
    if (begin == 0 || begin + m_size <= m_sound) return;
    const u64 sound = m_sound > begin ? m_sound - begin : 0;
    std::fill(m_bytes.begin() + static_cast<std::ptrdiff_t>(sound), m_bytes.end(),
              u8{0});
    add_gap(sound, m_size - sound, gap_reason::torn);
}

void stream_reader::read_plain()
{
    const u64 cluster = m_view.cluster_size();
    const u64 skip = m_done % cluster;
    const stretch from = stretch_at(m_done / cluster);
    const u64 left = saturating_product(from.clusters, cluster) - skip;
    m_bytes.resize(std::min({step, left, std::min(m_size, m_valid) - m_done}));
    fill_stretch(m_bytes, from, skip);
}

// `skip` bytes of the stretch were read before.
void stream_reader::fill_stretch(std::span<u8> out, const stretch &from, u64 skip)
{
    if (from.is_hole) return;
    if (!from.is_known) {
        add_gap(m_done, out.size(), gap_reason::no_run);
        return;
    }
    const u64 cluster = m_view.cluster_size();
    for (u64 done = 0; done < out.size();) {
        // As many clusters at once as have one owner.
        const u64 first = saturating_sum(from.lcn, (skip + done) / cluster);
        const auto is_others = [this](u64 number) {
            return m_is_freed && m_view.is_in_use(number) &&
                   m_view.is_use_known(number);
        };
        const bool is_taken = is_others(first);
        u64 end = cluster - (skip + done) % cluster;
        for (u64 i = 1; done + end < out.size(); ++i, end += cluster)
            if (is_others(first + i) != is_taken) break;
        const std::span<u8> part =
            out.subspan(done, std::min<u64>(end, out.size() - done));
        u64 position = 0;
        if (is_taken)
            add_gap(m_done + done, part.size(), gap_reason::overwritten);
        else if (checked_position(first, cluster, (skip + done) % cluster, position))
            fill_stored(part, position, m_done + done);
        else
            add_gap(m_done + done, part.size(), gap_reason::off_medium);
        done += part.size();
    }
}

// Bytes at a place relative to the volume, which are at `offset` of the stream.
void stream_reader::fill_stored(std::span<u8> out, u64 position, u64 offset)
{
    std::ranges::copy(m_view.read_at(position, out.size()), out.begin());
    find_gaps(position, out.size(), offset);
}

// What the medium didn't deliver of bytes that were just read.
void stream_reader::find_gaps(u64 position, u64 length, u64 offset)
{
    for (u64 done = 0; done < length;) {
        const byte_source::place place =
            m_view.place_at(saturating_sum(position, done));
        const u64 count =
            place.length == 0 ? length - done : std::min(place.length, length - done);
        if (place.length == 0 || !place.is_stored)
            add_gap(offset + done, count, gap_reason::off_medium);
        else
            for (const auto &bad : m_medium.unreadable_in(place.position, count))
                add_gap(offset + done + (bad.offset - place.position), bad.length,
                        gap_reason::unreadable);
        done += count;
    }
}

// ---- Compressed streams: each unit is stored in fewer clusters than it has

void stream_reader::read_unit()
{
    const u64 unit = u64{m_first->unit_clusters} * m_view.cluster_size();
    const u64 wanted = std::min(unit, std::min(m_size, m_valid) - m_done);
    if (unit > max_unit) {
        m_bytes.resize(std::min(step, wanted));
        add_gap(m_done, m_bytes.size(), gap_reason::not_expanded);
        return;
    }
    m_bytes.resize(wanted);
    std::vector<u8> packed;
    bool has_hole = false;
    // What is missing of a unit costs all of it: the rest couldn't be expanded.
    std::vector<stream_gap> before;
    before.swap(m_gaps);
    collect_unit(packed, has_hole);
    before.swap(m_gaps);
    if (!before.empty())
        add_gap(m_done, wanted, before.front().why);
    else if (!packed.empty())
        expand(byte_view{packed}, has_hole);
}

// The stored clusters of the unit at `m_done`.
void stream_reader::collect_unit(std::vector<u8> &packed, bool &has_hole)
{
    const u64 cluster = m_view.cluster_size();
    for (u64 i = 0; i < m_first->unit_clusters; ++i) {
        const stretch from = stretch_at(m_done / cluster + i);
        has_hole = has_hole || from.is_hole;
        // The last unit may have fewer clusters.
        if (i > 0 && !from.is_known && from.is_last) break;
        if (from.is_hole) continue;
        const std::size_t size = packed.size();
        packed.resize(size + cluster);
        fill_stretch(std::span(packed).subspan(size), from, 0);
    }
}

void stream_reader::expand(byte_view packed, bool has_hole)
{
    std::size_t count = 0;
    const bool is_expanded = expand_unit(m_bytes, count, packed, has_hole);
    const auto plain = std::span(m_bytes).first(count);
    const bool is_copy =
        has_hole && std::ranges::equal(plain, packed.clip(0, count).bytes());
    if (!is_expanded || is_copy)
        add_gap(m_done, m_bytes.size(), gap_reason::not_expanded);
}

} // namespace hv
