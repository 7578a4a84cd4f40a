#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_types.h"
#include "disk/hv_raw_disk_io.h"

#include <string>
#include <vector>

/// Run lists: where on the volume the clusters of an attribute lie. Three consumers
/// want three forms of a decoded run.
namespace hv {

/// "No place" in the list form of a sparse run.
inline constexpr u64 sparse_lcn = ~u64{0};

/// One run of a file's clusters in its compact form, as an attribute header lists it.
struct flat_run {
    u64 lcn = 0;   ///< first cluster on the volume
    u64 delta = 0; ///< magnitude of the offset to the run before; 0 marks a sparse run
    u32 clusters = 0;
    u64 vcn = 0; ///< first cluster inside the file
    bool negative = false;
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
    std::vector<u8> tail; ///< content of a resident attribute
};
using data_run_list = std::vector<data_run>;

/// The form that the disk and the readers use.
using cluster_run = disk_run;

/// Decodes a bare run list, as the parse of a record keeps it. Appends to `out_runs`,
/// which is emptied first with `clear`. False for an empty list or a zero first byte.
/// The walk ends at a zero header byte or with the bytes.
bool decode_run_list(byte_view list, data_run_list &out_runs, u32 attribute_type,
                     bool clear);
/// Appends the runs of a whole non-resident attribute, from its header on. A list that
/// is empty or cut gives the runs ahead of the cut, and success.
bool decode_attribute_runs(byte_view attribute, data_run_list &out_runs);
/// The same in the compact form. False for an attribute without bytes or of length
/// zero.
bool decode_flat_runs(byte_view attribute, std::vector<flat_run> &out_runs);

/// Converts full runs. A run without an offset is sparse, but for a first run at
/// cluster 0 whose header byte says that it has one.
void runs_to_cluster_runs(const data_run_list &runs, std::vector<cluster_run> &out);
/// Converts compact runs; one without an offset is sparse.
void flat_to_cluster_runs(const std::vector<flat_run> &runs,
                          std::vector<cluster_run> &out);
/// Leaves out sparse runs, orders the others by VCN (of two equal ones the first
/// stays), and numbers their VCNs anew without holes.
void compact_runs(std::vector<cluster_run> &runs);
/// Bytes of all runs, sparse ones left out with `skip_sparse`. Saturates at all ones.
u64 runs_total_bytes(const std::vector<cluster_run> &runs, u32 cluster_size,
                     bool skip_sparse);
/// Finds the first run that holds a VCN. False if none does; for a sparse one `out_lcn`
/// is 0.
bool find_vcn(const std::vector<cluster_run> &runs, u64 vcn, std::size_t &out_index,
              u64 &out_lcn);

} // namespace hv
