#include "scan/shadow_scan.h"

#include "base/hv_console.h"
#include "base/hv_string.h"
#include "disk/hv_medium_reader.h"
#include "ntfs/hv_mft_entries_ctx.h"
#include "ntfs/ntfs.h"
#include "records/trash_options.h"
#include "scan/carve.h"
#include "scan/cluster_visits.h"
#include "vss/hv_vss_catalog.h"

#include <algorithm>
#include <map>
#include <vector>

namespace hv {

namespace {

// What is read of each cluster. Of a larger one the rest isn't seen; with a smaller one
// come those that follow it on the volume.
constexpr u32 read_size = 4096;

// The progress line is drawn anew each time this many clusters are done.
constexpr u64 clusters_per_status = 53;

// Stores don't share clusters, and no two stores a file. For hostile catalogs and run
// lists, each is read this often and no more.
constexpr unsigned max_visits = 4;

// Says where a record comes from, for the rows that show it.
std::string location_text(const std::string &store_id, const vss_store &store,
                          const date_time_format &format)
{
    std::string text = quoted_pair("VSS Store", store_id) + ";" +
                       quoted_pair("SnapID", vss_guid_text(store.snapshot_id));
    std::string date;
    std::string clock;
    if (format_date_time(date, clock, time(store.created, type_time::filetime), format))
        text += ";" + quoted_pair("Create date", date + " " + clock + " UTC");
    return text;
}

enum class shadow_store_outcome { scanned, skipped, stop };

class shadow_store_walk {
public:
    shadow_store_walk(const CNtfs &volume, trash_options &context)
        : m_volume(volume),
          m_context(context),
          m_options(context.options),
          m_disk(*volume.get_disk()),
          m_entries(volume, context.options.log()),
          m_reader(m_disk),
          m_buffer(read_size),
          m_visits(max_visits)
    {
    }

    bool can_read() const { return m_entries.is_open(); }

    shadow_store_outcome scan_store(const std::string &store_id, const vss_store &store)
    {
        mft_entry file;
        const u64 entry = reference_entry(store.file_reference);
        // Without this entry of the catalog, nothing says which file it is.
        if (!store.entry_of(3).seen || ++m_file_visits[entry] > max_visits ||
            !m_entries.analyze_entry(file, entry))
            return shadow_store_outcome::skipped;
        m_context.collection.scan_label =
            location_text(store_id, store, m_options.form.format);
        if (m_options.progress) print_error("analyzing: %s\n", store_id.c_str());
        const attribute_view *data = first_data(file);
        if (data == nullptr) return shadow_store_outcome::stop;
        m_count = 0;
        for (const data_run &run : data->runs) scan_run(run);
        return shadow_store_outcome::scanned;
    }

private:
    // The first $DATA of a file; null if there is none, or one without content.
    static const attribute_view *first_data(const mft_entry &file)
    {
        for (const auto &[key, view] : file.attributes) {
            if (!view.info.is(attribute_type::data)) continue;
            const u64 size =
                view.info.non_resident ? view.info.real_size : view.info.content.size();
            return size == 0 ? nullptr : &view;
        }
        return nullptr;
    }

    // The clusters of a run that begin on the medium, each as often as it may be read.
    void scan_run(const data_run &run)
    {
        const u64 counted = m_count + run.clusters;
        const u64 end = clusters_on_volume();
        if (run.lcn < end) {
            const u64 clusters = std::min<u64>(run.clusters, end - run.lcn);
            for (const auto &[first, past] :
                 m_visits.take(run.lcn, run.lcn + clusters)) {
                const u64 first_count = counted - run.clusters + (first - run.lcn);
                scan_stretch(first, past, first_count);
            }
        }
        m_count = counted;
    }

    // Up to the last cluster of which the medium has a byte.
    u64 clusters_on_volume() const
    {
        const u64 size = m_disk.get_size();
        const u64 offset = m_volume.get_volume_offset();
        const u64 cluster = m_volume.get_cluster_size();
        return offset >= size ? 0 : (size - offset - 1) / cluster + 1;
    }

    void scan_stretch(u64 first, u64 end, u64 count)
    {
        const u64 cluster_size = m_volume.get_cluster_size();
        for (u64 cluster = first; cluster < end;) {
            const u64 position = cluster * cluster_size + m_volume.get_volume_offset();
            const u64 left = end - cluster;
            if (const u64 empty = std::min(empty_clusters(position), left)) {
                pass_empty(count, empty);
                cluster += empty;
                continue;
            }
            scan_cluster(cluster, position, left * cluster_size, count);
            ++cluster;
            ++count;
        }
    }

    // How many clusters from a position on give nothing but a hole of the image.
    u64 empty_clusters(u64 position)
    {
        const u64 hole = m_reader.next_data(position) - position;
        return hole < read_size ? 0
                                : (hole - read_size) / m_volume.get_cluster_size() + 1;
    }

    void pass_empty(u64 &count, u64 clusters)
    {
        for (const u64 end = count + clusters; count < end;) {
            show_count(count);
            count =
                std::min(end, (count / clusters_per_status + 1) * clusters_per_status);
        }
    }

    void show_count(u64 count) const
    {
        if (m_options.progress && count % clusters_per_status == 0)
            status_line("analyzing entry %lld", static_cast<long long>(count));
    }

    void scan_cluster(u64 cluster, u64 position, u64 left, u64 count)
    {
        byte_view bytes = m_reader.view(position, read_size, left + read_size);
        if (bytes.empty()) {
            u32 length = read_size;
            if (!m_disk.read_checked(m_buffer.data(), length, position)) return;
            bytes = byte_view{m_buffer}.clip(0, length);
        }
        show_count(count);
        scan_item item;
        item.volume = &m_volume;
        item.context = &m_context;
        item.data = bytes;
        item.offset = position;
        item.number = cluster;
        carve_cluster(item);
        flush_console_if_due();
    }

    const CNtfs &m_volume;
    trash_options &m_context;
    const run_options &m_options;
    const RAW_DISK_IO &m_disk;
    const mft_entries_ctx m_entries;
    medium_reader m_reader;
    std::vector<u8> m_buffer;
    cluster_visits m_visits;
    std::map<u64, unsigned> m_file_visits; ///< by entry number
    u64 m_count = 0;                       ///< clusters of the store, as reported
};

bool scan_all_stores(const CNtfs &volume, trash_options &context)
{
    std::array<u8, vss_block::header_size> header{};
    vss_store_map stores;
    if (!volume.is_validated() ||
        !load_stores(header, stores, volume, context.options.log()))
        return false;
    shadow_store_walk walk(volume, context);
    if (!walk.can_read()) return true;
    for (const auto &[store_id, store] : stores)
        if (walk.scan_store(store_id, store) == shadow_store_outcome::stop) break;
    return true;
}

} // namespace

bool scan_shadow_stores(const CNtfs &volume, trash_options &context)
{
    const bool catalog_read = scan_all_stores(volume, context);
    end_progress(context.options.progress);
    return catalog_read;
}

} // namespace hv
