#include "evidence/slack.h"

#include "ntfs/hv_file_record.h"

#include <algorithm>

namespace hv {

namespace {

// Attributes, their contents and index entries begin at multiples of this.
constexpr u64 content_step = 8;
// Records of a resident list follow a header of 20 bytes.
constexpr u64 list_step = 4;
// Bytes of a $FILE_NAME that may be written over: the parent and the first two times.
constexpr u64 max_lost_bytes = 24;
constexpr u8 highest_name_space = 3;
constexpr u32 directory_flags = 0x1000'0010;
constexpr u64 max_file_size = u64{1} << 56;

u64 round_up(u64 value, u64 unit)
{
    return (value + unit - 1) / unit * unit;
}

entry_id id_of(u64 reference)
{
    return {reference_entry(reference), reference_sequence(reference)};
}

bool is_name_unit(char16_t unit)
{
    return unit >= 0x20 && unit != '/' && unit != '\\' && unit != ':';
}

// A $FILE_NAME at `at`, of which the bytes before `slack` are written over.
class lost_name {
public:
    lost_name(byte_view block, u64 slack, u64 at)
        : m_block(block),
          m_slack(slack),
          m_at(at)
    {
    }

    // False, with `out` in any state, if there is surely none.
    bool read(slack_name &out) const
    {
        return read_times(out.times) && read_text(out.name) && read_parent(out) &&
               read_sizes(out);
    }

private:
    bool is_left(u64 offset) const { return m_at + offset >= m_slack; }

    u64 number(u64 offset) const
    {
        return is_left(offset) ? m_block.read_padded<u64>(m_at + offset) : 0;
    }

    // When a record was changed is set by the system alone; programs set the other
    // times, to any moment. One more of them has to be believable.
    bool read_times(record_times &times) const
    {
        times = {.created = number(file_name::created),
                 .modified = number(file_name::modified),
                 .record_changed = number(file_name::mft_changed),
                 .accessed = number(file_name::accessed)};
        return is_believable_time(times.record_changed) &&
               (is_believable_time(times.created) ||
                is_believable_time(times.modified) ||
                is_believable_time(times.accessed));
    }

    bool read_text(std::u16string &name) const
    {
        const u64 units = m_block.read_padded<u8>(m_at + file_name::name_length);
        byte_view bytes;
        if (units == 0 ||
            m_block.read_padded<u8>(m_at + file_name::name_space) >
                highest_name_space ||
            !m_block.sub(m_at + file_name::name, 2 * units, bytes))
            return false;
        u16 unit = 0;
        for (u64 at = 0; bytes.read(at, unit); at += sizeof(unit)) name.push_back(unit);
        return std::ranges::all_of(name, is_name_unit);
    }

    bool read_parent(slack_name &out) const
    {
        if (!is_left(file_name::parent)) return true;
        const u64 parent = number(file_name::parent);
        out.parent = id_of(parent);
        if (reference_entry(parent) == 0 || reference_sequence(parent) == 0)
            return false;
        read_entry(out);
        return true;
    }

    // The head of an index entry before the name. Other structures have no two lengths
    // there that match the name.
    void read_entry(slack_name &out) const
    {
        using namespace index_entry_layout;
        if (m_at < m_slack + content) return;
        const u64 start = m_at - content;
        const u64 name_end = file_name::name + 2 * out.name.size();
        const u64 reference = m_block.read_padded<u64>(start);
        const u64 whole = m_block.read_padded<u16>(start + length);
        const u64 least = round_up(content + name_end, content_step);
        if (m_block.read_padded<u16>(start + content_length) == name_end &&
            whole >= least && whole <= least + sizeof(u64) &&
            reference_sequence(reference) != 0)
            out.entry = id_of(reference);
    }

    bool read_sizes(slack_name &out) const
    {
        out.data_size = number(file_name::real_size);
        out.is_directory =
            (m_block.read_padded<u32>(m_at + file_name::flags) & directory_flags) != 0;
        out.length = file_name::name + 2 * out.name.size();
        return out.data_size < max_file_size;
    }

    byte_view m_block;
    u64 m_slack;
    u64 m_at;
};

void search_names(byte_view block, u64 slack, carve_sink &sink)
{
    u64 at = round_up(slack, content_step);
    at -= std::min(at, max_lost_bytes);
    while (block.fits(at, file_name::name)) {
        slack_name name;
        const bool found = lost_name(block, slack, at).read(name);
        if (found) sink.found_name(at, name);
        at += found ? round_up(name.length, content_step) : content_step;
    }
}

void search_dollar_i(byte_view record, u64 slack, carve_sink &sink)
{
    for (u64 at = round_up(slack, content_step); at < record.size();
         at += content_step) {
        deleted_file file;
        if (recognize_dollar_i(file, record.from(at))) sink.found_metadata(at, file);
    }
}

void search_list_records(byte_view record, u64 slack, carve_sink &sink)
{
    u64 at = round_up(slack, list_step);
    std::optional<metadata_format> list;
    while (may_be_list_record(record, at) || record.fits(at, list_record::short_size)) {
        metadata_format format{};
        if (recognize_list_header(format, record.from(at))) list = format;
        deleted_file file;
        const bool found = recognize_list_record(file, record.from(at), list);
        if (found) sink.found_metadata(at, file);
        at += found ? file.length : list_step;
    }
}

// Where the walk over the live entries of a block ends: after the last entry, or at one
// that can't be right.
u64 end_of_entries(byte_view block)
{
    using namespace index_entry_layout;
    constexpr u16 flag_last = 2;
    u64 at =
        index_block::header +
        u64{block.read_padded<u32>(index_block::header + index_header::first_entry)};
    while (block.fits(at, content)) {
        const u64 whole = block.read_padded<u16>(at + length);
        if (whole < content || !block.fits(at, whole)) return at;
        const bool is_last = (block.read_padded<u16>(at + flags) & flag_last) != 0;
        at += whole;
        if (is_last) return at;
    }
    return at;
}

} // namespace

void search_record_slack(byte_view record, carve_sink &sink)
{
    const u64 used = record.read_padded<u32>(file_record::bytes_in_use.offset);
    if (used < file_record::header_size || used >= record.size()) return;
    search_dollar_i(record, used, sink);
    search_list_records(record, used, sink);
    search_names(record, used, sink);
}

void search_index_slack(byte_view block, carve_sink &sink)
{
    const u64 used =
        index_block::header +
        u64{block.read_padded<u32>(index_block::header + index_header::bytes_in_use)};
    // Where the two disagree, entries that may be live are reported as well.
    search_names(block, std::min(used, end_of_entries(block)), sink);
}

} // namespace hv
