#pragma once

#include "evidence/deletion.h"
#include "evidence/region_views.h"
#include "recovery/stream_reader.h"

#include <optional>
#include <vector>

/// The records that lead to the data of a deletion.
namespace hv {

/// How a record was found. The earlier ones are the surer ones.
enum class record_origin {
    live,           ///< in use on the volume as it is now
    snapshot,       ///< in use when the snapshot was taken
    freed,          ///< of the volume as it is now, given up and not used again
    carved,         ///< by no view: in a free cluster, a store, slack
    freed_snapshot, ///< given up before the snapshot was taken
};

/// A file or folder, by one record, as one view shows it.
struct item_record {
    volume_view_ptr view; ///< never null; of a carved record the volume as it is now
    record_origin origin = record_origin::live;
    file_facts facts;
    u64 sound = ~u64{0};         ///< how many bytes of the record are of one write
    std::optional<u64> position; ///< of a carved record, on the medium

    bool is_freed() const
    {
        return origin != record_origin::live && origin != record_origin::snapshot;
    }
    /// To read one of its streams; the record outlives what is returned.
    stream_choice stream(std::u16string_view name = {},
                         attribute_type type = attribute_type::data) const
    {
        return {facts, type, name, sound, is_freed(), position};
    }
};

/// The best record of the item of a deletion: of those that are in use the one of now,
/// or else of the latest snapshot; of those that are not the one with the most of its
/// clusters left. `preferred` is a view that goes before all others. Nothing if no
/// record is left. How many clusters are looked up in the bitmap is taken from the
/// budget.
std::optional<item_record> find_item_record(region_views &views,
                                            const examined_region &region,
                                            const deletion &item,
                                            std::optional<u32> preferred,
                                            u64 &cluster_budget);

} // namespace hv
