#include "evidence/owners.h"

#include "security/hv_security_descriptor.h"

namespace hv {

std::string file_owners::owner_of(const file_facts &facts)
{
    // More than two SIDs and two lists of the largest size take.
    constexpr u64 max_descriptor = u64{256} * 1024;
    std::string owner;
    if (facts.security_id != 0 && m_view.has_clusters()) {
        if (!m_descriptors) m_descriptors.emplace(m_view.volume());
        if (m_descriptors->owner_of_id(owner, facts.security_id)) return owner;
    }
    file_content descriptor;
    if (m_view.read_stream(descriptor, facts, max_descriptor,
                           attribute_type::security_descriptor))
        owner_sid_text(owner, byte_view{descriptor.bytes});
    return owner;
}

} // namespace hv
