#include "stress/whole_runs.h"

#include "recyclebin/forms/form.h"
#include "run/volume_modes.h"
#include "stress/span_source.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace stress {

namespace {

// Messages about a medium go nowhere while this lives. Sanitizers write theirs to the
// descriptor, which stays.
class no_messages {
public:
    no_messages() : m_messages(std::exchange(stderr, nowhere())) {}
    ~no_messages() { stderr = m_messages; }
    no_messages(const no_messages &) = delete;
    no_messages &operator=(const no_messages &) = delete;

private:
    static FILE *nowhere()
    {
        static FILE *const file = std::fopen("/dev/null", "w");
        return file;
    }

    FILE *m_messages;
};

void set_options(hv::run_options &options, veskit_mode mode)
{
    options.progress = false;
    options.look_up_bins = true;
    options.include_unalloc =
        mode == veskit_mode::image_unallocated || mode == veskit_mode::image_all;
    options.include_vss =
        mode == veskit_mode::image_shadows || mode == veskit_mode::image_all;
    options.form.kind = hv::form_kind::csvgen;
    options.form.set_separator("|");
    options.form.no_padding = true;
}

} // namespace

file_in_memory::file_in_memory(std::span<const u8> bytes)
    : m_descriptor(memfd_create("medium", MFD_CLOEXEC))
{
    if (m_descriptor < 0) throw std::runtime_error("no file in memory");
    while (!bytes.empty()) {
        const ssize_t count = write(m_descriptor, bytes.data(), bytes.size());
        if (count <= 0) throw std::runtime_error("the file in memory is full");
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

file_in_memory::~file_in_memory()
{
    close(m_descriptor);
}

std::string file_in_memory::path() const
{
    return "/proc/self/fd/" + std::to_string(m_descriptor);
}

veskit_run run_veskit(const file_in_memory &medium, veskit_mode mode, u64 volume_offset)
{
    const no_messages quiet;
    hv::run_options options;
    set_options(options, mode);
    options.image_path = medium.path();
    options.volume_offset = volume_offset;
    std::ostringstream out;
    if (mode == veskit_mode::raw_scan)
        hv::run_raw_image(options, out);
    else
        hv::run_volume(hv::volume_origin::image, options, out);
    veskit_run run;
    run.output = std::move(out).str();
    std::istringstream lines(run.output);
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) run.rows.insert(line);
    return run;
}

recyclebin_run run_recyclebin(std::span<const u8> medium, carving carve, access how)
{
    recyclebin_run run;
    run.carve = carve;
    const auto source = std::make_shared<span_source>(medium, how);
    hv::examine_options options;
    options.carve = carve == carving::on;
    hv::examine(run.found, source, options);
    run.bytes_read = source->asked();
    hv::listing told{.found = run.found,
                     .items = {},
                     .medium = *source,
                     .medium_name = "medium",
                     .is_carved = options.carve};
    for (const hv::deletion &item : run.found.deletions) told.items.push_back(&item);
    std::ostringstream out;
    hv::form_called("jsonl")->write(out, told, {});
    run.json_lines = std::move(out).str();
    return run;
}

} // namespace stress
