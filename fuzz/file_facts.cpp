// One record as evidence reads it: its facts lie in its bytes, and what a sector of
// another write holds is never taken for sound.

#include "evidence/file_facts.h"
#include "recovery/reparse.h"

#include <algorithm>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    using namespace hv;
    record_bytes record;
    if (!read_record(record, byte_view{data, size}, parse_rules::complete())) return 0;
    if (record.sound > size || record.used > size || record.bytes.size() != size)
        std::abort();
    const file_facts facts = read_facts(record, std::nullopt);
    for (const file_name_fact &name : facts.names) {
        const byte_view value = record.view().clip(name.place, name.length);
        if (value.size() != name.length ||
            units_of(value.from(file_name::name)) != name.name)
            std::abort();
    }
    for (const stream_fact &stream : facts.streams) {
        if (!stream.is_resident) continue;
        const auto stored = record.view().clip(stream.place, stream.length).bytes();
        if (!std::ranges::equal(stored, stream.content)) std::abort();
    }
    const std::optional<reparse_fact> link = read_reparse(facts);
    if (link && 2 * link->link_target.size() > size) std::abort();
    return 0;
}
