#pragma once

#include "vmdk/hv_vmdk_file.h"

#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace hv {

/// A virtual disk that lies in a chain of files: a base, and children that hold what
/// changed since. Each file names its parent by a content ID. What no file holds reads
/// as zeros.
class vmdk_disk {
public:
    /// Opens files and adds them; their order doesn't matter. False at the first one
    /// that isn't valid.
    bool add_files(const std::vector<std::string> &paths);
    /// Builds the chain of the files added. False without a base, or if a file's parent
    /// isn't there. Reads need `is_linked` as well.
    bool link();
    /// Opens the files of a list, links them, and adds missing parents to the list, as
    /// far as they are found where a child says or else in the folder of the first
    /// path. `messages` gets a line for each that was added, and what went wrong. False
    /// without a base, or with a text; the list keeps what was added. True doesn't say
    /// that all files belong to the chain.
    bool validate_list(std::ostream &messages, std::vector<std::string> &paths);

    /// No file's parents lead back to itself, and the walk from the base to the newest
    /// child ended.
    bool is_linked() const { return m_linked; }
    const vmdk_file *base() const { return m_base; } ///< null without one
    const vmdk_file *top() const { return m_top; }   ///< the newest child
    const std::vector<vmdk_file *> &files() const { return m_files; } ///< base first
    /// Where the first partition begins, by the disk's first sector, in bytes; 0 if
    /// that tells of none.
    u64 first_volume_offset() const;

    /// Reads `length` bytes at `offset` of the virtual disk, each grain from the newest
    /// file that holds it. What can't be read is zeros, and so is what lies behind the
    /// end of the disk. False only for no buffer, no length, or a chain that isn't
    /// linked.
    bool read(u8 *buffer, u64 offset, u64 length) const;

private:
    /// Bytes in a row of one file, or of none.
    struct piece {
        const vmdk_file *file = nullptr;
        u64 place = 0; ///< in that file
        u64 bytes = 0;

        bool continues(const piece &ahead) const
        {
            return file == ahead.file &&
                   (file == nullptr || place == ahead.place + ahead.bytes);
        }
    };
    enum class parent_state { complete, added, failed };

    void clear();
    bool add_file(const std::string &path);
    vmdk_file *find_parent(const vmdk_file &child) const;
    void walk_children();
    bool parents_end() const;
    parent_state add_missing_parent(std::ostream &messages,
                                    std::vector<std::string> &paths) const;
    bool is_loaded(const std::string &name) const;
    piece find_piece(u64 offset, u64 most) const;
    void read_pieces(u8 *buffer, u64 offset, u64 length) const;

    std::multimap<std::string, std::unique_ptr<vmdk_file>> m_by_cid;
    std::vector<vmdk_file *> m_files;
    vmdk_file *m_base = nullptr;
    vmdk_file *m_top = nullptr;
    bool m_linked = false;
};

} // namespace hv
