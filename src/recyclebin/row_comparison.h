#pragma once

#include "disk/hv_byte_source.h"
#include "recyclebin/row_reading.h"

#include <set>

/// Whether a medium still says what a row states.
namespace hv {

/// What became of the statements of a row. Each member of its JSON that says something
/// of the medium is one; a list of values is one.
class row_findings {
public:
    void hold(u64 statements = 1) { m_held += statements; }
    /// A statement that doesn't hold, in words, with what the medium says.
    void fail(const std::string &text) { m_failures.push_back(text); }
    /// Statements that nothing can be said of, and why.
    void leave(u64 statements, const std::string &reason);

    u64 held() const { return m_held; }
    u64 unchecked() const { return m_unchecked; }
    const std::vector<std::string> &failures() const { return m_failures; }
    const std::vector<std::string> &reasons() const { return m_reasons; }

private:
    u64 m_held = 0;
    u64 m_unchecked = 0;
    std::vector<std::string> m_failures;
    std::vector<std::string> m_reasons;
};

/// Which statements were settled, by the names of their members.
struct settled_statements {
    std::set<std::string> of_row;
    std::vector<std::set<std::string>> of_sightings;
};

/// Settles what the bytes of the row's sightings say by themselves: their sums; the
/// time, size and path of metadata; and those of the row, if one sighting's bytes state
/// all three of them. Sightings in files name these below `folder`.
settled_statements check_bytes(row_findings &findings, const written_row &row,
                               const byte_source &medium, const std::string &folder);

/// Settles the others by what an examination of the medium found; null if it didn't
/// find this deletion.
void compare_rows(row_findings &findings, const written_row &row,
                  const written_row *found, const settled_statements &settled);

} // namespace hv
