#include "security/hv_security_map.h"

#include "ntfs/hv_file_record.h"
#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/hv_stream_reader.h"
#include "ntfs/ntfs.h"
#include "security/hv_security_descriptor.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <new>
#include <sstream>

namespace hv {

namespace {

constexpr std::string_view sds_stream_name = "$SDS";

// Entries follow one another from the start of the stream. After this many blocks in a
// row without any, the stream's size is assumed to be damaged.
constexpr u64 max_empty_blocks = 64;

// More than two SIDs and two ACLs of the largest size take.
constexpr u64 max_descriptor_bytes = sds_entry::block_size;

// The bytes of the stream that its runs can have. Runs may name clusters that don't
// exist, or the same ones again and again: no stream is larger than what the medium
// stores.
u64 readable_size(const CNtfs &volume, const attrib_info &stream)
{
    const RAW_DISK_IO *disk = volume.get_disk();
    if (disk == nullptr) return 0;
    return std::min(
        {std::max(stream.real_size, stream.valid_size),
         runs_total_bytes(stream.cluster_runs, volume.get_cluster_size(), false),
         disk->get_stored_size()});
}

bool find_attribute_of(attrib_info &out, const CNtfs &volume, u64 entry,
                       attribute_type type, std::string_view name)
{
    std::vector<attrib_info> attributes;
    get_attribute_list(volume, entry, attributes, attribute_scope::all);
    const auto found =
        std::ranges::find_if(attributes, [&](const attrib_info &attribute) {
            return attribute.type == static_cast<u32>(type) &&
                   attribute.stream_name == name;
        });
    if (found == attributes.end()) return false;
    out = std::move(*found);
    return true;
}

} // namespace

u32 descriptor_hash(byte_view descriptor)
{
    u32 hash = 0;
    u32 word = 0;
    for (u64 at = 0; descriptor.read(at, word); at += sizeof(u32))
        hash = std::rotl(hash, 3) + word;
    return hash;
}

u32 security_id_of(byte_view record)
{
    u32 id = 0;
    for_each_attribute(record, [&](attribute_ref attribute) {
        if (!attribute.is(attribute_type::standard_information)) return true;
        attribute.content().read(standard_information::security_id, id);
        return false;
    });
    return id;
}

void security_map::load()
try {
    m_is_loaded = true;
    attrib_info stream;
    if (!m_volume.is_validated() || m_volume.get_mft_inode_stats().data_size == 0 ||
        !find_attribute_of(stream, m_volume, secure_entry_number, attribute_type::data,
                           sds_stream_name))
        return;
    m_runs = run_index(stream.cluster_runs);
    const u64 size = readable_size(m_volume, stream);
    std::vector<u8> block(std::min(size, sds_entry::block_size));
    u64 empty_blocks = 0;
    for (u64 at = 0; at < size && empty_blocks < max_empty_blocks;
         at += sds_entry::block_size) {
        ++empty_blocks;
        u32 length = static_cast<u32>(std::min<u64>(block.size(), size - at));
        u64 flags = 0;
        // The mirror may have what can't be read here.
        if (!read_stream_range(m_volume, m_runs, at, block.data(), length, flags))
            continue;
        for_each_sds_entry(byte_view{block.data(), length}, at,
                           [&](const sds_record &entry) {
                               empty_blocks = 0;
                               remember(entry);
                           });
    }
} catch (const std::bad_alloc &) {
    return; // what is known already stays
}

// The first intact copy of a descriptor counts; a damaged one is better than none.
void security_map::remember(const sds_record &entry)
{
    if (entry.id == 0) return;
    const auto known = m_known.find(entry.id);
    if (known != m_known.end() && (known->second.is_intact || !entry.is_intact)) return;
    std::string owner;
    owner_sid_text(owner, entry.descriptor);
    m_known[entry.id] = {entry.position + sds_entry::header_size,
                         static_cast<u32>(entry.descriptor.size()), entry.is_intact,
                         &*m_owners.insert(std::move(owner)).first};
}

const security_map::known_descriptor *security_map::find(u32 id)
{
    if (!m_is_loaded) load();
    const auto found = m_known.find(id);
    return found == m_known.end() ? nullptr : &found->second;
}

std::size_t security_map::size()
{
    if (!m_is_loaded) load();
    return m_known.size();
}

bool security_map::read_record(std::vector<u8> &out_record, u64 entry) const
{
    return m_volume.is_validated() && m_volume.read_filerecord(entry, out_record) &&
           passes_record_test(byte_view{out_record}, m_volume.rules());
}

bool security_map::owner_of_id(std::string &out_owner, u32 id)
{
    out_owner.clear();
    const known_descriptor *known = find(id);
    if (known == nullptr) return false;
    out_owner = *known->owner;
    return true;
}

bool security_map::owner_of_entry(std::string &out_owner, u64 entry)
{
    std::vector<u8> bytes;
    out_owner.clear();
    if (!read_record(bytes, entry)) return false;
    if (owner_of_id(out_owner, security_id_of(byte_view{bytes})))
        return !out_owner.empty();
    return read_own_descriptor(bytes, entry) &&
           owner_sid_text(out_owner, byte_view{bytes});
}

bool security_map::read_descriptor(std::vector<u8> &out_descriptor, u32 id)
{
    out_descriptor.clear();
    const known_descriptor *known = find(id);
    if (known == nullptr || known->size == 0) return false;
    std::vector<u8> bytes(known->size);
    u32 length = known->size;
    u64 flags = 0;
    if (!read_stream_range(m_volume, m_runs, known->position, bytes.data(), length,
                           flags) ||
        length != known->size)
        return false;
    out_descriptor.swap(bytes);
    return true;
}

bool security_map::read_own_descriptor(std::vector<u8> &out_descriptor, u64 entry) const
{
    attrib_info attribute;
    std::ostringstream content;
    out_descriptor.clear();
    if (!find_attribute_of(attribute, m_volume, entry,
                           attribute_type::security_descriptor, {}) ||
        !read_attribute_stream(m_volume, attribute, content,
                               {.max_bytes = max_descriptor_bytes}))
        return false;
    const std::string text = std::move(content).str();
    out_descriptor.assign(text.begin(), text.end());
    return true;
}

bool security_map::read_entry_descriptor(std::vector<u8> &out_descriptor, u64 entry)
{
    std::vector<u8> record;
    out_descriptor.clear();
    return read_record(record, entry) &&
           (read_descriptor(out_descriptor, security_id_of(byte_view{record})) ||
            read_own_descriptor(out_descriptor, entry));
}

void attach_owners(CNtfs &volume)
{
    auto map = std::make_shared<security_map>(volume);
    volume.set_owner_lookup([map](std::string &out_owner, u32 security_id) {
        return map->owner_of_id(out_owner, security_id);
    });
}

} // namespace hv
