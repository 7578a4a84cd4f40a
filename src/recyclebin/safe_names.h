#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// Names of evidence as names of new files. They come from disks that nobody vouches
/// for, and the files may be copied on to systems with other rules than this one's.
namespace hv {

/// One name that every system takes, UTF-8 of at most 200 bytes: what isn't allowed
/// somewhere is written as "%" and two digits for each byte, half a surrogate pair as
/// "%ud83d"; a name of a device gets a "_" in front; an empty name is "_"; of a long
/// name the end before the ending is cut off.
std::string safe_name(std::u16string_view name);

/// The folders and the name of a path before the deletion, each safe: "C:\a\b" becomes
/// "C", "a", "b". A path that would be too long for other programs keeps its drive and
/// its name only. Never empty.
std::vector<std::string> safe_path(std::u16string_view path);

/// The name of the file that an alternate stream becomes: "a.txt;Zone.Identifier".
std::string stream_file_name(const std::string &file, std::u16string_view stream);

/// Keeps names apart that some system takes for the same: it looks at neither case nor
/// the forms in which Unicode can write a character.
class used_names {
public:
    /// The name that a folder has in its parent, "" for the top: the one that was used
    /// first for a name that is the same.
    std::string folder(const std::string &parent, const std::string &name);
    /// A name in a folder that nothing has yet: " (2)" and so on is put before the
    /// ending.
    std::string file(const std::string &parent, const std::string &name);

private:
    std::string add(const std::string &parent, const std::string &name,
                    std::size_t ending);

    // By the folded path.
    std::set<std::string> m_used;
    std::map<std::string, std::string> m_folders; // and the name that each has
    std::map<std::string, unsigned> m_counts;     // how often a name was taken
};

} // namespace hv
