#include "recyclebin/evidence_text.h"
#include "recyclebin/exporter.h"

#include <cstdio>

namespace hv {

namespace {

std::string closing_text(const exporter &job, u64 deletions, bool only_hash)
{
    const export_counts &counts = job.counts();
    std::string text =
        counted(deletions, "deletion") + ": " + counted(counts.files, "file") +
        (only_hash ? " read, " : " written, ") + counted(counts.bytes, "byte");
    const auto add = [&text](u64 count, const char *what) {
        if (count > 0) text += ", " + grouped(count) + what;
    };
    add(counts.partly, " of them in part");
    add(counts.unproven, " of them unproven");
    add(counts.gone, " gone");
    add(counts.not_written, " not written");
    return text;
}

} // namespace

exit_status run_export(std::ostream &out, const run_context &context)
{
    const export_options &how = context.line.exporting;
    const auto manifest = context.target.take_manifest(out);
    const std::vector<const deletion *> items = context.selected();
    exporter job(context, *manifest, context.target.tree());
    for (const deletion *item : items) job.add(*item);
    if (!job.failure().empty()) complain("not all is written: " + job.failure());
    std::fprintf(stderr, "%s; %s\n",
                 closing_text(job, items.size(), how.only_hash).c_str(),
                 context.unread_text().c_str());
    if (!job.failure().empty()) return exit_status::no_output;
    if (job.is_incomplete()) return exit_status::partly;
    return items.empty() ? exit_status::no_rows : exit_status::rows;
}

} // namespace hv
