#include "recyclebin/forms/cell_text.h"

#include "recyclebin/evidence_text.h"

#include <cstdio>

namespace hv {

namespace {

char32_t number_of(std::u16string_view code_point)
{
    if (code_point.size() == 1) return code_point[0];
    return 0x10000 + ((char32_t{code_point[0]} - 0xd800) << 10) +
           (char32_t{code_point[1]} - 0xdc00);
}

bool holds(std::string_view characters, char32_t c)
{
    return c < 0x80 && characters.find(static_cast<char>(c)) != std::string_view::npos;
}

} // namespace

std::string cell_text(std::u16string_view text, std::string_view refused)
{
    std::string out;
    while (!text.empty()) {
        const std::u16string_view one = text.substr(0, code_point_units(text));
        const char32_t c = number_of(one);
        if (is_hidden(c) || holds(refused, c) || text.starts_with(u"<U+")) {
            char mark[16];
            std::snprintf(mark, sizeof mark, "<U+%04X>", static_cast<unsigned>(c));
            out += mark;
        } else {
            out += to_lossless_utf8(one);
        }
        text.remove_prefix(one.size());
    }
    return out;
}

std::string cell_text_of_utf8(std::string_view text, std::string_view refused)
{
    return cell_text(from_lossless_utf8(text), refused);
}

} // namespace hv
