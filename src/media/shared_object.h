#pragma once

#include <bit>

namespace hv {

/// A library of the system that is loaded when the first medium needs it, and stays.
/// The libraries of containers carry copies of one another's parts under the same names
/// but of different ages. Linked into one program, each would call the parts of the
/// first one; loaded like this, each keeps to its own.
class shared_object {
public:
    /// `file` is the name of the library's file, with its version: "libewf.so.2".
    explicit shared_object(const char *file);

    /// Whether the library was loaded and had all functions so far.
    bool is_complete() const { return m_complete; }
    /// A function of the library or of a library that it needs; null if it has none of
    /// that name. `Function` is the type of its address.
    template <class Function> Function function(const char *name)
    {
        return std::bit_cast<Function>(find(name));
    }

private:
    void *find(const char *name);

    void *m_library;
    bool m_complete;
};

} // namespace hv
