#pragma once

#include "stress/sweep_plan.h"

#include <map>

/// Runs the inputs of a sweep in processes of their own, so that a crash costs one
/// input.
namespace stress {

struct sweep_request {
    u64 count = 1000;
    u64 seed = 1;
    u64 jobs = 1;
    std::string folder; ///< where damaged media are kept; empty: nowhere
};

struct sweep_result {
    u64 inputs = 0; ///< that were run
    u64 seconds = 0;
    u64 slowest_ms = 0;
    u64 slowest_input = 0;
    std::map<std::string, u64> findings; ///< by kind: how many
};

/// Prints each finding on standard output when it comes.
sweep_result sweep_all(const sweep_plan &plan, const sweep_request &request);

/// Writes a damaged medium and what is wrong with it: "input-K.raw", "input-K.txt".
void keep_input(const std::string &folder, u64 number, const sweep_input &input,
                const std::string &problem);

} // namespace stress
