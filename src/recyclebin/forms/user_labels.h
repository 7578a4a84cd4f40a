#pragma once

#include "recyclebin/forms/form.h"

#include <map>

namespace hv {

/// Short names for users, each of one user only: the name that the volume's hives
/// state, or the last number of the SID, or the whole name of the folder in the bin.
class user_labels {
public:
    explicit user_labels(const listing &told);

    /// Escaped; "-" if the user isn't known.
    const std::string &of(const deletion &item) const { return m_labels.at(item.user); }
    /// The name from the hives, escaped; empty if it isn't known.
    std::string name_of(const std::u16string &folder) const;

private:
    std::map<std::u16string, std::string> m_labels; // by folder
    std::map<std::u16string, std::u16string> m_names;
};

} // namespace hv
