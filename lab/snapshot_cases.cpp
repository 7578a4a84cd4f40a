// Bins of which snapshots were taken: what was deleted before, between and after them,
// and what only a store still holds.

#include "lab/cases.h"
#include "lab/people.h"
#include "lab/shadow_copies.h"
#include "samples/crc32.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace lab {

namespace {

constexpr u64 unit = 16384;
constexpr u64 catalog_size = 4 * unit;

// A volume, and the snapshots that are taken while things happen on it.
class watched_volume {
public:
    // `snapshots` is how many there will be at most.
    watched_volume(told_case &told, u64 size, u64 seed, u64 snapshots,
                   const volume_form &form = {});

    story &volume() { return m_story; }
    void take_snapshot()
    {
        take_snapshot_with([] {});
    }
    // Takes a snapshot while the changes of `logged` are only in the log of NTFS, which
    // replays it in the snapshot. The disk gets them right after.
    void take_snapshot_with(const std::function<void()> &logged);
    void delete_snapshot(std::size_t number);
    // A new file gets some clusters of a deleted snapshot's store.
    void write_over_store(std::size_t number);
    // A file of 64 KiB that isn't of a bin.
    u64 add_file(const std::string &name);
    // Moves it elsewhere. Another file gets its old place.
    void move_file(u64 entry);
    byte_vector medium(const shadow_ways &ways);

private:
    std::vector<extent> aligned_clusters(u64 bytes);
    u64 store_file(const std::string &name, const std::vector<extent> &runs);
    byte_vector used_clusters() const;

