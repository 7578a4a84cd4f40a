#pragma once

#include "lab/case_file.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

/// The families of cases. What a case is about is told where it is made.
namespace lab {

/// A case that can be made: fills in what happened, and returns the medium.
struct case_maker {
    std::string name; ///< "family/case"
    std::function<byte_vector(told_case &)> make;
    bool is_first = false; ///< the smallest of its kind
};
using case_makers = std::vector<case_maker>;

/// A kind of case: makes one of about `size` deletions that follows from `seed`.
using case_kind = byte_vector (*)(told_case &told, u64 size, u64 seed);

/// Adds a case of a kind for each size and seed: "family/kind-SIZE-SEED".
inline void add_cases(case_makers &all, const std::string &name, case_kind kind,
                      std::initializer_list<u64> sizes = {3, 40},
                      std::initializer_list<u64> seeds = {1, 2})
{
    for (const u64 size : sizes)
        for (const u64 seed : seeds)
            all.push_back(
                {name + '-' + std::to_string(size) + '-' + std::to_string(seed),
                 [=](told_case &told) { return kind(told, size, seed); },
                 size == *sizes.begin() && seed == *seeds.begin()});
}

void add_live_cases(case_makers &all);
void add_emptied_cases(case_makers &all);
void add_forgotten_cases(case_makers &all);
void add_journal_cases(case_makers &all);
void add_snapshot_cases(case_makers &all);
void add_disk_cases(case_makers &all);
void add_damage_cases(case_makers &all);
void add_decoy_cases(case_makers &all);
void add_linux_cases(case_makers &all);

} // namespace lab
