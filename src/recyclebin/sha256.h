#pragma once

#include "recyclebin/digest.h"

namespace hv {

/// SHA-256 of bytes that come in pieces.
class sha256 : public digest {
public:
    sha256() : digest(digest_kind::sha256) {}
};

} // namespace hv
