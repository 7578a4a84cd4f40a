#pragma once

#include "base/hv_types.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

namespace hv {

/// Decodes a compressed disk on several threads, ahead of a reader that goes through
/// it. The reader is one thread, and gets what it would get from one decoder: the same
/// bytes, and the same reads fail. Single reads and short passes cost nothing more.
class decode_ahead {
public:
    /// Fills `out` with whole blocks from `offset` on; false if it can't. Each decoder
    /// is used by one thread at a time, but several of them at once.
    using decoder = std::function<bool(u64 offset, std::span<u8> out)>;
    /// Opens the disk once more. Empty if that fails: there is one thread less then.
    using decoder_opener = std::function<decoder()>;

    struct form {
        u64 size = 0;        ///< of the disk in bytes
        u32 block_bytes = 0; ///< not 0; blocks are aligned to their size
        /// How many threads decode; with less than two, the reader's does it.
        unsigned threads = usual_threads();
    };

    decode_ahead(const form &how, decoder first, decoder_opener open_more);
    ~decode_ahead();
    decode_ahead(const decode_ahead &) = delete;
    decode_ahead &operator=(const decode_ahead &) = delete;

    /// See `decoder`.
    bool read(u64 offset, std::span<u8> out);

    /// One for each processor, to a limit: each has tables of the whole disk in memory.
    static unsigned usual_threads();

private:
    enum class progress { waiting, running, decoded, failed };
    struct stretch {
        u64 offset = 0;
        std::vector<u8> bytes;
        progress state = progress::waiting;
        u64 end() const { return offset + bytes.size(); }
    };
    using stretch_ptr = std::shared_ptr<stretch>;

    bool decode_here(u64 offset, std::span<u8> out);
    std::size_t take_decoded(u64 offset, std::span<u8> out);
    void note_single_read(u64 offset, u64 length);
    void extend(u64 from);
    void drop_before(u64 offset);
    void start_threads();
    void work(unsigned number);
    stretch_ptr next_job();

    form m_form;
    u64 m_stretch_bytes;
    decoder m_first;
    decoder_opener m_open_more;
    std::mutex m_first_mutex; ///< of the first decoder
    // The reader's own.
    u64 m_run_begin = 0; ///< of reads that followed each other
    u64 m_run_end = 0;
    u64 m_passed = 0; ///< bytes of the pass that is helped
    std::vector<std::vector<u8>> m_spare;
    std::vector<std::thread> m_threads;
    // Shared with the threads.
    std::mutex m_mutex;
    std::condition_variable m_has_work;
    std::condition_variable m_has_result;
    std::deque<stretch_ptr> m_ahead; ///< neighbours, in order
    bool m_ends = false;
};

} // namespace hv
