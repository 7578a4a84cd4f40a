#include "evidence/carve.h"

#include "ntfs/hv_file_record.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace hv {

namespace {

constexpr u64 sector = 512;
// A structure that begins here ends within this many bytes: the largest are index
// blocks, and contents of `$I` files with the longest paths that Windows knows.
constexpr u64 max_structure = 129 * sector;
// Small enough for the fastest cache: all searches of a piece read the same bytes.
constexpr u64 piece_size = 64 * sector;

constexpr u64 min_block = 512;
constexpr u64 max_block = 65536;
constexpr u16 old_fixup_offset = 42;
constexpr u16 min_index_fixup_offset = 40;

// Tests of all bytes are compiled twice, and the processor chooses.
#if defined(__x86_64__) && defined(__linux__) && !defined(__SANITIZE_ADDRESS__) &&     \
    !defined(__clang__)
#define VESKIT_WIDE_VECTORS __attribute__((target_clones("avx2", "default")))
#else
#define VESKIT_WIDE_VECTORS
#endif

constexpr std::size_t words_of_sector = sector / sizeof(u32);

// The update sequence of a block, as its header states it.
struct block_form {
    u64 size = 0; // bytes of the block
    u16 fixup_offset = 0;
    u16 fixup_count = 0;
    u32 step = 0; // bytes from one tail to the next
};

bool is_block_size(u64 size)
{
    return size >= min_block && size <= max_block && std::has_single_bit(size);
}

bool has_array_of(const block_form &form)
{
    return form.fixup_count > 1 && form.step >= sector && form.step <= form.size &&
           (form.fixup_count - 1) * u64{form.step} == form.size;
}

bool read_record_form(block_form &form, byte_view bytes)
{
    fixed_view<file_record::header_size> header;
    if (!bytes.fixed(0, header)) return false;
    form.size = header.get<file_record::bytes_allocated>();
    form.fixup_offset = header.get<file_record::fixup_offset>();
    form.fixup_count = header.get<file_record::fixup_count>();
    if (!is_block_size(form.size) || form.fixup_count < 2) return false;
    form.step = static_cast<u32>(form.size / (form.fixup_count - 1u));
    const u64 first = header.get<file_record::first_attribute>();
    return has_array_of(form) &&
           (form.fixup_offset == file_record::required_fixup_offset ||
            form.fixup_offset == old_fixup_offset) &&
           first >= form.fixup_offset + u64{2} * form.fixup_count && first < form.size;
}

bool read_index_form(block_form &form, byte_view bytes)
{
    form.fixup_offset = bytes.read_padded<u16>(index_block::fixup_offset);
    form.fixup_count = bytes.read_padded<u16>(index_block::fixup_count);
    if (form.fixup_count < 2) return false;
    form.step = sector;
    form.size = (form.fixup_count - 1u) * sector;
    const u64 used =
        bytes.read_padded<u32>(index_block::header + index_header::bytes_in_use);
    return is_block_size(form.size) && has_array_of(form) &&
           form.fixup_offset >= min_index_fixup_offset &&
           form.fixup_offset + u64{2} * form.fixup_count <= sector &&
           index_block::header + used <= form.size;
}

// True if all tails have the check value.
bool tails_match(byte_view block, const block_form &form)
{
    const u16 check = block.read_padded<u16>(form.fixup_offset);
    for (u64 end = form.step; end <= block.size(); end += form.step)
        if (block.read_padded<u16>(end - sizeof(u16)) != check) return false;
    return true;
}

// Puts back what belongs to the tails that have the check value. Other tails are of
// another write, and the bytes are their own.
void restore_own_tails(std::vector<u8> &block, const block_form &form)
{
    const byte_view bytes{block};
    const u16 check = bytes.read_padded<u16>(form.fixup_offset);
    u64 kept = form.fixup_offset;
    for (u64 end = form.step; end <= block.size(); end += form.step) {
        kept += sizeof(check);
        if (bytes.read_padded<u16>(end - 2) != check) continue;
        block[end - 2] = bytes.read_padded<u8>(kept);
        block[end - 1] = bytes.read_padded<u8>(kept + 1);
    }
}

bool begins_block(byte_view bytes)
{
    block_form form;
    const bool is_block =
        (has_signature(bytes, file_record::signature) &&
         read_record_form(form, bytes)) ||
        (has_signature(bytes, index_block::signature) && read_index_form(form, bytes));
    return is_block && tails_match(bytes.clip(0, form.step), form);
}

// The block up to where another begins, or the bytes end. Blocks are written with the
// same few check values, so these don't tell their sectors from each other.
byte_view own_part(byte_view bytes, const block_form &form)
{
    const byte_view block = bytes.clip(0, form.size);
    u64 end = form.step;
    while (end < block.size() && !begins_block(bytes.from(end))) end += form.step;
    return block.clip(0, end);
}

// Copies a block, as much of it as there is, and undoes its update sequence.
carved_block restored(std::vector<u8> &copy, byte_view bytes, u64 position,
                      const block_form &form)
{
    const byte_view block = own_part(bytes, form);
    copy.assign(block.bytes().begin(), block.bytes().end());
    const bool is_torn = block.size() < form.size || !tails_match(block, form);
    restore_own_tails(copy, form);
    return {.position = position, .bytes = byte_view{copy}, .is_torn = is_torn};
}

// Whether any eighth byte of a sector is followed by the version of a line of a
// journal. It is asked of all bytes of a medium, so it has no branches.
VESKIT_WIDE_VECTORS bool may_hold_journal(const u8 *bytes)
{
    std::array<u32, words_of_sector> words{};
    std::memcpy(words.data(), bytes, sector);
    constexpr bool is_little = std::endian::native == std::endian::little;
    constexpr u32 version_2 = is_little ? 2 : 0x0200'0000;
    constexpr u32 version_3 = is_little ? 3 : 0x0300'0000;
    u32 found = 0;
    for (std::size_t i = 1; i < words.size(); i += 2)
        found |= static_cast<u32>(words[i] == version_2) |
                 static_cast<u32>(words[i] == version_3);
    return found != 0;
}

// Whether the path of a record of a list may begin in a sector, by what is beside each
// backslash; see `for_each_list_start`. A byte before the sector and one after it have
// to be there. Also asked of all bytes of a medium.
VESKIT_WIDE_VECTORS bool may_hold_list_path(const u8 *bytes)
{
    u8 found = 0;
    for (std::size_t i = 0; i < sector; ++i) {
        const u8 *const here = bytes + i;
        const u8 is_path = static_cast<u8>(here[-1] == ':') |
                           static_cast<u8>(here[-1] == 0) |
                           static_cast<u8>(here[1] == '\\');
        found |= static_cast<u8>(is_path & static_cast<u8>(here[0] == '\\'));
    }
    return found != 0;
}

// Asks for a sector of the page after this one. Processors fetch bytes before they are
// needed, but only within a page.
void fetch_ahead(byte_view bytes, u64 at)
{
    constexpr u64 page = 4096, line = 64;
    const byte_view wanted = bytes.clip(at + page, sector);
    for (u64 i = 0; i < wanted.size(); i += line)
        __builtin_prefetch(wanted.bytes().data() + i);
}

bool is_zero_sector(const u8 *bytes)
{
    u64 first = 0;
    std::memcpy(&first, bytes, sizeof(first));
    return first == 0 &&
           std::memcmp(bytes, bytes + sizeof(first), sector - sizeof(first)) == 0;
}

// Whether a sector begins like anything that `search_sector` takes.
bool may_begin_structure(byte_view bytes)
{
    const u32 first = bytes.read_padded<u32>(0);
    const u32 record_size = bytes.read_padded<u32>(list_header::record_size.offset);
    return first == 1 || first == 2 || record_size == list_record::size ||
           record_size == list_record::short_size ||
           has_signature(bytes, file_record::signature) ||
           has_signature(bytes, file_record::bad_signature) ||
           has_signature(bytes, index_block::signature);
}

// The places where a record of a list may begin, by the backslash in its 8-bit path:
// that of "C:\", which is the third byte, and the first or, if the record is struck,
// the second of a server's path.
template <class Visit> void for_each_list_start(byte_view bytes, u64 slash, Visit visit)
{
    if (slash >= 2 && bytes.read_padded<u8>(slash - 1) == ':') visit(slash - 2);
    if (bytes.read_padded<u8>(slash + 1) == '\\') visit(slash);
    if (slash >= 1 && bytes.read_padded<u8>(slash - 1) == 0) visit(slash - 1);
}

// Asked of many places before anything else: the highest byte of times from 1829 to
// 2285, where a record that begins at `start` has its time.
bool may_have_time(byte_view bytes, u64 start)
{
    const u8 highest = bytes.read_padded<u8>(start + list_record::deleted_time.offset +
                                             sizeof(u64) - 1);
    return highest == 1 || highest == 2;
}

} // namespace

