#pragma once

#include "lab/case_file.h"

#include <string>
#include <string_view>
#include <vector>

struct _ntfs_volume;

namespace lab {

/// An NTFS volume that mkntfs formats and that the Linux driver's library (libntfs-3g)
/// fills: none of its bytes but the contents of files are ours. It needs neither a
/// mount nor root. The same calls make the same bytes on any day: the library asks for
/// the time, and gets that of `set_clock`.
///
/// Only one may be open at a time. Names are in UTF-16, and any units are allowed. Each
/// call throws `std::runtime_error` if the library refuses.
class linux_volume {
public:
    /// One name of a file, and the folder that it is in.
    struct place {
        entry_number folder = {};
        std::u16string name = {};
    };

    /// Bytes of a file that follow each other on the medium.
    struct stretch {
        u64 position = 0; ///< on the medium
        u64 size = 0;
    };

    static constexpr entry_number root{.entry = 5, .sequence = 5};

    /// Flags for `set_attributes`, as in $STANDARD_INFORMATION.
    static constexpr u32 hidden = 2, system = 4, compressed = 0x800;

    /// Formats a volume of `size` bytes, in a temporary file, with clusters of
    /// `cluster_size` bytes. `filetime` is the first moment, as for `set_clock`.
    linux_volume(u64 size, u32 cluster_size, u64 filetime);
    ~linux_volume();
    linux_volume(const linux_volume &) = delete;
    linux_volume &operator=(const linux_volume &) = delete;

    /// Writes what the library still holds, and returns all bytes of the volume.
    /// Nothing can be called afterwards.
    byte_vector close();

    /// What the library takes for now, in ticks of 100 ns from 1601.
    void set_clock(u64 filetime);

    /// Both return the MFT entry of what they make.
    entry_number make_folder(const place &at);
    entry_number make_file(const place &at, const byte_vector &content = {});

    /// Writes into a stream of a file, by default into its unnamed one, and makes the
    /// stream if the file has none of that name. A gap before `position` becomes
    /// sparse.
    void write(entry_number file, u64 position, const byte_vector &bytes,
               std::u16string_view stream = {});
    /// The same for the unnamed stream, and false once the volume is full.
    bool write_if_room(entry_number file, u64 position, const byte_vector &bytes);
    /// Cuts the unnamed stream to `size` bytes, and frees clusters after them.
    void truncate(entry_number file, u64 size);

    /// Sets the flags above, and only these. Files that are made in a `compressed`
    /// folder afterwards are compressed.
    void set_attributes(entry_number file, u32 flags);
    /// Adds a name of the 8.3 form to a file that has only the name at `at`. If they
    /// differ only in case, one name serves as both.
    void set_short_name(entry_number file, const place &at, const std::string &name);
    void add_link(entry_number file, const place &at);
    /// As the driver does it: adds the new name, then removes the old one.
    void rename(entry_number file, const place &from, const place &to);
    /// Removes a name and its short form. With the last name the file is deleted; a
    /// folder has to be empty then.
    void remove(entry_number file, const place &at);

    /// Whether the unnamed stream is in the file's MFT record.
    bool is_resident(entry_number file);
    /// Where `size` bytes of the unnamed stream are, in their order; nothing for what
    /// is resident or in a hole. Neighbouring runs are one stretch.
    std::vector<stretch> stretches(entry_number file, u64 position, u64 size);

private:
    struct temporary_file {
        std::string path;
        ~temporary_file();
    };
    temporary_file m_medium;
    _ntfs_volume *m_volume = nullptr;
};

} // namespace lab
