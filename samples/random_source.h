#pragma once

#include "samples/bytes.h"

#include <cstddef>

namespace test_support {

/// Numbers that follow from a seed, the same on every machine (xorshift64*). The
/// engines of the standard library would do as well, but its distributions differ. No
/// expression may draw two numbers in an order that the compiler may choose.
class random_source {
public:
    explicit random_source(u64 seed) : m_state(seed * 0x9E3779B97F4A7C15 + 1)
    {
        for (int i = 0; i < 8; ++i) next();
    }

    u64 below(u64 limit) { return next() % limit; }
    u64 between(u64 first, u64 last) { return first + below(last - first + 1); }
    bool one_in(u64 count) { return below(count) == 0; }
    template <class T, std::size_t N> const T &pick(const T (&list)[N])
    {
        return list[below(N)];
    }

private:
    u64 next()
    {
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        return (m_state * 0x2545F4914F6CDD1D) >> 16;
    }

    u64 m_state;
};

} // namespace test_support
