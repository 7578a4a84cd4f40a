#pragma once

#include "base/hv_types.h"
#include "samples/random_source.h"

#include <cstddef>
#include <span>

/// What decides how a medium is damaged: the bytes of a fuzzer, or a seed.
namespace stress {

using hv::u64;
using hv::u8;

class choices {
public:
    choices() = default;
    virtual ~choices() = default;
    choices(const choices &) = delete;
    choices &operator=(const choices &) = delete;

    /// A number below `limit`; 0 if that is 0, or nothing is left to decide by.
    virtual u64 below(u64 limit) = 0;
    /// Whether there is nothing left to decide by.
    virtual bool is_exhausted() const = 0;
};

/// Reads its decisions from bytes: as many of them, little-endian, as `limit` needs.
/// Inputs that share their first bytes decide the same at first, as fuzzers want it.
class input_choices : public choices {
public:
    explicit input_choices(std::span<const u8> bytes) : m_left(bytes) {}

    u64 below(u64 limit) override
    {
        if (limit <= 1) return 0;
        u64 value = 0;
        int shift = 0;
        for (u64 most = limit - 1; most != 0 && !m_left.empty(); most >>= 8) {
            value |= u64{m_left.front()} << shift;
            m_left = m_left.subspan(1);
            shift += 8;
        }
        return value % limit;
    }
    bool is_exhausted() const override { return m_left.empty(); }

private:
    std::span<const u8> m_left;
};

/// The same decisions for the same seed, on every machine.
class seeded_choices : public choices {
public:
    explicit seeded_choices(u64 seed) : m_random(seed) {}

    u64 below(u64 limit) override { return limit <= 1 ? 0 : m_random.below(limit); }
    bool is_exhausted() const override { return false; }

private:
    test_support::random_source m_random;
};

} // namespace stress