    told_case *m_told;
    u64 m_seed;
    u64 m_store_size;
    story m_story;
    u64 m_folder = 0;
    volume_range m_catalog;
    std::vector<shadow_copy> m_copies;
    std::vector<u64> m_files; // the entries of the stores
    std::vector<extent> m_written_over;
};

// Each store has room for all that a volume of this size can change.
u64 store_size(u64 size)
{
    return (64 + 2 * size) * unit;
}

volume_form with_snapshots(u64 size, u64 snapshots, volume_form form)
{
    form = roomy(2 * size, form);
    form.clusters += (catalog_size + snapshots * (store_size(size) + 4 * unit) +
                      16 * snapshots * unit) /
                     form.cluster_size;
    return form;
}

watched_volume::watched_volume(told_case &told, u64 size, u64 seed, u64 snapshots,
                               const volume_form &form)
    : m_told(&told),
      m_seed(seed),
      m_store_size(store_size(size)),
      m_story(told, with_snapshots(size, snapshots, form), seed)
{
    m_folder = m_story.folder(5, "System Volume Information");
    const std::vector<extent> runs = aligned_clusters(catalog_size);
    m_catalog = {m_story.position(runs[0].lcn), catalog_size};
    store_file(shadow_catalog_name(), runs);
}

std::vector<extent> watched_volume::aligned_clusters(u64 bytes)
{
    const u64 each = m_story.form().cluster_size;
    const extent found = m_story.unused_clusters((bytes + unit - 1) / each);
    const u64 first = (m_story.position(found.lcn) + unit - 1) / unit * unit / each;
    return {{first, bytes / each}};
}

u64 watched_volume::store_file(const std::string &name, const std::vector<extent> &runs)
{
    const u64 entry = m_story.file_with(m_folder, name, {});
    ntfs_item &file = m_story.item(entry);
    u64 clusters = 0;
    for (const extent &run : runs) clusters += run.clusters;
    file.attributes = 0x06; // hidden, system
    // Windows writes to these files beneath NTFS, which takes them for empty.
    file.stored = {.non_resident = true, .runs = runs, .valid_size = 0};
    file.data = byte_vector(clusters * m_story.form().cluster_size);
    return entry;
}

byte_vector watched_volume::used_clusters() const
{
    byte_vector bits;
    const byte_vector &image = m_story.layout().image;
    for (const extent &run : m_story.layout().stream_runs(6)) {
        const auto begin =
            image.begin() + static_cast<std::ptrdiff_t>(m_story.position(run.lcn));
        bits.insert(bits.end(), begin,
                    begin +
                        static_cast<std::ptrdiff_t>(m_story.position(run.clusters)));
    }
    return bits;
}

void watched_volume::take_snapshot_with(const std::function<void()> &logged)
{
    const u64 number = m_copies.size() + 1;
    shadow_copy copy{.volume = {},
                     .created = m_story.later(),
                     .sequence = number + m_seed % 3, // older ones are long gone
                     .id = shadow_store_id(m_seed, number)};
    // The file of a store is in two stretches, the second one before the first.
    std::vector<extent> runs = aligned_clusters(m_store_size / 2);
    runs.insert(runs.begin(), aligned_clusters(m_store_size / 2).front());
    for (const extent &run : runs)
        copy.areas.push_back(
            {m_story.position(run.lcn), m_story.position(run.clusters)});
    const u64 entry = store_file(shadow_file_name(copy.id), runs);
    copy.file_reference = entry | u64{m_story.item(entry).sequence} << 48U;
    m_files.push_back(entry);
    m_story.settle();
    copy.on_disk = m_story.image();
    m_story.tell("snapshot " + std::to_string(number) + " is taken");
    logged();
    m_story.settle();
    copy.volume = m_story.image();
    copy.used_clusters = used_clusters();
    m_copies.push_back(std::move(copy));
}

void watched_volume::delete_snapshot(std::size_t number)
{
    m_story.tell("snapshot " + std::to_string(number) + " is deleted");
    m_story.remove(m_files.at(number - 1));
    m_copies.at(number - 1).state =
        m_seed % 2 == 0 ? shadow_state::cleared : shadow_state::unused;
}

void watched_volume::write_over_store(std::size_t number)
{
    // The first five blocks tell what the others are.
    const u64 cluster = m_story.form().cluster_size;
    const extent store = m_story.item(m_files.at(number - 1)).stored.runs.front();
    const extent run = {store.lcn + 7 * unit / cluster, 8 * unit / cluster};
    m_story.settle();
    m_story.file_over("over store " + std::to_string(number), {run});
    m_written_over.push_back(run);
}

u64 watched_volume::add_file(const std::string &name)
{
    const u64 entry = m_story.file(5, name, 4 * unit);
    m_story.item(entry).stored.runs = aligned_clusters(4 * unit);
    return entry;
}

void watched_volume::move_file(u64 entry)
{
    m_story.tell("entry " + std::to_string(entry) + " is moved to other clusters");
    const std::vector<extent> old = m_story.item(entry).stored.runs;
    m_story.item(entry).stored.runs = aligned_clusters(4 * unit);
    m_story.file_over(
        "after " + std::to_string(entry) + " " + std::to_string(old[0].lcn), old);
}

// A case that is about a kind of descriptor has to have some.
void require_kinds(const std::vector<snapshot_view> &views, const shadow_ways &ways)
{
    const auto require = [&](bool wanted, u64 shadow_counts::*kind, const char *name) {
        const bool found = std::ranges::any_of(
            views, [&](const snapshot_view &view) { return view.counts.*kind > 0; });
        if (wanted && !found)
            throw std::logic_error(std::string("no store has ") + name);
    };
    require(true, &shadow_counts::plain, "plain descriptors");
    require(ways.overlays, &shadow_counts::overlays, "overlays");
    require(ways.forwarders, &shadow_counts::forwarders, "forwarders");
    require(ways.unused, &shadow_counts::unused, "unused descriptors");
    require(ways.free_blocks, &shadow_counts::free, "blocks that were free");
}

byte_vector watched_volume::medium(const shadow_ways &ways)
{
    m_story.settle();
    byte_vector image = m_story.image();
    const std::vector<snapshot_view> views = write_shadow_copies(
        image, m_story.form().cluster_size, m_copies, m_catalog, ways);
    require_kinds(views, ways);
    for (const extent &run : m_written_over)
        std::copy_n(m_story.image().begin() + std::ptrdiff_t(m_story.position(run.lcn)),
                    m_story.position(run.clusters),
                    image.begin() + std::ptrdiff_t(m_story.position(run.lcn)));
    for (const snapshot_view &view : views) {
        told_snapshot told{.created = view.created,
                           .sequence = view.sequence,
                           .crc32 = test_support::crc32(view.volume)};
        for (const volume_range &range : view.unknown)
            told.unknown.emplace_back(range.offset, range.size);
        m_told->volumes[m_story.volume_number()].snapshots.push_back(std::move(told));
    }
    return image;
}

// What happens

std::vector<std::size_t> in_the_bin(const told_case &told)
{
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < told.deletions.size(); ++i)
        if (told.deletions[i].fate == "in the bin") numbers.push_back(i);
    return numbers;
}

