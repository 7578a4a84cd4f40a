#include "recyclebin/evidence_text.h"
#include "recyclebin/interruption.h"
#include "recyclebin/run_context.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace hv {

namespace {

constexpr u64 block = u64{1} << 20;
constexpr u64 row = 16; // bytes in a line of hexadecimal

// Lines like those of xxd: the offset on the medium, pairs of bytes, the characters.
void write_dump(std::ostream &out, byte_view bytes, u64 offset)
{
    for (u64 at = 0; at < bytes.size(); at += row) {
        char cell[24];
        const unsigned long long position = offset + at;
        std::snprintf(cell, sizeof cell, "%08llx:", position);
        std::string line = cell, characters;
        for (u64 i = 0; i < row; ++i) {
            if (i % 2 == 0) line += ' ';
            const bool is_there = at + i < bytes.size();
            const u8 byte = bytes.read_padded<u8>(at + i);
            std::snprintf(cell, sizeof cell, "%02x", byte);
            line += is_there ? cell : "  ";
            if (is_there)
                characters +=
                    byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
        }
        out << line << "  " << characters << '\n';
    }
}

} // namespace

exit_status run_bytes(std::ostream &out, const run_context &context)
{
    const byte_source &medium = *context.medium;
    const u64 first = context.line.first_byte.value_or(0);
    const u64 wanted = context.line.byte_count.value_or(0);
    if (first >= medium.size()) {
        complain(context.line.medium + " ends at byte " +
                 std::to_string(medium.size()));
        return exit_status::no_rows;
    }
    const u64 count = std::min(wanted, medium.size() - first);
    const bool is_dump = context.line.outputs.front().path.empty() && isatty(1) == 1;
    std::vector<u8> bytes;
    u64 done = 0;
    for (; done < count && out && !is_interrupted(); done += bytes.size()) {
        bytes.resize(std::min(block, count - done));
        const std::size_t read = medium.read(first + done, bytes);
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(read), bytes.end(),
                  u8{0});
        if (is_dump)
            write_dump(out, byte_view{bytes}, first + done);
        else
            // The one place where bytes leave as they are.
            out.write(
                static_cast<const char *>(static_cast<const void *>(bytes.data())),
                static_cast<std::streamsize>(bytes.size()));
    }
    out.flush();
    if (is_interrupted() && done < count)
        complain("interrupted: " + counted(done, "byte") + " written");
    if (count < wanted)
        complain(context.line.medium + " ends at byte " +
                 std::to_string(medium.size()) + ": " + counted(count, "byte") +
                 " written");
    if (medium.unreadable() > 0)
        complain(counted(medium.unreadable(), "byte") +
                 " unreadable: zeros stand for them");
    const bool is_whole = done == wanted && medium.unreadable() == 0 &&
                          context.input.source().faults().empty();
    return is_whole ? exit_status::rows : exit_status::partly;
}

} // namespace hv
