#pragma once

#include "base/hv_portable_dir.h"
#include "evidence/bin_items.h"
#include "evidence/examine_files.h"
#include "evidence/sighting.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

/// The files of a bin as files of this system.
namespace hv {

/// What a folder is, by its name and that of the folder above it.
struct bin_place {
    bool is_bin = false; ///< a bin, or a user's folder in one
    std::u16string user = {};
};

/// One folder that may hold metadata and data items. `sighting::file` of what it
/// reports is the path of the folder, as it was named, and the name of the file; ranges
/// are in that file.
class bin_files {
public:
    bin_files(std::string path, bin_place place);

    /// Asked for each file; once it says true, no more files are looked at.
    std::function<bool()> should_stop;

    /// Lists the folder. False, after an entry in `unread`, if it can't be opened.
    bool read(unread_list &unread);
    /// The folders in it, by path; links aren't among them.
    std::vector<std::string> folders() const;
    /// Reads the metadata. In a bin, each data item counts; elsewhere only those whose
    /// metadata is beside them, or whose names Windows makes up.
    std::vector<sighting> sightings(unread_list &unread);
    /// The sightings of one metadata file of the folder, whose bytes are those of
    /// `file` (and not of `sighting::file`), and of the data items beside it.
    std::vector<sighting> sightings_of(const byte_source &file,
                                       const std::u16string &name, unread_list &unread);
    /// How many bytes of the files couldn't be read.
    u64 unreadable_bytes() const { return m_unreadable; }

private:
    void take_metadata_file(const hvportdir::dir_item &item, const std::u16string &name,
                            unread_list &unread);
    void take_dollar_i(const byte_source &file, const sighting &start);
    void take_list(const byte_source &file, const sighting &start);
    void take_data_item(const std::string &path, const std::u16string &name,
                        unread_list &unread);
    bool is_stopped() const { return should_stop && should_stop(); }
    std::vector<std::u16string> members_below(const std::string &folder,
                                              unread_list &unread) const;
    bool is_wanted(const std::u16string &name) const;
    sighting start_sighting(sighting_kind kind, std::u16string name) const;

    std::string m_path; ///< with a separator at its end
    bin_place m_place;
    std::vector<hvportdir::dir_item> m_items; ///< by path
    std::set<std::u16string> m_names;         ///< of metadata files
    bool m_has_list = false;
    std::vector<sighting> m_found;
    u64 m_unreadable = 0;
};

/// Whether a file surely is metadata; see `is_metadata_file`.
bool holds_metadata(const byte_source &file, std::u16string_view name);

/// Adds to a list that ends where it is long enough.
void add_unread(unread_list &unread, const std::string &path, const std::string &why);

} // namespace hv