// New files get the records of what was purged, and some of them its clusters.
void write_over(story &volume, const std::vector<std::size_t> &purged)
{
    for (const std::size_t number : purged) {
        const std::string name = std::to_string(number);
        volume.reuse_record(volume.deletion(number).metadata_entry->entry,
                            "new " + name + ".txt");
        if (volume.deletion(number).data.kept == "stamped" && number % 3 != 0)
            volume.file_over("over " + name, volume.data_runs(number));
        volume.reuse_record(volume.deletion(number).data_entry->entry,
                            "newer " + name + ".txt");
    }
}

void purge_some(const told_case &told, story &volume, u64 one_in)
{
    std::vector<std::size_t> purged;
    for (const std::size_t number : in_the_bin(told))
        if (volume.random().one_in(one_in)) purged.push_back(number);
    for (const std::size_t number : purged) volume.purge(number);
    volume.settle();
    write_over(volume, purged);
    volume.settle();
}

// Between the snapshots, items are deleted and purged, and what was purged is written
// over. At the end only a few items are left in the bins.
void live_through(const told_case &told, watched_volume &watched, u64 size,
                  u64 snapshots)
{
    story &volume = watched.volume();
    const std::vector<u64> users = {volume.user(ann), volume.user(ben)};
    const u64 share = (size + snapshots) / (snapshots + 1);
    for (u64 i = 0; i < snapshots; ++i) {
        send_many(volume, users, share, [&](u64) { return any_item(volume); });
        volume.settle();
        if (i > 0) purge_some(told, volume, 3);
        watched.take_snapshot();
    }
    send_many(volume, users, share, [&](u64) { return any_item(volume); });
    volume.settle();
    purge_some(told, volume, 2);
    purge_some(told, volume, 2);
}

// The ways in which stores keep blocks

const shadow_ways plain = {};
const shadow_ways with_overlays = {.overlays = true, .unused = true};
const shadow_ways with_free_blocks = {.free_blocks = true, .free_at_start = false};
const shadow_ways long_lists = {
    .unused = true, .descriptors_in_block = 5, .order = shadow_order::descending};
const shadow_ways mixed = {.overlays = true,
                           .unused = true,
                           .free_blocks = true,
                           .descriptors_in_block = 7,
                           .order = shadow_order::shuffled};
const shadow_ways of_all_kinds = {.overlays = true,
                                  .forwarders = true,
                                  .unused = true,
                                  .free_blocks = true,
                                  .descriptors_in_block = 20,
                                  .order = shadow_order::shuffled};

template <const shadow_ways &ways, u32 cluster = 4096>
byte_vector kept(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, size, seed, 3, {.cluster_size = cluster});
    live_through(told, watched, size, 3);
    return watched.medium(ways);
}

// Files move between the snapshots, so stores have blocks that are elsewhere now.
template <const shadow_ways &ways>
byte_vector moved(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, size + 30, seed, 2);
    story &volume = watched.volume();
    const std::vector<u64> users = {volume.user(ann), volume.user(ben)};
    const std::array<u64, 3> files = {watched.add_file("big 0"),
                                      watched.add_file("big 1"),
                                      watched.add_file("big 2")};
    for (int i = 0; i < 2; ++i) {
        send_many(volume, users, size / 2, [&](u64) { return any_item(volume); });
        watched.take_snapshot();
        purge_some(told, volume, 2);
        for (const u64 entry : files) watched.move_file(entry);
        // A little of one changes in the new place.
        test_support::put_text(volume.item(files[0]).data, 5000, "changed");
    }
    return watched.medium(ways);
}

// All that was deleted is purged and written over: only the stores have it.
byte_vector only_in_stores(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, size, seed, 2);
    story &volume = watched.volume();
    const std::vector<u64> users = {volume.user(ann), volume.user(ben)};
    for (int i = 0; i < 2; ++i) {
        send_many(volume, users, size / 2, [&](u64) { return any_item(volume); });
        watched.take_snapshot();
        purge_some(told, volume, 1);
    }
    return watched.medium(plain);
}

