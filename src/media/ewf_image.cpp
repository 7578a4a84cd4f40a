#include "disk/hv_file_source.h"
#include "disk/hv_source_bytes.h"
#include "media/block_source.h"
#include "media/container_openers.h"
#include "media/decode_ahead.h"
#include "media/shared_object.h"
#include "media/signature.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <mutex>

#ifdef VESKIT_WITH_EWF
#include <libewf.h>
#endif

namespace hv {

#ifdef VESKIT_WITH_EWF

namespace {

// A name that is declared can't be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define LIBRARY_FUNCTION(name)                                                         \
    decltype(&::libewf_##name) name =                                                  \
        loaded.function<decltype(&::libewf_##name)>("libewf_" #name)
// NOLINTEND(bugprone-macro-parentheses)

struct ewf_library {
    shared_object loaded{"libewf.so.2"};
    LIBRARY_FUNCTION(glob);
    LIBRARY_FUNCTION(glob_free);
    LIBRARY_FUNCTION(handle_initialize);
    LIBRARY_FUNCTION(handle_free);
    LIBRARY_FUNCTION(handle_open);
    LIBRARY_FUNCTION(handle_get_media_size);
    LIBRARY_FUNCTION(handle_get_chunk_size);
    LIBRARY_FUNCTION(handle_get_bytes_per_sector);
    LIBRARY_FUNCTION(handle_set_read_zero_chunk_on_error);
    LIBRARY_FUNCTION(handle_read_random);
    LIBRARY_FUNCTION(handle_get_number_of_checksum_errors);
    LIBRARY_FUNCTION(handle_get_checksum_error);
    LIBRARY_FUNCTION(handle_get_number_of_acquiry_errors);
    LIBRARY_FUNCTION(handle_get_utf8_header_value);
    LIBRARY_FUNCTION(handle_get_utf8_hash_value);
};

#undef LIBRARY_FUNCTION

const ewf_library &ewf()
{
    static const ewf_library loaded;
    return loaded;
}

// The paths of all segments, by the path of any of them; empty if its name isn't that
// of a segment.
std::vector<std::string> segments_of(const std::string &path)
{
    char **names = nullptr;
    int count = 0;
    constexpr u8 any_format = 0; // told by the ending
    if (ewf().glob(path.c_str(), path.size(), any_format, &names, &count, nullptr) != 1)
        return {};
    std::vector<std::string> paths(names, names + count);
    ewf().glob_free(names, count, nullptr);
    return paths;
}

// Where in the row of segments a file is.
struct segment_facts {
    u32 number = 0;       // as its header says, from 1
    bool ends = false;    // with a section "done": it is the last one
    bool goes_on = false; // with a section "next"
};

// A segment begins with a signature of eight bytes, a one, and its number. It ends with
// a section of 76 bytes that begins with its name.
segment_facts read_segment(const std::string &path)
{
    constexpr u64 section_bytes = 76;
    const file_source file(path);
    const std::vector<u8> head = read_bytes(file, 0, 13);
    segment_facts facts{.number = byte_view{head}.read_padded<u16>(9)};
    if (file.size() < section_bytes) return facts;
    const std::vector<u8> type = read_bytes(file, file.size() - section_bytes, 5);
    facts.ends = holds_text(byte_view{type}, 0, "done");
    facts.goes_on = holds_text(byte_view{type}, 0, "next");
    return facts;
}

// What is missing of an image of these files, as sentences for a user.
std::vector<std::string> missing_parts(const std::vector<std::string> &paths)
{
    std::vector<std::string> missing;
    const u32 first = read_segment(paths.front()).number;
    if (first > 1)
        missing.push_back("the segments before " + paths.front() +
                          ", which is number " + std::to_string(first) +
                          ", are missing; put all segments into one folder");
    const segment_facts last = read_segment(paths.back());
    if (last.goes_on)
        missing.push_back("segment " + std::to_string(last.number + 1) +
                          " is missing after " + paths.back() +
                          "; put all segments into one folder");
    else if (!last.ends)
        missing.push_back(paths.back() + " is damaged or cut off at its end");
    return missing;
}

// Chunks with a wrong checksum, as the handles of an image come upon them. They may be
// decoded long before anyone asks for their bytes, and then again by another handle.
class checksum_errors {
public:
    void add(u64 begin, u64 end)
    {
        const std::lock_guard lock(m_mutex);
        m_stretches.insert_or_assign(begin, end);
    }
    // Names those in a stretch of the disk that was asked for.
    void name_in(fault_list &faults, u64 offset, u64 length) const
    {
        const std::lock_guard lock(m_mutex);
        auto next = m_stretches.upper_bound(offset);
        if (next != m_stretches.begin()) --next;
        for (; next != m_stretches.end() && next->first < offset + length; ++next)
            if (next->second > offset)
                faults.add(next->first, next->second, "wrong checksum");
    }

private:
    mutable std::mutex m_mutex;
    std::map<u64, u64> m_stretches; // begin and end
};

struct open_image {
    libewf_handle_t *handle = nullptr;
    u32 sector_bytes = 512;
    u32 known_errors = 0; // of those that the library counts
    std::shared_ptr<checksum_errors> errors;

    open_image() = default;
    ~open_image()
    {
        if (handle != nullptr) ewf().handle_free(&handle, nullptr);
    }
    open_image(const open_image &) = delete;
    open_image &operator=(const open_image &) = delete;

    bool open(const std::vector<std::string> &paths);
    bool read(u64 offset, std::span<u8> out);
    void note_checksum_errors();
};

bool open_image::open(const std::vector<std::string> &paths)
{
    std::vector<char *> names;
    names.reserve(paths.size());
    for (const std::string &path : paths)
        names.push_back(const_cast<char *>(path.c_str()));
    constexpr int read_only = 1;
    if (ewf().handle_initialize(&handle, nullptr) != 1 ||
        ewf().handle_open(handle, names.data(), static_cast<int>(names.size()),
                          read_only, nullptr) != 1)
        return false;
    ewf().handle_set_read_zero_chunk_on_error(handle, 1, nullptr);
    ewf().handle_get_bytes_per_sector(handle, &sector_bytes, nullptr);
    return true;
}

bool open_image::read(u64 offset, std::span<u8> out)
{
    const ssize_t count = ewf().handle_read_random(
        handle, out.data(), out.size(), static_cast<off64_t>(offset), nullptr);
    note_checksum_errors();
    return count >= 0 && static_cast<std::size_t>(count) == out.size();
}

// The library hands out zeros for a chunk with a wrong checksum, and keeps a list.
void open_image::note_checksum_errors()
{
    u32 count = 0;
    if (ewf().handle_get_number_of_checksum_errors(handle, &count, nullptr) != 1)
        return;
    for (; known_errors < count; ++known_errors) {
        u64 first = 0;
        u64 sectors = 0;
        if (ewf().handle_get_checksum_error(handle, known_errors, &first, &sectors,
                                            nullptr) == 1)
            errors->add(first * sector_bytes, (first + sectors) * sector_bytes);
    }
}

template <class Get>
std::string text_value(libewf_handle_t *handle, Get get, std::string_view name)
{
    std::array<u8, 1024> text{};
    // The library also compares the zero after the name.
    std::vector<u8> key(name.begin(), name.end());
    key.push_back(0);
    if (get(handle, key.data(), name.size(), text.data(), text.size(), nullptr) != 1)
        return {};
    return {text.begin(), std::ranges::find(text, u8{0})};
}

// What the acquiry wrote into the image, for a reader.
std::vector<std::string> acquiry_texts(libewf_handle_t *handle)
{
    static constexpr struct {
        std::string_view name;
        const char *text;
    } values[] = {
        {"case_number", "case"},
        {"evidence_number", "evidence"},
        {"description", "description"},
        {"examiner_name", "examiner"},
        {"notes", "notes"},
        {"acquiry_date", "acquired"},
        {"system_date", "system date"},
        {"acquiry_operating_system", "acquired on"},
        {"acquiry_software_version", "acquired with version"},
    };
    std::vector<std::string> texts;
    const auto add = [&](const std::string &name, const std::string &value) {
        if (!value.empty()) texts.push_back(name + " " + value);
    };
    for (const auto &[name, text] : values)
        add(text, text_value(handle, ewf().handle_get_utf8_header_value, name));
    for (const char *sum : {"MD5", "SHA1"})
        add(std::string("stored ") + sum + ", not verified,",
            text_value(handle, ewf().handle_get_utf8_hash_value, sum));
    u32 errors = 0;
    if (ewf().handle_get_number_of_acquiry_errors(handle, &errors, nullptr) == 1 &&
        errors > 0)
        texts.push_back(
            std::to_string(errors) +
            " stretches of the source couldn't be read when it was acquired");
    return texts;
}

// Adds up what the segments take on their disk. Why one can't be opened, or nothing:
// the library would wait for what a FIFO says.
std::string measure(u64 &stored, const std::vector<std::string> &paths)
{
    for (const std::string &path : paths) {
        const file_source file(path);
        if (file.failure() != open_failure::none)
            return path + ": " + open_failure_text(file.failure());
        stored += file.stored_size();
    }
    return {};
}

// Reads through this image, and through further handles of the same files where more
// than one thread decodes.
block_source::read_blocks reader_of(const std::shared_ptr<open_image> &first,
                                    const std::vector<std::string> &files,
                                    const decode_ahead::form &form,
                                    const std::shared_ptr<fault_list> &faults)
{
    const auto errors = std::make_shared<checksum_errors>();
    first->errors = errors;
    const auto decode = [](const std::shared_ptr<open_image> &image) {
        return
            [image](u64 offset, std::span<u8> out) { return image->read(offset, out); };
    };
    const auto open_more = [=]() -> decode_ahead::decoder {
        const auto image = std::make_shared<open_image>();
        if (!image->open(files)) return {};
        image->errors = errors;
        return decode(image);
    };
    const auto ahead = std::make_shared<decode_ahead>(form, decode(first), open_more);
    return [=](u64 offset, std::span<u8> out) {
        const bool good = ahead->read(offset, out);
        errors->name_in(*faults, offset, out.size());
        return good;
    };
}

std::string segment_text(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " segment" : " segments");
}

} // namespace

opened_medium open_ewf(const std::string &path, container_kind kind)
{
    if (!ewf().loaded.is_complete())
        return unopened(package_problem("Expert Witness images", "libewf2"));
    opened_medium medium;
    medium.files = segments_of(path);
    // A copy under another name is read by itself.
    if (std::ranges::find(medium.files, path) == medium.files.end())
        medium.files = {path};
    u64 stored = 0;
    medium.problem = measure(stored, medium.files);
    if (!medium.problem.empty()) return medium;
    // The sections of Ex01 are built otherwise.
    const std::vector<std::string> missing = kind == container_kind::ewf
                                                 ? missing_parts(medium.files)
                                                 : std::vector<std::string>();
    const auto image = std::make_shared<open_image>();
    size64_t size = 0;
    size32_t chunk = 0;
    if (!image->open(medium.files) ||
        ewf().handle_get_media_size(image->handle, &size, nullptr) != 1 ||
        ewf().handle_get_chunk_size(image->handle, &chunk, nullptr) != 1 || chunk == 0)
        return unopened(!missing.empty()
                            ? missing.front()
                            : "this Expert Witness image is damaged or cut off; "
                              "check its segments with ewfverify");
    const auto faults = std::make_shared<fault_list>("chunk", chunk);
    for (const std::string &text : missing) faults->add(text);
    medium.source = std::make_shared<block_source>(
        block_source::form{.size = size,
                           .stored_size = most_stored_bytes(stored, size),
                           .block_bytes = chunk},
        reader_of(image, medium.files, {.size = size, .block_bytes = chunk}, faults),
        faults);
    medium.description =
        std::string(texts_of(kind).name) + ", " + segment_text(medium.files.size());
    medium.details = acquiry_texts(image->handle);
    medium.faults = [faults] { return faults->texts(); };
    return medium;
}

#else

opened_medium open_ewf(const std::string &, container_kind)
{
    return unopened(package_problem("Expert Witness images", "libewf-dev") +
                    ", with this program built again");
}

#endif

} // namespace hv
