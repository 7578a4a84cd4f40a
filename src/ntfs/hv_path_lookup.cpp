#include "ntfs/hv_path_lookup.h"

#include "base/hv_string.h"
#include "base/hv_text_convert.h"
#include "ntfs/hv_attribute_list.h"
#include "ntfs/hv_file_record.h"
#include "ntfs/ntfs.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace hv {

namespace {

constexpr std::string_view index_name = "$I30";

// Links may lead to themselves. Operating systems give up after as many.
constexpr int max_restarts = 40;

// An extension record names its base directly; a longer chain is a circle.
constexpr int max_base_steps = 4;

// In "\\?\snapid_" and hexadecimal digits: where "snapid_" begins, and the first place
// where a separator may end the prefix.
constexpr std::size_t snapshot_word_at = 4;
constexpr std::size_t snapshot_prefix_length = 47;

unsigned long long printable(u64 entry)
{
    return entry;
}

// How many bytes may be read for the attribute lists of one directory's children: on a
// sound volume no two lists share a byte or a record.
u64 medium_budget(const CNtfs &volume)
{
    const RAW_DISK_IO *disk = volume.get_disk();
    return disk == nullptr ? 0 : disk->get_size();
}

// ---- Children of a directory

// Reads the children out of one $INDEX_ROOT or $INDEX_ALLOCATION. `result` becomes what
// the last block returned, and stays as it is without one.
void read_index_part(std::set<u64> &children, bool &result, const CNtfs &volume,
                     attribute_ref part, name_walk mode)
{
    if (part.is(attribute_type::index_root)) {
        const byte_view content = part.content();
        if (content.size() >= index_root::min_size &&
            is_type(content.read_padded<u32>(index_root::indexed_type),
                    attribute_type::file_name))
            result = read_index_names(children, content.from(index_root::header), mode);
        return;
    }
    data_run_list runs;
    std::vector<cluster_run> clusters;
    if (!part.non_resident()) return;
    decode_attribute_runs(part.bytes(), runs);
    runs_to_cluster_runs(runs, clusters);
    // The size of the medium bounds one directory by itself.
    u64 budget = std::numeric_limits<u64>::max();
    for_each_index_block(volume, clusters, budget, [&](byte_view block, u64) {
        if (has_signature(block, index_block::signature))
            result = read_index_names(children, block.from(index_block::header), mode);
    });
}

bool find_index_part(byte_view record, attribute_type type, attribute_ref &found)
{
    return find_attribute(
        record,
        [type](attribute_ref attribute) {
            return attribute.is(type) && attribute.name() == index_name;
        },
        found);
}

bool names_index(byte_view units)
{
    if (units.size() != 2 * index_name.size()) return false;
    for (std::size_t i = 0; i < index_name.size(); ++i)
        if (units.read_padded<u16>(2 * i) != static_cast<u8>(index_name[i]))
            return false;
    return true;
}

// An index that didn't fit the directory's record: its allocation first, then its root.
// False if a record that the list names can't be read.
bool read_listed_index(std::set<u64> &children, bool &result, const CNtfs &volume,
                       byte_view list, u64 entry, byte_view base, name_walk mode)
{
    for (const attribute_type type :
         {attribute_type::index_allocation, attribute_type::index_root}) {
        listed_records listed;
        for_each_list_entry(list, [&](const attribute_list_entry &named) {
            if (is_type(named.key.first, type) && named.record != entry &&
                names_index(named.name))
                listed.add(named.record, named.key);
        });
        std::vector<u8> bytes;
        for (const listed_records::listed_record &extension : listed.records()) {
            if (!volume.read_filerecord(extension.entry, bytes)) return false;
            attribute_ref part;
            if (is_extension_of(byte_view{bytes}, entry, base) &&
                find_index_part(byte_view{bytes}, type, part))
                read_index_part(children, result, volume, part, mode);
        }
    }
    return true;
}

// Reads a directory's record; for an extension record that of its base.
bool read_base_record(std::vector<u8> &bytes, const CNtfs &volume, u64 &entry)
{
    for (int step = 0; step < max_base_steps; ++step) {
        if (!volume.read_filerecord(entry, bytes)) return false;
        const u64 base =
            byte_view{bytes}.read_padded<u64>(file_record::base_reference.offset);
        if (base == 0) return true;
        entry = reference_entry(base);
    }
    return false;
}

// ---- Names of a record

// Adds the name of a $FILE_NAME, if it is wanted.
void add_name(record_names &names, attribute_ref attribute, const name_filter &wanted)
{
    if (!attribute.is(attribute_type::file_name)) return;
    const byte_view content = attribute.content();
    record_name found;
    found.is_dos =
        content.read_padded<u8>(file_name::name_space) == file_name::dos_name_space;
    const u64 parent = reference_entry(content.read_padded<u64>(file_name::parent));
    if (found.is_dos && !wanted.dos_names) return;
    if (wanted.parent_entry && *wanted.parent_entry != parent) return;
    const u64 units = content.read_padded<u8>(file_name::name_length);
    uni::utf16_name_to_utf8(content.clip(file_name::name, 2 * units), found.name);
    if (found.name.empty()) return;
    const auto fixed = content.clip(0, found.fixed.size()).bytes();
    std::ranges::copy(fixed, found.fixed.begin());
    names.emplace(parent, std::move(found));
}

bool find_by_type(byte_view record, attribute_type type, attribute_ref &found)
{
    return find_attribute(
        record, [type](attribute_ref attribute) { return attribute.is(type); }, found);
}

// ---- Paths

std::wstring drop_device_prefix(std::wstring_view path)
{
    std::wstring text(path);
    std::wstring lower = text;
    to_lower(lower);
    std::string device;
    shadow_device_prefix(device, letter_case::lower);
    std::size_t cut = std::wstring::npos;
    if ((lower.starts_with(L"\\\\?\\") || lower.starts_with(L"\\\\.\\")) &&
        lower.size() > snapshot_prefix_length &&
        lower.compare(snapshot_word_at, 7, L"snapid_") == 0)
        cut = text.find(L'\\', snapshot_prefix_length);
    else if (lower.starts_with(uni::to_wide(device)))
        cut = text.find(L'\\', device.size());
    return cut == std::wstring::npos ? text : text.substr(cut);
}

// The index of the first segment that isn't a drive letter.
std::size_t first_name(const std::vector<std::wstring> &segments)
{
    return !segments.empty() && segments[0].size() > 1 && segments[0][1] == L':' ? 1
                                                                                 : 0;
}

// The print name of a symbolic link or a junction; false for any other reparse point.
bool read_link_target(std::wstring &target, byte_view record)
{
    using namespace reparse_point;
    attribute_ref point;
    if (!find_by_type(record, attribute_type::reparse_point, point)) return false;
    const byte_view content = point.content();
    if (content.read_padded<u16>(data_length) == 0 ||
        content.read_padded<u16>(substitute_length) == 0)
        return false;
    const byte_view names = content.from(buffer);
    // Some links have zeros before their names, which the offsets don't count.
    u64 zeros = 0;
    const byte_view substitute =
        names.from(content.read_padded<u16>(substitute_offset));
    while (substitute.fits(zeros, 2) && substitute.read_padded<u16>(zeros) == 0)
        zeros += 2;
    uni::utf16_to_wide(names.clip(content.read_padded<u16>(print_offset) + zeros,
                                  content.read_padded<u16>(print_length)),
                       target);
    return true;
}

// The descent from the root along the segments of one path.
class path_walk {
public:
    path_walk(CNtfs &volume, std::vector<std::wstring> segments, link_mode links,
              log_handle log)
        : m_volume(volume),
          m_segments(std::move(segments)),
          m_links(links),
          m_log(log)
    {
    }

