#pragma once

#include "base/hv_byte_view.h"
#include "evidence/sighting.h"

#include <string>
#include <vector>

/// Files below one folder. Whoever may write there can't lead a new file out of it, and
/// no file that exists is touched.
namespace hv {

/// The folder that all goes to.
class output_tree {
public:
    output_tree() = default;
    ~output_tree();
    output_tree(const output_tree &) = delete;
    output_tree &operator=(const output_tree &) = delete;

    /// Opens a folder, and makes it if only itself is missing. False, with `problem` in
    /// words, if that can't be.
    bool open(std::string &problem, const std::string &path);
    /// A descriptor of a folder below, which is made with all above it; no symbolic
    /// link is followed. -1, with `errno` set, if it can't be. Valid until the next
    /// call.
    int folder(const std::vector<std::string> &path);
    /// Sets the times of a folder below, if it is there.
    void set_times(const std::vector<std::string> &path, const record_times &times);

private:
    int m_root = -1;
    int m_last = -1;
    std::vector<std::string> m_last_path;
};

/// One new file. Until it is whole, it has another name, and then it appears at once.
class new_file {
public:
    new_file() = default;
    ~new_file();
    new_file(const new_file &) = delete;
    new_file &operator=(const new_file &) = delete;

    /// Begins a file in a folder. All return 0, or the system's error number.
    int create(int folder);
    int write(byte_view bytes);
    /// Gives the file its size, its times (those that are known) and its name; never in
    /// the place of another one.
    int finish(const std::string &name, const record_times &times);

private:
    int m_folder = -1;
    int m_file = -1;
    u64 m_size = 0;
    std::string m_name;
};

} // namespace hv
