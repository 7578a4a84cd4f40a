#include "media/inflate.h"

#ifdef VESKIT_WITH_ZLIB
#include <zlib.h>
#endif

namespace hv {

#ifdef VESKIT_WITH_ZLIB

bool can_inflate()
{
    return true;
}

std::size_t inflate_block(std::span<u8> out, byte_view packed, deflate_form form)
{
    z_stream stream{};
    const int window = form == deflate_form::zlib ? MAX_WBITS : -MAX_WBITS;
    if (inflateInit2(&stream, window) != Z_OK) return 0;
    // The library takes its input as bytes that it might change, and doesn't.
    stream.next_in = const_cast<u8 *>(packed.bytes().data());
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = inflate(&stream, Z_FINISH);
    const std::size_t count = out.size() - stream.avail_out;
    inflateEnd(&stream);
    return result == Z_STREAM_END || result == Z_BUF_ERROR ? count : 0;
}

#else

bool can_inflate()
{
    return false;
}

std::size_t inflate_block(std::span<u8>, byte_view, deflate_form)
{
    return 0;
}

#endif

} // namespace hv
