#include "evidence/carve_volume.h"

#include "base/hv_checked_math.h"
#include "evidence/byte_ranges.h"
#include "evidence/carve.h"
#include "evidence/slack.h"

#include <algorithm>

namespace hv {

namespace {

constexpr u64 sector_size = 512;

record_bytes record_of(const carved_block &block)
{
    record_bytes record;
    record.bytes.assign(block.bytes.bytes().begin(), block.bytes.bytes().end());
    record.sound = block.is_torn ? std::min<std::size_t>(510, record.bytes.size())
                                 : record.bytes.size();
    record.used = std::min<std::size_t>(
        record.bytes.size(),
        block.bytes.read_padded<u32>(file_record::bytes_in_use.offset));
    return record;
}

// Reports metadata in the slack of a carved record, at places on the medium.
class slack_of_record : public carve_sink {
public:
    slack_of_record(carve_sink &sink, u64 position) : m_sink(sink), m_position(position)
    {
    }
    void found_metadata(u64 at, const deleted_file &file) override
    {
        m_sink.found_metadata(m_position + at, file);
    }

private:
    carve_sink &m_sink;
    u64 m_position;
};

} // namespace

void carve_keeper::found_record(const carved_block &record)
{
    const record_bytes bytes = record_of(record);
    if (m_walk != nullptr) {
        m_walk->take_carved_record(bytes, record.position, m_source);
        return;
    }
    slack_of_record slack(*this, record.position);
    search_record_slack(record.bytes, slack);
    const volume_walk::standalone_record alone = {bytes, record.position, m_source};
    volume_walk::take_record_of_no_volume(m_evidence, alone);
}

void carve_keeper::found_index_block(const carved_block &block)
{
    if (m_walk != nullptr)
        m_walk->take_carved_index(block.bytes, block.position, m_source);
}

void carve_keeper::found_metadata(u64 at, const deleted_file &file)
{
    sighting seen;
    seen.kind = sighting_kind::metadata;
    seen.source = m_source;
    seen.ranges = {{at, file.length}};
    if (file.format != metadata_format::dollar_i_1 &&
        file.format != metadata_format::dollar_i_2)
        seen.name = listed_data_name(file.drive, file.number, file.path);
    seen.metadata = file;
    m_evidence.add(std::move(seen));
}

void carve_keeper::found_journal_record(u64 at, const journal_record &record)
{
    if (m_walk != nullptr)
        m_walk->take_journal_record(record, {{at, record.length}}, m_source);
}

namespace {

// The clusters that records of files in use name.
std::vector<bool> clusters_of_files(const volume_view &view)
{
    std::vector<bool> used(view.cluster_count());
    // Many hostile records can name the same clusters.
    u64 budget = saturating_sum(saturating_product(64, used.size()), u64{1} << 24U);
    const auto mark = [&](const flat_run &run) {
        const u64 begin = std::min<u64>(run.lcn, used.size());
        const u64 count = std::min({u64{run.clusters}, used.size() - begin, budget});
        const auto first = used.begin() + static_cast<std::ptrdiff_t>(begin);
        std::fill_n(first, count, true);
        budget -= count;
    };
    view.for_each_record([&](u64 entry, byte_view raw) {
        record_bytes record;
        if (!read_record(record, raw, parse_rules::complete())) return;
        const file_facts facts = read_facts(record, entry);
        if (!facts.in_use) return;
        for (const stream_fact &stream : facts.streams)
            for (const flat_run &run : stream.runs)
                if (!is_hole(run)) mark(run);
    });
    return used;
}

} // namespace

std::vector<carve_stretch> stretches_to_carve(const volume_view &view,
                                              const volume_walk &walk)
{
    std::vector<carve_stretch> stretches;
    const u64 cluster = view.cluster_size();
    const u64 base = view.offset();
    std::optional<std::vector<bool>> of_files;
    const auto is_in_use = [&](u64 number) -> bool {
        if (view.is_use_known(number)) return view.is_in_use(number);
        if (!of_files) of_files = clusters_of_files(view);
        return (*of_files)[number];
    };
    for (u64 i = 0; i < view.cluster_count(); ++i) {
        if (is_in_use(i)) continue;
        const u64 position = base + i * cluster;
        if (!stretches.empty() &&
            stretches.back().position + stretches.back().length == position)
            stretches.back().length += cluster;
        else
            stretches.push_back({position, cluster, evidence_source::free_cluster});
    }
    for (const flat_run &run : walk.store_runs())
        if (!is_hole(run))
            stretches.push_back({base + run.lcn * cluster, run.clusters * cluster,
                                 evidence_source::shadow_store});
    for (const byte_range &slack : walk.file_slack())
        stretches.push_back(
            {base + slack.offset, slack.length, evidence_source::file_slack});
    std::ranges::sort(stretches, {}, &carve_stretch::position);
    return stretches;
}

void carve_stretches(carve_keeper &keeper, const byte_source &source,
                     const std::vector<carve_stretch> &stretches,
                     const std::function<bool(u64)> &goes_on)
{
    carver search(keeper);
    source_window window(source);
    u64 done = 0;
    for (const carve_stretch &stretch : stretches) {
        search.finish();
        keeper.set_source(stretch.source);
        const u64 end =
            std::min(source.size(), saturating_sum(stretch.position, stretch.length));
        for (u64 at = stretch.position; at < end;) {
            // Holes of a sparse image read as zeros, in which there is nothing.
            const u64 data = source.next_data(at);
            if (data / sector_size * sector_size > at) {
                const u64 next = data / sector_size * sector_size;
                done += std::min(next, end) - at;
                at = next;
                continue;
            }
            const u64 last = (source.next_hole(data) + bytes_into_hole) / sector_size;
            const byte_view bytes =
                window.at(at, std::min(end, last * sector_size) - at);
            if (bytes.empty()) break;
            search.carve(bytes, at);
            at += bytes.size();
            done += bytes.size();
            if (goes_on && !goes_on(done)) return search.finish();
        }
    }
    search.finish();
}

} // namespace hv
