#include "vmdk/hv_vmdk_disk.h"

#include <algorithm>
#include <new>

namespace hv {

void vmdk_disk::clear()
{
    m_files.clear();
    m_by_cid.clear();
    m_base = nullptr;
    m_top = nullptr;
    m_linked = false;
    m_failure = open_failure::none;
    m_failed_path.clear();
}

bool vmdk_disk::add_file(const std::string &path)
{
    auto file = std::make_unique<vmdk_file>();
    if (!file->open(path)) {
        m_failure = file->failure();
        m_failed_path = path;
        return false;
    }
    const std::string cid = file->cid();
    m_by_cid.emplace(cid, std::move(file));
    return true;
}

bool vmdk_disk::add_files(const std::vector<std::string> &paths)
{
    m_linked = false;
    try {
        return std::ranges::all_of(
            paths, [this](const std::string &path) { return add_file(path); });
    } catch (const std::bad_alloc &) {
        m_failure = open_failure::no_memory;
        return false;
    }
}

// A child has the ID of its parent until it is first written to, so of several files
// with one ID, a file never takes itself for its parent.
vmdk_file *vmdk_disk::find_parent(const vmdk_file &child) const
{
    const auto [first, last] = m_by_cid.equal_range(child.parent_cid());
    for (auto candidate = first; candidate != last; ++candidate)
        if (candidate->second.get() != &child) return candidate->second.get();
    return nullptr;
}

bool vmdk_disk::link()
{
    m_files.clear();
    m_base = nullptr;
    m_top = nullptr;
    m_linked = false;
    for (const auto &[cid, file] : m_by_cid) {
        file->m_parent = nullptr;
        file->m_child = nullptr;
    }
    bool complete = true;
    for (const auto &[cid, file] : m_by_cid) {
        if (file->is_base()) {
            m_base = file.get();
            m_files.push_back(m_base);
            continue;
        }
        vmdk_file *parent = find_parent(*file);
        complete = complete && parent != nullptr;
        if (parent == nullptr) continue;
        file->m_parent = parent;
        parent->m_child = file.get();
    }
    m_failure = open_failure::incomplete;
    m_failed_path.clear();
    if (m_base == nullptr) return false;
    walk_children();
    if (complete && m_linked) m_failure = open_failure::none;
    return complete;
}

void vmdk_disk::walk_children()
{
    m_top = m_base;
    for (std::size_t left = m_by_cid.size(); m_top->m_child != nullptr; --left) {
        if (left == 0) return;
        m_top = m_top->m_child;
        m_files.push_back(m_top);
    }
    m_linked = has_no_loop();
}

bool vmdk_disk::has_no_loop() const
{
    for (const auto &[cid, file] : m_by_cid) {
        std::size_t left = m_by_cid.size();
        for (const vmdk_file *step = file.get(); step != nullptr; step = step->m_parent)
            if (left-- == 0) return false;
    }
    return true;
}

u64 vmdk_disk::first_volume_offset() const
{
    const vmdk_file *file = m_linked ? find_piece(0, 1).file : nullptr;
    return file == nullptr || file->volume_offsets().empty()
               ? 0
               : file->volume_offsets().front();
}

// A piece ends with the grain of each file that was asked: if their grains differ in
// size, a newer file may hold what follows.
vmdk_disk::piece vmdk_disk::find_piece(u64 offset, u64 max_bytes) const
{
    piece result{nullptr, 0, max_bytes};
    for (const vmdk_file *file = m_top; file != nullptr; file = file->m_parent) {
        result.bytes = std::min(result.bytes, file->rest_of_grain(offset));
        if (file->lookup(offset, result.place)) {
            result.file = file;
            break;
        }
    }
    return result;
}

bool vmdk_disk::read(u8 *buffer, u64 offset, u64 length) const
{
    u64 end = 0;
    if (!m_linked || buffer == nullptr || length == 0) return false;
    if (__builtin_add_overflow(offset, length, &end)) {
        std::fill_n(buffer, length, u8{0});
        return true;
    }
    // Neighbouring grains are mostly contiguous in the file as well, and are read at
    // once.
    for (piece row = find_piece(offset, length); length != 0;) {
        piece next;
        u64 gathered = row.bytes;
        while (gathered < length) {
            next = find_piece(offset + gathered, length - gathered);
            if (!next.continues(row)) break;
            gathered = row.bytes += next.bytes;
        }
        if (row.file == nullptr)
            std::fill_n(buffer, row.bytes, u8{0});
        else if (!row.file->read_row(buffer, row.place, row.bytes))
            read_pieces(buffer, offset, row.bytes);
        buffer += row.bytes;
        offset += row.bytes;
        length -= row.bytes;
        row = next;
    }
    return true;
}

// After a failed read of several pieces: each is read alone, so that damage costs only
// the piece that it is in.
void vmdk_disk::read_pieces(u8 *buffer, u64 offset, u64 length) const
{
    while (length != 0) {
        const piece part = find_piece(offset, length);
        u64 delivered = part.bytes;
        if (part.file == nullptr || !part.file->read(buffer, offset, delivered))
            delivered = 0;
        std::fill(buffer + delivered, buffer + part.bytes, u8{0});
        buffer += part.bytes;
        offset += part.bytes;
        length -= part.bytes;
    }
}

} // namespace hv
