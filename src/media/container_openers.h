#pragma once

#include "media/open_medium.h"

namespace hv {

// One opener for each kind of container. Each fills in the source, the description, the
// files and the faults, or the problem.

/// `ewf` and `ewf_2`: all segments of an Expert Witness image, by the path of any.
opened_medium open_ewf(const std::string &path, container_kind kind);
/// VHD and VHDX, with the parents of a differencing disk.
opened_medium open_vhd(const std::string &path);
/// qcow and qcow2; one over a backing file is read by the tools of QEMU.
opened_medium open_qcow(const std::string &path);
/// VMDK: a file of sparse extents, or a descriptor with the files that it names.
opened_medium open_vmdk(const std::string &path);
/// A container that only the tools of QEMU read. `driver` is its format as QEMU calls
/// it: an image is never probed for what else it may be.
opened_medium open_with_qemu(const std::string &path, const std::string &driver);

/// The parts of an image that was split, by the path of any of them: "disk.001", or
/// "disk.aa". Without a source and a problem, if `path` isn't one of several parts.
opened_medium open_split_raw(const std::string &path);

/// A medium that can't be opened, for this reason.
inline opened_medium unopened(std::string problem)
{
    return {.source = nullptr, .problem = std::move(problem)};
}
/// The reason, where a library or a program is missing: "reading VHDX needs the package
/// libvhdi1".
inline std::string package_problem(const std::string &format,
                                   const std::string &package)
{
    return "reading " + format + " needs the package " + package +
           "; install it, or convert the image to a raw one, and try again";
}

/// `folder/` of a path with what follows its last "/" or "\" of `name`: files that a
/// container names are looked for beside it and nowhere else, whoever wrote the name.
inline std::string beside(const std::string &path, const std::string &name)
{
    const std::size_t last = name.find_last_of("/\\");
    return path.substr(0, path.rfind('/') + 1) +
           (last == std::string::npos ? name : name.substr(last + 1));
}

} // namespace hv
