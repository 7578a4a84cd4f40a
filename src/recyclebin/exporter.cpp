#include "recyclebin/exporter.h"

#include "base/hv_checked_math.h"
#include "recovery/reparse.h"
#include "recyclebin/digest.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/interruption.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace hv {

namespace {

using name_list = std::vector<std::string>;

constexpr const char *file_of_manifest = "manifest.jsonl";
constexpr std::size_t max_path = 3000; // longer ones are too long for other programs
constexpr std::size_t max_folders = 200;
constexpr u64 min_budget = u64{1} << 30;

std::string joined(const name_list &names)
{
    std::string path;
    for (const std::string &name : names) path += (path.empty() ? "" : "/") + name;
    return path;
}

void add_reparse_note(manifest_line &line, const std::optional<reparse_fact> &reparse)
{
    if (!reparse) return;
    char number[16];
    std::snprintf(number, sizeof number, "0x%08x", reparse->tag);
    std::string text = "reparse point " + std::string(number);
    if (reparse->is_compressed)
        text +=
            ", compressed by the system: the stream WofCompressedData has its bytes "
            "as they are stored";
    if (!reparse->link_target.empty())
        text += ", a link to " + to_lossless_utf8(reparse->link_target);
    line.notes.push_back(text);
}

// Whether the unnamed stream of a file with a reparse point is its data.
bool holds_data(const stream_reader &data)
{
    return data.size() > 0 && (data.stream().is_resident || data.stored_clusters() > 0);
}

// What the name of a file shows that isn't surely whole.
std::string suffix_for(written_state state)
{
    if (state == written_state::partly) return ".partial";
    return state == written_state::unproven ? ".unproven" : "";
}

bool is_missing(const stream_gap &gap)
{
    return gap.why == gap_reason::unreadable || gap.why == gap_reason::off_medium;
}

bool is_all_zero(byte_view bytes)
{
    return std::ranges::all_of(bytes.bytes(), [](u8 byte) { return byte == 0; });
}

bool is_gone(const item_record &record, const stream_reader &data)
{
    if (!record.is_freed() || data.stream().is_resident) return false;
    const auto [stored, taken] = data.count_clusters();
    return stored > 0 && stored == taken;
}

// Why clusters may be those of others, though the volume says nothing of it.
std::string doubt_about(const item_record &record, bool is_zero)
{
    if (record.origin == record_origin::carved)
        return "no view has its record: its clusters are taken to be those of the "
               "volume of today";
    if (record.is_freed() && !record.view->has_whole_bitmap())
        return "the volume doesn't say any more which clusters are free";
    if (record.is_freed() && is_zero)
        return "all zeros: the disk may have discarded its clusters";
    return {};
}

// What the gaps make of a file.
void judge(manifest_line &line, const stream_reader &data, bool is_zero)
{
    const item_record &record = *line.record;
    u64 missing = 0;
    for (const stream_gap &gap : line.gaps) missing += gap.length;
    const bool is_resident = data.stream().is_resident;
    const bool is_torn = !is_resident && record.sound < record.view->record_size();
    if (is_torn)
        line.notes.emplace_back("its record is torn: the runs may be of two writes");
    const bool in_clusters = !is_resident && data.stored_clusters() > 0;
    const std::string doubt =
        in_clusters ? doubt_about(record, is_zero) : std::string();
    if (!doubt.empty()) line.notes.push_back(doubt);
    if (missing > 0 && missing == line.bytes_read)
        line.state = written_state::gone;
    else if (missing > 0 || is_torn)
        line.state = written_state::partly;
    else
        line.state = doubt.empty() ? written_state::whole : written_state::unproven;
}

} // namespace

exporter::exporter(const run_context &context, manifest_file &manifest,
                   output_tree *tree)
    : m_context(context),
      m_volumes(context.found),
      m_manifest(manifest),
      m_tree(tree)
{
    m_names.file("", file_of_manifest);
    u64 lines = 0;
    for (const deletion *item : context.selected()) {
        lines += 3 + item->members.size();
        m_all_bytes = saturating_sum(
            m_all_bytes, item->found_size.value_or(item->stated_size.value_or(0)));
    }
    m_manifest.reserve(lines);
}

