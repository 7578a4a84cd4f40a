#include "security/hv_security_descriptor.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <span>

namespace hv {

namespace {

constexpr std::string_view separator = " | ";
constexpr int column_width = 15;

struct bit_name {
    u32 bit;
    std::string_view name;
};

struct ace_type {
    std::string_view name;
    std::string_view short_name;
    bool has_access_mask; ///< in dumps
};

// The order of each table is that of the names in a text.
// clang-format off
constexpr std::array<bit_name, 14> control_bits = {{
    {0x0001, "SE_OWNER_DEFAULTED"},       {0x0002, "SE_GROUP_DEFAULTED"},
    {0x0004, "SE_DACL_PRESENT"},          {0x0008, "SE_DACL_DEFAULTED"},
    {0x0010, "SE_SACL_PRESENT"},          {0x0020, "SE_SACL_DEFAULTED"},
    {0x0100, "SE_DACL_AUTO_INHERIT_REQ"}, {0x0200, "SE_SACL_AUTO_INHERIT_REQ"},
    {0x0400, "SE_DACL_AUTO_INHERITED"},   {0x0800, "SE_SACL_AUTO_INHERITED"},
    {0x1000, "SE_DACL_PROTECTED"},        {0x2000, "SE_SACL_PROTECTED"},
    {0x4000, "SE_RM_CONTROL_VALID"},      {0x8000, "SE_SELF_RELATIVE"},
}};

constexpr std::array<ace_type, 9> ace_types = {{
    {"ACCESS_ALLOWED_ACE_TYPE",          "access allowed", true},
    {"ACCESS_DENIED_ACE_TYPE",           "access denied",  true},
    {"SYSTEM_AUDIT_ACE_TYPE",            "system audit",   false},
    {"SYSTEM_ALARM_ACE_TYPE",            "system alarm",   false},
    {"ACCESS_ALLOWED_COMPOUND_ACE_TYPE", "access allowed", true},
    {"ACCESS_ALLOWED_OBJECT_ACE_TYPE",   "access allowed", true},
    {"ACCESS_DENIED_OBJECT_ACE_TYPE",    "access denied",  true},
    {"SYSTEM_AUDIT_OBJECT_ACE_TYPE",     "system audit",   false},
    {"SYSTEM_ALARM_OBJECT_ACE_TYPE",     "system alarm",   false},
}};
constexpr ace_type unknown_ace_type = {"unknown", "unknown", false};

constexpr std::array<bit_name, 7> ace_flag_bits = {{
    {0x01, "OBJECT_INHERIT_ACE"},         {0x02, "CONTAINER_INHERIT_ACE"},
    {0x04, "NO_PROPAGATE_INHERIT_ACE"},   {0x80, "FAILED_ACCESS_ACE_FLAG"},
    {0x08, "INHERIT_ONLY_ACE"},           {0x10, "INHERITED_ACE"},
    {0x40, "SUCCESSFUL_ACCESS_ACE_FLAG"},
}};

// The low 16 bits have no names here: their meaning depends on the kind of object.
constexpr std::array<bit_name, 11> mask_bits = {{
    {0x80000000, "GENERIC_READ"},           {0x40000000, "GENERIC_WRITE"},
    {0x20000000, "GENERIC_EXECUTE"},        {0x10000000, "GENERIC_ALL"},
    {0x00010000, "DELETE"},                 {0x00020000, "READ_CONTROL"},
    {0x00040000, "WRITE_DAC"},              {0x00080000, "WRITE_OWNER"},
    {0x00100000, "SYNCHRONIZE"},            {0x01000000, "ACCESS_SYSTEM_SECURITY"},
    {0x02000000, "MAXIMUM_ALLOWED"},
}};
// clang-format on

// The names of the bits that are set, each followed by a separator.
std::string separated_names(u32 value, std::span<const bit_name> names)
{
    std::string text;
    for (const bit_name &known : names)
        if ((value & known.bit) != 0) text.append(known.name).append(separator);
    return text;
}

// The names of the bits that are set, with a separator between them.
std::string joined_names(u32 value, std::span<const bit_name> names)
{
    std::string text = separated_names(value, names);
    if (!text.empty()) text.resize(text.size() - separator.size());
    return text;
}

const ace_type &type_of(byte_view ace)
{
    const u8 type = ace.read_padded<u8>(ace_layout::type.offset);
    return type < ace_types.size() ? ace_types[type] : unknown_ace_type;
}

std::string mask_names(byte_view ace)
{
    return joined_names(ace.read_padded<u32>(ace_layout::access_mask.offset),
                        mask_bits);
}

ace_summary summarize_ace(byte_view ace)
{
    const byte_view sid = sid_at(ace, ace_layout::sid);
    ace_summary summary;
    summary.type = type_of(ace).short_name;
    summary.masks = mask_names(ace);
    sid_to_text(summary.sid, sid);
    sid_to_name(summary.name, sid);
    return summary;
}

// The offset in a header field. A truncated field counts as 0: there is no such part.
u32 offset_in(byte_view descriptor, const labelled_field<u32> &field)
{
    u32 offset = 0;
    descriptor.read(field.offset, offset);
    return offset;
}

// Calls `visit` with "owner" or "group" and the SID's text, for each that the
// descriptor has; the text is empty for a SID that can't be read. Both together never
// take more bytes than the descriptor has: a group that shares the bytes of a long
// owner may come out empty.
template <class Visit> void for_each_sid_text(byte_view descriptor, Visit visit)
{
    u64 budget = descriptor.size();
    for (const auto &field : {descriptor_layout::owner, descriptor_layout::group}) {
        const u32 offset = offset_in(descriptor, field);
        if (offset == 0) continue;
        std::string text;
        if (sid_to_text(text, descriptor.clip(offset, budget)))
            budget -= sid_at(descriptor, offset).size();
        visit(field.offset == descriptor_layout::owner.offset ? "owner" : "group",
              text);
    }
}

void report_acl(std::ostream &out, byte_view descriptor,
                const labelled_field<u32> &field, std::string_view indent,
                std::string_view title)
{
    ace_map aces;
    const u32 offset = offset_in(descriptor, field);
    if (offset == 0 || !collect_acl(aces, descriptor, offset) || aces.empty()) return;
    out << '\n' << indent << title << '\n' << std::left;
    for (const auto &[key, ace] : aces)
        out << indent << std::setw(column_width) << ace.type << ' '
            << std::setw(column_width) << ace.name << ' ' << ace.masks << '\n';
    out << std::right;
}

void write_key(std::ostream &out, std::string_view indent, std::string_view key,
               std::string text)
{
    std::string ampersand = "&"; // one name has it
    replace_first(text, ampersand, "&amp;", false);
    out << indent << '<' << key << '>' << text << "</" << key << ">\n";
}

void write_acl_keys(std::ostream &out, byte_view descriptor,
                    const labelled_field<u32> &field, std::string_view indent,
                    std::string_view key)
{
    ace_map aces;
    const u32 offset = offset_in(descriptor, field);
    if (offset == 0 || !collect_acl(aces, descriptor, offset)) return;
    for (const auto &[sid_and_type, ace] : aces)
        write_key(out, indent, key,
                  ace.type + " " + ace.sid + " [" + ace.name + "] " + ace.masks);
}

} // namespace

bool collect_acl(ace_map &out_aces, byte_view descriptor, u32 acl_offset)
{
    out_aces.clear();
    return for_each_ace(descriptor.from(acl_offset), [&](byte_view ace) {
        ace_summary summary = summarize_ace(ace);
        const auto [known, is_new] = out_aces.try_emplace(summary.sid + summary.type);
        if (is_new)
            known->second = std::move(summary);
        else
            known->second.masks.append(separator).append(summary.masks);
    });
}

bool owner_sid_text(std::string &out_text, byte_view descriptor)
{
    const u32 offset = offset_in(descriptor, descriptor_layout::owner);
    return sid_to_text(out_text, offset == 0 ? byte_view{} : descriptor.from(offset));
}

void report_descriptor(std::ostream &out, byte_view descriptor, std::string_view indent)
{
    out << indent << "Security Identifiers\n";
    for_each_sid_text(descriptor, [&](std::string_view whose, const std::string &text) {
        out << indent << whose << " sid [" << text << "]\n";
    });
    report_acl(out, descriptor, descriptor_layout::sacl, indent,
               "System Access Control List");
    report_acl(out, descriptor, descriptor_layout::dacl, indent,
               "Discretionary Access Control List");
}

void write_descriptor_keys(std::ostream &out, byte_view descriptor,
                           std::string_view indent)
{
    for_each_sid_text(descriptor, [&](std::string_view whose, const std::string &text) {
        write_key(out, indent, std::string(whose) + "_sid", text);
    });
    write_acl_keys(out, descriptor, descriptor_layout::sacl, indent, "sacl");
    write_acl_keys(out, descriptor, descriptor_layout::dacl, indent, "dacl");
}

void dump_descriptor(std::ostream &out, byte_view descriptor)
{
    using namespace descriptor_layout;
    const std::string flags =
        separated_names(descriptor.read_padded<u16>(control.offset), control_bits);
    out << "- Security Descriptor -\n";
    dump_field(out, descriptor, revision);
    dump_field(out, descriptor, padding);
    dump_field(out, descriptor, control, " [ " + flags + " ] ");
    for (const auto &field : {owner, group, sacl, dacl})
        dump_field(out, descriptor, field);
}

void dump_ace(std::ostream &out, byte_view ace)
{
    using namespace ace_layout;
    const ace_type &known = type_of(ace);
    const u8 flag_bits = ace.read_padded<u8>(flags.offset);
    out << "- ACE -\n";
    dump_field(out, ace, type, " " + std::string(known.name));
    dump_field(out, ace, flags, " ( " + joined_names(flag_bits, ace_flag_bits) + " )");
    dump_field(out, ace, size);
    if (known.has_access_mask)
        dump_field(out, ace, access_mask, " ( " + mask_names(ace) + " )");
    dump_sid(out, sid_at(ace, sid));
}

void dump_acl(std::ostream &out, byte_view acl)
{
    using namespace acl_layout;
    out << "- ACL -\n";
    dump_field(out, acl, revision);
    dump_field(out, acl, padding);
    dump_field(out, acl, size);
    dump_field(out, acl, ace_count);
    dump_field(out, acl, padding_end);
    for_each_ace(acl, [&](byte_view ace) { dump_ace(out, ace); });
}

} // namespace hv
