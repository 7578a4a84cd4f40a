#pragma once

#include "lab/case_file.h"
#include "samples/ntfs_volume_builder.h"
#include "samples/random_source.h"
#include "samples/record_builders.h"

#include <map>
#include <string>
#include <vector>

namespace lab {

using test_support::extent;
using test_support::ntfs_item;
using test_support::ntfs_volume;
using test_support::random_source;

/// How a volume was formatted. Sizes are bytes.
struct volume_form {
    u32 cluster_size = 4096;
    u32 record_size = 1024;
    u32 sector_size = 512;
    u32 update_array = 48; ///< 42 before Windows XP
    u64 clusters = 2048;
    u64 records = 512;   ///< all that the $MFT ever has
    u64 mft_cluster = 0; ///< where the $MFT begins; 0: where there is room
    u64 offset = 0;      ///< of the volume on its medium
};

/// Where the attributes of a file with an attribute list are.
enum class extension { none, name, data };

/// How a file is kept.
struct file_shape {
    u64 fragments = 1;
    bool compressed = false;
    u64 hole_clusters = 0;  ///< after the content: sparse
    bool zone = false;      ///< a stream Zone.Identifier
    bool hard_link = false; ///< a second name outside the bin
    extension moved = extension::none;
    bool list_in_clusters = false; ///< the attribute list
};

/// What a user sends to the bin. What is empty or 0 is made up.
struct sent_item {
    std::u16string path = {};
    u64 size = 0;
    u64 deleted = 0; ///< FILETIME
    std::string id = {};
    u64 version = 2;               ///< of the `$I` file
    std::size_t metadata_size = 0; ///< cuts the `$I` file
    file_shape shape = {};
    file_shape metadata_shape = {};
    u16 sequence = 1;
    std::vector<std::string> members = {}; ///< of a folder: relative paths of its files
    bool directory = false;
    bool without_data = false;     ///< only the `$I` file is there
    bool without_metadata = false; ///< only the `$R` file is there
};

/// The list of a bin of Windows 95 to XP.
struct list_form {
    std::string name = "INFO2";
    u64 version = 5;
    std::size_t record_size = 800;
    u64 fragments = 1;
};

/// A volume on which things happen, as Windows does them: what is freed keeps its bytes
/// until something else takes the place. Reads nobody's program: it only knows what it
/// wrote. What can't be done (no room) throws std::logic_error.
class story {
public:
    /// Adds a volume to `told`, which outlives the story.
    story(told_case &told, const volume_form &form, u64 seed);

    random_source &random() { return m_random; }
    std::size_t volume_number() const { return m_volume; }
    /// A later moment, as a FILETIME. No moment comes twice.
    u64 later();
    /// One that nothing else has: "AB12CD" and the extension of the path.
    std::string new_id(std::u16string_view path);
    /// A path that no other deletion of the case has.
    std::u16string new_path();
    /// A line of what happened.
    void tell(const std::string &event);

    // Files and folders; all return the entry

    u64 folder(u64 parent, const std::string &name);
    /// A file with stamped content.
    u64 file(u64 parent, const std::string &name, u64 size,
             const file_shape &shape = {});
    /// A file with this content, in clusters of its own if it is asked for.
    u64 file_with(u64 parent, const std::string &name, byte_vector content,
                  bool in_clusters = false);
    /// A new file that gets these clusters of the volume.
    u64 file_over(const std::string &name, const std::vector<extent> &runs);
    /// A new file that gets the freed record of an entry.
    u64 reuse_record(u64 entry, const std::string &name, u64 size = 100);
    /// From here on, what is new gets freed records, the lowest first.
    void use_freed_records() { m_uses_freed = true; }
    /// A file or folder with all below it is gone: records and clusters are free.
    void remove(u64 entry);
    ntfs_item &item(u64 entry) { return m_nodes.at(entry).item; }

    // Bins

    u64 bin(const std::string &name = "$Recycle.Bin");
    /// The folder of a user in a bin, with its desktop.ini.
    u64 user(const std::string &sid, const std::string &bin_name = "$Recycle.Bin");
    /// Sends an item to a user's folder, or to the bin itself. Returns the number of
    /// the deletion.
    std::size_t send(u64 user_folder, sent_item what = {});
    /// Sends an item as Windows 95 to XP did.
    std::size_t send_to_list(u64 user_folder, sent_item what = {}, u32 drive = 2);
    /// How the list of a user's folder is kept, before anything is sent.
    void set_list(u64 user_folder, const list_form &form);
    u64 list_of(u64 user_folder) const { return m_lists.at(user_folder).entry; }

