// Carving free clusters: how fast bytes pass that hold nothing.

#include "evidence/carve.h"

#include "samples/random_source.h"

#include <benchmark/benchmark.h>

#include <string_view>
#include <vector>

namespace {

using hv::u64;
using hv::u8;

constexpr std::size_t medium_size = std::size_t{64} << 20;
constexpr u64 stretch = u64{1} << 20;

void carve_all(benchmark::State &state, const std::vector<u8> &medium)
{
    hv::carve_sink nobody;
    for (auto _ : state) {
        hv::carver search(nobody);
        for (u64 at = 0; at < medium.size(); at += stretch)
            search.carve(hv::byte_view{medium}.clip(at, stretch), at);
        search.finish();
    }
    state.SetBytesProcessed(state.iterations() * std::ssize(medium));
}

void carve_zeros(benchmark::State &state)
{
    carve_all(state, std::vector<u8>(medium_size));
}
BENCHMARK(carve_zeros);

void carve_random_bytes(benchmark::State &state)
{
    test_support::random_source random(1);
    std::vector<u8> medium(medium_size);
    for (u8 &byte : medium) byte = static_cast<u8>(random.below(256));
    carve_all(state, medium);
}
BENCHMARK(carve_random_bytes);

// Each path begins as a record of a list could.
void carve_text_of_paths(benchmark::State &state)
{
    constexpr std::string_view line = "C:\\Users\\ann\\Documents\\report.txt\r\n";
    std::vector<u8> medium(medium_size);
    for (std::size_t i = 0; i < medium.size(); ++i)
        medium[i] = static_cast<u8>(line[i % line.size()]);
    carve_all(state, medium);
}
BENCHMARK(carve_text_of_paths);

} // namespace
