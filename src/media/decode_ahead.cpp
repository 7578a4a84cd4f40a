#include "media/decode_ahead.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <system_error>

namespace hv {

namespace {

constexpr u64 mebibyte = u64{1} << 20;

// What one thread decodes at a time, some milliseconds' worth, and how many of these
// there may be: they take 16 MiB.
constexpr u64 usual_stretch = mebibyte;
constexpr u64 max_stretches = 16;

// Where blocks are larger, so are the stretches; of much larger ones, a few would fill
// the memory.
constexpr u64 max_block = 2 * mebibyte;

// Reads that follow each other for so long are a pass.
constexpr u64 min_pass = mebibyte;

constexpr unsigned max_threads = 4;

// While there is one, new threads leave signals to the others.
class signals_blocked {
public:
    signals_blocked()
    {
        sigset_t most{};
        sigfillset(&most);
        for (const int number : {SIGBUS, SIGSEGV, SIGFPE, SIGILL, SIGABRT})
            sigdelset(&most, number);
        pthread_sigmask(SIG_BLOCK, &most, &m_before);
    }
    ~signals_blocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    signals_blocked(const signals_blocked &) = delete;
    signals_blocked &operator=(const signals_blocked &) = delete;

private:
    sigset_t m_before{};
};

decode_ahead::decoder opened(const decode_ahead::decoder_opener &open)
{
    try {
        return open();
    } catch (const std::exception &) {
        return {};
    }
}

bool decodes(const decode_ahead::decoder &decode, u64 offset, std::span<u8> out)
{
    try {
        return decode(offset, out);
    } catch (const std::exception &) {
        return false; // the reader tries again, and sees for itself
    }
}

} // namespace

unsigned decode_ahead::usual_threads()
{
    return std::min(std::thread::hardware_concurrency(), max_threads);
}

decode_ahead::decode_ahead(const form &how, decoder first, decoder_opener open_more)
    : m_form(how),
      m_stretch_bytes(std::max<u64>(usual_stretch / how.block_bytes * how.block_bytes,
                                    how.block_bytes)),
      m_first(std::move(first)),
      m_open_more(std::move(open_more))
{
    if (how.block_bytes > max_block) m_form.threads = 0;
}

decode_ahead::~decode_ahead()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ends = true;
    }
    m_has_work.notify_all();
    for (std::thread &thread : m_threads) thread.join();
}

bool decode_ahead::read(u64 offset, std::span<u8> out)
{
    if (m_form.threads < 2) return m_first(offset, out);
    const std::size_t taken = take_decoded(offset, out);
    if (taken == out.size()) {
        m_passed += taken;
        extend(offset + taken);
        return true;
    }
    if (!decode_here(offset + taken, out.subspan(taken))) return false;
    note_single_read(offset, out.size());
    return true;
}

bool decode_ahead::decode_here(u64 offset, std::span<u8> out)
{
    const std::lock_guard lock(m_first_mutex);
    return m_first(offset, out);
}

// Copies what was decoded from `offset` on, and waits for what is being decoded.
// Returns how many bytes that were: as many as come before one that isn't there.
std::size_t decode_ahead::take_decoded(u64 offset, std::span<u8> out)
{
    std::unique_lock lock(m_mutex);
    std::size_t taken = 0;
    while (taken < out.size()) {
        const u64 at = offset + taken;
        if (m_ahead.empty() || at < m_ahead.front()->offset ||
            at >= m_ahead.back()->end())
            return taken;
        drop_before(at);
        const stretch_ptr from = m_ahead.front();
        m_has_result.wait(lock, [&from] {
            return from->state == progress::decoded || from->state == progress::failed;
        });
        if (from->state == progress::failed) return taken;
        const u64 skipped = at - from->offset;
        const u64 count =
            std::min<u64>(out.size() - taken, from->bytes.size() - skipped);
        // Nobody changes it any more.
        lock.unlock();
        std::copy_n(from->bytes.begin() + static_cast<std::ptrdiff_t>(skipped), count,
                    out.begin() + static_cast<std::ptrdiff_t>(taken));
        lock.lock();
        taken += count;
    }
    return taken;
}

