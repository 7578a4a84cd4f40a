#pragma once

#include "base/hv_types.h"

#include <cstdio>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace uni {

/// A put area in memory that is written block by block.
class streambuf_generic_output : public std::streambuf {
public:
    explicit streambuf_generic_output(std::size_t buffer_size);

    /// The system's error number of the first write that failed, or 0.
    int error() const { return m_error; }

protected:
    /// Writes bytes and returns how many were written, or -1 with `errno` set.
    virtual ssize_t write_block(const char *data, std::size_t length) = 0;
    int_type overflow(int_type c) override;
    int sync() override;

private:
    bool flush_block();

    std::vector<char> m_buffer;
    int m_error = 0;
};

/// A stream that writes to a file or to standard output through one large put area.
class result_output : public std::ostream {
public:
    ~result_output() override;
    /// Flushes. Returns 0, or the error number of the first write that failed.
    int finish();

protected:
    explicit result_output(std::unique_ptr<streambuf_generic_output> buffer);

private:
    std::unique_ptr<streambuf_generic_output> m_buffer;
};

class fileio;

/// The output stream of an open `fileio`.
class fileio_output : public result_output {
public:
    explicit fileio_output(fileio &file);
};

/// Writes to a descriptor, without a buffer.
class stdout_stream {
public:
    explicit stdout_stream(int descriptor) : m_descriptor(descriptor) {}
    /// Writes all of it. False if there is nothing to write or, with `errno` set, if
    /// the system refuses a byte.
    bool write(const char *data, std::size_t length) const;

private:
    int m_descriptor;
};

/// The output stream on a descriptor, by default standard output.
class stdout_output : public result_output {
public:
    explicit stdout_output(int descriptor = 1);
};

enum class open_mode {
    read,
    write,         ///< the file must exist
    write_truncate ///< created if missing, emptied if not
};

/// A file with a 64-bit size. Every operation reports by its result and prints nothing.
class fileio {
public:
    fileio() = default;
    ~fileio() { close(); }
    fileio(const fileio &) = delete;
    fileio &operator=(const fileio &) = delete;

    /// Opens a path in UTF-8, after closing the file that was open. A pipe or a socket
    /// is refused without waiting for its other end. Reading doesn't change the file's
    /// access time where the system allows that.
    bool open(std::string_view path, open_mode mode);
    bool open(std::wstring_view path, open_mode mode);
    bool is_open() const { return m_descriptor >= 0; }

    /// The size in bytes as last measured.
    hv::u64 get_size() const { return m_size; }
    /// Asks the system for the size again and keeps it.
    hv::u64 measure_size();

    /// Reads `length` bytes at `offset` in one call of the system; `length` comes back
    /// as the bytes read, which may be fewer. False, with `length` as it was, at or
    /// after the end and for a read that fails.
    bool read_at(hv::u8 *buffer, std::size_t &length, hv::u64 offset) const;
    /// Reads up to `length` bytes at `offset`, up to the end of the file or to the
    /// first read that fails. False at or after the end, and if nothing could be read.
    /// Memory grows with what is read, whatever size the file claims.
    bool read_vector(std::vector<hv::u8> &result, hv::u64 length, hv::u64 offset) const;

    /// Writes at the end. Returns the bytes written, or -1.
    ssize_t append(const char *data, std::size_t length);
    /// The stream on this file, made by the first call.
    fileio_output &get_stream();

    /// Flushes the stream, if one was made, and closes. Returns 0, or the error number
    /// of the first write that failed.
    int close();

    /// Opens a path and reads up to `max_length` bytes from its start. False if nothing
    /// could be read.
    static bool read_head(std::vector<hv::u8> &result, std::string_view path,
                          hv::u64 max_length);

private:
    std::string m_path;
    int m_descriptor = -1;
    hv::u64 m_size = 0;
    std::unique_ptr<fileio_output> m_output_stream;
};

/// Reads standard input, or another open stream, line by line.
class stdin_stream {
public:
    explicit stdin_stream(std::FILE *stream = stdin) : m_stream(stream), m_buffer(4096)
    {
    }
    virtual ~stdin_stream() = default;
    stdin_stream(const stdin_stream &) = delete;
    stdin_stream &operator=(const stdin_stream &) = delete;

    /// Reads one line; one of more than 4095 bytes is read in pieces. With
    /// `strip_line_end`, all CR and LF at its end are removed. False at the end of the
    /// input.
    virtual bool read_line(std::string &line, bool strip_line_end);
    /// The same as wide text, empty for a line that isn't UTF-8.
    virtual bool read_line(std::wstring &line, bool strip_line_end);

private:
    std::FILE *m_stream;
    std::vector<char> m_buffer;
};

} // namespace uni
