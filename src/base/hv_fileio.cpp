#include "base/hv_fileio.h"

#include "base/hv_open_file.h"
#include "base/hv_string.h"
#include "base/hv_text_convert.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace uni {

using hv::u64;
using hv::u8;

namespace {

constexpr std::size_t output_buffer_size = 0x40000;
constexpr u64 first_read_piece = 0x10000;
constexpr u64 max_read_piece = 0x10000000;

// The size that a device counts as if it can't be measured.
constexpr u64 unmeasured_size = 0x40000;

// Owner and others, without the group. Tools that read the results run as other users
// and rely on these permissions.
constexpr mode_t created_file_mode = 0606;

int open_for_writing(const char *path, bool truncate)
{
    const int flags = O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    return ::open(path, truncate ? flags | O_CREAT | O_TRUNC : flags,
                  created_file_mode);
}

// A pipe that another process made non-blocking may be full for a while. False, with
// `errno` unchanged, if a write failed for another reason.
bool wait_until_writable(int descriptor)
{
    if (errno != EAGAIN) return false;
    pollfd wanted{descriptor, POLLOUT, 0};
    return poll(&wanted, 1, -1) >= 0;
}

class fileio_ostream : public streambuf_generic_output {
public:
    explicit fileio_ostream(fileio &file)
        : streambuf_generic_output(output_buffer_size),
          m_file(file)
    {
    }

protected:
    ssize_t write_block(const char *data, std::size_t length) override
    {
        return m_file.append(data, length);
    }

private:
    fileio &m_file;
};

class stdout_streambuf : public streambuf_generic_output {
public:
    explicit stdout_streambuf(int descriptor)
        : streambuf_generic_output(output_buffer_size),
          m_stream(descriptor)
    {
    }

protected:
    ssize_t write_block(const char *data, std::size_t length) override
    {
        return m_stream.write(data, length) ? static_cast<ssize_t>(length) : -1;
    }

private:
    stdout_stream m_stream;
};

} // namespace

streambuf_generic_output::streambuf_generic_output(std::size_t buffer_size)
    : m_buffer(buffer_size)
{
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
}

bool streambuf_generic_output::flush_block()
{
    const char *data = pbase();
    while (data < pptr()) {
        errno = 0;
        const ssize_t taken =
            write_block(data, static_cast<std::size_t>(pptr() - data));
        if (taken <= 0) {
            if (m_error == 0) m_error = errno != 0 ? errno : EIO;
            return false;
        }
        data += taken;
    }
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
    return true;
}

streambuf_generic_output::int_type streambuf_generic_output::overflow(int_type c)
{
    if (!flush_block()) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
    }
    return traits_type::not_eof(c);
}

int streambuf_generic_output::sync()
{
    return flush_block() ? 0 : -1;
}

result_output::result_output(std::unique_ptr<streambuf_generic_output> buffer)
    : std::ostream(buffer.get()),
      m_buffer(std::move(buffer))
{
}

result_output::~result_output()
{
    // After a write that failed, the buffer may begin with bytes that were written.
    if (m_buffer->error() == 0) flush();
}

int result_output::finish()
{
    flush();
    return m_buffer->error();
}

fileio_output::fileio_output(fileio &file)
    : result_output(std::make_unique<fileio_ostream>(file))
{
}

bool stdout_stream::write(const char *data, std::size_t length) const
{
    if (data == nullptr || length == 0) return false;
    while (length > 0) {
        const ssize_t taken = ::write(m_descriptor, data, length);
        if (taken < 0 && (errno == EINTR || wait_until_writable(m_descriptor)))
            continue;
        if (taken < 0) return false;
        data += taken;
        length -= static_cast<std::size_t>(taken);
    }
    return true;
}

stdout_output::stdout_output(int descriptor)
    : result_output(std::make_unique<stdout_streambuf>(descriptor))
{
}

