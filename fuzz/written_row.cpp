// A row of `list --format jsonl` as it is read again: whatever the line, it is a row or
// the problem is said, and its statements can be held against any medium.

#include "disk/hv_byte_source.h"
#include "recyclebin/row_comparison.h"

#include <cstdlib>

namespace {

class no_medium : public hv::byte_source {
public:
    hv::u64 size() const override { return 512; }
    std::size_t read(hv::u64 offset, std::span<hv::u8> out) const override
    {
        const std::size_t count =
            offset >= size() ? 0 : std::min<std::size_t>(out.size(), size() - offset);
        std::fill_n(out.begin(), count, hv::u8{0});
        return count;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const std::string line(data, data + size);
    hv::written_row row;
    std::string problem;
    const bool is_row = hv::read_row(row, problem, line);
    if (is_row != problem.empty()) std::abort();
    if (!is_row) return 0;
    hv::row_findings findings;
    const hv::settled_statements settled =
        hv::check_bytes(findings, row, no_medium(), "/nowhere");
    hv::compare_rows(findings, row, &row, settled);
    if (findings.held() + findings.unchecked() + findings.failures().size() > 16 * size)
        std::abort();
    return 0;
}
