// The cost of single steps: parsing metadata, and turning entries into rows.

#include "samples/record_builders.h"

#include "output/write_table.h"
#include "trash/deleted_records.h"

#include <benchmark/benchmark.h>

#include <sstream>

namespace {

using namespace test_support;

void parse_dollar_i(benchmark::State &state)
{
    const byte_vector file =
        dollar_i_builder()
            .path(u"C:\\Users\\somebody\\Documents\\report, final.docx")
            .version(static_cast<std::uint64_t>(state.range(0)))
            .bytes();
    std::vector<hv::trash_entry> parsed;
    for (auto _ : state)
        benchmark::DoNotOptimize(hv::parse_metadata(parsed, hv::byte_view{file}, {}));
    state.SetBytesProcessed(state.iterations() * std::ssize(file));
}
BENCHMARK(parse_dollar_i)->Arg(1)->Arg(2);

void parse_info2(benchmark::State &state)
{
    const byte_vector file =
        info2_file(std::vector<info2_item>(static_cast<std::size_t>(state.range(0))));
    std::vector<hv::trash_entry> parsed;
    for (auto _ : state)
        benchmark::DoNotOptimize(hv::parse_metadata(parsed, hv::byte_view{file}, {}));
    state.SetBytesProcessed(state.iterations() * std::ssize(file));
}
BENCHMARK(parse_info2)->Arg(100)->Arg(10000);

void write_rows(benchmark::State &state)
{
    hv::inode_store records;
    hv::result_list entries;
    const hv::u64 record = records.add();
    records.set_path(record, "/mnt/$Recycle.Bin/S-1-5-21-1-2-3-1001/$RAB12CD.docx");
    for (int i = 0; i < 1000; ++i) {
        hv::trash_entry entry;
        entry.deleted_time = sample_filetime;
        entry.restored_path = "C:\\Users\\somebody\\Documents\\report.docx";
        entry.has_data_file = true;
        entry.data_record = record;
        entries.add(std::to_string(i), std::move(entry));
    }
    for (auto _ : state) {
        std::ostringstream out;
        hv::write_results(out, entries, records, {});
        benchmark::DoNotOptimize(out);
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(write_rows);

} // namespace
