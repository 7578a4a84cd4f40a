#include "evidence/system_name.h"

#include "base/hv_text_convert.h"
#include "base/hv_types.h"

#include <array>

namespace hv {

namespace {

constexpr char32_t first_pair = 0x10000; // code points from here on take two units
constexpr char16_t escape = 0xDC00;      // and the byte that it stands for

// What a first byte announces: how many bytes follow, its own bits, and the least code
// point that needs so many.
struct sequence_form {
    u8 mask, lead;
    std::size_t more;
    char32_t least;
};
constexpr std::array<sequence_form, 4> forms = {{{0x80, 0x00, 0, 0},
                                                 {0xE0, 0xC0, 1, 0x80},
                                                 {0xF0, 0xE0, 2, 0x800},
                                                 {0xF8, 0xF0, 3, 0x10000}}};

bool is_surrogate(char32_t code_point)
{
    return code_point >= 0xD800 && code_point <= 0xDFFF;
}

// The length of the sequence that a name begins with; 0 if it isn't UTF-8.
std::size_t decode(char32_t &out, std::string_view name)
{
    const u8 lead = static_cast<u8>(name[0]);
    for (const sequence_form &form : forms) {
        if ((lead & form.mask) != form.lead) continue;
        if (name.size() <= form.more) return 0;
        out = lead & static_cast<u8>(~form.mask);
        for (std::size_t at = 1; at <= form.more; ++at) {
            const u8 next = static_cast<u8>(name[at]);
            if ((next & 0xC0U) != 0x80U) return 0;
            out = out << 6U | (next & 0x3FU);
        }
        const bool is_sound =
            out >= form.least && out <= 0x10FFFF && !is_surrogate(out);
        return is_sound ? form.more + 1 : 0;
    }
    return 0;
}

void append_units(std::u16string &text, char32_t code_point)
{
    if (code_point < first_pair) {
        text += static_cast<char16_t>(code_point);
        return;
    }
    const char32_t rest = code_point - first_pair;
    text += static_cast<char16_t>(0xD800 + (rest >> 10U));
    text += static_cast<char16_t>(0xDC00 + (rest & 0x3FFU));
}

} // namespace

std::u16string from_system_name(std::string_view name)
{
    std::u16string text;
    while (!name.empty()) {
        char32_t code_point = 0;
        const std::size_t length = decode(code_point, name);
        if (length > 0)
            append_units(text, code_point);
        else
            text += static_cast<char16_t>(escape + static_cast<u8>(name[0]));
        name.remove_prefix(length > 0 ? length : 1);
    }
    return text;
}

std::string to_system_name(std::u16string_view text)
{
    std::string name;
    while (!text.empty()) {
        char32_t code_point = text[0];
        const bool is_pair = text.size() > 1 && (text[0] & 0xFC00) == 0xD800 &&
                             (text[1] & 0xFC00) == 0xDC00;
        if (is_pair)
            code_point = first_pair + ((text[0] & 0x3FFU) << 10U) + (text[1] & 0x3FFU);
        if (code_point >= escape + 0x80 && code_point <= escape + 0xFF)
            name += static_cast<char>(code_point - escape);
        else
            name += uni::to_utf8(std::wstring(1, static_cast<wchar_t>(code_point)));
        text.remove_prefix(is_pair ? 2 : 1);
    }
    return name;
}

} // namespace hv
