#pragma once

#include "media/open_medium.h"

namespace hv {

/// A file of a virtual disk, and its format as QEMU calls it.
struct qemu_layer {
    std::string path;
    std::string driver;
};

/// Opens a disk with the tools of QEMU, which serve it on a private socket for as long
/// as the source lives: the first layer, each over the next one. There is at least one.
/// No other file is opened, whatever the headers name.
opened_medium open_layers_with_qemu(const std::vector<qemu_layer> &layers);

} // namespace hv
