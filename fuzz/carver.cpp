// Carving and slack: what is reported is in the bytes, once, and the same however the
// bytes are handed over.

#include "evidence/carve.h"
#include "evidence/slack.h"

#include <cstdlib>
#include <set>
#include <tuple>

namespace {

class checker : public hv::carve_sink {
public:
    explicit checker(hv::u64 size) : m_size(size) {}

    void found_record(const hv::carved_block &record) override
    {
        note(0, record.position, record.bytes.size());
        checker slack(record.bytes.size());
        hv::search_record_slack(record.bytes, slack);
    }
    void found_index_block(const hv::carved_block &block) override
    {
        note(1, block.position, block.bytes.size());
        checker slack(block.bytes.size());
        hv::search_index_slack(block.bytes, slack);
    }
    void found_metadata(hv::u64 at, const hv::deleted_file &file) override
    {
        if (!hv::is_believable_time(file.deleted)) std::abort();
        note(2, at, file.length);
    }
    void found_journal_record(hv::u64 at, const hv::journal_record &record) override
    {
        note(3, at, record.length);
    }
    void found_name(hv::u64 at, const hv::slack_name &name) override
    {
        note(4, at, name.length);
    }

    const auto &findings() const { return m_findings; }

private:
    void note(int kind, hv::u64 at, hv::u64 length)
    {
        if (at > m_size || length > m_size - at) std::abort();
        if (!m_findings.emplace(kind, at, length).second) std::abort();
    }

    hv::u64 m_size;
    std::set<std::tuple<int, hv::u64, hv::u64>> m_findings;
};

auto carved(hv::byte_view bytes, hv::u64 step)
{
    checker found(bytes.size());
    hv::carver search(found);
    for (hv::u64 at = 0; at < bytes.size(); at += step)
        search.carve(bytes.clip(at, step), at);
    search.finish();
    return found.findings();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size)
{
    const hv::byte_view bytes{data, size};
    if (carved(bytes, 512) != carved(bytes, size + 1)) std::abort();
    return 0;
}
