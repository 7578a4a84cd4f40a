#include "recyclebin/evidence_text.h"
#include "recyclebin/moments.h"
#include "recyclebin/run_context.h"

#include <cstdio>

namespace hv {

namespace {

std::string hex(u64 number)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

void write_volume(std::ostream &out, const examined_region &region,
                  const std::string &number)
{
    char serial[24];
    std::snprintf(serial, sizeof serial, "%016llX",
                  static_cast<unsigned long long>(region.serial));
    out << "volume " << number << ": NTFS at byte " << hex(region.offset) << ", "
        << grouped(region.size) << " bytes, found by " << escaped(region.found_by)
        << "\n  label \"" << escaped(region.label) << "\", serial number " << serial
        << ", clusters of " << region.cluster_size << ", records of "
        << region.record_size << ", sectors of " << region.sector_size << '\n';
    if (region.boot_from_copy) out << "  boot sector is gone; its copy was taken\n";
    if (region.mft_from_mirror)
        out << "  first records of the $MFT are gone; $MFTMirr was taken\n";
}

void write_bins(std::ostream &out, const examination &found, u32 region)
{
    std::map<std::u16string, u64> counts;
    for (const deletion &item : found.deletions)
        if (item.volume == region && was_in_bin(item, view_now)) ++counts[item.user];
    if (counts.empty()) out << "  nothing is in its bin\n";
    for (const auto &[user, count] : counts) {
        const auto name = found.regions[region].user_names.find(user);
        out << "  bin of " << (user.empty() ? "no named user" : escaped(user));
        if (name != found.regions[region].user_names.end())
            out << " (" << escaped(name->second) << ")";
        out << ": " << counted(count, "item") << '\n';
    }
}

// What the medium is in, unless it is a file of just its bytes.
void write_container(std::ostream &out, const opened_medium &source)
{
    if (source.is_plain_file) return;
    out << "  " << escaped(std::string_view(source.description)) << '\n';
    for (const std::string &detail : source.details)
        out << "  " << escaped(std::string_view(detail)) << '\n';
}

void write_snapshots(std::ostream &out, const std::vector<u64> &times)
{
    for (std::size_t at = 0; at < times.size(); ++at)
        out << "  snapshot " << at + 1 << ", taken " << whole_moment(times[at]) << '\n';
}

} // namespace

exit_status run_check(std::ostream &out, const run_context &context)
{
    if (context.input.kind() != input_kind::medium)
        return run_check_files(out, context);
    const examination &found = context.found;
    const volume_numbers volumes(found);
    const medium_description description = describe_medium(*context.medium);
    out << escaped(std::string_view(context.line.medium)) << ": "
        << grouped(context.medium->size()) << " bytes";
    if (!description.table.empty()) out << ", " << description.table;
    out << '\n';
    write_container(out, context.input.source());
    for (u32 at = 0; at < found.regions.size(); ++at) {
        const examined_region &region = found.regions[at];
        if (region.is_volume) {
            write_volume(out, region, volumes.text(at));
            write_bins(out, found, at);
            write_snapshots(out, region.snapshots);
        }
        if (!region.trouble.empty())
            out << "  " << escaped(std::string_view(region.trouble)) << '\n';
    }
    for (const auto &[sid, name] : found.users)
        out << sid << " is \"" << escaped(name.name) << "\": " << escaped(name.from)
            << '\n';
    for (const other_content &other : description.others)
        out << escaped(std::string_view(other.text)) << '\n';
    if (volumes.count() > 0 || found.is_cut_short) return exit_status::rows;
    complain(context.line.medium + ": " + refusal_text(description));
    return exit_status::no_source;
}

} // namespace hv
