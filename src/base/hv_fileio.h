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

/// A put area in memory that is handed on block by block.
class streambuf_generic_output : public std::streambuf {
public:
    explicit streambuf_generic_output(std::size_t buffer_size);

    /// The system's error number of the first block that was refused, or 0.
    int error() const { return m_error; }

protected:
    /// Takes bytes and returns how many it took, or -1 with `errno` set.
    virtual ssize_t write_block(const char *data, std::size_t length) = 0;
    int_type overflow(int_type c) override;
    int sync() override;

private:
    bool hand_on();

    std::vector<char> m_buffer;
    int m_error = 0;
};

/// A stream whose bytes go to a file or to standard output through one large put area.
class result_output : public std::ostream {
public:
    ~result_output() override;
    /// Flushes what remains. Returns 0, or the error number of the first failed write.
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

/// Writes to a descriptor without any buffer of its own.
class stdout_stream {
public:
    explicit stdout_stream(int descriptor) : m_descriptor(descriptor) {}
    /// Writes everything. False, with `errno` set, if the system refuses a byte; false
    /// for nothing to write as well.
    bool write(const char *data, std::size_t length) const;

private:
    int m_descriptor;
};

/// The output stream on a descriptor, standard output unless another is named.
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

    /// Opens a path in UTF-8. A pipe or a socket is refused, and never waited for. An
    /// open file is closed first. Reading leaves the file's access time alone where the
    /// system lets it.
    bool open(std::string_view path, open_mode mode);
    bool open(std::wstring_view path, open_mode mode);
    bool is_open() const { return m_descriptor >= 0; }

    /// The size in bytes as last measured.
    hv::u64 get_size() const { return m_size; }
    /// Asks the system for the size again and keeps it.
    hv::u64 measure_size();

    /// Reads once, at `offset`, into a caller's buffer. False at or behind the end and
    /// on a failed read; `length` then stays as it was, and is else the count of bytes
    /// read.
    bool read_at(hv::u8 *buffer, std::size_t &length, hv::u64 offset) const;
    /// Reads up to `length` bytes at `offset`; fewer come where the file ends or a
    /// later read fails. False at or behind the end and if nothing could be read.
    /// Memory grows with what arrives, whatever size the file claims.
    bool read_vector(std::vector<hv::u8> &result, hv::u64 length, hv::u64 offset) const;

    /// Writes behind the end. Returns the count of bytes taken, or -1.
    ssize_t append(const char *data, std::size_t length);
    /// The stream on this file; made at the first call.
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

    /// Reads one line; one of more than 4095 bytes comes in pieces. With
    /// `strip_line_end`, all CR and LF at its end are removed. False at the end of
    /// input.
    virtual bool read_line(std::string &line, bool strip_line_end);
    /// The same as wide text, empty for a line that isn't UTF-8.
    virtual bool read_line(std::wstring &line, bool strip_line_end);

private:
    std::FILE *m_stream;
    std::vector<char> m_buffer;
};

} // namespace uni