bool fileio::open(std::string_view path, open_mode mode)
{
    close();
    m_path = path;
    m_path.erase(m_path.find_last_not_of("/\\") + 1);
    if (m_path.empty()) return false;
    m_descriptor =
        mode == open_mode::read
            ? hv::open_for_reading(m_path.c_str())
            : open_for_writing(m_path.c_str(), mode == open_mode::write_truncate);
    if (m_descriptor < 0) return false;
    struct stat status {};
    if (fstat(m_descriptor, &status) != 0 || S_ISFIFO(status.st_mode) ||
        S_ISSOCK(status.st_mode)) {
        close();
        return false;
    }
    // A regular file without a length may be one that the system generates as it is
    // read, such as those of /proc. It is measured like a device.
    if (S_ISREG(status.st_mode) && status.st_size > 0) {
        m_size = static_cast<u64>(status.st_size);
    } else {
        // O_NONBLOCK was only for open(); writes to a terminal may wait.
        fcntl(m_descriptor, F_SETFL, fcntl(m_descriptor, F_GETFL) & ~O_NONBLOCK);
        measure_size();
    }
    return true;
}

bool fileio::open(std::wstring_view path, open_mode mode)
{
    return open(to_utf8(path), mode);
}

u64 fileio::measure_size()
{
    const off_t position = lseek(m_descriptor, 0, SEEK_CUR);
    errno = 0;
    const off_t end = lseek(m_descriptor, 0, SEEK_END);
    const int problem = errno;
    if (position >= 0) lseek(m_descriptor, position, SEEK_SET);
    m_size = end > 0 ? static_cast<u64>(end) : 0;
    if (end <= 0 && problem == EINVAL && m_path.find("/proc") == std::string::npos)
        m_size = unmeasured_size;
    return m_size;
}

bool fileio::read_at(u8 *buffer, std::size_t &length, u64 offset) const
{
    if (!is_open() || offset >= m_size) return false;
    ssize_t count = 0;
    do count = pread(m_descriptor, buffer, length, static_cast<off_t>(offset));
    while (count < 0 && errno == EINTR);
    if (count < 0) return false;
    length = static_cast<std::size_t>(count);
    return true;
}

bool fileio::read_vector(std::vector<u8> &result, u64 length, u64 offset) const
{
    result.clear();
    if (!is_open() || offset >= m_size) return false;
    length = std::min(length, m_size - offset);
    // The pieces grow with what was read, since a file may claim any size.
    u64 piece = first_read_piece;
    while (result.size() < length) {
        const std::size_t had = result.size();
        const u64 wanted = std::min(length - had, piece);
        std::size_t count = wanted;
        result.resize(had + wanted);
        const bool good = read_at(result.data() + had, count, offset + had);
        result.resize(had + (good ? count : 0));
        if (!good) return had != 0;
        if (count < wanted) break;
        piece = std::min(piece * 2, max_read_piece);
    }
    return true;
}

ssize_t fileio::append(const char *data, std::size_t length)
{
    if (data == nullptr || !is_open()) return -1;
    if (length == 0) return 0;
    const off_t end = lseek(m_descriptor, 0, SEEK_END);
    ssize_t taken = 0;
    do taken = ::write(m_descriptor, data, length);
    while (taken < 0 && errno == EINTR);
    if (taken > 0)
        m_size = static_cast<u64>(end > 0 ? end : 0) + static_cast<u64>(taken);
    return taken;
}

fileio_output &fileio::get_stream()
{
    if (!m_output_stream) m_output_stream = std::make_unique<fileio_output>(*this);
    return *m_output_stream;
}

int fileio::close()
{
    int error = m_output_stream ? m_output_stream->finish() : 0;
    m_output_stream.reset();
    if (m_descriptor >= 0 && ::close(m_descriptor) != 0 && error == 0) error = errno;
    m_descriptor = -1;
    m_size = 0;
    return error;
}

bool fileio::read_head(std::vector<u8> &result, std::string_view path, u64 max_length)
{
    fileio file;
    return file.open(path, open_mode::read) && file.read_vector(result, max_length, 0);
}

bool stdin_stream::read_line(std::string &line, bool strip_line_end)
{
    line.clear();
    if (std::fgets(m_buffer.data(), static_cast<int>(m_buffer.size()), m_stream) ==
        nullptr)
        return false;
    line = m_buffer.data();
    if (strip_line_end) hv::trim_line_end(line);
    return true;
}

bool stdin_stream::read_line(std::wstring &line, bool strip_line_end)
{
    std::string narrow;
    if (!read_line(narrow, strip_line_end)) return false;
    line = to_wide(narrow);
    return true;
}

} // namespace uni
