#pragma once

#include "stress/properties.h"
#include "stress/small_media.h"

#include <cstdlib>
#include <iostream>
#include <string>

/// What the fuzz targets of whole runs run on. The first byte of an input chooses a
/// small medium, the rest decides how it is damaged.
namespace fuzz {

struct damaged_medium {
    std::size_t number = 0; ///< of the small medium
    std::vector<hv::u8> bytes;
    stress::damage done;
};

/// A small medium as its maker made it.
struct whole_medium {
    std::vector<hv::u8> bytes;
    std::vector<stress::structure> structures;
};

inline const whole_medium &whole_medium_of(std::size_t number)
{
    static const std::vector<whole_medium> all = [] {
        std::vector<whole_medium> made;
        for (const stress::small_medium &each : stress::small_media()) {
            whole_medium one;
            one.bytes = each.make();
            one.structures = stress::find_structures(one.bytes);
            made.push_back(std::move(one));
        }
        return made;
    }();
    return all[number];
}

inline damaged_medium damage_medium(const hv::u8 *data, std::size_t size)
{
    constexpr int max_damages = 8;
    damaged_medium made;
    made.number = size == 0 ? 0 : data[0] % stress::small_media().size();
    const whole_medium &whole = whole_medium_of(made.number);
    made.bytes = whole.bytes;
    stress::input_choices decide(std::span(data, size).subspan(size == 0 ? 0 : 1));
    for (int i = 0; i < max_damages && !decide.is_exhausted(); ++i)
        stress::damage_once(made.done, made.bytes, whole.structures, decide);
    return made;
}

/// Ends the run if something is wrong, with what was done to which medium.
inline void require_no(const std::string &problem, const damaged_medium &medium)
{
    if (problem.empty()) return;
    std::cerr << stress::small_media()[medium.number].name << ": " << medium.done.story
              << "\n"
              << problem << "\n";
    std::abort();
}

} // namespace fuzz
