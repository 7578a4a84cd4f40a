#include "records/inode_store.h"

#include <array>

namespace hv {

namespace {

constexpr u32 no_extras = ~u32{0};

// Longer names aren't packed, as the arena would cut them. No real one is this long.
constexpr std::size_t max_packed_name = std::size_t{64} << 10;

// A packed record is the length of its name, the name, and its numbers, each in as many
// bytes as it needs: seven bits in a byte, the lowest first, the last byte below 128.
constexpr unsigned bits_in_byte = 7;
constexpr u8 more_follow = 0x80;

class number_writer {
public:
    void add(u64 number)
    {
        for (; number >= more_follow; number >>= bits_in_byte)
            m_bytes[m_size++] = static_cast<char>(number | more_follow);
        m_bytes[m_size++] = static_cast<char>(number);
    }
    // Small if the numbers are near each other, whichever is the larger one.
    void add_difference(u64 number, u64 from)
    {
        const u64 difference = number - from;
        add(difference << 1 ^ (difference >> 63 != 0 ? ~u64{0} : 0));
    }
    std::string_view text() const { return {m_bytes.data(), m_size}; }

private:
    static constexpr std::size_t max_numbers = 10;
    static constexpr std::size_t max_bytes = 10; // of 64 bits
    std::array<char, max_numbers * max_bytes> m_bytes{};
    std::size_t m_size = 0;
};

class number_reader {
public:
    explicit number_reader(std::string_view bytes) : m_bytes(bytes) {}
    u64 next()
    {
        u64 number = 0;
        for (unsigned shift = 0;; shift += bits_in_byte) {
            const u8 byte = static_cast<u8>(m_bytes[m_at++]);
            number |= u64{static_cast<u8>(byte & ~more_follow)} << shift;
            if (byte < more_follow) return number;
        }
    }
    u64 next_from(u64 from)
    {
        const u64 number = next();
        return from + (number >> 1 ^ ((number & 1) != 0 ? ~u64{0} : 0));
    }
    std::size_t position() const { return m_at; }

private:
    std::string_view m_bytes;
    std::size_t m_at = 0;
};

// Where a record of an $MFT is, if its records follow each other from the start.
u64 usual_position(u64 entry)
{
    constexpr u64 usual_record = 1024;
    return entry * usual_record;
}

} // namespace

u64 inode_store::add()
{
    place &where = m_places.emplace_back();
    where.offset = m_records.size() & text_arena::offset_mask;
    m_records.emplace_back();
    return m_places.size() - 1;
}

u64 inode_store::add_packed(const inode_record &record, std::string_view name)
{
    if (name.size() > max_packed_name) {
        const u64 index = add();
        edit(index) = record;
        set_name(index, name);
        return index;
    }
    number_writer head;
    head.add(name.size());
    number_writer numbers;
    numbers.add(record.entry);
    numbers.add(record.first_parent + 1); // none becomes 0
    numbers.add(u64{record.sequence} << 2 | u64{record.in_use} << 1 |
                u64{record.is_directory});
    numbers.add_difference(record.position, usual_position(record.entry));
    numbers.add(record.si_created);
    numbers.add_difference(record.si_modified, record.si_created);
    numbers.add_difference(record.si_mft_changed, record.si_modified);
    numbers.add_difference(record.si_accessed, record.si_created);
    numbers.add(record.real_size);
    m_places.push_back(m_texts.add({head.text(), name, numbers.text()}));
    return m_places.size() - 1;
}

inode_record inode_store::unpack(place where) const
{
    const std::string_view bytes = m_texts.get(where);
    number_reader head(bytes);
    const u64 name_length = head.next();
    inode_record record;
    record.name.offset = (where.offset + head.position()) & text_arena::offset_mask;
    record.name.length = name_length & text_arena::length_mask;
    number_reader numbers(bytes.substr(head.position() + name_length));
    record.entry = numbers.next();
    record.first_parent = numbers.next() - 1;
    const u64 facts = numbers.next();
    record.sequence = static_cast<u16>(facts >> 2);
    record.in_use = (facts >> 1 & 1) != 0;
    record.is_directory = (facts & 1) != 0;
    record.position = numbers.next_from(usual_position(record.entry));
    record.si_created = numbers.next();
    record.si_modified = numbers.next_from(record.si_created);
    record.si_mft_changed = numbers.next_from(record.si_modified);
    record.si_accessed = numbers.next_from(record.si_created);
    record.real_size = numbers.next();
    return record;
}

inode_record inode_store::operator[](u64 index) const
{
    const place where = m_places[index];
    return is_packed(where) ? unpack(where) : m_records[where.offset];
}

inode_record &inode_store::edit(u64 index)
{
    place &where = m_places[index];
    if (!is_packed(where)) return m_records[where.offset];
    inode_record &record = m_records.emplace_back(unpack(where));
    where.length = 0;
    where.offset = (m_records.size() - 1) & text_arena::offset_mask;
    return record;
}

std::string_view inode_store::name(u64 index) const
{
    const place where = m_places[index];
    if (!is_packed(where)) return m_texts.get(m_records[where.offset].name);
    const std::string_view bytes = m_texts.get(where);
    number_reader head(bytes);
    const u64 length = head.next();
    return bytes.substr(head.position(), length);
}

std::string_view inode_store::path(u64 index) const
{
    const place where = m_places[index];
    if (is_packed(where)) return {};
    return m_texts.get(m_records[where.offset].path);
}

void inode_store::set_name(u64 index, std::string_view name)
{
    edit(index).name = m_texts.add({name});
}

void inode_store::set_path(u64 index, std::string_view path)
{
    edit(index).path = m_texts.add({path});
}

record_extras &inode_store::extras(u64 index)
{
    inode_record &record = edit(index);
    if (record.extras == no_extras) {
        record.extras = static_cast<u32>(m_extras.size());
        m_extras.emplace_back();
    }
    return m_extras[record.extras];
}

const record_extras &inode_store::extras_or_blank(u64 index) const
{
    static const record_extras blank;
    const place where = m_places[index];
    const u32 extras = is_packed(where) ? no_extras : m_records[where.offset].extras;
    return extras == no_extras ? blank : m_extras[extras];
}

} // namespace hv
