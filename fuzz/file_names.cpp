// Everything that a name from a list or a walk goes through: decoding, filters,
// splitting and variables. The first line of the input is the filter, the rest the
// path.

#include "base/hv_filter.h"
#include "base/hv_string.h"
#include "base/hv_text_convert.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const std::string text(data, data + size);
    const std::size_t cut = std::min(text.find('\n'), text.size());
    const std::string path = text.substr(std::min(cut + 1, text.size()));
    std::vector<hv::filter_item> filter;
    hv::parse_filter(filter, text.substr(0, cut));
    hv::parse_signature_filter(text.substr(0, cut));
    const std::wstring wide = uni::to_wide(path);
    if (!wide.empty()) hv::filter_passes_wide(wide, filter);
    // Encoding a decoded text and decoding it again changes nothing.
    if (uni::to_wide(uni::to_utf8(wide)) != wide) std::abort();

    std::string directory;
    std::string name;
    if (hv::split_path(path, directory, name) != !path.empty()) std::abort();
    std::string escaped = path;
    hv::escape_line_breaks(escaped);
    hv::expand_variables(path, true);
    return 0;
}
