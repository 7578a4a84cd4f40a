#pragma once

#include "recovery/folder_members.h"
#include "recyclebin/manifest.h"
#include "recyclebin/output_tree.h"
#include "recyclebin/progress.h"
#include "recyclebin/run_context.h"
#include "recyclebin/safe_names.h"

namespace hv {

/// How many files of which state an export has told of.
struct export_counts {
    u64 files = 0; ///< and streams; with data that was read
    u64 partly = 0, unproven = 0, gone = 0, not_written = 0;
    u64 bytes = 0; ///< of the files
};

/// Writes the data of deletions into a folder, or only their sums, and a line of the
/// manifest for each.
class exporter {
public:
    /// All outlive it. A null folder: only sums.
    exporter(const run_context &context, manifest_file &manifest, output_tree *tree);

    void add(const deletion &item);

    const export_counts &counts() const { return m_counts; }
    /// Part of a file that was asked for couldn't be read.
    bool is_incomplete() const { return m_is_incomplete; }
    /// Why something couldn't be written, the first time; empty if all was.
    const std::string &failure() const { return m_failure; }

private:
    // Where a file goes.
    struct target {
        std::vector<std::string> folders;
        std::string name;
    };
    using folder_times = std::vector<std::pair<std::vector<std::string>, record_times>>;

    std::string stop_reason() const;
    manifest_line start_line(const deletion &item) const;
    void add_line(const manifest_line &line);
    void add_unwritten(manifest_line &line, const std::string &reason);
    void enter_region(u32 number);

    target place_of(const deletion &item);
    target place_below(const std::vector<std::string> &folder,
                       const std::vector<std::u16string> &path);
    std::vector<std::string> used_folders(std::vector<std::string> folders,
                                          const std::vector<std::string> &more);

    void export_folder(const manifest_line &start, const item_record &record);
    bool export_member(const deletion &item, const folder_members::member &member,
                       const std::vector<std::string> &folder, folder_times &times);
    void write_folder(manifest_line line, const item_record &record,
                      const std::vector<std::string> &folders);
    void export_file(manifest_line line, const item_record &record, target place);
    void export_streams(const manifest_line &file, const item_record &record,
                        const target &beside);

    std::string export_stream(manifest_line &line, stream_reader &data,
                              const target &place);
    std::string reason_to_leave_out(const stream_reader &data);
    std::string write(manifest_line &line, stream_reader &data, const target &place);
    int copy(manifest_line &line, stream_reader &data, new_file *file, bool &is_zero);
    std::string finish(manifest_line &line, new_file &file, const target &place);
    void refuse(manifest_line &line, int error);

    const run_context &m_context;
    const volume_numbers m_volumes;
    manifest_file &m_manifest;
    output_tree *m_tree;
    used_names m_names;
    u32 m_region = 0;
    std::optional<region_views> m_views; // of that region
    std::optional<folder_members> m_members;
    // What hostile records may cost: many can name the same clusters, or be in the same
    // folder.
    u64 m_byte_budget = 0;
    u64 m_cluster_budget = 0;
    u64 m_member_budget = 0;
    std::string m_stop_reason;
    std::string m_failure;
    bool m_is_incomplete = false;
    export_counts m_counts;
    progress_line_on_terminal m_progress;
    u64 m_all_bytes = 0, m_read_bytes = 0; // of the progress
};

} // namespace hv
