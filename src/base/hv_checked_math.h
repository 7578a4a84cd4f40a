#pragma once

#include "base/hv_types.h"

/// Sums and products of numbers from a disk, which may be any.
namespace hv {

/// A sum that stays at all ones where 64 bits can't hold it. As a position on a medium
/// that is after every end.
constexpr u64 saturating_sum(u64 a, u64 b)
{
    u64 sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? ~u64{0} : sum;
}

/// The same for a product.
constexpr u64 saturating_product(u64 a, u64 b)
{
    u64 product = 0;
    return __builtin_mul_overflow(a, b, &product) ? ~u64{0} : product;
}

/// `position` becomes `index` units of `unit` bytes after `base`: where a record, a
/// cluster or a sector of that number is. False if 64 bits can't hold it; `position` is
/// then undefined.
constexpr bool checked_position(u64 index, u64 unit, u64 base, u64 &position)
{
    return !__builtin_mul_overflow(index, unit, &position) &&
           !__builtin_add_overflow(position, base, &position);
}

} // namespace hv
