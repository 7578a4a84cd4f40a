#pragma once

#include "base/hv_byte_view.h"
#include "base/hv_log.h"
#include "vss/hv_vss_layout.h"

#include <array>
#include <map>
#include <ostream>
#include <string>

/// The catalog of the shadow copies of a volume: which shadow stores there are, when
/// they were made, and where their parts are.
namespace hv {

class CNtfs;

using vss_guid = std::array<u8, 16>; ///< as on the disk

/// The header of one block.
struct vss_block_hdr {
    u8 version = 0;
    u32 type = 0;
    u64 relative_offset = 0;
    u64 offset = 0; ///< bytes, on the volume
    u64 next_offset = 0;
    u64 further_size = 0;
    u64 position = 0;      ///< as the caller counts: in a file, or on the volume
    u64 next_position = 0; ///< of the next block in the store file; 0 for none
};

/// Where the catalog has one entry of a store.
struct vss_catalog_place {
    bool seen = false;
    u64 position = 0; ///< of the entry, in the catalog file
    u64 block = 0;    ///< of the catalog block that holds it
};

/// One shadow store, as the catalog and the header of the store describe it.
struct vss_store {
    vss_guid store_id{};
    std::array<vss_catalog_place, 3> entries; ///< of types 1, 2 and 3

    // Of the entry of type 2
    u64 volume_size = 0; ///< bytes
    u64 store_number = 0;
    u64 unknown = 0;
    u64 created = 0; ///< FILETIME

    // Of the entry of type 3; offsets in bytes on the volume
    u64 block_list_offset = 0;
    u64 store_header_offset = 0;
    u64 range_list_offset = 0;
    u64 bitmap_offset = 0;
    u64 file_reference = 0; ///< of the store file
    u64 allocation_size = 0;
    u64 previous_bitmap = 0;
    u64 store_index = 0;

    // Of the store header
    bool header_seen = false;
    vss_guid information_id{};
    vss_guid snapshot_id{};
    vss_guid snapshot_set_id{};
    u32 type = 0;
    u32 provider = 0;
    u32 attribute_flags = 0;
    std::string operating_machine;
    std::string service_machine;

    /// The place of the entry of a type from 1 to 3.
    const vss_catalog_place &entry_of(u32 entry_type) const
    {
        return entries[entry_type - 1];
    }
};

/// The stores by the text of their identifiers.
using vss_store_map = std::map<std::string, vss_store>;
/// The headers of catalog blocks by their position in the catalog file.
using vss_block_map = std::map<u64, vss_block_hdr>;

/// Reads the block header at the start of `block`; `position` is only copied. False,
/// with `result` as it was, for fewer than 128 bytes, without the identifier, and for a
/// block of another type than the one wanted.
bool parse_block_header(vss_block_hdr &result, byte_view block, vss_block_type wanted,
                        u64 position);

/// Reads the bytes of a catalog file: its block headers and its entries, straight
/// through, in any order. False, with the maps as they were, if the bytes are no
/// catalog. A truncated slot, or one of an unknown type, is skipped.
bool parse_catalog(vss_block_map &out_blocks, vss_store_map &out_stores,
                   byte_view catalog);

/// Fills a store from its store header, a block of up to 16384 bytes. A machine name
/// that passes the end of the block stays empty. False, with the store as it was, if
/// the bytes are no store header.
bool parse_store_header(vss_store &store, byte_view block);

/// Finds the entry numbers of "System Volume Information" and of the catalog in it.
/// False if there is no such folder or file.
bool find_catalog(u64 &out_folder, u64 &out_catalog, const CNtfs &volume);

/// Finds and reads the catalog of a validated volume, and the header of each store up
/// to the first that can't be read. `out_header` becomes the first 128 bytes of the
/// catalog. If the rules of the volume say so, a catalog that no index leads to is
/// found by the volume's header. False, with an empty map, if there is no catalog.
bool load_stores(std::array<u8, vss_block::header_size> &out_header,
                 vss_store_map &out_stores, const CNtfs &volume, log_handle log);

/// The text of a GUID, in lower case and without braces.
std::string vss_guid_text(const vss_guid &guid);
/// What a type of snapshot is called; empty for an unknown one.
std::string_view vss_snapshot_type_name(u32 type);
/// The names of the attribute flags that are set, each followed by "; ".
std::string vss_attribute_names(u32 flags);

/// Writes the values of a store, one with its label on each line.
void dump_store(std::ostream &out, const vss_store &store);

} // namespace hv
