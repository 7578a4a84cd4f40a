#pragma once

#include "base/hv_byte_view.h"

#include <memory>
#include <string>

struct evp_md_ctx_st;

namespace hv {

enum class digest_kind { md5, sha256 };

/// A sum of bytes that come in pieces, by libcrypto.
class digest {
public:
    explicit digest(digest_kind kind);
    void add(byte_view bytes);
    /// Ends the sum; hexadecimal digits, in lower case.
    std::string finish();

private:
    struct free_context {
        void operator()(evp_md_ctx_st *context) const;
    };
    std::unique_ptr<evp_md_ctx_st, free_context> m_context;
};

} // namespace hv
