#include "base/hv_open_file.h"
#include "base/hv_string.h"
#include "vmdk/hv_vmdk_disk.h"

#include <algorithm>
#include <exception>

namespace hv {

namespace {

bool can_be_opened(const std::string &path)
{
    const int descriptor = open_source_file(path.c_str());
    if (descriptor < 0) return false;
    ::close(descriptor);
    return true;
}

// Up to and including the last "/"; empty without one.
std::string folder_of(const std::string &path)
{
    return path.substr(0, path.rfind('/') + 1);
}

// The path at which a child expects its parent. A bare name is looked for in the folder
// of the first file of the list.
std::string parent_name(const vmdk_file &child, const std::string &folder)
{
    std::string name = child.parent_hint();
    remove_char(name, '"');
    const bool from_windows = child.encoding().find("windows") != std::string::npos;
    const char separator = from_windows ? '\\' : '/';
    return name.find(separator) == std::string::npos ? folder + name : name;
}

} // namespace

// Whether a parent's name is that of a loaded file, which then has another ID than the
// child expects.
bool vmdk_disk::is_loaded(const std::string &name) const
{
    const auto holds = [&name](const vmdk_file &file) {
        return file.path().find(name) != std::string::npos;
    };
    if (m_base != nullptr) return holds(*m_base);
    return m_by_cid.size() > 1 && std::ranges::any_of(m_by_cid, [&](const auto &item) {
               return holds(*item.second);
           });
}

vmdk_disk::parent_state
vmdk_disk::add_missing_parent(std::ostream &messages,
                              std::vector<std::string> &paths) const
{
    const std::string folder = folder_of(paths.front());
    for (const auto &[cid, child] : m_by_cid) {
        if (child->is_base()) continue;
        if (child->cid() == child->parent_cid()) {
            messages << "Child VMDK CID errors, aborting\n";
            return parent_state::failed;
        }
        if (child->m_parent != nullptr) continue;
        std::string hint = child->parent_hint();
        std::string name = parent_name(*child, folder);
        if (is_loaded(name)) return parent_state::complete;
        if (!can_be_opened(name)) {
            if (folder.empty() || name.find(folder) != std::string::npos) {
                messages << "Child VMDK points to a parent VMDK that doesn't exist, "
                            "aborting\n";
                return parent_state::failed;
            }
            name = folder + name.substr(last_separator(name) + 1);
            hint = '"' + name + '"';
        }
        // Opening a file of the list again wouldn't change its ID.
        if (std::ranges::find(paths, name) != paths.end())
            return parent_state::complete;
        messages << "=> vmdk file: " << child->path() << '\n'
                 << " depends on parent vmdk " << hint << '\n';
        paths.push_back(name);
        return parent_state::added;
    }
    return parent_state::complete;
}

bool vmdk_disk::validate_list(std::ostream &messages, std::vector<std::string> &paths)
{
    // Each round adds a path that wasn't in the list, and a file has one hint only, so
    // the rounds end.
    try {
        for (parent_state state = parent_state::added; state == parent_state::added;) {
            clear();
            for (const std::string &path : paths) {
                if (add_file(path)) continue;
                messages << path << " can't be opened\n";
                return false;
            }
            link();
            if (paths.empty()) return false;
            state = add_missing_parent(messages, paths);
            if (state == parent_state::failed) {
                m_failure = open_failure::incomplete;
                return false;
            }
        }
        return m_base != nullptr;
    } catch (const std::exception &) {
        messages << "prob creating virtual vmware disk mapping\n";
        m_failure = open_failure::no_memory;
        return false;
    }
}

} // namespace hv
