#include "recyclebin/evidence_text.h"
#include "recyclebin/exporter.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace hv {

namespace {

// Empty: standard output.
std::string manifest_path(const export_options &how)
{
    if (!how.manifest.empty()) return how.manifest;
    return how.only_hash ? std::string() : how.to + "/manifest.jsonl";
}

// Null, after a complaint, if the file can't be made.
std::unique_ptr<manifest_file> open_manifest(const std::string &path, std::ostream &out)
{
    if (path.empty()) return std::make_unique<manifest_file>(out);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file >= 0) return std::make_unique<manifest_file>(file);
    complain(path + ": " + std::strerror(errno));
    return nullptr;
}

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
    const export_options &how = context.line.exporting;
    output_tree tree;
    std::string problem;
    if (!how.only_hash && !tree.open(problem, how.to)) {
        complain(problem);
        return exit_status::no_output;
    }
    const auto manifest = open_manifest(manifest_path(how), out);
    if (!manifest) return exit_status::no_output;
    const std::vector<const deletion *> items = context.selected();
    exporter job(context, *manifest, how.only_hash ? nullptr : &tree);
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
