#pragma once

#include "evidence/volume_view.h"
#include "security/hv_security_map.h"

#include <string>

/// To whom the files of a volume belong.
namespace hv {

/// Finds owners by the security descriptors of one view. $Secure is read when the
/// first one is asked for.
class file_owners {
public:
    /// The view is open when an owner is asked for, and outlives this.
    explicit file_owners(const volume_view &view) : m_view(view) {}

    /// The SID of a file's owner, "S-1-5-21-...": from the descriptor in $Secure that
    /// its security id names, or from its own $SECURITY_DESCRIPTOR. Empty if neither
    /// can be read. The facts are of a record that the view leads to.
    std::string owner_of(const file_facts &facts);

private:
    const volume_view &m_view;
    std::optional<security_map> m_descriptors;
};

} // namespace hv