// Some deletions were only in the log of NTFS when a snapshot was taken. That snapshot
// shows them, the one before it doesn't. Some are in no other place.
byte_vector log_replayed(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, size, seed, 3);
    story &volume = watched.volume();
    const std::vector<u64> users = {volume.user(ann), volume.user(ben)};
    const auto send = [&] {
        send_many(volume, users, size / 3, [&](u64) { return any_item(volume); });
    };
    watched.take_snapshot();
    watched.take_snapshot_with(send);
    purge_some(told, volume, 2);
    watched.take_snapshot_with(send);
    send();
    purge_some(told, volume, 2);
    return watched.medium(plain);
}

// A list that grows, whose records are marked, and that is cut when the bin is emptied.
byte_vector lists(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, 2 * size, seed, 3);
    story &volume = watched.volume();
    const u64 user = volume.user(ann, "RECYCLER");
    const auto send = [&] {
        for (u64 i = 0; i < size / 2; ++i)
            volume.send_to_list(user, {.size = 4096 * volume.random().between(1, 6)});
    };
    send();
    watched.take_snapshot();
    for (const std::size_t number : in_the_bin(told))
        if (volume.random().one_in(2)) volume.purge(number);
    send();
    watched.take_snapshot();
    volume.empty_bin(user);
    watched.take_snapshot();
    send();
    return watched.medium(with_overlays);
}

// A list of which only the stores have anything: its record and its clusters are
// another file's.
byte_vector list_only_in_stores(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, 2 * size, seed, 2);
    story &volume = watched.volume();
    const u64 user = volume.user(ann, "RECYCLER");
    for (int i = 0; i < 2; ++i) {
        for (u64 k = 0; k < size / 2; ++k) volume.send_to_list(user, {.size = 4096});
        watched.take_snapshot();
    }
    const u64 list = volume.list_of(user);
    const std::vector<extent> runs = volume.layout().stream_runs(list);
    volume.empty_bin(user);
    volume.remove(list);
    volume.settle();
    volume.reuse_record(list, "new.txt");
    volume.file_over("over the list", runs);
    return watched.medium(plain);
}

// The older ones of the snapshots are deleted. Their stores stay in free clusters.
template <u64 snapshots, std::size_t deleted, const shadow_ways &ways>
byte_vector snapshots_deleted(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, size, seed, snapshots);
    live_through(told, watched, size, snapshots);
    for (std::size_t number = 1; number <= deleted; ++number)
        watched.delete_snapshot(number);
    return watched.medium(ways);
}

// The file of a deleted snapshot's store lost some of its blocks to another file.
byte_vector store_overwritten(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, size, seed, 2);
    live_through(told, watched, size, 2);
    watched.delete_snapshot(1);
    watched.write_over_store(1);
    return watched.medium(plain);
}

// One between two others: the older one has to keep for itself what that one had.
byte_vector middle_deleted(told_case &told, u64 size, u64 seed)
{
    watched_volume watched(told, size, seed, 3);
    live_through(told, watched, size, 3);
    watched.delete_snapshot(2);
    return watched.medium(with_overlays);
}

} // namespace

void add_snapshot_cases(case_makers &all)
{
    const auto add = [&](const char *name, case_kind kind) {
        add_cases(all, std::string("snapshots/") + name, kind, {6, 40});
    };
    add("plain", kept<plain>);
    add("overlays", kept<with_overlays>);
    add("free-blocks", kept<with_free_blocks>);
    add("long-lists", kept<long_lists>);
    add("mixed", kept<mixed>);
    add("clusters-1024", kept<mixed, 1024>);
    add("clusters-16384", kept<mixed, 16384>);
    add("moved", moved<of_all_kinds>);
    add("only-in-stores", only_in_stores);
    add("log-replayed", log_replayed);
    add("info2", lists);
    add("info2-only-in-stores", list_only_in_stores);
    add("store-deleted", snapshots_deleted<2, 1, plain>);
    add("store-overwritten", store_overwritten);
    add("two-of-four-deleted", snapshots_deleted<4, 2, with_overlays>);
    add("middle-deleted", middle_deleted);
}

} // namespace lab