    // Fills `inode` with each entry on the way and ends with the last one.
    bool run(u64 &inode)
    {
        std::size_t next = first_name(m_segments);
        int restarts = 0;
        u64 current = root_entry_number;
        inode = current;
        while (next < m_segments.size()) {
            std::wstring lower = m_segments[next];
            to_lower(lower);
            const std::string segment = uni::to_utf8(lower);
            debug_log(m_log, "seg: %s", segment.c_str());
            if (!find_segment(current, segment, inode)) return false;
            ++next;
            if (m_links == link_mode::follow && restart_at_link(inode, next)) {
                debug_log(m_log, "info: restart segments [link]");
                if (++restarts > max_restarts || m_segments.empty()) return false;
                next = first_name(m_segments);
                parent = current = inode = root_entry_number;
                continue;
            }
            debug_log(m_log, "info: inode found for seg: %s : 0x%llx", segment.c_str(),
                      printable(inode));
            parent = std::exchange(current, inode);
        }
        return true;
    }

    const std::vector<std::wstring> &segments() const { return m_segments; }
    u64 parent = root_entry_number; ///< the directory of what `run` found

private:
    // The directory in the cache, with the children and names that could be read; null
    // if it has no children.
    const directory_cache_entry *cached_directory(u64 directory)
    {
        directory_cache &cache = m_volume.path_cache();
        const auto known = cache.find(directory);
        if (known != cache.end() && !known->second.names.empty()) {
            debug_log(m_log, "info: cache lookup");
            return &known->second;
        }
        if (known == cache.end()) {
            debug_log(m_log, "info: get children nodes");
            std::set<u64> children;
            if (!read_directory_children(children, m_volume, directory,
                                         name_walk::strict) ||
                children.empty()) {
                debug_log(m_log, "info: none found");
                return nullptr;
            }
            debug_log(m_log, "info: # children [%d]",
                      static_cast<int>(children.size()));
            cache[directory].children = std::move(children);
        }
        directory_cache_entry &entry = cache[directory];
        fill_names(entry, directory);
        return &entry;
    }

