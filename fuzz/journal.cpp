// Lines of the change journal: every fact that is reported is in the bytes.

#include "formats/journal.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const hv::byte_view page{data, size};
    hv::u64 end = 0;
    hv::for_each_journal_record(page, [&](hv::u64 at,
                                          const hv::journal_record &record) {
        using namespace hv;
        const byte_view bytes = page.clip(at, record.length);
        // Records follow each other, and none leaves the page.
        if (at < end || bytes.size() != record.length) std::abort();
        end = at + record.length;
        const bool is_3 = record.version == 3;
        if (bytes.read_padded<u64>(is_3 ? journal_v3::time.offset
                                        : journal_v2::time.offset) != record.time ||
            bytes.read_padded<u64>(is_3 ? journal_v3::parent.offset
                                        : journal_v2::parent.offset) != record.parent)
            std::abort();
        const u64 name = bytes.read_padded<u16>(is_3 ? journal_v3::name_offset.offset
                                                     : journal_v2::name_offset.offset);
        for (std::size_t i = 0; i < record.name.size(); ++i)
            if (bytes.read_padded<u16>(name + 2 * i) != record.name[i]) std::abort();
    });
    return 0;
}