// The reader is past these, or passed over them. The lock is held.
void decode_ahead::drop_before(u64 offset)
{
    while (!m_ahead.empty() && m_ahead.front()->end() <= offset) {
        // Without another owner, its memory is free for the next one.
        if (m_ahead.front().use_count() == 1)
            m_spare.push_back(std::move(m_ahead.front()->bytes));
        m_ahead.pop_front();
    }
}

// A read of what nobody decodes. Many in a row are a pass that is worth help; a single
// one leaves that of another pass as it is.
void decode_ahead::note_single_read(u64 offset, u64 length)
{
    if (offset != m_run_end) m_run_begin = offset;
    m_run_end = offset + length;
    if (m_run_end - m_run_begin < min_pass) return;
    m_passed = m_run_end - m_run_begin;
    {
        const std::lock_guard lock(m_mutex);
        // The reader may be within a stretch that failed, which it reads by itself.
        const bool leads_here = !m_ahead.empty() &&
                                m_run_end >= m_ahead.front()->offset &&
                                m_run_end <= m_ahead.back()->end();
        drop_before(leads_here ? m_run_end : ~u64{0});
    }
    extend(m_run_end);
}

// Has the threads go on from `from` or from where they are: as far as the pass has
// come, so that short ones decode little in vain.
void decode_ahead::extend(u64 from)
{
    if (m_threads.empty()) start_threads();
    if (m_threads.empty()) return;
    const u64 most = std::min(m_passed / m_stretch_bytes + 1, max_stretches);
    bool has_more = false;
    {
        const std::lock_guard lock(m_mutex);
        drop_before(from);
        u64 next = m_ahead.empty() ? from : m_ahead.back()->end();
        for (; m_ahead.size() < most && next < m_form.size; has_more = true) {
            const auto made = std::make_shared<stretch>();
            if (!m_spare.empty()) {
                made->bytes = std::move(m_spare.back());
                m_spare.pop_back();
            }
            made->offset = next;
            made->bytes.resize(std::min(m_stretch_bytes, m_form.size - next));
            m_ahead.push_back(made);
            next = made->end();
        }
    }
    if (has_more) m_has_work.notify_all();
}

void decode_ahead::start_threads()
{
    const signals_blocked while_starting;
    try {
        for (unsigned number = 0; number < m_form.threads; ++number)
            m_threads.emplace_back([this, number] { work(number); });
    } catch (const std::system_error &) {
        // The system has no more threads.
        if (m_threads.empty()) m_form.threads = 0;
    }
}

// The first thread shares the reader's decoder.
void decode_ahead::work(unsigned number)
{
    const bool is_first = number == 0;
    const decoder own = is_first ? decoder() : opened(m_open_more);
    if (!is_first && !own) return;
    while (const stretch_ptr job = next_job()) {
        bool good = false;
        if (is_first) {
            const std::lock_guard lock(m_first_mutex);
            good = decodes(m_first, job->offset, job->bytes);
        } else {
            good = decodes(own, job->offset, job->bytes);
        }
        {
            const std::lock_guard lock(m_mutex);
            job->state = good ? progress::decoded : progress::failed;
        }
        m_has_result.notify_one();
    }
}

// Waits for the next stretch that is to be decoded; null at the end.
decode_ahead::stretch_ptr decode_ahead::next_job()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        if (m_ends) return nullptr;
        const auto next = std::ranges::find(
            m_ahead, progress::waiting, [](const auto &made) { return made->state; });
        if (next != m_ahead.end()) {
            (*next)->state = progress::running;
            return *next;
        }
        m_has_work.wait(lock);
    }
}

} // namespace hv