// Why nothing more is written; empty: it is.
std::string exporter::stop_reason() const
{
    return is_interrupted() ? "interrupted" : m_stop_reason;
}

// ---- Lines

manifest_line exporter::start_line(const deletion &item) const
{
    manifest_line line;
    line.item = &item;
    line.medium = m_context.line.medium;
    line.volume = m_volumes.number_of(item.volume);
    line.path_before = item.path.value_or(std::u16string());
    return line;
}

void exporter::add_line(const manifest_line &line)
{
    const bool is_read =
        line.type != manifest_type::folder && line.state < written_state::gone;
    m_counts.files += is_read ? 1 : 0;
    m_counts.partly += line.state == written_state::partly ? 1 : 0;
    m_counts.unproven += line.state == written_state::unproven ? 1 : 0;
    m_counts.gone += line.state == written_state::gone ? 1 : 0;
    m_counts.not_written += line.state == written_state::not_written ? 1 : 0;
    if (std::ranges::any_of(line.gaps, is_missing)) m_is_incomplete = true;
    if (!m_manifest.add(line) && m_failure.empty())
        m_failure = "the manifest can't be written";
}

void exporter::add_unwritten(manifest_line &line, const std::string &reason)
{
    line.state = written_state::not_written;
    line.reason = reason;
    add_line(line);
}

// A file that the system refuses. Once there is no room, nothing more is tried.
void exporter::refuse(manifest_line &line, int error)
{
    line.state = written_state::not_written;
    line.reason = std::strerror(error);
    if (error == 0) line.reason = stop_reason();
    if (error == EEXIST) line.reason = "a file of its name is in the folder";
    if (error == ELOOP || error == ENOTDIR)
        line.reason = "a link or a file is where a folder should be";
    if (error == ENOSPC || error == EDQUOT) m_stop_reason = line.reason;
    if (m_failure.empty()) m_failure = line.reason;
}

// ---- Deletions

void exporter::add(const deletion &item)
{
    manifest_line line = start_line(item);
    line.stated_size = item.stated_size;
    line.type = item.is_directory ? manifest_type::folder : manifest_type::file;
    if (const std::string reason = stop_reason(); !reason.empty()) {
        if (m_failure.empty()) m_failure = reason;
        return add_unwritten(line, reason);
    }
    const examined_region &region = m_context.found.regions[item.volume];
    if (!region.is_volume)
        return add_unwritten(line,
                             "outside of all volumes: nothing says where its data is");
    enter_region(item.volume);
    const auto record = find_item_record(*m_views, region, item,
                                         m_context.line.wanted.at, m_cluster_budget);
    if (!record) return add_unwritten(line, "no record of its data is left");
    if (!item.path_is_whole) line.notes.emplace_back("its path is cut off");
    if (item.state == deletion_state::restored)
        line.notes.push_back("it was put back, and is now " +
                             to_lossless_utf8(item.outside_path));
    if (record->facts.is_directory)
        export_folder(line, *record);
    else
        export_file(line, *record, place_of(item));
}

void exporter::enter_region(u32 number)
{
    if (m_views && m_region == number) return;
    m_region = number;
    m_members.reset();
    m_views.emplace(m_context.medium, m_context.found.regions[number]);
    m_byte_budget =
        saturating_sum(saturating_product(8, m_context.medium->size()), min_budget);
    m_cluster_budget = m_byte_budget / 512;
    m_member_budget = m_byte_budget;
}

// The user's folder, and the path below it.
exporter::target exporter::place_of(const deletion &item)
{
    name_list names = {item.user.empty() ? "unknown user" : safe_name(item.user)};
    if (item.path) {
        const name_list path = safe_path(*item.path);
        names.insert(names.end(), path.begin(), path.end());
    } else {
        names.emplace_back("unknown path");
        names.push_back(safe_name(item.data_name));
    }
    target place;
    place.name = std::move(names.back());
    names.pop_back();
    place.folders = used_folders({}, names);
    return place;
}

