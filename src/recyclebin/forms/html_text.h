#pragma once

#include <string>
#include <string_view>

/// Texts for a page of HTML. Evidence is hostile: it may hold markup, and marks that
/// turn the direction of writing.
namespace hv {

/// The text with what HTML would take for markup as character references, fit for
/// content and for attributes in quotes. It has to be valid UTF-8.
std::string html_escaped(std::string_view utf8);
/// Text of evidence, escaped as in the table, in an element of its own: letters that
/// run from right to left move neither their neighbours nor the parts of a path.
std::string evidence_html(std::string_view escaped_text);

/// "sha256-..." as a Content-Security-Policy names a script or a style that it allows.
std::string policy_hash(std::string_view content);

} // namespace hv
