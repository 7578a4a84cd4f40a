#include "recyclebin/proof_command.h"

#include <cstdio>

namespace hv {

namespace {

std::string dd_command(const std::string &file, const byte_range &range)
{
    char numbers[96];
    std::snprintf(numbers, sizeof numbers, " bs=1 skip=$((0x%llx)) count=%llu",
                  static_cast<unsigned long long>(range.offset),
                  static_cast<unsigned long long>(range.length));
    return "dd if=" + shell_quoted(file) + numbers + " 2>/dev/null";
}

} // namespace

std::string shell_quoted(const std::string &text)
{
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

std::string check_command(const std::string &file,
                          const std::vector<byte_range> &ranges)
{
    if (ranges.size() == 1) return dd_command(file, ranges[0]) + " | xxd";
    std::string text = "{ ";
    for (const byte_range &range : ranges) text += dd_command(file, range) + "; ";
    return text + "} | xxd";
}

} // namespace hv
