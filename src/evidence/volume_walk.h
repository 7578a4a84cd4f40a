#pragma once

#include "evidence/bin_items.h"
#include "evidence/owners.h"
#include "evidence/region_evidence.h"
#include "evidence/volume_view.h"
#include "formats/journal.h"

#include <map>
#include <set>
#include <vector>

/// Collects what a volume's own structures show of its bins, as one view has them: the
/// records of the $MFT, in use or freed, the indexes of the bins' folders with their
/// slack, the slack of records, the change journal.
namespace hv {

class volume_walk {
public:
    /// Both outlive the walk.
    volume_walk(const volume_view &view, region_evidence &evidence);

    /// Reads the whole $MFT once, and then what it leads to.
    void collect();

    /// A record that no view leads to, with the bytes that it is made of at `position`
    /// on the medium.
    void take_carved_record(const record_bytes &record, u64 position,
                            evidence_source source);
    /// An index block that no view leads to.
    void take_carved_index(byte_view block, u64 position, evidence_source source);

    /// The same for a record that lies outside of all volumes: only what is in the
    /// record itself counts.
    struct standalone_record {
        const record_bytes &record;
        u64 position = 0;
        evidence_source source = evidence_source::raw;
    };
    static void take_record_of_no_volume(region_evidence &evidence,
                                         const standalone_record &alone);
    /// Finds items that live outside of the bins now, among all that was seen so far.
    void find_restored();
    /// A line of a journal at these places of the medium.
    void take_journal_record(const journal_record &record,
                             const std::vector<byte_range> &places,
                             evidence_source source);
    /// Where the live file with this entry and sequence number is, as a path from the
    /// root, if its folder is known and no bin.
    std::optional<std::u16string> path_outside(const entry_id &file) const;

    /// The runs of the stores of shadow copies.
    const std::vector<flat_run> &store_runs() const { return m_store_runs; }
    /// What lies after the ends of files in their last clusters, in bytes on the
    /// volume.
    const std::vector<byte_range> &file_slack() const { return m_file_slack; }
    /// How many lists of a bin are in clusters that aren't there.
    u64 unread_lists() const { return m_unread_lists; }

private:
    // What is kept of each record: 16 bytes.
    struct row {
        u64 parent = 0; ///< reference
        u16 sequence = 0;
        bool exists = false;
        bool in_use = false;
        bool is_directory = false;
    };
    // Where a name that was seen belongs.
    struct belonging {
        bool is_in_bin = false;
        bool is_known = false; ///< its folder is
        std::u16string user;
    };
    // A file with its record, while it is looked at.
    struct looked_at {
        const file_facts &facts;
        const record_bytes *record = nullptr;
        const file_name_fact &name;
        belonging where;
        u64 position = ~u64{0}; ///< of a carved record on the medium
        evidence_source source = evidence_source::raw;
    };

    void scan_records();
    void scan_record(u64 entry, byte_view raw);
    void note_name(u64 entry, const file_facts &facts, const file_name_fact &name);
    // How bytes are reached, and where they are.
    struct seen_through {
        evidence_source source = evidence_source::raw;
        std::set<u32> views;
        std::function<std::vector<byte_range>(u64 at, u64 length)> places;
    };
    void search_record_slack(const record_bytes &record, const seen_through &by);
    void take_slack_names();
    void find_folders();
    void look_at_items();
    void look_at(const file_facts &facts, const record_bytes *record, u64 position,
                 evidence_source source);
    void take_metadata(const looked_at &file);
    void take_list(const looked_at &file);
    void take_data_item(const looked_at &file);
    sighting start_sighting(sighting_kind kind, const looked_at &file) const;
    std::vector<byte_range> name_ranges(const looked_at &file) const;
    void clip_to_sound(deleted_file &metadata, const looked_at &file) const;
    void judge_content(sighting &item, const stream_fact &data);
    std::vector<std::u16string> members_of(const entry_id &folder) const;
    void add_lost_folder(std::vector<sighting> &out, const sighting &name) const;
    void note_folder(const sighting &seen, const entry_id &parent);
    void read_indexes();
    void read_index(const entry_id &folder, const std::u16string &user);
    void search_names(byte_view block, const entry_id &folder,
                      const std::u16string &user,
                      const std::function<std::vector<byte_range>(u64, u64)> &places,
                      u64 used);
    bool has_name_now(const entry_id &file, const std::u16string &name) const;
    bool is_record_lost(const entry_id &file) const;
    void read_journal();
    void take_journal_page(u64 position);
    void note_slack(const file_facts &facts);
    void find_stores();

    bool spend(u64 amount, u64 &budget);
    bool matches(const entry_id &id) const;
    entry_id id_of(u64 entry) const;
    bool was_folder_at(const entry_id &folder, u64 moment) const;
    belonging belonging_of(const entry_id &parent, u64 moment) const;
    evidence_source own_source() const;

    const volume_view &m_view;
    region_evidence &m_evidence;
    file_owners m_owners;
    std::vector<row> m_rows;
    std::set<u64> m_items;                      ///< entries with a name of a bin's item
    std::map<u64, std::u16string> m_bin_names;  ///< entries that are named like a bin
    std::map<u64, std::vector<u64>> m_children; ///< by the reference of their folder
    std::optional<u64> m_journal;
    std::set<u64> m_svi; ///< folders named "System Volume Information"
    std::vector<flat_run> m_store_runs;
    std::vector<byte_range> m_file_slack;
    std::vector<sighting> m_slack_names;
    u64 m_unread_lists = 0;
    // What hostile records may cost: many can name the same clusters.
    u64 m_byte_budget;
    u64 m_cluster_budget;
};

} // namespace hv
