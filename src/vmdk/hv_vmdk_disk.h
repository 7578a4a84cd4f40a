#pragma once

#include "vmdk/hv_vmdk_file.h"

#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace hv {

/// A virtual disk in a chain of files: a base, and children that hold what changed
/// after it. Each file names its parent by a content ID. What no file holds reads as
/// zeros.
class vmdk_disk {
public:
    /// Opens files by their UTF-8 paths, in any order, and adds them. False at the
    /// first one that can't be opened; see `failure`.
    bool add_files(const std::vector<std::string> &paths);
    /// Builds the chain of the files added. False without a base, or if the parent of a
    /// file is missing. Reads need `is_linked` as well.
    bool link();
    /// Opens the files of a list, links them, and adds missing parents to the list: a
    /// parent is looked for where its child says, then in the folder of the first path.
    /// `messages` gets a line for each one that was added, and for an error. False
    /// without a base or after an error; the list keeps what was added. After a
    /// success, some files may still not belong to the chain: `is_linked` and `files`
    /// tell.
    bool validate_list(std::ostream &messages, std::vector<std::string> &paths);

    /// Whether the chain can be read: it has a base, ends at a newest child, and no
    /// file is its own ancestor.
    bool is_linked() const { return m_linked; }
    /// Why the last `add_files`, `link` or `validate_list` didn't lead to a chain that
    /// can be read; `none` if it did, or if nothing was added yet.
    open_failure failure() const { return m_failure; }
    /// The path of the file that couldn't be opened; empty if it wasn't a single file.
    const std::string &failed_path() const { return m_failed_path; }
    const vmdk_file *base() const { return m_base; } ///< null without one
    const vmdk_file *top() const { return m_top; }   ///< the newest child
    const std::vector<vmdk_file *> &files() const { return m_files; } ///< base first
    /// The byte offset of the first partition in the MBR of the virtual disk; 0 without
    /// a partition.
    u64 first_volume_offset() const;

    /// Reads `length` bytes at `offset` of the virtual disk, each grain from the newest
    /// file that holds it. What can't be read is zeros, and so is what lies after the
    /// end of the disk. False only for no buffer, no length, or a chain that isn't
    /// linked.
    bool read(u8 *buffer, u64 offset, u64 length) const;

private:
    /// Contiguous bytes of one file, or of no file.
    struct piece {
        const vmdk_file *file = nullptr;
        u64 place = 0; ///< in that file
        u64 bytes = 0;

        bool continues(const piece &previous) const
        {
            return file == previous.file &&
                   (file == nullptr || place == previous.place + previous.bytes);
        }
    };
    enum class parent_state { complete, added, failed };

    void clear();
    bool add_file(const std::string &path);
    vmdk_file *find_parent(const vmdk_file &child) const;
    void walk_children();
    bool has_no_loop() const;
    parent_state add_missing_parent(std::ostream &messages,
                                    std::vector<std::string> &paths) const;
    bool is_loaded(const std::string &name) const;
    piece find_piece(u64 offset, u64 max_bytes) const;
    void read_pieces(u8 *buffer, u64 offset, u64 length) const;

    std::multimap<std::string, std::unique_ptr<vmdk_file>> m_by_cid;
    std::vector<vmdk_file *> m_files;
    vmdk_file *m_base = nullptr;
    vmdk_file *m_top = nullptr;
    bool m_linked = false;
    open_failure m_failure = open_failure::none;
    std::string m_failed_path;
};

} // namespace hv
