#pragma once

#include "recyclebin/command_line.h"
#include "recyclebin/manifest.h"
#include "recyclebin/output_tree.h"

namespace hv {

/// Where an export goes: its folder and its manifest, which are opened before anything
/// of the medium is read. A manifest that nothing is written to is removed again.
class export_target {
public:
    export_target() = default;
    ~export_target();
    export_target(const export_target &) = delete;
    export_target &operator=(const export_target &) = delete;

    /// Makes the folder if it is missing, and the manifest, which must be missing or
    /// left empty by a run that was killed.
    /// False, with `problem` in words, if that can't be done.
    bool open(std::string &problem, const export_options &how);
    /// The folder; null with --only-hash.
    output_tree *tree() { return m_has_tree ? &m_tree : nullptr; }
    /// The manifest, once; `out` is where it goes if no file is named.
    std::unique_ptr<manifest_file> take_manifest(std::ostream &out);
    /// The path of the manifest; empty for standard output.
    const std::string &manifest_path() const { return m_manifest_path; }

private:
    bool open_manifest(std::string &problem);

    output_tree m_tree;
    bool m_has_tree = false;
    std::string m_manifest_path;
    int m_manifest = -1; // until it is taken
};

} // namespace hv
