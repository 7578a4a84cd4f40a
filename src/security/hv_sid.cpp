#include "security/hv_sid.h"

#include <algorithm>
#include <array>
#include <span>

namespace hv {

namespace {

constexpr std::string_view unknown_name = "unk";

struct numbered_name {
    u32 number;
    std::string_view name;
};

// clang-format off
constexpr std::array<std::string_view, 6> authority_names = {
    "Null Authority", "World Authority", "Local Authority", "Creator Authority",
    "Non Unique Authority", "NT Authority"};

constexpr std::array<numbered_name, 4> creators = {{
    {0, "Owner"}, {1, "Group"}, {2, "Owner Server"}, {3, "Group Server"},
}};

constexpr std::array<numbered_name, 18> nt_accounts = {{
    { 1, "Dialup"},                            { 2, "Network"},
    { 3, "Batch"},                             { 4, "Interactive"},
    { 5, "Logon Ids"},                         { 6, "Service"},
    { 7, "Anonymous Logon"},                   { 8, "Proxy"},
    { 9, "Server Logon [Domain Controllers]"}, {10, "Principal Self"},
    {11, "Authenticated User"},                {12, "Restricted Code"},
    {13, "Terminal Server Users"},             {18, "Local System"},
    {19, "Local Service"},                     {20, "Network Service"},
    {21, "NT Non Unique"},                     {32, "Builtin Domain"},
}};

// Readers compare these names byte for byte; the misspelling "Creater" stays.
constexpr std::array<numbered_name, 31> rids = {{
    {500, "User Admin"},                         {501, "User Guest"},
    {502, "KRBTGT [key distrib center]"},        {512, "Domain Admin"},
    {513, "Domain Users"},                       {514, "Domain Guests"},
    {515, "Domain Computers"},                   {516, "Domain Controllers"},
    {517, "Domain Certificate Publishers"},      {518, "Domain Schema Admins"},
    {519, "Domain Server Admins"},               {520, "Domain Policy Creater/Owner"},
    {533, "Domain RAS & IAS Servers"},           {544, "Admins"},
    {545, "Users"},                              {546, "Guests"},
    {547, "Power Users"},                        {548, "Account Operators"},
    {549, "Server Operators"},                   {550, "Print Operators"},
    {551, "Backup Operators"},                   {552, "Replicators"},
    {553, "RAS Services"},                       {554, "Pre Win2k Compatible Access"},
    {555, "Remote Desktop Users"},               {556, "Network Configuration Operators"},
    {557, "Incoming Trust Forest Builders"},     {558, "Performance Monitor Users"},
    {559, "Performance Log Users"},              {560, "Windows Authorization Access Group"},
    {561, "Terminal Server License Servers"},
}};
// clang-format on

std::string_view find_name(std::span<const numbered_name> names, u32 number)
{
    const auto found = std::ranges::find(names, number, &numbered_name::number);
    return found == names.end() ? unknown_name : found->name;
}

// Authorities in use are small numbers: the last byte identifies them.
u8 authority_of(byte_view sid)
{
    return sid.read_padded<u8>(sid_layout::authority_end - 1);
}

std::string_view authority_name(u8 authority)
{
    return authority < authority_names.size() ? authority_names[authority]
                                              : unknown_name;
}

// The name of a SID with a single subauthority.
std::string_view single_name(u8 authority, u32 subauthority)
{
    switch (authority) {
    case 0: return "null";
    case 1: return "World";
    case 2: return "Local";
    case 3: return find_name(creators, subauthority);
    case 5: return find_name(nt_accounts, subauthority);
    default: return unknown_name;
    }
}

u64 count_of(byte_view sid)
{
    return sid.read_padded<u8>(sid_layout::count.offset);
}

u64 size_of(byte_view sid)
{
    return sid_layout::subauthority + sizeof(u32) * count_of(sid);
}

u32 subauthority_of(byte_view sid, u64 index)
{
    return sid.read_padded<u32>(sid_layout::subauthority + sizeof(u32) * index);
}

} // namespace

byte_view sid_at(byte_view bytes, u64 at)
{
    const byte_view rest = bytes.from(at);
    return rest.clip(0, size_of(rest));
}

bool sid_to_text(std::string &out_text, byte_view sid)
{
    out_text.clear();
    if (sid.size() < sid_layout::min_size || size_of(sid) > sid.size()) return false;
    const u8 revision = sid.read_padded<u8>(sid_layout::revision.offset);
    out_text =
        "S-" + std::to_string(revision) + "-" + std::to_string(authority_of(sid));
    for (u64 i = 0; i < count_of(sid); ++i)
        out_text += "-" + std::to_string(subauthority_of(sid, i));
    return true;
}

void sid_to_name(std::string &out_name, byte_view sid)
{
    const u64 count = count_of(sid);
    if (count == 0 || size_of(sid) > sid.size())
        out_name = unknown_name;
    else if (count == 1)
        out_name = single_name(authority_of(sid), subauthority_of(sid, 0));
    else
        out_name = find_name(rids, subauthority_of(sid, count - 1));
}

void dump_sid(std::ostream &out, byte_view sid)
{
    std::string text;
    sid_to_text(text, sid);
    out << "sid [" << text << "]\n";
    dump_field(out, sid, sid_layout::revision);
    dump_field(out, sid, sid_layout::count);
    if (!sid.fits(0, sid_layout::authority_end)) return;
    out << sid_layout::authority_label;
    for (std::size_t at = sid_layout::authority; at < sid_layout::authority_end; ++at)
        out << hex_digits(sid.read_padded<u8>(at), 2);
    out << ' ' << authority_name(authority_of(sid)) << '\n';
    for (u64 i = 0; i < count_of(sid); ++i)
        dump_field(out, sid,
                   labelled_field<u32>{sid_layout::subauthority + sizeof(u32) * i,
                                       sid_layout::subauthority_label});
}

} // namespace hv