void carver::carve(byte_view bytes, u64 position)
{
    if (!m_kept.empty() && m_kept_position + m_kept.size() != position) finish();
    if (m_kept.empty()) m_kept_position = position;
    if (!m_kept.empty()) {
        const u64 end = m_kept.size();
        keep(bytes.clip(0, 2 * max_structure));
        if (bytes.size() <= 2 * max_structure) {
            // Short stretches are gathered, so that their bytes move seldom.
            if (m_kept.size() < 4 * max_structure) return;
            const u64 done = m_kept.size() - max_structure;
            const u64 whole = done / sector * sector;
            search({byte_view{m_kept}, m_kept_position}, whole);
            m_kept.erase(m_kept.begin(),
                         m_kept.begin() + static_cast<std::ptrdiff_t>(whole));
            m_kept_position += whole;
            return;
        }
        search({byte_view{m_kept}, m_kept_position}, end);
        m_kept.clear();
    }
    const u64 done = bytes.size() < max_structure ? 0 : bytes.size() - max_structure;
    const u64 whole = done / sector * sector;
    search({bytes, position}, whole);
    m_kept_position = position + whole;
    keep(bytes.from(whole));
}

void carver::finish()
{
    search({byte_view{m_kept}, m_kept_position}, m_kept.size());
    m_kept.clear();
    m_expected.clear();
    m_records.clear();
    m_list_from = 0;
    m_journal_from = 0;
}

