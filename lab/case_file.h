#pragma once

#include "samples/bytes.h"

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A case as it is written down: what happened on its volumes, and the bytes that were
/// written about it. The proof searches the medium for them; docs/laboratory.md tells
/// the format.
namespace lab {

using test_support::byte_vector;
using test_support::u16;
using test_support::u32;
using test_support::u64;
using test_support::u8;

/// Bytes that were written somewhere. They are found where all parts are in one frame.
struct trace {
    std::string kind;  ///< "metadata", "data record", ...
    std::string frame; ///< "FILE", "index", or empty: anywhere
    std::vector<byte_vector> parts;
    /// Stretches of bytes that don't follow each other, and their places on the medium.
    std::vector<std::pair<byte_vector, u64>> pieces = {};
};

/// How the proof knows the content of a data item again.
struct told_data {
    std::string kept; ///< "stamped", "resident", "compressed"; empty: there is none
    u32 stamp = 0;
    u64 size = 0; ///< of the stamped bytes
};

/// An MFT entry and its sequence number.
struct entry_number {
    u64 entry = 0;
    u16 sequence = 0;
};

/// What a `$I` file or a record of `INFO2` states, or seems to.
struct told_metadata {
    std::u16string path = {};
    u64 size = 0;
    u64 deleted = 0; ///< FILETIME
    std::string metadata_name = {};
    std::vector<trace> traces = {};
};

/// One file or folder that was sent to the bin.
struct told_deletion : told_metadata {
    std::size_t volume = 0;
    std::string user = {}; ///< the name of the user's folder; empty: there is none
    std::string format = {};
    std::string id = {}; ///< what its names have in common
    std::string data_name = {};
    std::optional<entry_number> metadata_entry = {};
    std::optional<entry_number> data_entry = {};
    std::optional<u64> found_size = {};
    bool directory = false;
    std::vector<std::string> members = {}; ///< paths below a deleted folder
    std::string fate = "in the bin";
    told_data data = {};
};

/// Bytes that look like metadata and are none.
struct told_decoy : told_metadata {
    std::string what = {};
};

struct told_user {
    std::size_t volume = 0;
    std::string sid = {};
    std::vector<trace> traces = {};
};

struct told_snapshot {
    u64 created = 0; ///< FILETIME
    u64 sequence = 0;
    u32 crc32 = 0; ///< of the volume as it was, with `unknown` zeroed
    std::vector<std::pair<u64, u64>> unknown = {}; ///< offsets and lengths
};

struct told_volume {
    u64 offset = 0;
    u64 size = 0;
    u32 cluster_size = 4096;
    u32 record_size = 1024;
    u32 sector_size = 512;
    bool mounts = true; ///< other software opens it
    bool known = true;  ///< a table of partitions says where it is
    std::vector<told_snapshot> snapshots = {};
};

/// What a medium went through.
struct told_case {
    std::string name = {}; ///< "family/case"
    std::vector<std::string> events = {};
    std::vector<told_volume> volumes = {};
    std::vector<told_user> users = {};
    std::vector<told_deletion> deletions = {};
    std::vector<told_decoy> decoys = {};
    /// The same medium in another form: the name of the file, and its bytes.
    std::pair<std::string, byte_vector> container = {};
};

/// A FILETIME as text: "2024-03-05T09:41:17.2500000Z".
std::string iso_time(u64 filetime);

/// UTF-16, as UTF-8. A lone surrogate becomes three bytes, as if it were a character.
std::string utf8(std::u16string_view text);

/// Writes `story.json` and `medium.raw` into a folder, which is made. Zeros are left as
/// holes. Throws std::ios_base::failure if a file can't be written.
void write_case(const std::filesystem::path &folder, const told_case &story,
                const byte_vector &medium);

} // namespace lab
