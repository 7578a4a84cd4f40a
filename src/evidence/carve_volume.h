#pragma once

#include "evidence/carve_sink.h"
#include "evidence/volume_walk.h"

/// What carved bytes become: sightings of the region that they lie in.
namespace hv {

/// Takes what a search of free bytes finds. Without a walk, the bytes are of no volume,
/// and only what explains itself counts.
class carve_keeper : public carve_sink {
public:
    /// Both outlive the keeper; `walk` may be null.
    carve_keeper(region_evidence &evidence, volume_walk *walk)
        : m_evidence(evidence),
          m_walk(walk)
    {
    }

    /// What kind of bytes are searched from here on.
    void set_source(evidence_source source) { m_source = source; }

    void found_record(const carved_block &record) override;
    void found_index_block(const carved_block &block) override;
    void found_metadata(u64 at, const deleted_file &file) override;
    void found_journal_record(u64 at, const journal_record &record) override;

private:
    region_evidence &m_evidence;
    volume_walk *m_walk;
    evidence_source m_source = evidence_source::raw;
};

/// Bytes of a source that are searched, and what they are.
struct carve_stretch {
    u64 position = 0; ///< on the source
    u64 length = 0;
    evidence_source source = evidence_source::free_cluster;
};

/// The free clusters of a volume, the stores of its shadow copies, and the slack of its
/// files, in the order of their places. Where $Bitmap can't be read, a cluster is free
/// that no record of a file in use names.
std::vector<carve_stretch> stretches_to_carve(const volume_view &view,
                                              const volume_walk &walk);

/// Searches stretches of a source. `goes_on` is told how many bytes are done, and ends
/// the search if it returns false.
void carve_stretches(carve_keeper &keeper, const byte_source &source,
                     const std::vector<carve_stretch> &stretches,
                     const std::function<bool(u64 done)> &goes_on);

} // namespace hv
