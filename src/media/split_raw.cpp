#include "disk/hv_file_source.h"
#include "media/container_openers.h"
#include "media/fault_list.h"
#include "media/stitched_source.h"

#include <algorithm>
#include <unistd.h>

namespace hv {

namespace {

constexpr u32 max_parts = 100'000;

// The ending of a part counts it: at least three digits, or "aa", "ab", ...
struct part_name {
    std::string stem; // with the last "."
    std::size_t width = 0;
    bool is_number = true;
    u32 number = 0;
};

bool parse_name(const std::string &path, part_name &name)
{
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos)
        return false;
    name.stem = path.substr(0, dot + 1);
    const std::string ending = path.substr(dot + 1);
    const auto is_in = [](char first, char last) {
        return [first, last](char c) { return c >= first && c <= last; };
    };
    name.width = ending.size();
    name.is_number = std::ranges::all_of(ending, is_in('0', '9'));
    const bool has_letters = std::ranges::all_of(ending, is_in('a', 'z'));
    if (name.is_number ? name.width < 3 || name.width > 5
                       : !has_letters || name.width < 2 || name.width > 3)
        return false;
    const u32 base = name.is_number ? 10 : 26;
    for (const char c : ending)
        name.number =
            name.number * base + static_cast<u32>(c - (name.is_number ? '0' : 'a'));
    return true;
}

std::string part_path(const part_name &name, u32 number)
{
    const u32 base = name.is_number ? 10 : 26;
    std::string ending;
    for (u32 rest = number; ending.size() < name.width || rest != 0; rest /= base)
        ending.insert(ending.begin(),
                      static_cast<char>((name.is_number ? '0' : 'a') + rest % base));
    return name.stem + ending;
}

bool is_there(const part_name &name, u32 number)
{
    return ::access(part_path(name, number).c_str(), F_OK) == 0;
}

// The numbers of the first and the last part around one of them. A gap of up to
// `max_gap` parts is bridged: they may be missing.
constexpr u32 max_gap = 8;

u32 find_end(const part_name &name, u32 from, i64 step)
{
    u32 last = from;
    for (i64 next = i64{from} + step;
         next >= 0 && next < max_parts && std::abs(next - i64{last}) <= max_gap;
         next += step)
        if (is_there(name, static_cast<u32>(next))) last = static_cast<u32>(next);
    return last;
}

struct part {
    std::string path;
    std::shared_ptr<const file_source> file; // null: missing
};

// Empty, if the file isn't one of several parts: an ending may just look like a count.
std::vector<part> find_parts(const part_name &name)
{
    std::vector<part> parts;
    u32 first = find_end(name, name.number, -1);
    const u32 last = find_end(name, name.number, +1);
    if (first == last || first > max_gap) return {};
    // Letters count from "aa", numbers from 1 if not from 0.
    if (first > 0) first = name.is_number ? 1 : 0;
    for (u32 number = first; number <= last; ++number) {
        const std::string path = part_path(name, number);
        auto file = std::make_shared<const file_source>(path);
        if (file->failure() != open_failure::none) file = nullptr;
        parts.push_back({path, std::move(file)});
    }
    return parts;
}

// Parts before the last are of one size, so what is missing has a place.
opened_medium join(const std::vector<part> &parts)
{
    const auto faults = std::make_shared<fault_list>();
    const auto disk = std::make_shared<stitched_source>();
    opened_medium medium;
    u64 usual = 0;
    for (const part &each : parts)
        if (usual == 0 && each.file) usual = each.file->size();
    for (const part &each : parts) {
        const bool is_last = &each == &parts.back();
        const u64 size = each.file ? each.file->size() : 0;
        const u64 begin = disk->size();
        if (!disk->append(each.file, 0, size))
            return unopened("its parts make up an impossible size");
        if (each.file) medium.files.push_back(each.path);
        if (is_last || size >= usual) continue;
        disk->append_missing(usual - size);
        faults->add(begin + size, begin + usual,
                    each.path + (each.file ? " is shorter than the first part"
                                           : " is missing"));
    }
    medium.source = disk;
    medium.details = {std::to_string(parts.size()) + " parts"};
    medium.faults = [faults] { return faults->texts(); };
    return medium;
}

} // namespace

opened_medium open_split_raw(const std::string &path)
{
    part_name name;
    if (!parse_name(path, name)) return {};
    const std::vector<part> parts = find_parts(name);
    return parts.empty() ? opened_medium{} : join(parts);
}

} // namespace hv
