#pragma once

#include "recyclebin/export_target.h"
#include "recyclebin/input.h"

#include <string>
#include <vector>

/// What a run gives up for the sake of what it reads: media are hostile, and libraries
/// that others wrote read them too. docs/security.md says what that is worth.
namespace hv {

/// What a run does after its sources and outputs are open.
struct run_needs {
    std::vector<std::string> read_paths = {};      ///< files and folders that it opens
    std::vector<std::string> publish_folders = {}; ///< where outputs get their names
    std::string export_folder = {};                ///< that it fills; empty without one
    bool uses_sockets = false;                     ///< a program serves the medium
};

/// Gives up what `needs` doesn't name, as far as the system allows: neither its absence
/// nor its failure is said. Threads that run already keep their rights to files, so
/// there must be none.
void confine(const run_needs &needs);

/// Confines a run before its medium is opened, which libraries do: it may still read
/// every file and start installed programs, but write only beneath the folders of its
/// outputs.
void confine_opening(const command_line &line);

/// Confines a run whose sources and outputs are open. What is loaded at its first use
/// is loaded before.
void confine_run(const command_line &line, const opened_input &input,
                 const export_target &target);

/// What this system and this build have for it: "Landlock (version 7), seccomp".
std::string confinement_text();

} // namespace hv
