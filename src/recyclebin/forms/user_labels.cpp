#include "recyclebin/forms/user_labels.h"

#include "recyclebin/evidence_text.h"
#include "recyclebin/selection.h"

namespace hv {

user_labels::user_labels(const listing &told)
{
    for (const deletion *item : told.items) {
        m_labels.try_emplace(item->user, "-");
        const auto &names = told.found.regions[item->volume].user_names;
        const auto name = names.find(item->user);
        if (name != names.end()) m_names.insert(*name);
    }
    m_labels.erase(u"");
    std::map<std::string, u64> uses;
    const auto candidates = [this](const std::u16string &folder) {
        return std::vector<std::string>{name_of(folder),
                                        escaped(std::u16string(short_user(folder))),
                                        escaped(folder)};
    };
    for (const auto &[folder, label] : m_labels) {
        const auto all = candidates(folder);
        for (const std::string &each : std::set<std::string>(all.begin(), all.end()))
            ++uses[each];
    }
    for (auto &[folder, label] : m_labels)
        for (const std::string &each : candidates(folder)) {
            label = each;
            if (!label.empty() && uses[label] == 1) break;
        }
    m_labels.try_emplace(u"", "-");
}

std::string user_labels::name_of(const std::u16string &folder) const
{
    const auto name = m_names.find(folder);
    return name == m_names.end() ? "" : escaped(name->second);
}

} // namespace hv
