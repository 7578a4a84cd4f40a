#include "hives/regf_reader.h"

#include "base/hv_byte_view.h"
#include "media/bfio_handle.h"

#include <algorithm>
#include <libbfio.h>
#include <libregf.h>
#include <memory>
#include <string_view>
#include <vector>

namespace hv {

namespace {

// A name that is declared can't be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define LIBRARY_FUNCTION(name)                                                         \
    decltype(&::name) name = loaded.function<decltype(&::name)>(#name)
// NOLINTEND(bugprone-macro-parentheses)

struct regf_library {
    shared_object loaded{"libregf.so.1"};
    LIBRARY_FUNCTION(libregf_file_free);
    LIBRARY_FUNCTION(libregf_file_get_root_key);
    LIBRARY_FUNCTION(libregf_file_initialize);
    LIBRARY_FUNCTION(libregf_file_open_file_io_handle);
    LIBRARY_FUNCTION(libregf_get_access_flags_read);
    LIBRARY_FUNCTION(libregf_key_free);
    LIBRARY_FUNCTION(libregf_key_get_number_of_sub_keys);
    LIBRARY_FUNCTION(libregf_key_get_sub_key);
    LIBRARY_FUNCTION(libregf_key_get_sub_key_by_utf8_path);
    LIBRARY_FUNCTION(libregf_key_get_utf16_name);
    LIBRARY_FUNCTION(libregf_key_get_utf16_name_size);
    LIBRARY_FUNCTION(libregf_key_get_value_by_utf8_name);
    LIBRARY_FUNCTION(libregf_value_free);
    LIBRARY_FUNCTION(libregf_value_get_value_data);
    LIBRARY_FUNCTION(libregf_value_get_value_data_size);
    LIBRARY_FUNCTION(libregf_value_get_value_type);
};

#undef LIBRARY_FUNCTION

regf_library &regf()
{
    static regf_library loaded;
    return loaded;
}

// Objects of the library, each with the function that frees it.
template <auto Free> struct freed {
    template <class T> void operator()(T *object) const
    {
        (regf().*Free)(&object, nullptr);
    }
};
using key_ptr = std::unique_ptr<libregf_key_t, freed<&regf_library::libregf_key_free>>;
using value_ptr =
    std::unique_ptr<libregf_value_t, freed<&regf_library::libregf_value_free>>;
using file_ptr =
    std::unique_ptr<libregf_file_t, freed<&regf_library::libregf_file_free>>;

// The library's own reader of memory goes past the end where a hive says that it is
// longer.
class hive_source : public byte_source {
public:
    explicit hive_source(std::span<const u8> hive) : m_hive(hive) {}

    u64 size() const override { return m_hive.size(); }
    std::size_t read(u64 offset, std::span<u8> out) const override
    {
        const byte_view found = byte_view{m_hive}.clip(offset, out.size());
        std::ranges::copy(found.bytes(), out.begin());
        return found.size();
    }

private:
    std::span<const u8> m_hive;
};

std::vector<u8> bytes_of(std::string_view text)
{
    return {text.begin(), text.end()};
}

key_ptr key_at(libregf_key_t *key, std::string_view path)
{
    libregf_key_t *found = nullptr;
    regf().libregf_key_get_sub_key_by_utf8_path(key, bytes_of(path).data(), path.size(),
                                                &found, nullptr);
    return key_ptr(found);
}

key_ptr child_at(libregf_key_t *key, int index)
{
    libregf_key_t *found = nullptr;
    regf().libregf_key_get_sub_key(key, index, &found, nullptr);
    return key_ptr(found);
}

int child_count(libregf_key_t *key)
{
    int count = 0;
    regf().libregf_key_get_number_of_sub_keys(key, &count, nullptr);
    return std::min(count, max_hive_names);
}

// Names and texts come with an ending zero.
std::u16string without_zero(const std::vector<u16> &units)
{
    return {units.begin(), std::ranges::find(units, u16{0})};
}

std::u16string name_of(libregf_key_t *key)
{
    std::size_t size = 0;
    if (regf().libregf_key_get_utf16_name_size(key, &size, nullptr) != 1) return {};
    std::vector<u16> units(size);
    if (regf().libregf_key_get_utf16_name(key, units.data(), size, nullptr) != 1)
        return {};
    return without_zero(units);
}

// An empty name is that of the default value.
value_ptr value_of(libregf_key_t *key, std::string_view name)
{
    libregf_value_t *found = nullptr;
    regf().libregf_key_get_value_by_utf8_name(
        key, name.empty() ? nullptr : bytes_of(name).data(), name.size(), &found,
        nullptr);
    return value_ptr(found);
}

std::vector<u8> data_of(libregf_value_t *value)
{
    std::size_t size = 0;
    if (value == nullptr ||
        regf().libregf_value_get_value_data_size(value, &size, nullptr) != 1)
        return {};
    std::vector<u8> bytes(size);
    if (regf().libregf_value_get_value_data(value, bytes.data(), size, nullptr) != 1)
        return {};
    return bytes;
}

// The value "V" ends with the SID of the computer: four numbers, the first of them 21.
std::string computer_of(const std::vector<u8> &description)
{
    constexpr u64 sid_size = 24, first_part = 12;
    constexpr u8 head[first_part] = {1, 4, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0};
    const byte_view bytes{description};
    if (bytes.size() < sid_size) return {};
    const byte_view sid = bytes.from(bytes.size() - sid_size);
    if (!std::ranges::equal(sid.clip(0, first_part).bytes(), head)) return {};
    std::string text = "S-1-5-21";
    for (u64 at = first_part; at < sid_size; at += sizeof(u32))
        text += "-" + std::to_string(sid.read_padded<u32>(at));
    return text;
}

bool read_accounts(names_by_sid &out, libregf_key_t *root)
{
    const key_ptr account = key_at(root, "SAM\\Domains\\Account");
    if (!account) return false;
    const std::string computer =
        computer_of(data_of(value_of(account.get(), "V").get()));
    const key_ptr names = key_at(account.get(), "Users\\Names");
    if (!names || computer.empty()) return false;
    const int count = child_count(names.get());
    for (int i = 0; i < count; ++i) {
        const key_ptr user = child_at(names.get(), i);
        if (!user) continue;
        const value_ptr value = value_of(user.get(), {});
        u32 number = 0;
        if (value &&
            regf().libregf_value_get_value_type(value.get(), &number, nullptr) == 1 &&
            number != 0)
            out.try_emplace(computer + "-" + std::to_string(number),
                            name_of(user.get()));
    }
    return true;
}

std::u16string profile_folder(libregf_key_t *profile)
{
    const std::vector<u8> path = data_of(value_of(profile, "ProfileImagePath").get());
    std::vector<u16> units(path.size() / 2);
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = byte_view{path}.read_padded<u16>(2 * i);
    const std::u16string text = without_zero(units);
    return text.substr(text.rfind(u'\\') + 1); // all of it if there is none
}

bool read_profiles(names_by_sid &out, libregf_key_t *root)
{
    const key_ptr list =
        key_at(root, "Microsoft\\Windows NT\\CurrentVersion\\ProfileList");
    if (!list) return false;
    const int count = child_count(list.get());
    for (int i = 0; i < count; ++i) {
        const key_ptr profile = child_at(list.get(), i);
        if (!profile) continue;
        const std::u16string sid = name_of(profile.get());
        const std::u16string name = profile_folder(profile.get());
        const bool is_ascii =
            std::ranges::all_of(sid, [](char16_t unit) { return unit < 0x80; });
        if (is_ascii && !name.empty())
            out.try_emplace(std::string(sid.begin(), sid.end()), name);
    }
    return true;
}

} // namespace

bool has_regf_library()
{
    return regf().loaded.is_complete();
}

bool read_regf_names(names_by_sid &out, hive_kind kind, std::span<const u8> hive)
{
    if (!has_regf_library()) return false;
    const std::shared_ptr<void> bytes =
        make_bfio_handle(regf().loaded, std::make_shared<hive_source>(hive));
    libregf_file_t *new_file = nullptr;
    libregf_key_t *new_root = nullptr;
    regf().libregf_file_initialize(&new_file, nullptr);
    const file_ptr file(new_file);
    if (!bytes || !file ||
        regf().libregf_file_open_file_io_handle(
            file.get(), static_cast<libbfio_handle_t *>(bytes.get()),
            regf().libregf_get_access_flags_read(), nullptr) != 1)
        return false;
    regf().libregf_file_get_root_key(file.get(), &new_root, nullptr);
    const key_ptr root(new_root);
    if (!root) return false;
    return kind == hive_kind::accounts ? read_accounts(out, root.get())
                                       : read_profiles(out, root.get());
}

} // namespace hv
