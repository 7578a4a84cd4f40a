#pragma once

#include "lab/case_file.h"
#include "lab/linux_volume.h"
#include "samples/random_source.h"

#include <map>
#include <string>
#include <vector>

namespace lab {

using test_support::random_source;

/// ASCII as UTF-16.
std::u16string as_units(std::string_view ascii);

/// How a bin keeps what it knows about a deletion: in a `$I` file of version 1 (Windows
/// Vista to 8.1) or 2, or in the list `INFO2` (Windows 2000 and XP).
enum class bin_format { first, second, list };

/// Files and folders that users make, send to the bin, purge and restore on a volume
/// that the Linux driver's library writes. Paths are those of Windows, on drive C.
///
/// The layout is the library's, so the traces say only what was written: contents, and
/// names with their parents.
class linux_story {
public:
    struct volume_form {
        u64 size = u64{16} << 20;
        u32 cluster_size = 4096;
        /// Whether the files in the bin get names of the 8.3 form, as Windows makes
        /// them.
        bool short_names = false;
    };

    /// A file or folder that isn't deleted, and what is in it.
    struct item {
        std::u16string path = {};
        linux_volume::place at = {};
        entry_number number = {};
        u64 size = 0;
        told_data data = {};
        bool directory = false;
        std::vector<item> members = {};
    };

    using user = std::size_t;
    using deletion = std::size_t;

    /// Formats the volume, and adds it to `told`, which outlives the story. `begin` is
    /// the FILETIME of the first moment.
    linux_story(told_case &told, const volume_form &form, u64 seed, u64 begin);

    random_source &random() { return m_random; }
    linux_volume &volume() { return m_volume; }

    /// Makes the empty bin of a user. The account name is part of the paths.
    user add_user(const std::u16string &name, bin_format format);

    /// The folder of a path. What is missing of the path is made.
    entry_number folder(const std::u16string &path);
    /// A path that no file has yet, in the user's documents.
    std::u16string new_path(user owner);

    /// A file with stamped content.
    item new_file(const std::u16string &path, u64 size);
    /// The same among the user's documents.
    item new_document(user owner);
    /// `count` files of `size` bytes, written in turns of some clusters each.
    std::vector<item> new_fragmented(user owner, std::size_t count, u64 size);
    /// A file that begins with stamped content and goes on as a hole up to `size`.
    item new_sparse(const std::u16string &path, u64 stamped_size, u64 size);
    /// A file in a compressed folder; its content repeats itself.
    item new_compressed(const std::u16string &path, u64 size);
    /// A folder with `count` files in it and in the `depth` folders below it.
    item new_folder(const std::u16string &path, std::size_t count, std::size_t depth);

    /// Mostly some clusters, sometimes so few bytes that the MFT record holds them.
    u64 new_size();

    /// Sends an item to the bin of a user, or a new document.
    deletion send(user owner, item what);
    deletion send_new(user owner);
    std::size_t sent_count() const { return m_sent.size(); }

    /// Deletes one item from the bin, or all of a user's.
    void purge(deletion number);
    void empty_bin(user owner);
    /// Moves an item back to where it was.
    void restore(deletion number);
    /// The data item where it is now: a restored one can be sent again.
    const item &data_of(deletion number) const { return m_sent.at(number).data; }

    /// Fills free MFT records and all free clusters with new files, and deletes these.
    void fill_and_clear();

    /// Closes the volume and returns it. Nothing can happen afterwards.
    byte_vector medium();

private:
    struct bin {
        std::u16string user_name = {};
        bin_format format = bin_format::second;
        std::string sid = {};
        entry_number folder = {};
        entry_number list = {};            ///< the file `INFO2`
        std::vector<deletion> listed = {}; ///< its records, in their order
        u32 last_number = 0;               ///< of a record
    };
    struct sent_item {
        user owner = 0;
        item data = {};
        linux_volume::place original = {};
        linux_volume::place metadata = {}; ///< the `$I` file
        entry_number metadata_number = {};
        bool in_bin = true;
    };

    void tell(const std::string &event);
    void later();
    void write_stamped(const item &of, u64 position, u64 size);
    void note_residence(item &of);
    void put_short_name(entry_number file, const linux_volume::place &at);
    void remove(const item &what);
    void write_metadata_file(sent_item &sent, told_deletion &out_told);
    void write_list_record(const sent_item &sent, told_deletion &out_told);
    void move_to_bin(sent_item &sent, told_deletion &out_told);
    void leave_bin(deletion number, const std::string &fate);
    void strike_record(deletion number);
    void locate_records(const bin &of);
    u8 name_space(const std::u16string &name) const;
    std::vector<byte_vector> name_parts(const linux_volume::place &at) const;

    told_deletion &told(deletion number) { return m_told->deletions.at(number); }

    told_case *m_told;
    volume_form m_form;
    random_source m_random;
    u64 m_now;
    linux_volume m_volume;
    u32 m_next_stamp = 1;
    u64 m_next_name = 1;
    std::map<std::u16string, entry_number> m_folders;
    std::vector<bin> m_bins;
    std::vector<sent_item> m_sent;
};

} // namespace lab
