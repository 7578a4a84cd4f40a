#include "options/option_readers.h"

#include "base/hv_string.h"

#include <algorithm>

namespace hv {

namespace {

// The index of the first element from `start` on that is `name`, or the list's size.
std::size_t index_of(const arg_list &args, std::string_view name, std::size_t start)
{
    while (start < args.size() && !equal_ignoring_case(args[start], name)) ++start;
    return std::min(start, args.size());
}

} // namespace

bool take_flag(arg_list &args, std::string_view name, bool keep)
{
    const std::size_t at = index_of(args, name, 0);
    if (at == args.size()) return false;
    if (!keep) args.erase(args.begin() + static_cast<std::ptrdiff_t>(at));
    return true;
}

bool take_value(arg_list &args, std::string_view name, std::string &value)
{
    if (!find_value(args, name, value, 0)) return false;
    const auto first =
        args.begin() + static_cast<std::ptrdiff_t>(index_of(args, name, 0));
    args.erase(first, first + 2);
    return true;
}

bool find_flag(const arg_list &args, std::string_view name, std::size_t start)
{
    return index_of(args, name, start) < args.size();
}

bool find_value(const arg_list &args, std::string_view name, std::string &value,
                std::size_t start)
{
    const std::size_t at = index_of(args, name, start);
    if (at + 1 >= args.size()) return false;
    value = args[at + 1];
    return true;
}

} // namespace hv
