#include "recyclebin/evidence_text.h"
#include "recyclebin/run_context.h"

#include <map>

namespace hv {

namespace {

// What is in the bin of each user, and where nothing is.
void write_users(std::ostream &out, const examination &found, u32 region)
{
    std::map<std::u16string, u64> counts;
    for (const deletion &item : found.deletions)
        if (item.volume == region) ++counts[item.user];
    if (counts.empty()) out << "  no deletion\n";
    for (const auto &[user, count] : counts)
        out << "  " << (user.empty() ? "no named user" : escaped(user)) << ": "
            << counted(count, "deletion") << '\n';
}

} // namespace

exit_status run_check_files(std::ostream &out, const run_context &context)
{
    const examination &found = context.found;
    out << escaped(std::string_view(context.line.medium)) << ": "
        << name_of(context.input.kind()) << '\n';
    for (u32 region = 0; region < found.regions.size(); ++region) {
        const examined_region &each = found.regions[region];
        if (context.input.kind() == input_kind::folder)
            out << "folder " << region + 1 << ": "
                << escaped(std::string_view(each.label)) << '\n';
        if (context.input.kind() == input_kind::mft_copy)
            out << "  label \"" << escaped(each.label) << "\", records of "
                << each.record_size << ", " << grouped(each.size) << " bytes\n";
        write_users(out, found, region);
        if (!each.trouble.empty())
            out << "  " << escaped(std::string_view(each.trouble)) << '\n';
    }
    if (found.regions.empty()) {
        out << "  no bin, and no file of one, is in it\n";
        return exit_status::no_rows;
    }
    return exit_status::rows;
}

} // namespace hv
