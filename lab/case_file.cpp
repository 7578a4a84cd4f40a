#include "lab/case_file.h"

#include "samples/ntfs_structures.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>

namespace lab {

using test_support::cut;

namespace {

// JSON

// A value that is JSON already.
struct json_text {
    std::string text;
};

json_text json(bool value)
{
    return {value ? "true" : "false"};
}

json_text json(u64 value)
{
    return {std::to_string(value)};
}

json_text json(u32 value)
{
    return {std::to_string(value)};
}

// All but printable ASCII is escaped, so that half a surrogate pair can be kept.
json_text json(std::u16string_view text)
{
    std::string out = "\"";
    for (const char16_t unit : text) {
        if (unit == u'"' || unit == u'\\') out += '\\';
        if (unit >= 0x20 && unit < 0x7F) {
            out += static_cast<char>(unit);
            continue;
        }
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\u%04x", unsigned{unit});
        out += escape.data();
    }
    return {out + '"'};
}

json_text json(const std::string &utf8)
{
    return json(test_support::ntfs_structures::to_utf16(utf8));
}

json_text json(const byte_vector &bytes)
{
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string out = "\"";
    for (const u8 byte : bytes) {
        out += digits[byte >> 4U];
        out += digits[byte & 0xFU];
    }
    return {out + '"'};
}

template <class T> struct numbered; // a deletion or a decoy, and its number
json_text json(const entry_number &number);
json_text json(const trace &what);
json_text json(const told_data &data);
json_text json(const told_snapshot &snapshot);
json_text json(const told_volume &volume);
json_text json(const told_user &user);
json_text json(const numbered<told_deletion> &row);
json_text json(const numbered<told_decoy> &row);
template <class A, class B> json_text json(const std::pair<A, B> &pair);

template <class T> json_text list(const std::vector<T> &values, const char *between)
{
    std::string out = "[";
    for (const T &value : values) {
        if (out.size() > 1) out += between;
        out += json(value).text;
    }
    return {out + ']'};
}

// The fields of an object, in the order in which they are added.
class json_object {
public:
    json_object &raw(const char *name, const json_text &value)
    {
        if (!m_text.empty()) m_text += ", ";
        m_text += '"' + std::string(name) + "\": " + value.text;
        return *this;
    }
    template <class T> json_object &field(const char *name, const T &value)
    {
        return raw(name, json(value));
    }
    template <class T>
    json_object &each(const char *name, const std::vector<T> &values,
                      const char *between = ", ")
    {
        return values.empty() ? *this : raw(name, list(values, between));
    }
    // Left out if the text is empty.
    json_object &text(const char *name, const std::string &value)
    {
        return value.empty() ? *this : field(name, value);
    }
    json_text done() const { return {'{' + m_text + '}'}; }

private:
    std::string m_text;
};

template <class A, class B> json_text json(const std::pair<A, B> &pair)
{
    return {'[' + json(pair.first).text + ", " + json(pair.second).text + ']'};
}

json_text json(const entry_number &number)
{
    return json(std::pair(number.entry, u32{number.sequence}));
}

json_text json(const trace &what)
{
    json_object object;
    object.field("kind", what.kind);
    object.raw("frame", what.frame.empty() ? json_text{"null"} : json(what.frame));
    return object.each("parts", what.parts).each("pieces", what.pieces).done();
}

json_text json(const told_data &data)
{
    json_object object;
    object.field("kept", data.kept).field("stamp", data.stamp).field("size", data.size);
    return object.done();
}

json_text json(const told_snapshot &snapshot)
{
    return json_object()
        .field("created", iso_time(snapshot.created))
        .field("sequence", snapshot.sequence)
        .field("crc32", snapshot.crc32)
        .each("unknown", snapshot.unknown)
        .done();
}

json_text json(const told_volume &volume)
{
    return json_object()
        .field("offset", volume.offset)
        .field("size", volume.size)
        .field("cluster_size", volume.cluster_size)
        .field("record_size", volume.record_size)
        .field("sector_size", volume.sector_size)
        .field("mounts", volume.mounts)
        .field("known", volume.known)
        .each("snapshots", volume.snapshots)
        .done();
}

json_text json(const told_user &user)
{
    return json_object()
        .field("volume", u64{user.volume})
        .field("sid", user.sid)
        .each("traces", user.traces)
        .done();
}

// What deletions and decoys have in common.
void add_metadata(json_object &object, const told_metadata &metadata)
{
    object.field("path", std::u16string_view(metadata.path))
        .field("size", metadata.size)
        .field("deleted", iso_time(metadata.deleted))
        .text("metadata_name", metadata.metadata_name);
}

template <class T> struct numbered {
    const T *value;
    std::size_t number;
};

json_text json(const numbered<told_deletion> &row)
{
    const told_deletion &deletion = *row.value;
    json_object object;
    object.field("id", std::to_string(row.number))
        .field("volume", u64{deletion.volume})
        .field("user", deletion.user)
        .field("format", deletion.format)
        .field("name", deletion.id);
    add_metadata(object, deletion);
    object.text("data_name", deletion.data_name);
    if (deletion.metadata_entry)
        object.field("metadata_entry", *deletion.metadata_entry);
    if (deletion.data_entry) object.field("data_entry", *deletion.data_entry);
    if (deletion.found_size) object.field("found_size", *deletion.found_size);
    object.field("directory", deletion.directory)
        .each("members", deletion.members)
        .field("fate", deletion.fate)
        .each("traces", deletion.traces);
    if (!deletion.data.kept.empty()) object.field("data", deletion.data);
    return object.done();
}

json_text json(const numbered<told_decoy> &row)
{
    json_object object;
    object.field("id", "decoy " + std::to_string(row.number))
        .field("what", row.value->what);
    add_metadata(object, *row.value);
    return object.each("traces", row.value->traces).done();
}

template <class T> std::vector<numbered<T>> numbers(const std::vector<T> &values)
{
    std::vector<numbered<T>> rows;
    rows.reserve(values.size());
    for (const T &value : values) rows.push_back({&value, rows.size() + 1});
    return rows;
}

json_text json(const told_case &story)
{
    const std::string family = story.name.substr(0, story.name.find('/'));
    json_object object;
    return object.field("case", story.name)
        .field("family", family)
        .text("container", story.container.first)
        .each("told", story.events, ",\n")
        .raw("volumes", list(story.volumes, ",\n"))
        .raw("users", list(story.users, ",\n"))
        .raw("deletions", list(numbers(story.deletions), ",\n"))
        .raw("decoys", list(numbers(story.decoys), ",\n"))
        .done();
}

std::ofstream open_for_writing(const std::filesystem::path &path)
{
    std::ofstream out;
    out.exceptions(std::ios::failbit | std::ios::badbit);
    out.open(path, std::ios::binary | std::ios::trunc);
    return out;
}

void write_sparse(const std::filesystem::path &path, const byte_vector &bytes)
{
    constexpr std::size_t step = 4096;
    std::ofstream out = open_for_writing(path);
    for (std::size_t at = 0; at < bytes.size(); at += step) {
        const std::string page =
            test_support::text(cut(bytes, at, std::min(step, bytes.size() - at)));
        if (page.find_first_not_of('\0') == std::string::npos) continue;
        out.seekp(static_cast<std::streamoff>(at));
        out << page;
    }
    out.close();
    std::filesystem::resize_file(path, bytes.size());
}

} // namespace

std::string iso_time(u64 filetime)
{
    using namespace std::chrono;
    constexpr u64 per_second = 10'000'000, until_1970 = 11'644'473'600;
    const sys_seconds time{seconds(static_cast<std::int64_t>(filetime / per_second) -
                                   static_cast<std::int64_t>(until_1970))};
    const sys_days day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%07uZ",
                  int{date.year()}, unsigned{date.month()}, unsigned{date.day()},
                  int(clock.hours().count()), int(clock.minutes().count()),
                  int(clock.seconds().count()), unsigned(filetime % per_second));
    return text.data();
}

std::string utf8(std::u16string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        u32 point = text[i];
        const bool pair = point >= 0xD800 && point < 0xDC00 && i + 1 < text.size() &&
                          text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
        if (pair) point = 0x10000 + ((point - 0xD800) << 10U) + (text[++i] - 0xDC00U);
        const int more = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
        static constexpr std::array<u32, 4> leads = {0, 0xC0, 0xE0, 0xF0};
        out += static_cast<char>(leads[std::size_t(more)] | point >> (6 * more));
        for (int k = more - 1; k >= 0; --k)
            out += static_cast<char>(0x80U | (point >> (6 * k) & 0x3FU));
    }
    return out;
}

void write_case(const std::filesystem::path &folder, const told_case &story,
                const byte_vector &medium)
{
    std::filesystem::create_directories(folder);
    write_sparse(folder / "medium.raw", medium);
    const auto &[container, bytes] = story.container;
    if (!container.empty()) write_sparse(folder / container, bytes);
    open_for_writing(folder / "story.json") << json(story).text << '\n';
}

} // namespace lab
