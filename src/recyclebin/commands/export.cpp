#include "recyclebin/digest.h"
#include "recyclebin/evidence_text.h"
#include "recyclebin/manifest.h"
#include "recyclebin/output_tree.h"
#include "recyclebin/progress.h"
#include "recyclebin/run_context.h"
#include "recyclebin/safe_names.h"

#include "base/hv_checked_math.h"
#include "recovery/folder_members.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace hv {

namespace {

using name_list = std::vector<std::string>;

constexpr const char *manifest_name = "manifest.jsonl";
constexpr std::size_t max_path = 3000; // longer ones are too long for other programs
constexpr std::size_t max_folders = 200;
constexpr u64 free_members = 65536; // of folders, whatever the volume

volatile std::sig_atomic_t stop_signal = 0;

void note_signal(int signal)
{
    stop_signal = signal;
}

// A run that is interrupted ends its file and its line. A limit on the size of files
// shows as a write that fails.
void catch_signals()
{
    struct sigaction action {};
    action.sa_handler = note_signal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
    std::signal(SIGXFSZ, SIG_IGN);
}

std::string manifest_path(const export_options &how)
{
    if (!how.manifest.empty()) return how.manifest;
    return how.only_hash ? std::string() : how.to + "/" + manifest_name;
}

std::string joined(const name_list &names)
{
    std::string path;
    for (const std::string &name : names) path += (path.empty() ? "" : "/") + name;
    return path;
}

// Where a file goes.
struct target {
    name_list folders;
    std::string name;
};

// How a file is a stand-in for data elsewhere.
struct reparse_fact {
    u32 tag = 0;
    std::string text; // for a reader; empty: it is none
};

reparse_fact reparse_of(const file_facts &facts)
{
    constexpr u32 mount_point = 0xA0000003, link = 0xA000000C, compressed = 0x80000017;
    const stream_fact *stream = facts.stream(attribute_type::reparse_point);
    if (stream == nullptr) return {};
    const byte_view bytes{stream->content};
    reparse_fact fact;
    fact.tag = bytes.read_padded<u32>(reparse_point::tag);
    char number[16];
    std::snprintf(number, sizeof number, "0x%08x", fact.tag);
    fact.text = "reparse point " + std::string(number);
    if (fact.tag == compressed)
        fact.text += ", compressed by the system: the stream WofCompressedData has its "
                     "bytes as they are stored";
    if (fact.tag != mount_point && fact.tag != link) return fact;
    const u64 flags = fact.tag == link ? 4 : 0;
    const byte_view target =
        bytes.clip(reparse_point::buffer + flags +
                       bytes.read_padded<u16>(reparse_point::substitute_offset),
                   bytes.read_padded<u16>(reparse_point::substitute_length));
    fact.text += ", a link to " + to_lossless_utf8(units_of(target));
    return fact;
}

// Whether the unnamed stream of a file with a reparse point is its data.
bool holds_data(const stream_reader &data)
{
    return data.exists() && data.size() > 0 &&
           (data.stream().is_resident || data.count_clusters().stored > 0);
}

bool is_all_zero(byte_view bytes)
{
    return std::ranges::all_of(bytes.bytes(), [](u8 byte) { return byte == 0; });
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

// One run of the command.
class exporter {
public:
    exporter(std::ostream &out, const run_context &context)
        : m_context(context),
          m_how(context.line.exporting),
          m_volumes(context.found)
    {
        const std::string path = manifest_path(m_how);
        if (path.empty())
            m_manifest = std::make_unique<manifest_file>(out);
        else
            open_manifest(path);
        std::string problem;
        if (!m_how.only_hash && !m_tree.open(problem, m_how.to)) fail(problem);
        m_names.file("", manifest_name);
    }

    exit_status run()
    {
        if (!m_manifest || m_has_failed) return exit_status::no_output;
        const std::vector<const deletion *> items = m_context.selected();
        u64 lines = 0;
        for (const deletion *item : items) {
            lines += 3 + item->members.size();
            m_all_bytes = saturating_sum(
                m_all_bytes,
                item->found_size.value_or(item->stated_size.value_or(0)));
        }
        m_manifest->reserve(lines);
        for (const deletion *item : items) export_deletion(*item);
        m_count = items.size();
        if (m_has_failed) return exit_status::no_output;
        if (m_is_incomplete) return exit_status::partly;
        return items.empty() ? exit_status::no_rows : exit_status::rows;
    }

    void write_closing_line() const
    {
        std::string text = counted(m_count, "deletion") + ": " +
                           counted(m_whole + m_partly + m_unproven, "file") +
                           (m_how.only_hash ? " read, " : " written, ") +
                           counted(m_bytes, "byte");
        if (m_partly > 0) text += ", " + grouped(m_partly) + " of them in part";
        if (m_unproven > 0) text += ", " + grouped(m_unproven) + " unproven";
        if (m_gone > 0) text += "; " + grouped(m_gone) + " gone";
        if (m_not_written > 0) text += "; " + grouped(m_not_written) + " not written";
        std::fprintf(stderr, "%s; %s\n", text.c_str(), m_context.unread_text().c_str());
    }

private:
    void open_manifest(const std::string &path)
    {
        const int file =
            ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (file < 0)
            fail(path + ": " + std::strerror(errno));
        else
            m_manifest = std::make_unique<manifest_file>(file);
    }

    void fail(const std::string &problem)
    {
        if (!m_has_failed) complain(problem);
        m_has_failed = true;
    }

    // Why nothing more is written; empty: it is.
    std::string stop_reason() const
    {
        return stop_signal != 0 ? "interrupted" : m_stop_reason;
    }

    // ---- Lines

    manifest_line start_line(const deletion &item) const
    {
        manifest_line line;
        line.item = &item;
        line.medium = m_context.line.medium;
        line.volume = m_volumes.number_of(item.volume);
        line.path_before = item.path.value_or(std::u16string());
        line.stated_size = item.stated_size;
        return line;
    }

    void add(manifest_line &line)
    {
        const bool is_file = line.type != manifest_type::folder;
        switch (line.state) {
        case written_state::whole: m_whole += is_file ? 1 : 0; break;
        case written_state::partly: m_partly += is_file ? 1 : 0; break;
        case written_state::unproven: m_unproven += is_file ? 1 : 0; break;
        case written_state::gone: ++m_gone; break;
        case written_state::not_written: ++m_not_written; break;
        }
        if (std::ranges::any_of(line.gaps, is_missing)) m_is_incomplete = true;
        if (!m_manifest->add(line)) fail("the manifest can't be written");
    }

    void add_unwritten(manifest_line line, const std::string &reason)
    {
        line.state = written_state::not_written;
        line.reason = reason;
        add(line);
    }

    // ---- Deletions

    void export_deletion(const deletion &item)
    {
        manifest_line line = start_line(item);
        line.type = item.is_directory ? manifest_type::folder : manifest_type::file;
        if (!stop_reason().empty()) {
            fail(stop_reason());
            return add_unwritten(line, stop_reason());
        }
        const examined_region &region = m_context.found.regions[item.volume];
        if (!region.is_volume)
            return add_unwritten(line, "outside of all volumes: nothing says where its "
                                       "data is");
        enter_region(item.volume);
        const auto record =
            find_item_record(*m_views, region, item, m_context.line.wanted.at);
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

    void enter_region(u32 number)
    {
        if (m_views && m_region == number) return;
        m_region = number;
        m_members.reset();
        m_views.emplace(m_context.medium, m_context.found.regions[number]);
        const volume_view_ptr live = m_views->view(0);
        m_budget = saturating_sum(saturating_product(8, m_context.medium->size()),
                                  u64{1} << 30U);
        m_member_budget = free_members + (live ? 8 * live->entry_count() : 0);
    }

    // The user's folder, and the path below it.
    target place_of(const deletion &item)
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

    // Adds folders to some that are used already.
    name_list used_folders(name_list folders, const name_list &more)
    {
        for (const std::string &name : more) {
            const std::string parent = joined(folders);
            folders.push_back(m_names.folder(parent, name));
        }
        return folders;
    }

    // ---- Folders

    void export_folder(manifest_line line, const item_record &record)
    {
        target place = place_of(*line.item);
        place.folders = used_folders(std::move(place.folders), {place.name});
        std::vector<std::pair<name_list, record_times>> times;
        write_folder(line, record, place.folders);
        times.emplace_back(place.folders, record.facts.times);
        if (!m_members || m_members->view() != record.view.get())
            m_members.emplace(record.view);
        const entry_id id{record.facts.id.entry, sequence_of_file(record.facts)};
        m_members->for_each_below(id, [&](const folder_members::member &each) {
            manifest_line below = start_line(*line.item);
            for (const std::u16string &name : each.path)
                below.path_before += u'\\' + name;
            below.stated_size.reset();
            const bool is_stopped = !stop_reason().empty();
            if (is_stopped || m_member_budget == 0) {
                if (is_stopped) fail(stop_reason());
                add_unwritten(below, is_stopped
                                         ? stop_reason()
                                         : "more members than there are records");
                return false;
            }
            --m_member_budget;
            target to = place_of(place.folders, each.path);
            if (!each.record.facts.is_directory) {
                export_file(below, each.record, to);
                return true;
            }
            to.folders = used_folders(std::move(to.folders), {to.name});
            write_folder(below, each.record, to.folders);
            times.emplace_back(to.folders, each.record.facts.times);
            return true;
        });
        if (m_how.only_hash) return;
        // What is written into a folder changes its times.
        for (auto each = times.rbegin(); each != times.rend(); ++each)
            m_tree.set_times(each->first, each->second);
    }

    target place_of(const name_list &folder, const std::vector<std::u16string> &path)
    {
        name_list names;
        for (const std::u16string &name : path) names.push_back(safe_name(name));
        target place{folder, names.back()};
        names.pop_back();
        const std::size_t bytes = joined(folder).size() + joined(names).size();
        if (bytes > max_path || folder.size() + names.size() > max_folders)
            names = {"long path"};
        place.folders = used_folders(folder, names);
        return place;
    }

    void write_folder(manifest_line line, const item_record &record,
                      const name_list &folders)
    {
        line.type = manifest_type::folder;
        line.record = &record;
        line.state = written_state::whole;
        const reparse_fact reparse = reparse_of(record.facts);
        if (!reparse.text.empty()) line.notes.push_back(reparse.text);
        if (!m_how.only_hash && m_tree.folder(folders) < 0)
            refuse(line, errno);
        else if (!m_how.only_hash)
            line.path_written = joined(folders);
        add(line);
        target beside{folders, {}};
        beside.name = beside.folders.back();
        beside.folders.pop_back();
        export_streams(line, record, beside);
    }

    // ---- Files

    void export_file(manifest_line line, const item_record &record, target place)
    {
        line.type = manifest_type::file;
        line.record = &record;
        stream_reader data(*record.view, m_views->medium(), record.stream());
        const reparse_fact reparse = reparse_of(record.facts);
        if (!reparse.text.empty()) line.notes.push_back(reparse.text);
        if (!data.exists())
            add_unwritten(line, "its record has no data");
        else if (!reparse.text.empty() && !holds_data(data)) {
            line.size = data.stated_size();
            add_unwritten(line, "its data isn't in the file itself");
        } else
            place.name = copy(line, data, place);
        line.notes.clear();
        export_streams(line, record, place);
    }

    void export_streams(const manifest_line &file, const item_record &record,
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
            line.stated_size.reset();
            line.stream = name;
            stream_reader data(*record.view, m_views->medium(),
                               record.stream(name, type));
            if (data.exists())
                copy(line, data, {beside.folders, stream_file_name(beside.name, name)});
        }
    }

    // Reads a stream, and writes it if that is asked for. Ends the line. Returns the
    // name that the file has, without the suffix of one that isn't whole.
    std::string copy(manifest_line &line, stream_reader &data, const target &place)
    {
        line.size = data.stated_size();
        line.ranges = data.ranges();
        if (data.stream().is_encrypted)
            line.notes.emplace_back(
                "encrypted: these are its encrypted bytes, in whole "
                "sectors");
        const std::string why = reason_to_leave_out(data);
        if (!why.empty()) {
            add_unwritten(line, why);
            return place.name;
        }
        if (is_gone(*line.record, data)) {
            line.state = written_state::gone;
            add(line);
            return place.name;
        }
        return write(line, data, place);
    }

    std::string reason_to_leave_out(const stream_reader &data)
    {
        const u64 volume = m_context.found.regions[m_region].size;
        if (m_how.max_size && data.size() > *m_how.max_size)
            return "larger than --max-size";
        if (!m_how.max_size && data.size() > volume)
            return "larger than its volume; --max-size BYTES with a larger number "
                   "writes it";
        // Many records can name the same clusters.
        const u64 cost =
            data.size() -
            (m_how.max_size ? std::min(data.size(), data.hole_bytes()) : 0);
        if (cost > m_budget)
            return "the records together claim more than the medium has";
        m_budget -= cost;
        return {};
    }

    static bool is_gone(const item_record &record, const stream_reader &data)
    {
        if (!record.is_freed() || data.stream().is_resident) return false;
        const auto [stored, taken] = data.count_clusters();
        return stored > 0 && stored == taken;
    }

    std::string write(manifest_line &line, stream_reader &data, const target &place)
    {
        new_file file;
        int error = 0;
        bool is_writing = !m_how.only_hash;
        if (is_writing) {
            const int folder = m_tree.folder(place.folders);
            error = folder < 0 ? errno : file.create(folder);
        }
        digest sha256(digest_kind::sha256), md5(digest_kind::md5);
        u64 count = 0;
        bool is_zero = true;
        while (error == 0 && stop_signal == 0) {
            const byte_view bytes = data.next();
            if (bytes.size() == 0) break;
            sha256.add(bytes);
            md5.add(bytes);
            count += bytes.size();
            m_read_bytes += bytes.size();
            m_progress.show(std::min(m_read_bytes, m_all_bytes), m_all_bytes);
            is_zero = is_zero && is_all_zero(bytes);
            if (is_writing) error = file.write(bytes);
        }
        if (error != 0 || stop_signal != 0) {
            refuse(line, error);
            add(line);
            return place.name;
        }
        line.bytes_read = count;
        line.sha256 = sha256.finish();
        line.md5 = md5.finish();
        line.gaps = data.gaps();
        judge(line, data, is_zero);
        const std::string name = finish(line, file, place);
        add(line);
        return name;
    }

    // What the gaps make of a file.
    static void judge(manifest_line &line, const stream_reader &data, bool is_zero)
    {
        const item_record &record = *line.record;
        u64 missing = 0;
        for (const stream_gap &gap : line.gaps) missing += gap.length;
        const bool in_clusters =
            !data.stream().is_resident && data.count_clusters().stored > 0;
        const bool is_torn =
            !data.stream().is_resident && record.sound < record.view->record_size();
        if (is_torn)
            line.notes.emplace_back(
                "its record is torn: the runs may be of two writes");
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

    // Why clusters may be those of others, though the volume says nothing of it.
    static std::string doubt_about(const item_record &record, bool is_zero)
    {
        if (record.origin == record_origin::carved)
            return "no view has its record: its clusters are taken to be those of the "
                   "volume of today";
        if (record.is_freed() && !record.view->has_bitmap())
            return "the volume doesn't say any more which clusters are free";
        if (record.is_freed() && is_zero)
            return "all zeros: the disk may have discarded its clusters";
        return {};
    }

    // Gives a file its name, unless nothing of it is left.
    std::string finish(manifest_line &line, new_file &file, const target &place)
    {
        if (line.state == written_state::gone) return place.name;
        m_bytes += *line.bytes_read;
        if (m_how.only_hash) return place.name;
        const std::string name = m_names.file(joined(place.folders), place.name);
        std::string full = name;
        const std::string suffix = suffix_for(line.state);
        if (!suffix.empty()) full = m_names.file(joined(place.folders), name + suffix);
        const int error = file.finish(full, line.record->facts.times);
        if (error != 0) {
            m_bytes -= *line.bytes_read;
            refuse(line, error);
            return name;
        }
        line.path_written = joined(place.folders) + "/" + full;
        return name;
    }

    // A file that the system refuses. Once there is no room, nothing more is tried.
    void refuse(manifest_line &line, int error)
    {
        line.state = written_state::not_written;
        line.reason = error == 0        ? "interrupted"
                      : error == EEXIST ? "a file of its name is in the folder"
                      : error == ELOOP || error == ENOTDIR
                          ? "a link or a file is where a folder should be"
                          : std::strerror(error);
        if (error == ENOSPC || error == EDQUOT) m_stop_reason = line.reason;
        fail(m_how.to + ": " + line.reason);
    }

    const run_context &m_context;
    const export_options &m_how;
    const volume_numbers m_volumes;
    std::unique_ptr<manifest_file> m_manifest;
    output_tree m_tree;
    used_names m_names;
    u32 m_region = 0;
    std::optional<region_views> m_views; // of that region
    std::optional<folder_members> m_members;
    // What hostile records may cost.
    u64 m_budget = 0;
    u64 m_member_budget = 0;
    std::string m_stop_reason;
    bool m_has_failed = false;
    bool m_is_incomplete = false;
    u64 m_count = 0, m_whole = 0, m_partly = 0, m_unproven = 0, m_gone = 0,
        m_not_written = 0;
    u64 m_bytes = 0;
    progress_line_on_terminal m_progress;
    u64 m_all_bytes = 0, m_read_bytes = 0; // of the progress
};

} // namespace

bool can_export(const command_line &line)
{
    const export_options &how = line.exporting;
    std::string problem;
    output_tree tree;
    if (!how.only_hash && !tree.open(problem, how.to)) {
        complain(problem);
        return false;
    }
    const std::string path = manifest_path(how);
    struct stat status {};
    if (path.empty() || lstat(path.c_str(), &status) != 0) return true;
    complain(path + " exists; --manifest names another file");
    return false;
}

exit_status run_export(std::ostream &out, const run_context &context)
{
    catch_signals();
    exporter job(out, context);
    const exit_status status = job.run();
    job.write_closing_line();
    return status;
}

} // namespace hv
