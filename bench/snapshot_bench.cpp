// The cost of reading a volume as a snapshot saw it, compared with reading the same
// bytes of the image.

#include "samples/shadow_structures.h"
#include "support/temp_dir.h"

#include "vss/hv_vss_reader.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace test_support;

constexpr std::uint64_t volume_bytes = std::uint64_t{64} << 20;

// A volume of which the snapshot has kept every `step`th block; 0 for four blocks.
std::string snapshot_image(const temp_dir &dir, std::uint64_t step)
{
    shadow_store_plan plan;
    for (std::uint64_t i = 0; i < 4; ++i)
        plan.first.push_back({shadow_live + i * shadow_block_size, shadow_kept(1, i)});
    for (std::uint64_t i = 256; step != 0 && i < 4096 && plan.second.size() < 508;
         i += step)
        plan.second.push_back({i * shadow_block_size, shadow_kept(1, i % 5)});
    const byte_vector image = shadow_volume({plan});
    std::string bytes(image.begin(), image.end());
    bytes.resize(volume_bytes, 'v');
    return dir.write_file("volume", bytes);
}

void read_plain(benchmark::State &state)
{
    const temp_dir dir;
    const int file = open(snapshot_image(dir, 0).c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<char> block(shadow_block_size);
    while (state.KeepRunning())
        for (std::uint64_t at = 0; at < volume_bytes; at += block.size())
            benchmark::DoNotOptimize(
                pread(file, block.data(), block.size(), static_cast<off_t>(at)));
    close(file);
    state.SetBytesProcessed(state.iterations() * std::int64_t{volume_bytes});
}
BENCHMARK(read_plain);

void read_snapshot(benchmark::State &state)
{
    const temp_dir dir;
    hv::vss_container container;
    container.report_live_reads = false;
    if (!container.init(snapshot_image(dir, static_cast<std::uint64_t>(state.range(0))),
                        0, hv::vss_load::with_blocks))
        state.SkipWithError("the stores can't be read");
    std::vector<hv::u8> block;
    hv::u32 length = 0;
    while (state.KeepRunning())
        for (std::uint64_t at = 0; at < volume_bytes; at += shadow_block_size)
            benchmark::DoNotOptimize(container.read_data_raw(block, length, 1, at));
    state.SetBytesProcessed(state.iterations() * std::int64_t{volume_bytes});
}
BENCHMARK(read_snapshot)->Arg(0)->Arg(8);

} // namespace