exporter::target exporter::place_below(const name_list &folder,
                                       const std::vector<std::u16string> &path)
{
    name_list names;
    for (const std::u16string &name : path) names.push_back(safe_name(name));
    target place;
    place.name = std::move(names.back());
    names.pop_back();
    const std::size_t bytes = joined(folder).size() + joined(names).size();
    if (bytes > max_path || folder.size() + names.size() > max_folders)
        names = {"long path"};
    place.folders = used_folders(folder, names);
    return place;
}

// Adds folders to some that are used already.
name_list exporter::used_folders(name_list folders, const name_list &more)
{
    std::string parent = joined(folders);
    for (const std::string &name : more) {
        folders.push_back(m_names.folder(parent, name));
        parent = joined(folders);
    }
    return folders;
}

// ---- Folders

void exporter::export_folder(const manifest_line &start, const item_record &record)
{
    const target place = place_of(*start.item);
    const name_list folder = used_folders(place.folders, {place.name});
    folder_times times = {{folder, record.facts.times}};
    write_folder(start, record, folder);
    if (!m_members || m_members->view() != record.view.get())
        m_members.emplace(record.view);
    const entry_id id{record.facts.id.entry, sequence_of_file(record.facts)};
    m_members->for_each_below(id, [&](const folder_members::member &each) {
        return export_member(*start.item, each, folder, times);
    });
    // What is written into a folder changes its times.
    for (auto each = times.rbegin(); m_tree != nullptr && each != times.rend(); ++each)
        m_tree->set_times(each->first, each->second);
}

// False if it is the last one.
bool exporter::export_member(const deletion &item, const folder_members::member &member,
                             const name_list &folder, folder_times &times)
{
    manifest_line line = start_line(item);
    for (const std::u16string &name : member.path) line.path_before += u'\\' + name;
    std::string reason = stop_reason();
    const u64 cost = 2 * line.path_before.size() + 1;
    if (cost > m_member_budget) reason = "more members than the volume has room for";
    if (!reason.empty()) {
        if (m_failure.empty()) m_failure = reason;
        add_unwritten(line, reason);
        return false;
    }
    m_member_budget -= cost;
    const target place = place_below(folder, member.path);
    if (!member.record.facts.is_directory) {
        export_file(line, member.record, place);
        return true;
    }
    const name_list below = used_folders(place.folders, {place.name});
    write_folder(line, member.record, below);
    times.emplace_back(below, member.record.facts.times);
    return true;
}

void exporter::write_folder(manifest_line line, const item_record &record,
                            const name_list &folders)
{
    line.type = manifest_type::folder;
    line.record = &record;
    line.state = written_state::whole;
    add_reparse_note(line, read_reparse(record.facts));
    if (m_tree != nullptr && m_tree->folder(folders) < 0)
        refuse(line, errno);
    else if (m_tree != nullptr)
        line.path_written = joined(folders);
    add_line(line);
    target beside{folders, {}};
    beside.name = beside.folders.back();
    beside.folders.pop_back();
    export_streams(line, record, beside);
}

// ---- Files

void exporter::export_file(manifest_line line, const item_record &record, target place)
{
    line.type = manifest_type::file;
    line.record = &record;
    stream_reader data(*record.view, m_views->medium(), record.stream());
    const std::optional<reparse_fact> reparse = read_reparse(record.facts);
    add_reparse_note(line, reparse);
    if (!data.exists()) {
        add_unwritten(line, "its record has no data");
    } else if (reparse && !holds_data(data)) {
        line.size = data.stated_size();
        add_unwritten(line, "its data isn't in the file itself");
    } else {
        place.name = export_stream(line, data, place);
    }
    export_streams(line, record, place);
}

