#include "recyclebin/forms/html_text.h"

#include <algorithm>
#include <array>
#include <new>
#include <openssl/evp.h>

namespace hv {

std::string html_escaped(std::string_view utf8)
{
    std::string out;
    out.reserve(utf8.size());
    for (const char c : utf8) switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&#39;"; break;
        default: out += c;
        }
    return out;
}

std::string evidence_html(std::string_view escaped_text)
{
    const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (std::ranges::all_of(escaped_text, is_ascii))
        return "<bdi>" + html_escaped(escaped_text) + "</bdi>";
    const std::string begin = "<bdi dir=\"ltr\">";
    std::string html = begin;
    while (true) {
        const std::size_t cut = escaped_text.find('\\');
        html += begin + html_escaped(escaped_text.substr(0, cut)) + "</bdi>";
        if (cut == std::string_view::npos) break;
        html += '\\';
        escaped_text.remove_prefix(cut + 1);
    }
    return html + "</bdi>";
}

std::string policy_hash(std::string_view content)
{
    constexpr std::size_t sum_size = 32;
    constexpr std::size_t text_size = 44; // in base 64
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    std::array<unsigned char, text_size + 1> text{};
    if (EVP_Digest(content.data(), content.size(), sum.data(), nullptr, EVP_sha256(),
                   nullptr) != 1)
        throw std::bad_alloc();
    EVP_EncodeBlock(text.data(), sum.data(), sum_size);
    return "sha256-" + std::string(text.begin(), text.begin() + text_size);
}

} // namespace hv
