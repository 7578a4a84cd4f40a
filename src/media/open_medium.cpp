#include "media/open_medium.h"

#include "disk/hv_file_source.h"

namespace hv {

opened_medium open_medium(const std::string &path)
{
    const auto file = std::make_shared<const file_source>(path);
    if (file->failure() != open_failure::none)
        return {.source = nullptr, .problem = open_failure_text(file->failure())};
    opened_medium medium{.source = file, .files = {path}};
    medium.kind = read_container_kind(*file);
    const content_texts texts = texts_of(medium.kind);
    medium.description = texts.name;
    medium.is_plain_file = true;
    if (medium.kind == container_kind::none) return medium;
    medium.source = nullptr;
    medium.problem = std::string(texts.name) + ": this kind of file isn't read; " +
                     std::string(texts.advice);
    return medium;
}

} // namespace hv
