#include "recyclebin/bytes_command.h"

#include "recyclebin/proof_command.h"

#include <cstdio>

namespace hv {

std::string_view key_comment(bytes_access access)
{
    return access == bytes_access::unlocked
               ? " # with --recovery-key or --password-file"
               : "";
}

std::string bytes_command(const sighting &seen, const std::string &medium,
                          bytes_access access)
{
    if (!seen.file.empty() || access == bytes_access::plain_file)
        return check_command(seen.file.empty() ? medium : seen.file, seen.ranges);
    std::string text;
    for (const byte_range &range : seen.ranges) {
        char numbers[64];
        std::snprintf(numbers, sizeof numbers, " 0x%llx %llu",
                      static_cast<unsigned long long>(range.offset),
                      static_cast<unsigned long long>(range.length));
        text += (text.empty() ? "" : "; ") +
                ("recyclebin bytes " + shell_quoted(medium)) + numbers;
    }
    text = seen.ranges.size() == 1 ? text + " | xxd" : "{ " + text + "; } | xxd";
    return text.append(key_comment(access));
}

} // namespace hv
