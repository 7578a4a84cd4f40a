#pragma once

#include "media/unread_parts.h"

#include <map>
#include <string>
#include <vector>

namespace hv {

/// What a container couldn't deliver so far.
class fault_list {
public:
    fault_list() = default;
    /// Texts count the units of the container as well: `name` is "chunk", `bytes` its
    /// size, other than 0.
    fault_list(std::string name, u64 bytes)
        : m_unit(std::move(name)),
          m_unit_bytes(bytes)
    {
    }

    /// Notes that the bytes from `begin` to before `end` of the disk are zeros instead
    /// of what they were, and why: "wrong checksum". What was noted before isn't again.
    void add(u64 begin, u64 end, const std::string &reason);
    /// Notes a fault that isn't at certain bytes.
    void add(std::string text) { m_general.push_back(std::move(text)); }

    u64 bytes() const { return m_bytes; } ///< in stretches that were noted
    /// What was noted of `length` bytes at `offset`, in order.
    unread_parts within(u64 offset, u64 length) const;
    /// For a user, by offset: "chunk 17, bytes 0x88000 to 0x8ffff: wrong checksum".
    /// Neighbours with one reason are told as one; after some hundred, the rest is
    /// counted.
    std::vector<std::string> texts() const;

private:
    struct stretch {
        u64 end = 0;
        std::string reason;
    };
    void insert(std::map<u64, stretch>::iterator next, u64 begin, stretch bad);
    std::string text_of(u64 begin, const stretch &bad) const;

    std::string m_unit;
    u64 m_unit_bytes = 0;
    std::vector<std::string> m_general;
    std::map<u64, stretch> m_stretches;
    u64 m_bytes = 0;
};

} // namespace hv