void carver::keep(byte_view bytes)
{
    m_kept.insert(m_kept.end(), bytes.bytes().begin(), bytes.bytes().end());
}

// Reports what begins before `end`; it may end after it.
void carver::search(const stretch &in, u64 end)
{
    for (u64 begin = 0; begin < end; begin += piece_size) {
        const u64 piece_end = std::min(begin + piece_size, end);
        search_sectors(in, begin, piece_end);
        search_lists(in, begin, piece_end);
        const u64 searched = in.position + piece_end;
        std::erase_if(m_records, [searched](const auto &record) {
            return record.second <= searched;
        });
    }
}

bool carver::is_in_record(u64 position) const
{
    return std::ranges::any_of(m_records, [position](const auto &record) {
        return position >= record.first && position < record.second;
    });
}

void carver::search_sectors(const stretch &in, u64 begin, u64 end)
{
    for (u64 at = begin; at < end; at += sector) {
        byte_view bytes;
        const bool is_whole = in.bytes.sub(at, sector, bytes);
        fetch_ahead(in.bytes, at);
        if (is_whole && is_zero_sector(bytes.bytes().data())) continue;
        const bool may_be_journal = !is_whole || may_hold_journal(bytes.bytes().data());
        const bool may_be_structure = may_begin_structure(in.bytes.from(at));
        // Most sectors have nothing of all this.
        if (!may_be_journal && !may_be_structure) continue;
        if (!m_records.empty() && is_in_record(in.position + at)) continue;
        if (may_be_structure) search_sector(in, at);
        if (may_be_journal) search_journal(in, at);
    }
}

