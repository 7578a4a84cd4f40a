#pragma once

#include "media/container_kind.h"

#include <functional>
#include <string>
#include <vector>

namespace hv {

/// A medium that was opened, or why it wasn't.
struct opened_medium {
    byte_source_ptr source =
        {}; ///< the disk or volume inside; null if it can't be opened
    /// Why there is no source, and what to try, as a sentence for a user.
    std::string problem = {};
    container_kind kind = container_kind::none;
    /// For a user: "raw image", "Expert Witness image (E01), 3 segments".
    std::string description = {};
    /// More about it, for a user, such as what an acquiry wrote into an image.
    std::vector<std::string> details = {};
    /// The files that were opened: results are never written over one of them.
    std::vector<std::string> files = {};
    /// Whether an offset in the source is one in the only file.
    bool is_plain_file = false;
    /// Whether a program serves the bytes on a socket.
    bool is_served = false;
    /// What the container couldn't give so far, such as "chunk 17, bytes 0x88000 to
    /// 0x8ffff: wrong checksum". Never empty as a function.
    std::function<std::vector<std::string>()> faults = [] {
        return std::vector<std::string>();
    };
};

/// Opens a raw image, a device, or a container, recognised by its content and never by
/// its name; further files of it are found beside it. A container whose library this
/// build lacks isn't opened, and the problem names the package.
opened_medium open_medium(const std::string &path);

} // namespace hv
