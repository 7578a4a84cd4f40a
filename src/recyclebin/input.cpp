#include "recyclebin/input.h"

#include "base/hv_portable_dir.h"
#include "disk/hv_file_source.h"
#include "media/fault_list.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace hv {

namespace {

// Of a folder, whose bytes are in its files.
class no_bytes : public byte_source {
public:
    u64 size() const override { return 0; }
    std::size_t read(u64 /*offset*/, std::span<u8> /*out*/) const override { return 0; }
};

bool is_folder(const std::string &path)
{
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

// Messages begin with what was named already.
unread_list shortened(const unread_list &unread, const std::string &start)
{
    unread_list texts;
    for (const std::string &text : unread)
        texts.push_back(text.starts_with(start) ? text.substr(start.size()) : text);
    return texts;
}

// The stretches of a raw medium that can't be read.
std::vector<std::string> unread_texts(const byte_source &file)
{
    fault_list faults;
    for (const auto &bad : file.unreadable_in(0, file.size()))
        faults.add(bad.offset, bad.offset + bad.length, "can't be read");
    return faults.texts();
}

} // namespace

std::string_view name_of(input_kind kind)
{
    switch (kind) {
    case input_kind::medium: return "a medium";
    case input_kind::folder: return "a folder";
    case input_kind::mft_copy: return "a copy of an $MFT";
    case input_kind::metadata_file: return "a metadata file";
    }
    return "";
}

opened_input::opened_input(std::string path) : m_path(std::move(path))
{
    open();
    if (m_kind == input_kind::folder || m_kind == input_kind::metadata_file)
        m_source.faults = [unread = m_unread, start = folder() + "/"] {
            return shortened(*unread, start);
        };
    else if (m_source.source && m_source.is_plain_file)
        m_source.faults = [file = m_source.source] { return unread_texts(*file); };
}

void opened_input::open()
{
    if (is_folder(m_path)) {
        m_kind = input_kind::folder;
        std::vector<hvportdir::dir_item> items;
        if (!hvportdir::list_dir(m_path, items) && items.empty()) {
            m_source.problem = std::strerror(errno);
            return;
        }
        m_source.source = std::make_shared<no_bytes>();
        m_source.description = "folder";
        return;
    }
    m_source = open_medium(m_path);
    if (m_source.kind == container_kind::mft) {
        m_kind = input_kind::mft_copy;
        m_source.source = std::make_shared<file_source>(m_path);
        m_source.is_plain_file = true;
    } else if (m_source.source && m_source.is_plain_file &&
               is_metadata_file(*m_source.source, m_path)) {
        m_kind = input_kind::metadata_file;
        m_source.description = "metadata file";
    }
}

std::vector<std::string> opened_input::unlock(const volume_keys &keys)
{
    if (m_kind != input_kind::medium || !m_source.source || keys.empty()) return {};
    unlocked_medium result = unlock_volumes(m_source.source, keys);
    if (result.source == m_source.source) return result.problems;
    m_source.source = result.source;
    m_source.is_plain_file = false;
    m_is_unlocked = true;
    m_source.details.insert(m_source.details.end(), result.unlocked.begin(),
                            result.unlocked.end());
    return result.problems;
}

bytes_access opened_input::access() const
{
    if (m_is_unlocked) return bytes_access::unlocked;
    return m_source.is_plain_file ? bytes_access::plain_file : bytes_access::container;
}

std::string opened_input::folder() const
{
    if (m_kind == input_kind::folder) return m_path;
    return m_kind == input_kind::metadata_file ? folder_of_file(m_path) : "";
}

bool opened_input::holds(const std::string &path) const
{
    if (m_kind != input_kind::folder) return false;
    std::error_code error;
    const auto folder = std::filesystem::weakly_canonical(m_path, error);
    const auto file = std::filesystem::weakly_canonical(path, error);
    const auto below = file.lexically_relative(folder);
    return !below.empty() && *below.begin() != "..";
}

void opened_input::examine(examination &out, const examine_options &options) const
{
    switch (m_kind) {
    case input_kind::medium: hv::examine(out, m_source.source, options); break;
    case input_kind::folder:
        examine_folder(out, *m_unread, m_path, options.should_stop);
        break;
    case input_kind::mft_copy: examine_mft_copy(out, m_source.source, options); break;
    case input_kind::metadata_file:
        examine_metadata_file(out, *m_unread, *m_source.source, m_path);
        break;
    }
}

} // namespace hv
