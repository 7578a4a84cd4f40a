#pragma once

#include "base/hv_byte_view.h"
#include "disk/hv_run_index.h"
#include "security/hv_security_layout.h"

#include <map>
#include <set>
#include <string>
#include <vector>

/// The security descriptors of a volume. Each file names its descriptor by a number,
/// the security id; the stream "$SDS" of "$Secure" has the descriptor of each number.
namespace hv {

class CNtfs;

/// One entry of "$SDS".
struct sds_record {
    u32 id = 0;
    u64 position = 0; ///< of the entry in the stream, in bytes
    byte_view descriptor;
    bool is_intact = false; ///< the stored hash matches the descriptor
};

/// The hash that "$SDS" stores with a descriptor.
u32 descriptor_hash(byte_view descriptor);

/// Calls `visit` with each entry of a block of "$SDS"; `position` is where the block
/// starts in the stream, in bytes. An entry is recognised by its stored position, in a
/// mirror that of its original. Where there is none, because of damage or filler, the
/// search goes on at the next multiple of 16 bytes. Entries that pass the block's end
/// are left out.
template <class Visit>
void for_each_sds_entry(byte_view block, u64 position, Visit visit)
{
    fixed_view<sds_entry::header_size> header;
    for (u64 at = 0; block.fixed(at, header);) {
        const u64 original = (position + at) & ~sds_entry::block_size;
        const u64 length = header.get<sds_entry::length>();
        byte_view entry;
        if (header.get<sds_entry::position>() != original ||
            length < sds_entry::header_size || !block.sub(at, length, entry)) {
            at += sds_entry::alignment;
            continue;
        }
        const byte_view descriptor = entry.from(sds_entry::header_size);
        visit(sds_record{header.get<sds_entry::id>(), position + at, descriptor,
                         header.get<sds_entry::hash>() == descriptor_hash(descriptor)});
        at += (length + sds_entry::alignment - 1) & ~(sds_entry::alignment - 1);
    }
}

/// The security id in the $STANDARD_INFORMATION of a "FILE" record; 0 if it has none.
u32 security_id_of(byte_view record);

/// Finds owners and descriptors on one validated volume, which has to outlive this
/// object. The first lookup reads all of "$SDS". A volume without a usable stream has
/// no security ids.
class security_map {
public:
    explicit security_map(const CNtfs &volume) : m_volume(volume) {}

    /// The SID text of the owner of an MFT entry: from the descriptor that its security
    /// id names, or, if the id isn't known, from its own $SECURITY_DESCRIPTOR. False,
    /// with an empty text, for an entry that can't be read or whose owner isn't known.
    bool owner_of_entry(std::string &out_owner, u64 entry);
    /// The SID text of the owner in the descriptor with this security id. False, with
    /// an empty text, for an unknown id; true with an empty text for a descriptor
    /// without an owner.
    bool owner_of_id(std::string &out_owner, u32 id);

    /// The bytes of the descriptor of an MFT entry, found in the same way as its owner.
    /// False, with no bytes, if there is none or it can't be read.
    bool read_entry_descriptor(std::vector<u8> &out_descriptor, u64 entry);
    /// The bytes of the descriptor with this security id. False, with no bytes, for an
    /// unknown id, an empty descriptor, and one that can't be read.
    bool read_descriptor(std::vector<u8> &out_descriptor, u32 id);

    /// How many security ids the volume has.
    std::size_t size();

private:
    struct known_descriptor {
        u64 position = 0; ///< of the descriptor in the stream, in bytes
        u32 size = 0;
        bool is_intact = false;
        const std::string *owner = nullptr;
    };

    void load();
    void remember(const sds_record &entry);
    const known_descriptor *find(u32 id);
    bool read_own_descriptor(std::vector<u8> &out_descriptor, u64 entry) const;
    bool read_record(std::vector<u8> &out_record, u64 entry) const;

    const CNtfs &m_volume;
    bool m_is_loaded = false;
    run_index m_runs; ///< of the stream
    std::map<u32, known_descriptor> m_known;
    std::set<std::string> m_owners; ///< each text once: most own many descriptors
};

/// Makes `collect_inode_stats` of a volume fill in the owners of its files. "$SDS" is
/// read when the first one is asked for.
void attach_owners(CNtfs &volume);

} // namespace hv