    // Names are taken from the children's own records, which are read once.
    void fill_names(directory_cache_entry &entry, u64 directory)
    {
        debug_log(m_log, "info: get children names");
        std::vector<u8> bytes;
        record_names names;
        u64 budget = medium_budget(m_volume);
        for (const u64 child : entry.children) {
            if (child == directory) continue;
            if (!m_volume.read_filerecord(child, bytes)) {
                debug_log(m_log, "err: readFR: inode 0x%llx", printable(child));
            } else if (bytes.size() < m_volume.get_mft_record_size()) {
                debug_log(m_log, "err: paramsFR: inode 0x%llx", printable(child));
            } else if (!read_names_of_record(names, m_volume, child, byte_view{bytes},
                                             {}, budget)) {
                debug_log(m_log, "err: namelookup: inode 0x%llx", printable(child));
            } else {
                for (const auto &[parent_entry, found] : names)
                    entry.names.try_emplace(lower_copy(found.name), child);
            }
        }
    }

    bool find_segment(u64 directory, const std::string &segment, u64 &inode)
    {
        const directory_cache_entry *entry = cached_directory(directory);
        if (entry == nullptr) return false;
        if (entry->names.empty()) {
            debug_log(m_log, "err: no child names");
            return false;
        }
        const auto found = entry->names.find(segment);
        if (found == entry->names.end()) {
            debug_log(m_log, "err: no child nodes");
            return false;
        }
        inode = found->second;
        return true;
    }

    // If the entry is a link, the segments become its target and those from `next` on.
    bool restart_at_link(u64 inode, std::size_t next)
    {
        std::vector<u8> bytes;
        std::wstring target;
        if (!m_volume.read_filerecord(inode, bytes) ||
            !read_link_target(target, byte_view{bytes}))
            return false;
        for (; next < m_segments.size(); ++next) target += L'\\' + m_segments[next];
        split(target, L'\\', m_segments, piece_blanks::keep, empty_pieces::drop);
        return true;
    }

    CNtfs &m_volume;
    std::vector<std::wstring> m_segments;
    link_mode m_links;
    log_handle m_log;
};

} // namespace

