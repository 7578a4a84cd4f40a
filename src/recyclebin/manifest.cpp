#include "recyclebin/manifest.h"

#include "recyclebin/evidence_text.h"
#include "recyclebin/json_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/words.h"

#include <cerrno>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace hv {

namespace {

using json = nlohmann::ordered_json;

constexpr u64 usual_line = 1024;

const char *word_for(manifest_type type)
{
    switch (type) {
    case manifest_type::file: return "file";
    case manifest_type::folder: return "folder";
    case manifest_type::stream: return "stream";
    }
    return "";
}

const char *word_for(written_state state)
{
    switch (state) {
    case written_state::whole: return "whole";
    case written_state::partly: return "partly";
    case written_state::unproven: return "unproven";
    case written_state::gone: return "gone";
    case written_state::not_written: return "not written";
    }
    return "";
}

const char *text_for(gap_reason why)
{
    switch (why) {
    case gap_reason::unreadable: return "the medium can't be read there";
    case gap_reason::off_medium: return "not on the medium";
    case gap_reason::overwritten: return "in clusters that others use now";
    case gap_reason::no_run: return "no record says where they are";
    case gap_reason::torn: return "in a torn part of the record";
    case gap_reason::not_expanded:
        return "marked as compressed, and can't be expanded: as stored, or zeros";
    }
    return "";
}

void add_text(json &object, const char *name, const std::string &text)
{
    if (!text.empty()) object[name] = text;
}

void add_text(json &object, const char *name, const std::u16string &text)
{
    if (!text.empty()) object[name] = to_lossless_utf8(text);
}

void add_number(json &object, const char *name, const std::optional<u64> &number)
{
    if (number) object[name] = *number;
}

void add_moment(json &object, const char *name, u64 filetime)
{
    if (const auto text = rfc3339(filetime)) object[name] = *text;
}

void add_record(json &object, const item_record &record)
{
    const file_facts &facts = record.facts;
    object["read_from"] = view_text(record);
    object["entry"] = {facts.id.entry, sequence_of_file(facts)};
    add_moment(object, "created", facts.times.created);
    add_moment(object, "mtime", facts.times.modified);
    add_moment(object, "ctime", facts.times.record_changed);
    add_moment(object, "accessed", facts.times.accessed);
}

void add_places(json &object, const manifest_line &line)
{
    for (const byte_range &range : line.ranges)
        object["ranges"].push_back({range.offset, range.length});
    for (const stream_gap &gap : line.gaps)
        object["gaps"].push_back({{"offset", gap.offset},
                                  {"length", gap.length},
                                  {"why", text_for(gap.why)}});
}

void add_sums(json &object, const manifest_line &line)
{
    add_text(object, "sha256", line.sha256);
    add_text(object, "md5", line.md5);
    if (!line.sha256.empty())
        object["sums_are_of"] =
            line.gaps.empty() ? "all of it" : "these bytes with their gaps";
}

} // namespace

std::string view_text(const item_record &record)
{
    std::string snapshot = "snapshot " + std::to_string(record.view->number());
    switch (record.origin) {
    case record_origin::live: return "live";
    case record_origin::snapshot: return snapshot;
    case record_origin::freed: return "freed record";
    case record_origin::carved: return "carved record";
    case record_origin::freed_snapshot: return "freed record of " + snapshot;
    }
    return {};
}

std::string manifest_json(const manifest_line &line)
{
    json object = {{"id", line.item->id},
                   {"medium", to_lossless_utf8(from_lossless_utf8(line.medium))}};
    if (line.volume) object["volume"] = *line.volume;
    add_text(object, "user", line.item->user);
    object["type"] = word_for(line.type);
    add_text(object, "path_before", line.path_before);
    add_text(object, "name_in_bin", line.item->data_name);
    add_text(object, "stream", line.stream);
    add_text(object, "path_written", line.path_written);
    object["state"] = word_for(line.state);
    add_text(object, "reason", line.reason);
    object["deletion"] = hv::word_for(line.item->state);
    if (line.item->deleted) add_moment(object, "deleted", *line.item->deleted);
    add_number(object, "stated_size", line.stated_size);
    add_number(object, "size", line.size);
    add_number(object, "bytes", line.bytes_read);
    add_sums(object, line);
    if (line.record != nullptr) add_record(object, *line.record);
    add_places(object, line);
    for (const std::string &note : line.notes) object["notes"].push_back(note);
    return json_text(object);
}

manifest_file::~manifest_file()
{
    if (m_descriptor < 0) return;
    // Gives back what was reserved and isn't used.
    struct stat status {};
    if (fstat(m_descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
        ftruncate(m_descriptor, static_cast<off_t>(m_size)) != 0)
        m_is_refused = true;
    close(m_descriptor);
}

void manifest_file::reserve(u64 lines)
{
    constexpr u64 max_reserve = u64{64} << 20;
    if (m_descriptor < 0) return;
    // Not every file system can; one that is nearly full keeps less.
    u64 length = std::min(lines, max_reserve / usual_line) * usual_line;
    while (length >= usual_line &&
           fallocate(m_descriptor, FALLOC_FL_KEEP_SIZE, 0,
                     static_cast<off_t>(length)) != 0 &&
           errno == ENOSPC)
        length /= 2;
}

bool manifest_file::add(const manifest_line &line)
{
    const std::string text = manifest_json(line) + "\n";
    if (m_out != nullptr) {
        *m_out << text << std::flush;
        m_is_refused = m_is_refused || !*m_out;
        return !m_is_refused;
    }
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count =
            ::write(m_descriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    if (done == text.size()) {
        m_size += done;
    } else {
        m_is_refused = true;
        const auto end = static_cast<off_t>(m_size);
        if (ftruncate(m_descriptor, end) != 0 || lseek(m_descriptor, end, SEEK_SET) < 0)
            return false;
    }
    return !m_is_refused;
}

} // namespace hv
