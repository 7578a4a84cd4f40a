#pragma once

#include "base/hv_fileio.h"
#include "base/hv_portable_dir.h"
#include "options/run_options.h"
#include "records/trash_inodes.h"

#include <string>
#include <utility>
#include <vector>

namespace hvportdir {

/// The source of a run over many files: one path a line on standard input or, in walk
/// mode, the files of a directory tree.
class stdin_stream_ex : public uni::stdin_stream {
public:
    explicit stdin_stream_ex(std::FILE *stream = stdin) : stdin_stream(stream) {}

    /// Turns the stream into a walk of `root` and of the directories down to
    /// `max_depth` levels below it.
    void start_walk(std::string_view root, hv::u32 max_depth);
    bool is_walk() const { return m_active; }

    /// The next path, as the system or the list spells it. False when there is none.
    bool next_path(std::string &path);

private:
    bool next_walk_path(std::string &path);

    struct pending_dir {
        dir_item item;
        hv::u32 depth = 0;
    };

    std::vector<pending_dir> m_pending_dirs;  ///< taken from the back
    std::vector<std::string> m_pending_files; ///< taken from the back
    std::vector<dir_item> m_walk_entries;
    link_guard m_links;
    hv::u32 m_max_depth = 0;
    bool m_active = false;
};

} // namespace hvportdir

namespace hv {

/// Puts every file of a list or a walk that passes the filters into the collection.
/// False if there is nothing to start from.
bool register_list(_trash_inodes &collection, const run_options &options,
                   std::FILE *list);

} // namespace hv