bool find_inode_by_path(u64 &out_inode, u64 &out_parent, std::wstring &out_path,
                        CNtfs &volume, std::wstring_view path, link_mode links,
                        log_handle log)
{
    out_inode = 0;
    out_parent = no_entry;
    if (path.empty() || !volume.validate_volume()) return false;
    const std::wstring text = drop_device_prefix(path);
    debug_log(log, "anal: %s", uni::to_utf8(text).c_str());

    const wchar_t separator = text.find(L'/') != std::wstring::npos ? L'/' : L'\\';
    const bool rooted = text.starts_with(separator);
    if (rooted) debug_log(log, "root dir");
    std::vector<std::wstring> segments;
    split(text, separator, segments, piece_blanks::keep, empty_pieces::drop);
    if (segments.empty()) {
        debug_log(log, "path empty");
        if (!rooted) return false;
        out_inode = out_parent = root_entry_number;
        out_path = L"\\";
        return true;
    }

    path_walk walk(volume, std::move(segments), links, log);
    if (!walk.run(out_inode)) {
        debug_log(log, "inode not found for %s", uni::to_utf8(text).c_str());
        out_inode = 0;
        return false;
    }
    out_parent = walk.parent;
    out_path =
        (rooted ? L"\\" : L"") + join_texts(walk.segments(), std::wstring(L"\\"));
    return true;
}

bool find_inode_by_path_utf8(u64 &out_inode, u64 &out_parent, std::string &out_path,
                             CNtfs &volume, std::string_view path, link_mode links,
                             log_handle log)
{
    std::wstring resolved;
    if (!find_inode_by_path(out_inode, out_parent, resolved, volume, uni::to_wide(path),
                            links, log))
        return false;
    if (links == link_mode::follow) out_path = uni::to_utf8(resolved);
    return true;
}

bool read_directory_children(std::set<u64> &children, const CNtfs &volume, u64 entry,
                             name_walk mode)
{
    std::vector<u8> bytes;
    if (!read_base_record(bytes, volume, entry)) return false;
    const byte_view record{bytes};
    bool result = false;
    attribute_ref part;
    if (find_index_part(record, attribute_type::index_root, part))
        read_index_part(children, result, volume, part, mode);
    if (find_index_part(record, attribute_type::index_allocation, part)) {
        read_index_part(children, result, volume, part, mode);
        return result;
    }
    attribute_ref list;
    if (!find_by_type(record, attribute_type::attribute_list, list)) return result;
    u64 budget = max_list_bytes;
    const std::vector<u8> content = read_attribute_list(volume, list, budget);
    return read_listed_index(children, result, volume, byte_view{content}, entry,
                             record, mode) &&
           result;
}

bool find_child_by_name(u64 directory, std::string_view name, u64 &out_entry,
                        const CNtfs &volume)
{
    std::set<u64> children;
    if (!read_directory_children(children, volume, directory, name_walk::strict))
        return false;
    std::vector<u8> bytes;
    record_names names;
    u64 budget = medium_budget(volume);
    for (const u64 child : children) {
        if (child == directory || !volume.read_filerecord(child, bytes) ||
            bytes.size() < volume.get_mft_record_size() ||
            !read_names_of_record(names, volume, child, byte_view{bytes}, {}, budget))
            continue;
        for (const auto &[parent, found] : names) {
            if (!equal_ignoring_case(found.name, name)) continue;
            out_entry = child;
            return true;
        }
    }
    return false;
}

bool read_names_of_record(record_names &out_names, const CNtfs &volume, u64 entry,
                          byte_view record, const name_filter &wanted, u64 &budget)
{
    out_names.clear();
    const auto add = [&](attribute_ref attribute) {
        add_name(out_names, attribute, wanted);
    };
    attribute_ref list;
    if (find_by_type(record, attribute_type::attribute_list, list)) {
        listed_records listed;
        const std::vector<u8> content = read_attribute_list(volume, list, budget);
        for_each_list_entry(byte_view{content}, [&](const attribute_list_entry &named) {
            if (named.record != entry &&
                is_type(named.key.first, attribute_type::file_name))
                listed.add(named.record, named.key);
        });
        std::vector<u8> bytes;
        for (const listed_records::listed_record &extension : listed.records()) {
            if (budget < volume.get_mft_record_size()) break;
            budget -= volume.get_mft_record_size();
            if (volume.read_filerecord(extension.entry, bytes) &&
                is_extension_of(byte_view{bytes}, entry, record))
                for_each_listed(byte_view{bytes}, extension.keys, add);
        }
    }
    for_each_attribute(record, [&](attribute_ref attribute) {
        add(attribute);
        return true;
    });
    return !out_names.empty();
}

} // namespace hv
