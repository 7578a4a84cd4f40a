// The parse of a "FILE" record, with its attribute lists: the input is a
// sequence of records that may refer to each other.

#include "scan/record_parse.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    constexpr std::size_t record_size = 1024;
    const std::vector<hv::u8> all(data, data + size);
    std::size_t reads = 0;
    hv::record_source source;
    source.read_record = [&](hv::u64 entry, std::vector<hv::u8> &record) {
        if (entry >= size / record_size) return false;
        ++reads;
        const auto begin = all.begin() + static_cast<long>(entry * record_size);
        record.assign(begin, begin + record_size);
        return true;
    };
    source.read_clusters = [&](const std::vector<hv::flat_run> &) {
        return std::vector<hv::u8>(all);
    };

    std::vector<hv::u8> first(data, data + std::min(size, record_size));
    hv::parsed_record record;
    const hv::parse_options options{
        .named_streams = true, .runs = true, .target_name = "info2"};
    hv::parse_record(record, first, options, source);
    // Each record is read once, even if lists refer to each other.
    if (reads > size / record_size) std::abort();
    // Data comes from one attribute, and a run takes at least its header byte.
    if (record.data.size() > record_size || record.zone_data.size() > record_size)
        std::abort();
    if (record.data_runs.size() > (reads + 1) * record_size) std::abort();
    if (record.name.size() > std::size_t{3} * 255) std::abort();
    return 0;
}