void exporter::export_streams(const manifest_line &file, const item_record &record,
                              const target &beside)
{
    std::set<std::pair<attribute_type, std::u16string>> names;
    for (const stream_fact &stream : record.facts.streams) {
        if (is_type(stream.type, attribute_type::data) && !stream.name.empty())
            names.emplace(attribute_type::data, stream.name);
        // The keys of an encrypted file.
        if (is_type(stream.type, attribute_type::logged_stream) &&
            stream.name == u"$EFS")
            names.emplace(attribute_type::logged_stream, stream.name);
    }
    for (const auto &[type, name] : names) {
        manifest_line line = start_line(*file.item);
        line.type = manifest_type::stream;
        line.record = &record;
        line.path_before = file.path_before;
        line.stream = name;
        stream_reader data(*record.view, m_views->medium(), record.stream(name, type));
        if (data.exists())
            export_stream(line, data,
                          {beside.folders, stream_file_name(beside.name, name)});
    }
}

// Reads a stream, and writes it if that is asked for. Ends the line. Returns the name
// that the file has, without the suffix of one that isn't whole.
std::string exporter::export_stream(manifest_line &line, stream_reader &data,
                                    const target &place)
{
    line.size = data.stated_size();
    line.ranges = data.ranges();
    if (data.stream().is_encrypted)
        line.notes.emplace_back("encrypted: these are its encrypted bytes, in whole "
                                "sectors");
    std::string name = place.name;
    const std::string reason = reason_to_leave_out(data);
    if (!reason.empty()) {
        add_unwritten(line, reason);
        return name;
    }
    if (is_gone(*line.record, data))
        line.state = written_state::gone;
    else
        name = write(line, data, place);
    add_line(line);
    return name;
}

std::string exporter::reason_to_leave_out(const stream_reader &data)
{
    const std::optional<u64> max_size = m_context.line.exporting.max_size;
    if (max_size && data.size() > *max_size) return "larger than --max-size";
    if (!max_size && data.size() > m_context.found.regions[m_region].size)
        return "larger than its volume; a larger --max-size writes it";
    // Holes that a user lets pass cost time only.
    const u64 holes = max_size ? data.hole_bytes() : 0;
    const u64 cost = data.size() - std::min(data.size(), holes);
    if (cost > m_byte_budget) return "the records together claim more than there is";
    m_byte_budget -= cost;
    return {};
}

// All but the end of the line.
std::string exporter::write(manifest_line &line, stream_reader &data,
                            const target &place)
{
    new_file file;
    int error = 0;
    if (m_tree != nullptr) {
        const int folder = m_tree->folder(place.folders);
        error = folder < 0 ? errno : file.create(folder);
    }
    bool is_zero = true;
    if (error == 0)
        error = copy(line, data, m_tree != nullptr ? &file : nullptr, is_zero);
    if (error != 0 || is_interrupted()) {
        refuse(line, error);
        return place.name;
    }
    line.gaps = data.gaps();
    judge(line, data, is_zero);
    return line.state == written_state::gone ? place.name : finish(line, file, place);
}

// Returns 0, or the error number of the system. Is left early by a signal.
int exporter::copy(manifest_line &line, stream_reader &data, new_file *file,
                   bool &is_zero)
{
    digest sha256(digest_kind::sha256), md5(digest_kind::md5);
    u64 count = 0;
    while (!is_interrupted()) {
        const byte_view bytes = data.next();
        if (bytes.size() == 0) {
            line.bytes_read = count;
            line.sha256 = sha256.finish();
            line.md5 = md5.finish();
            break;
        }
        sha256.add(bytes);
        md5.add(bytes);
        count += bytes.size();
        is_zero = is_zero && is_all_zero(bytes);
        m_read_bytes += bytes.size();
        m_progress.show(m_read_bytes, m_all_bytes);
        const int error = file != nullptr ? file->write(bytes) : 0;
        if (error != 0) return error;
    }
    return 0;
}

// Gives a file its name.
std::string exporter::finish(manifest_line &line, new_file &file, const target &place)
{
    const std::string folder = joined(place.folders);
    std::string name = place.name;
    if (m_tree != nullptr) {
        name = m_names.file(folder, place.name);
        const std::string suffix = suffix_for(line.state);
        const std::string full =
            suffix.empty() ? name : m_names.file(folder, name + suffix);
        if (const int error = file.finish(full, line.record->facts.times); error != 0) {
            refuse(line, error);
            return name;
        }
        line.path_written = folder + "/" + full;
    }
    m_counts.bytes += *line.bytes_read;
    return name;
}

} // namespace hv
