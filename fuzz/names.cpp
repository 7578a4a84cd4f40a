// Names of evidence and of the system as text: nothing is lost on the way to a form and
// back, and nothing that a terminal obeys is shown.

#include "base/hv_text_convert.h"
#include "evidence/system_name.h"
#include "recyclebin/evidence_text.h"

#include <cstdlib>

namespace {

void require(bool good)
{
    if (!good) std::abort();
}

void check_shown(const std::string &text)
{
    for (const char byte : text)
        require(static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F);
    require(hv::display_width(text) <= text.size());
    for (const std::size_t columns : {std::size_t{1}, std::size_t{20}})
        require(hv::display_width(hv::fit_end(text, columns)) <= columns);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const std::string name(data, data + size);
    require(hv::to_system_name(hv::from_system_name(name)) == name);
    check_shown(hv::escaped(std::string_view(name)));

    std::u16string units;
    for (std::size_t at = 0; at + 1 < size; at += 2)
        units += static_cast<char16_t>(data[at] | data[at + 1] << 8);
    require(hv::from_lossless_utf8(hv::to_lossless_utf8(units)) == units);
    check_shown(hv::escaped(units));
    std::string utf8;
    uni::utf16_to_utf8(utf8, hv::byte_view{data, size});
    require(utf8.size() <= 3 * (size / 2 + 1));
    const std::u16string_view pattern = std::u16string_view(units).substr(0, 16);
    hv::matches_glob(units, pattern);
    return 0;
}
