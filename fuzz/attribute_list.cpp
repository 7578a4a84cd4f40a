// Attribute lists: the entries lie in the list, and what they name is looked up once.
// The first two bytes are the length of the list; a record comes after it.

#include "ntfs/hv_attribute_list.h"

#include <cstdlib>

namespace {

void require(bool good)
{
    if (!good) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    using namespace hv;
    const byte_view input{data, size};
    const byte_view list = input.clip(2, input.read_padded<u16>(0));
    const byte_view record = input.from(2 + list.size());
    listed_records found;
    std::size_t entries = 0, keys = 0;
    for_each_list_entry(list, [&](const attribute_list_entry &entry) {
        ++entries;
        require(entry.record >> 48 == 0);
        require(entry.name.size() <= 510);
        found.add(entry.record, entry.key);
    });
    // A step costs a byte at least, and the last entry has to be whole.
    require(list.size() < list_entry::size ? entries == 0 : entries <= list.size());
    std::set<u64> numbers;
    for (const listed_records::listed_record &each : found.records()) {
        require(numbers.insert(each.entry).second);
        keys += each.keys.size();
        std::set<attribute_key> visited;
        for_each_listed(record, each.keys, [&](attribute_ref attribute) {
            const attribute_key key{attribute.type(), attribute.id()};
            require(each.keys.contains(key));
            require(visited.insert(key).second);
        });
    }
    require(keys <= entries);
    return 0;
}
