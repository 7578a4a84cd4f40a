#include "recyclebin/digest.h"

#include <array>
#include <new>
#include <openssl/evp.h>

namespace hv {

void digest::free_context::operator()(evp_md_ctx_st *context) const
{
    EVP_MD_CTX_free(context);
}

// libcrypto fails only for want of memory; MD5 may also be forbidden by the system, and
// then its sum is empty.
digest::digest(digest_kind kind) : m_context(EVP_MD_CTX_new())
{
    if (!m_context) throw std::bad_alloc();
    const EVP_MD *algorithm = kind == digest_kind::md5 ? EVP_md5() : EVP_sha256();
    if (EVP_DigestInit_ex(m_context.get(), algorithm, nullptr) != 1) m_context.reset();
}

void digest::add(byte_view bytes)
{
    if (m_context)
        EVP_DigestUpdate(m_context.get(), bytes.bytes().data(), bytes.size());
}

std::string digest::finish()
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    unsigned int length = 0;
    if (m_context) EVP_DigestFinal_ex(m_context.get(), sum.data(), &length);
    std::string text;
    constexpr const char *digits = "0123456789abcdef";
    for (unsigned int i = 0; i < length; ++i) {
        text += digits[sum[i] >> 4U];
        text += digits[sum[i] & 0xFU];
    }
    return text;
}

} // namespace hv
