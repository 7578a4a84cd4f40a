// The input as a security descriptor, as an ACL and as a block of "$SDS".

#include "security/hv_security_descriptor.h"
#include "security/hv_security_map.h"

#include <cstdlib>
#include <sstream>

namespace {

// The most characters that a byte of an ACL can become. A dump writes lines of up to 31
// characters for a subauthority, and 600 for an ACE of 8 bytes.
constexpr hv::u64 max_report_per_byte = 20;
constexpr hv::u64 max_dump_per_byte = 80;

void check_texts(hv::byte_view bytes)
{
    std::ostringstream report;
    hv::report_descriptor(report, bytes);
    if (report.str().size() > 8192 + 2 * max_report_per_byte * hv::max_acl_bytes)
        std::abort();
    std::ostringstream dump;
    hv::dump_descriptor(dump, bytes);
    hv::dump_acl(dump, bytes);
    if (dump.str().size() > 8192 + max_dump_per_byte * hv::max_acl_bytes) std::abort();
    std::ostringstream keys;
    hv::write_descriptor_keys(keys, bytes);
    // Either both name an owner, or neither does.
    std::string owner;
    const bool named = hv::owner_sid_text(owner, bytes);
    if (named != (keys.str().find("<owner_sid>S-") != std::string::npos)) std::abort();
    if (named == owner.empty()) std::abort();
}

void check_acl(hv::byte_view bytes)
{
    hv::ace_map aces;
    hv::u32 count = 0;
    const bool walked = hv::for_each_ace(bytes, [&](hv::byte_view) { ++count; });
    if (hv::collect_acl(aces, bytes, 0) != walked || aces.size() > count) std::abort();
}

void check_entries(hv::byte_view block)
{
    // Entries don't overlap and lie inside the block.
    hv::u64 end = 0;
    hv::for_each_sds_entry(block, 0, [&](const hv::sds_record &entry) {
        if (entry.position < end) std::abort();
        end = entry.position + hv::sds_entry::header_size + entry.descriptor.size();
        if (end > block.size()) std::abort();
        check_texts(entry.descriptor);
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const hv::byte_view bytes{data, size};
    check_texts(bytes);
    check_acl(bytes);
    check_entries(bytes);
    return 0;
}
