#pragma once

#include "disk/hv_byte_source.h"
#include "media/shared_object.h"

#include <functional>
#include <memory>

namespace hv {

/// A source in the form in which the container libraries take their input. Null if
/// `library` lacks the functions for it. It must outlive what reads through it.
///
/// Each library has functions of these names of its own, or of the one that it needs,
/// so a handle that one library made is of no use to another.
std::shared_ptr<void> make_bfio_handle(shared_object &library, byte_source_ptr source);

} // namespace hv