    /// One item is deleted from the bin, or all of a user's.
    void purge(std::size_t deletion);
    void empty_bin(u64 user_folder);
    /// An item goes back to where it was.
    void restore(std::size_t deletion);

    told_deletion &deletion(std::size_t number) { return m_told->deletions.at(number); }
    /// The clusters of a deletion's data item.
    std::vector<extent> data_runs(std::size_t deletion) const;

    // The medium

    /// Writes all that happened to the medium. What comes and goes between two calls
    /// leaves no content.
    void settle();
    /// The volume as it was last settled.
    byte_vector &image() { return m_image; }
    const ntfs_volume &layout() const { return m_layout; }
    /// Formats the volume anew. The story goes on with an empty volume; what isn't
    /// written over stays.
    void format(const volume_form &form);
    /// Clusters that nothing has had yet.
    extent unused_clusters(u64 count);
    u64 position(u64 cluster) const { return cluster * m_form.cluster_size; }
    const volume_form &form() const { return m_form; }

    // Change journal

    /// From here on, changes are written to `$Extend\$UsnJrnl:$J`.
    /// Returns its entry.
    u64 start_journal(u16 major_version = 2);

private:
    struct node {
        ntfs_item item;
        bool directory = false;
        std::vector<test_support::ntfs_stream> streams = {};
        std::vector<test_support::ntfs_link> links = {};
        std::vector<test_support::ntfs_move> moves = {};
        bool list_in_clusters = false;
    };
    struct bin_list {
        list_form form;
        u64 entry = 0;
        std::vector<std::size_t> deletions = {};
    };
    struct journal_line {
        u64 entry = 0;
        u32 reason = 0;
        std::string name = {}; ///< of the entry, if empty
        u64 parent = 0;        ///< of the entry, if 0
    };

    u64 add(ntfs_item item, bool directory);
    u64 add_new(ntfs_item made, bool directory);
    void part_children(u64 entry);
    void number(ntfs_item &item);
    u64 next_entry();
    std::vector<extent> take_clusters(u64 bytes, u64 fragments);
    void keep(node &of, byte_vector content, const file_shape &shape);
    told_deletion new_deletion(u64 user_folder, sent_item &what);
    void add_members(u64 folder_entry, const std::vector<std::string> &members);
    u64 add_data_item(told_deletion &made, u64 parent, const sent_item &what);
    void write_list(u64 user_folder);
    void journal(const journal_line &line);

    test_support::ntfs_volume_builder plan() const;
    void grow_folders();
    void keep_slack(ntfs_volume &fresh) const;
    void lay_over(ntfs_volume fresh);

    byte_vector attribute_content(u64 entry, u32 type) const;
    byte_vector name_value(u64 entry) const;
    trace record_trace(const char *kind, u64 entry) const;
    void add_name_traces(std::vector<trace> &traces, const char *kind, u64 entry) const;
    void describe_user(told_user &user, u64 entry) const;
    void describe_pieces(trace &metadata, u64 entry) const;
    void describe_packed(told_deletion &told, u64 entry) const;
    void describe(std::size_t number);

    told_case *m_told;
    std::size_t m_volume;
    volume_form m_form;
    random_source m_random;
    u64 m_now;
    u64 m_next_entry = 0;
    bool m_uses_freed = false;
    u64 m_next_cluster = 0;
    u64 m_end_cluster = 0; ///< beyond it are the builder's own
    u32 m_next_stamp;
    std::map<u64, node> m_nodes;
    std::map<std::string, u64> m_bins;
    std::map<u64, std::size_t> m_users; ///< folder's entry -> number in the case
    std::map<u64, bin_list> m_lists;
    std::map<std::size_t, bool> m_open; ///< deletions still in the bin; true: since now
    std::vector<std::size_t> m_restored; ///< since the medium was last written
    std::optional<u64> m_journal;
    u16 m_journal_version = 2;
    std::vector<std::pair<u64, byte_vector>> m_journal_lines; ///< entries, records
    ntfs_volume m_layout;
    byte_vector m_image;
};

/// Content that a search finds every sector of, and of which file it is.
byte_vector stamped(u32 stamp, u64 size);

} // namespace lab