void carver::search_sector(const stretch &in, u64 at)
{
    const byte_view bytes = in.bytes.from(at);
    const u64 version = bytes.read_padded<u64>(0);
    if (has_signature(bytes, file_record::signature) ||
        has_signature(bytes, file_record::bad_signature)) {
        take_record(in, at);
    } else if (has_signature(bytes, index_block::signature)) {
        take_index_block(in, at);
    } else if (version == 1 || version == 2) {
        deleted_file file;
        if (recognize_dollar_i(file, bytes))
            m_sink.found_metadata(in.position + at, file);
    }
    metadata_format list{};
    if (recognize_list_header(list, bytes))
        m_expected.emplace(in.position + at + list_header::size, list);
}

void carver::take_record(const stretch &in, u64 at)
{
    const byte_view bytes = in.bytes.from(at);
    block_form form;
    if (!read_record_form(form, bytes)) return;
    carved_block record = restored(m_block, bytes, in.position + at, form);
    // The system marks a record like this when it finds it torn.
    if (has_signature(bytes, file_record::bad_signature)) record.is_torn = true;
    if (!record.is_torn)
        m_records.emplace_back(record.position, record.position + form.size);
    m_sink.found_record(record);
}

void carver::take_index_block(const stretch &in, u64 at)
{
    const byte_view bytes = in.bytes.from(at);
    block_form form;
    if (!read_index_form(form, bytes)) return;
    m_sink.found_index_block(restored(m_block, bytes, in.position + at, form));
}

void carver::search_journal(const stretch &in, u64 at)
{
    const u64 end = std::min<u64>(at + sector, in.bytes.size());
    while (at < end) {
        const u64 position = in.position + at;
        journal_record record;
        const u16 version =
            in.bytes.read_padded<u16>(at + journal_head::version.offset);
        const bool found =
            position >= m_journal_from && (version == 2 || version == 3) &&
            recognize_journal_record(record, in.bytes.from(at), position);
        if (found) {
            m_sink.found_journal_record(position, record);
            m_journal_from = position + record.length;
        }
        at += found ? record.length : journal_step;
    }
}

void carver::take_list_record(const stretch &in, u64 at,
                              std::optional<metadata_format> list)
{
    const u64 position = in.position + at;
    deleted_file file;
    if (position < m_list_from || !may_be_list_record(in.bytes, at) ||
        is_in_record(position) || !recognize_list_record(file, in.bytes.from(at), list))
        return;
    m_sink.found_metadata(position, file);
    m_list_from = position + file.length;
    m_expected.insert_or_assign(position + list_record_size(file.format), file.format);
}

// The records that should begin before `end`, by a head or by a record before them.
void carver::search_expected(const stretch &in, u64 end)
{
    while (!m_expected.empty() && m_expected.begin()->first < in.position + end) {
        const auto [position, list] = *m_expected.begin();
        m_expected.erase(m_expected.begin());
        if (position >= in.position) take_list_record(in, position - in.position, list);
    }
}

void carver::search_lists(const stretch &in, u64 begin, u64 end)
{
    // The backslash of a record's path is up to two bytes after its beginning.
    const u64 last = std::min<u64>(end + 2, in.bytes.size());
    const u8 *const data = in.bytes.bytes().data();
    const auto take_start = [&](u64 start) {
        if (start < begin || start >= end || !may_have_time(in.bytes, start) ||
            !may_be_list_record(in.bytes, start))
            return;
        search_expected(in, start + 1);
        take_list_record(in, start, {});
    };
    for (u64 part = begin; part < last; part += sector) {
        const bool has_neighbours = part > 0 && in.bytes.fits(part, sector + 1);
        if (has_neighbours && !may_hold_list_path(data + part)) continue;
        const u64 part_end = std::min(part + sector, last);
        for (u64 at = part; at < part_end; ++at) {
            const void *slash = std::memchr(data + at, '\\', part_end - at);
            if (slash == nullptr) break;
            at = static_cast<u64>(static_cast<const u8 *>(slash) - data);
            for_each_list_start(in.bytes, at, take_start);
        }
    }
    search_expected(in, end);
}

} // namespace hv
