// How the programs of this folder read numbers, and how they say what is wrong.
#pragma once

#include <veskit/base/hv_types.h>

#include <charconv>
#include <iostream>
#include <string_view>
#include <system_error>

/// Reads a decimal number, or a hexadecimal one after "0x". False for anything else.
inline bool read_number(hv::u64 &value, std::string_view text)
{
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    if (is_hex) text.remove_prefix(2);
    const char *end = text.data() + text.size();
    const auto [stop, error] =
        std::from_chars(text.data(), end, value, is_hex ? 16 : 10);
    return error == std::errc{} && stop == end;
}

/// Says what is wrong with a file or an argument. Returns the exit status.
inline int fail(std::string_view what, std::string_view problem)
{
    std::cerr << what << ": " << problem << '\n';
    return 1;
}

/// Says what is wrong with the command line. Returns the exit status.
inline int show_usage(std::string_view problem, std::string_view usage)
{
    std::cerr << problem << "\nusage: " << usage << '\n';
    return 2;
}
