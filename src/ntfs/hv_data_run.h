#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_types.h"
#include "disk/hv_raw_disk_io.h"

#include <string>
#include <vector>

/// Run lists: which clusters of the volume hold a non-resident attribute. A list is a
/// row of entries: a byte with the counts of length and offset bytes, the length in
/// clusters, and the signed offset from the first cluster of the run before. A zero
/// byte ends it. Three kinds of readers want three forms of a decoded run. Cluster
/// numbers on the volume are LCNs, those inside the attribute VCNs.
namespace hv {

/// The `lcn` of a sparse run in the list form.
inline constexpr u64 sparse_lcn = ~u64{0};

/// One run in the compact form, for readers that keep many.
struct flat_run {
    u64 lcn = 0;   ///< first cluster on the volume
    u64 delta = 0; ///< magnitude of the offset; 0 marks a sparse run
    u32 clusters = 0;
    u64 vcn = 0;           ///< first cluster inside the file
    bool negative = false; ///< the offset was
};

/// One run in its full form.
struct data_run {
    u64 lcn = 0;   ///< in the list form `sparse_lcn` for a sparse run
    u64 delta = 0; ///< magnitude of the offset; in the list form always all ones
    u32 clusters = 0;
    u64 vcn = 0;
    bool negative = false;
    bool resident = false;  ///< the pseudo-run of a resident attribute; `clusters` is 0
    u32 content_length = 0; ///< of a resident attribute
    u32 attribute_type = 0;
    std::string attribute_name;
    u64 position = 0;     ///< byte offset of the encoded entry in the attribute
    std::vector<u8> raw;  ///< the encoded entry
    std::vector<u8> tail; ///< the content, if resident
};
using data_run_list = std::vector<data_run>;

/// The form that the disk and the readers use.
using cluster_run = disk_run;

/// Decodes a bare run list into the list form: VCNs count from 0, `delta` is all ones,
/// and a length of more than four bytes is folded into 32 bits. Appends to `out_runs`,
/// which is emptied first with `clear`. The list ends at a zero byte, or before an
/// entry that isn't whole. False for an empty list or a zero first byte.
bool decode_run_list(byte_view list, data_run_list &out_runs, u32 attribute_type,
                     bool clear);
/// Appends the runs of a non-resident attribute in the full form. `attribute` begins
/// with its header, whose first VCN the runs count from. Of a list that is cut, the
/// whole entries are decoded; an empty one adds nothing.
void decode_attribute_runs(byte_view attribute, data_run_list &out_runs);
/// The same in the compact form. False for an attribute without bytes or whose header
/// states a length of zero.
bool decode_flat_runs(byte_view attribute, std::vector<flat_run> &out_runs);

/// Converts full runs. A run without an offset is sparse, except for a first run at
/// cluster 0 whose header byte says that it has an offset.
void runs_to_cluster_runs(const data_run_list &runs, std::vector<cluster_run> &out);
/// Converts compact runs; one without an offset is sparse.
void flat_to_cluster_runs(const std::vector<flat_run> &runs,
                          std::vector<cluster_run> &out);
/// Removes sparse runs, sorts the others by VCN (of two equal ones the first stays),
/// and counts their VCNs anew without holes.
void compact_runs(std::vector<cluster_run> &runs);
/// The bytes of all runs, with `skip_sparse` without the sparse ones. All ones if 64
/// bits can't hold the sum.
u64 runs_total_bytes(const std::vector<cluster_run> &runs, u32 cluster_size,
                     bool skip_sparse);
/// Finds the first run, in list order, that holds a VCN, and the cluster of the volume.
/// False if none does; for a sparse run `out_lcn` is 0.
bool find_vcn(const std::vector<cluster_run> &runs, u64 vcn, std::size_t &out_index,
              u64 &out_lcn);

} // namespace hv
