#include "evidence/examine_files.h"

#include "disk/hv_watched_source.h"
#include "evidence/bin_files.h"
#include "evidence/examine.h"
#include "evidence/system_name.h"
#include "evidence/volume_walk.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>

namespace hv {

namespace {

constexpr int max_depth = 256; // of folders, far more than any honest tree has

std::u16string name_of(const std::filesystem::path &path)
{
    return from_system_name(path.filename().native());
}

// The folder as it is known to the system, without a separator at its end.
std::filesystem::path whole_path(const std::string &path)
{
    std::error_code error;
    std::filesystem::path whole = std::filesystem::absolute(path, error);
    whole = error ? std::filesystem::path(path) : whole.lexically_normal();
    return whole.has_filename() ? whole : whole.parent_path();
}

// What a folder is by its own name, and by what the folder above it is.
bin_place place_below(const bin_place &above, std::u16string_view name)
{
    if (is_bin_folder(name)) return {.is_bin = true};
    if (is_user_folder(name))
        return {.is_bin = above.is_bin && above.user.empty(),
                .user = std::u16string(name)};
    return {};
}

// Walks a tree, and finds the folders of it that hold items of a bin.
class folder_walk {
public:
    folder_walk(examination &out, unread_list &unread,
                const std::function<bool()> &should_stop)
        : m_out(out),
          m_unread(unread),
          m_should_stop(should_stop)
    {
    }

    void run(const std::string &root)
    {
        const std::filesystem::path whole = whole_path(root);
        const bin_place above = place_below({}, name_of(whole.parent_path()));
        m_open.push_back({root, place_below(above, name_of(whole)), root, 0});
        while (!m_open.empty() && !is_stopped()) {
            const pending next = std::move(m_open.back());
            m_open.pop_back();
            enter(next);
        }
        for (auto &[path, sightings] : m_sightings) finish(path, std::move(sightings));
        sort_deletions(m_out.deletions);
    }

private:
    struct pending {
        std::string path;
        bin_place place;
        std::string region; // path of the bin that it is in, or its own
        int depth;
    };

    bool is_stopped()
    {
        if (m_should_stop && m_should_stop()) m_out.is_cut_short = true;
        return m_out.is_cut_short;
    }

    void enter(const pending &folder)
    {
        if (folder.place.is_bin) m_sightings[folder.region];
        bin_files files(folder.path, folder.place);
        files.should_stop = [this] { return is_stopped(); };
        if (!files.read(m_unread)) return;
        std::vector<sighting> found = files.sightings(m_unread);
        m_out.unreadable_bytes += files.unreadable_bytes();
        if (!found.empty()) {
            std::vector<sighting> &all = m_sightings[folder.region];
            std::ranges::move(found, std::back_inserter(all));
        }
        for (const std::string &path : files.folders()) {
            if (folder.depth == max_depth) {
                add_unread(m_unread, path, "too deep");
                continue;
            }
            const bin_place place = place_below(folder.place, name_of(path));
            const bool stays = place.is_bin && !place.user.empty();
            const std::string &region = stays                ? folder.region
                                        : place.user.empty() ? path
                                                             : folder.path;
            m_open.push_back({path, place, region, folder.depth + 1});
        }
    }

    void finish(const std::string &path, std::vector<sighting> sightings)
    {
        const auto number = static_cast<u32>(m_out.regions.size());
        m_out.regions.push_back({.is_volume = true,
                                 .number = number + 1,
                                 .found_by = "folder",
                                 .label = path});
        for (sighting &seen : sightings) seen.volume = number;
        // Ids of two bins differ by the number: folders have no offset.
        assemble(m_out.deletions, std::move(sightings), number);
    }

    examination &m_out;
    unread_list &m_unread;
    const std::function<bool()> &m_should_stop;
    std::vector<pending> m_open;
    std::map<std::string, std::vector<sighting>> m_sightings; // by region
};

} // namespace

void examine_folder(examination &out, unread_list &unread, const std::string &path,
                    const std::function<bool()> &should_stop)
{
    out.folder = path;
    folder_walk(out, unread, should_stop).run(path);
}

std::string folder_of_file(const std::string &path)
{
    const std::string folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder;
}

bool is_metadata_file(const byte_source &file, const std::string &path)
{
    return holds_metadata(file, name_of(path));
}

void examine_metadata_file(examination &out, unread_list &unread,
                           const byte_source &file, const std::string &path)
{
    const std::filesystem::path folder = whole_path(path).parent_path();
    const bin_place above = place_below({}, name_of(folder.parent_path()));
    out.folder = folder_of_file(path);
    out.regions.push_back(
        {.size = file.size(), .is_volume = true, .number = 1, .found_by = "file"});
    bin_files files(out.folder, place_below(above, name_of(folder)));
    assemble(out.deletions, files.sightings_of(file, name_of(path), unread), 0);
    sort_deletions(out.deletions);
    out.unreadable_bytes = file.unreadable();
}

void examine_mft_copy(examination &out, const byte_source_ptr &copy,
                      const examine_options &options)
{
    out.regions.push_back({.size = copy->size(),
                           .is_volume = true,
                           .number = 1,
                           .found_by = "copy of an $MFT"});
    examined_region &region = out.regions.back();
    u64 done = 0;
    const auto watched = std::make_shared<watched_source>(copy, [&](u64 read) {
        done += read;
        if (options.progress && done <= copy->size())
            options.progress(done, copy->size());
        return !options.should_stop || !options.should_stop();
    });
    volume_view view(watched, 0, 0);
    if (view.open_mft_copy()) {
        region.record_size = view.record_size();
        region.label = label_of(view);
        region_evidence evidence(0);
        volume_walk walk(view, evidence);
        walk.collect();
        if (walk.unread_lists() > 0)
            region.trouble = "lists (INFO2) that are in clusters, which a copy of an "
                             "$MFT doesn't hold: " +
                             std::to_string(walk.unread_lists());
        assemble(out.deletions, evidence.take(), 0);
        sort_deletions(out.deletions);
    } else if (!watched->is_ended()) {
        region.trouble = "its first record isn't one of an $MFT";
    }
    out.is_cut_short = watched->is_ended();
    out.unreadable_bytes = copy->unreadable();
}

} // namespace hv
