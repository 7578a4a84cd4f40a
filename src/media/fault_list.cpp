#include "media/fault_list.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace hv {

namespace {

constexpr std::size_t max_texts = 256;

} // namespace

// Only what no earlier stretch covers is new: reads may overlap.
void fault_list::add(u64 begin, u64 end, const std::string &reason)
{
    auto next = m_stretches.upper_bound(begin);
    if (next != m_stretches.begin())
        begin = std::max(begin, std::prev(next)->second.end);
    while (begin < end) {
        const u64 stop = next == m_stretches.end() ? end : std::min(end, next->first);
        if (begin < stop) {
            insert(next, begin, stretch{stop, reason});
            m_bytes += stop - begin;
        }
        if (next == m_stretches.end()) return;
        begin = std::max(stop, next->second.end);
        ++next;
    }
}

// Neighbours with one reason are kept as one: a disk that was cut off has many.
void fault_list::insert(std::map<u64, stretch>::iterator next, u64 begin, stretch bad)
{
    if (next != m_stretches.begin()) {
        stretch &before = std::prev(next)->second;
        if (before.end == begin && before.reason == bad.reason) {
            before.end = bad.end;
            return;
        }
    }
    m_stretches.emplace_hint(next, begin, std::move(bad));
}

unread_parts fault_list::within(u64 offset, u64 length) const
{
    unread_parts parts;
    const u64 stop = offset + std::min(length, ~offset);
    auto next = m_stretches.upper_bound(offset);
    if (next != m_stretches.begin()) --next;
    for (; next != m_stretches.end() && next->first < stop; ++next) {
        const u64 begin = std::max(offset, next->first);
        const u64 end = std::min(stop, next->second.end);
        if (begin < end) parts.push_back({begin, end - begin});
    }
    return parts;
}

std::string fault_list::text_of(u64 begin, const stretch &bad) const
{
    std::string text;
    if (m_unit_bytes != 0) {
        const u64 first = begin / m_unit_bytes;
        const u64 last = (bad.end - 1) / m_unit_bytes;
        text = m_unit + (first == last ? " " : "s ") + std::to_string(first);
        if (first != last) text += " to " + std::to_string(last);
        text += ", ";
    }
    char range[64];
    std::snprintf(range, sizeof range,
                  "bytes 0x%llx to 0x%llx: ", static_cast<unsigned long long>(begin),
                  static_cast<unsigned long long>(bad.end - 1));
    return text + range + bad.reason;
}

std::vector<std::string> fault_list::texts() const
{
    std::vector<std::string> texts = m_general;
    std::size_t untold = 0;
    for (auto next = m_stretches.begin(); next != m_stretches.end();) {
        const u64 begin = next->first;
        stretch joined = next->second;
        for (++next; next != m_stretches.end() && next->first == joined.end &&
                     next->second.reason == joined.reason;
             ++next)
            joined.end = next->second.end;
        if (texts.size() < max_texts)
            texts.push_back(text_of(begin, joined));
        else
            ++untold;
    }
    if (untold > 0) texts.push_back(std::to_string(untold) + " more stretches");
    return texts;
}

} // namespace hv
