#include "evidence/examine.h"

#include "disk/hv_watched_source.h"
#include "evidence/carve_volume.h"
#include "evidence/find_volumes.h"
#include "evidence/gap_search.h"
#include "evidence/user_names.h"
#include "vss/hv_snapshot_source.h"

#include <algorithm>
#include <tuple>

namespace hv {

namespace {

// One examination on its way.
class examiner {
public:
    examiner(examination &out, byte_source_ptr medium, const examine_options &options)
        : m_out(out),
          m_medium(std::make_shared<watched_source>(
              std::move(medium), [this](u64 read) { return reads_on(read); })),
          m_options(options)
    {
    }

    void run()
    {
        const bool takes_gaps = m_options.carve && !m_options.offset;
        gap_search gaps(*m_medium);
        const auto see = [&](u64 position, byte_view bytes) {
            if (takes_gaps) gaps.see(position, bytes);
            return goes_on(position + bytes.size(), m_medium->size());
        };
        const medium_layout layout = find_volumes(
            *m_medium,
            m_options.carve ? volume_search::every_sector : volume_search::lost_tables,
            see);
        if (is_stopped()) gaps.cut_short();
        u32 number = 0;
        for (const found_volume &volume : layout.volumes) {
            ++number;
            if (is_stopped()) break;
            if (!m_options.offset || *m_options.offset == volume.offset)
                examine_volume(volume, number);
        }
        if (takes_gaps)
            for (const byte_range &gap : layout.gaps) examine_gap(gap, gaps);
        m_names.name_users(m_out);
        if (m_medium->is_ended()) {
            m_out.is_cut_short = true;
            m_out.names_trouble.clear();
        }
        m_out.unreadable_bytes = m_medium->unreadable();
    }

private:
    bool is_stopped()
    {
        if (m_options.should_stop && m_options.should_stop()) m_out.is_cut_short = true;
        return m_out.is_cut_short;
    }

    bool goes_on(u64 done, u64 all)
    {
        if (m_options.progress) m_options.progress(done, all);
        return !is_stopped();
    }

    // Of a pass over an $MFT, what was read is what is done.
    bool reads_on(u64 read)
    {
        m_walk_done += read;
        if (m_options.progress && m_walk_done < m_walk_all)
            m_options.progress(m_walk_done, m_walk_all);
        return !m_options.should_stop || !m_options.should_stop();
    }

    void collect(volume_walk &walk, const volume_view &view)
    {
        m_walk_done = 0;
        m_walk_all = view.entry_count() * view.record_size();
        walk.collect();
        m_walk_all = 0;
    }

    u32 add_region(examined_region region)
    {
        m_out.regions.push_back(std::move(region));
        return static_cast<u32>(m_out.regions.size() - 1);
    }

    static examined_region describe(const found_volume &volume, u32 number)
    {
        return {.offset = volume.offset,
                .size = volume.size,
                .is_volume = true,
                .number = number,
                .found_by = found_by_text(volume.how),
                .serial = volume.geometry.serial,
                .cluster_size = volume.geometry.cluster_size,
                .record_size = volume.geometry.record_size,
                .sector_size = volume.geometry.sector_size,
                .boot_from_copy = volume.boot_from_copy,
                .mft_from_mirror = volume.mft == mft_state::from_mirror,
                .trouble = volume.trouble,
                .patches = volume.patches};
    }

    void examine_volume(const found_volume &volume, u32 number)
    {
        region_evidence evidence(add_region(describe(volume, number)));
        const byte_source_ptr source = patch_source(m_medium, volume.patches);
        volume_view live(source, volume.offset, 0);
        if (!live.open()) {
            if (!is_stopped())
                m_out.regions[evidence.number()].trouble = "the $MFT can't be read";
            if (m_options.carve) carve_raw(evidence, {volume.offset, volume.size});
            finish(evidence);
            return;
        }
        m_out.regions[evidence.number()].label = label_of(live);
        m_names.note_hives(live, {.volume = volume.offset});
        volume_walk walk(live, evidence);
        collect(walk, live);
        if (m_options.snapshots) examine_snapshots(live, evidence);
        if (m_options.carve) {
            carve_keeper keeper(evidence, &walk);
            const auto stretches = stretches_to_carve(live, walk);
            u64 all = 0;
            for (const carve_stretch &stretch : stretches) all += stretch.length;
            carve_stretches(keeper, *source, stretches,
                            [&](u64 done) { return goes_on(done, all); });
            walk.find_restored();
        }
        finish(evidence);
    }

    // Each snapshot is a volume of its own, whose bytes are partly those of this one.
    void examine_snapshots(const volume_view &live, region_evidence &evidence)
    {
        auto container = std::make_shared<vss_container>();
        container->report_live_reads = false;
        container->init(live.volume(), vss_load::with_blocks);
        examined_region &region = m_out.regions[evidence.number()];
        for (u32 number = 1; number <= container->store_count(); ++number) {
            if (is_stopped()) return;
            region.snapshots.push_back(container->store(number)->created);
            volume_view view(std::make_shared<snapshot_source>(container, number), 0,
                             number);
            if (!view.open()) {
                if (is_stopped()) return;
                region.trouble =
                    "snapshot " + std::to_string(number) + " can't be read";
                continue;
            }
            m_names.note_hives(
                view, {.volume = region.offset, .taken = region.snapshots.back()});
            volume_walk walk(view, evidence);
            collect(walk, view);
            if (!is_stopped() && !container->is_complete(number))
                region.trouble = "parts of snapshot " + std::to_string(number) +
                                 " are lost: later bytes stand in for them";
        }
    }

    void examine_gap(const byte_range &gap, gap_search &gaps)
    {
        const u32 number = add_region({.offset = gap.offset, .size = gap.length});
        std::optional<region_evidence> seen = gaps.take(gap, number);
        region_evidence evidence = seen ? std::move(*seen) : region_evidence(number);
        if (!seen && !is_stopped()) carve_raw(evidence, gap);
        finish(evidence);
    }

    void carve_raw(region_evidence &evidence, const byte_range &range)
    {
        carve_keeper keeper(evidence, nullptr);
        carve_stretches(keeper, *m_medium,
                        {{range.offset, range.length, evidence_source::raw}},
                        [&](u64 done) { return goes_on(done, range.length); });
    }

    void finish(region_evidence &evidence)
    {
        const u64 offset = m_out.regions[evidence.number()].offset;
        assemble(m_out.deletions, evidence.take(), offset);
    }

    examination &m_out;
    std::shared_ptr<const watched_source> m_medium;
    const examine_options &m_options;
    u64 m_walk_done = 0, m_walk_all = 0; // bytes of the $MFT that is read
    user_names m_names;
};

} // namespace

void examine(examination &out, const byte_source_ptr &medium,
             const examine_options &options)
{
    examiner(out, medium, options).run();
    sort_deletions(out.deletions);
}

void sort_deletions(std::vector<deletion> &deletions)
{
    // What has no time comes last.
    std::ranges::sort(deletions, {}, [](const deletion &each) {
        return std::tuple(each.volume, each.deleted.value_or(~u64{0}), each.user,
                          each.data_name, each.path, each.id);
    });
}

} // namespace hv
