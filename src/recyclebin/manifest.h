#pragma once

#include "evidence/deletion.h"
#include "recovery/item_records.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

/// What an export says of each file: a line of JSON.
namespace hv {

enum class manifest_type { file, folder, stream };

/// What became of one file.
enum class written_state {
    whole,      ///< all bytes are its own, as far as anything shows
    partly,     ///< some aren't: `gaps` says which
    unproven,   ///< nothing shows whose they are now: `notes` say why
    gone,       ///< none is left; nothing was written
    not_written ///< `reason` says why
};

/// One line. What isn't known is empty.
struct manifest_line {
    const deletion *item = nullptr;
    std::string medium;
    std::optional<u32> volume; ///< by its number in lists
    manifest_type type = manifest_type::file;
    std::u16string path_before;
    std::u16string stream;          ///< name of an alternate stream
    std::string path_written;       ///< below the folder of the export
    std::optional<u64> stated_size; ///< by the metadata
    std::optional<u64> size;        ///< by the record
    std::optional<u64> bytes_read;  ///< that the sums are of
    written_state state = written_state::not_written;
    std::string reason;
    std::vector<std::string> notes;
    std::string sha256, md5;
    const item_record *record = nullptr; ///< from which it was read
    std::vector<byte_range> ranges;
    std::vector<stream_gap> gaps;
};

/// The line, without its end.
std::string manifest_json(const manifest_line &line);

/// "live", "snapshot 2", "freed record", ...
std::string view_text(const item_record &record);

/// The manifest, as a file or on a stream. Lines are written whole or not at all.
class manifest_file {
public:
    explicit manifest_file(std::ostream &out) : m_out(&out) {}
    /// A descriptor that it closes.
    explicit manifest_file(int descriptor) : m_descriptor(descriptor) {}
    ~manifest_file();
    manifest_file(const manifest_file &) = delete;
    manifest_file &operator=(const manifest_file &) = delete;

    /// Keeps room on the disk for what is to come, where the system can.
    void reserve(u64 lines);
    /// False if a line was refused, now or before.
    bool add(const manifest_line &line);

private:
    std::ostream *m_out = nullptr;
    int m_descriptor = -1;
    u64 m_size = 0;
    bool m_is_refused = false;
};

} // namespace hv
