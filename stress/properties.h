#pragma once

#include "stress/damage.h"
#include "stress/whole_runs.h"

/// What must hold of every run, whatever the medium. Each check returns what is wrong,
/// in words that let someone repeat it, or an empty text.
namespace stress {

/// Work, memory and output are bounded by the size of the medium.
std::string check_bounds(const recyclebin_run &run, u64 medium_size);

/// Every statement of every row follows from the bytes that it names as its proof.
std::string check_proofs(const recyclebin_run &run, std::span<const u8> medium);

/// Two roads to one answer agree: windows lent or read; rows without carving are among
/// those with it; a volume alone and in a disk.
std::string check_roads(std::span<const u8> medium);
/// The same, with the runs over the medium that were made already.
std::string check_roads(const recyclebin_run &live, const recyclebin_run &carved,
                        std::span<const u8> medium);

/// What the undamaged medium holds.
struct baseline {
    /// What a sighting states, and the bytes without which it need not be found.
    struct statement {
        std::string fact;
        std::vector<byte_range> needs;
    };

    recyclebin_run live;   ///< without carving
    recyclebin_run carved; ///< with it
    std::vector<statement> live_statements, carved_statements;
    /// Paths of rows of `-image` that are live statements as well.
    std::vector<statement> veskit_statements;
    u64 volume_offset = 0; ///< of the first volume, in bytes
    std::vector<structure> structures;
    /// Time and path of every record that any road leads to, decoys and used clusters
    /// included: what damage may bring to light without inventing it.
    std::set<std::string> facts;
};
baseline make_baseline(std::span<const u8> medium);

/// No row is invented: its time and path are facts of the undamaged medium, or the
/// damage touched its proof, or the head of the record that its proof is in.
std::string check_invented(const baseline &before, const recyclebin_run &after,
                           const damage &done);

/// No statement is lost that doesn't depend on the damage. Of a row without metadata,
/// the statement is its name.
std::string check_lost(const baseline &before, const recyclebin_run &after,
                       const damage &done);

/// No row of `-image` is lost that doesn't depend on the damage.
std::string check_veskit_lost(const baseline &before, const veskit_run &after,
                              const damage &done);

/// All of these, of both programs in all modes over the damaged medium. The first
/// problem counts.
std::string check_all(const baseline &before, std::span<const u8> medium,
                      const damage &done);

} // namespace stress
