#include "lab/linux_volume.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <ntfs-3g/attrib.h>
#include <ntfs-3g/dir.h>
#include <ntfs-3g/inode.h>
#include <ntfs-3g/security.h>
#include <ntfs-3g/volume.h>
}
// The library's macros would take the place of the standard functions.
#undef min
#undef max

namespace {

// Windows counts from 1601, 11644473600 seconds before 1970.
constexpr u64 ticks_per_second = 10000000;
constexpr u64 ticks_before_1970 = 11644473600 * ticks_per_second;

// The time of the open volume in ticks from 1970, or 0 if none is open.
u64 volume_clock = 0;

} // namespace

// Takes the place of the C library's function in this program, so that libntfs-3g
// stores the time of the story. Without an open volume, and for other clocks, the
// kernel answers as usual.
extern "C" int clock_gettime(clockid_t clock, timespec *out_time) noexcept
{
    if (volume_clock == 0 || clock != CLOCK_REALTIME)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, out_time));
    out_time->tv_sec = static_cast<time_t>(volume_clock / ticks_per_second);
    out_time->tv_nsec = static_cast<long>(volume_clock % ticks_per_second * 100);
    return 0;
}

namespace lab {

namespace {

using ntfs_name = std::basic_string<ntfschar>;

ntfs_name as_ntfs(std::u16string_view name)
{
    ntfs_name units;
    for (const char16_t unit : name) units += cpu_to_le16(unit);
    return units;
}

u8 length_of(const ntfs_name &name)
{
    return static_cast<u8>(name.size());
}

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error("libntfs-3g can't " + what + ": " + std::strerror(errno));
}

void check(bool done, const char *what)
{
    if (!done) fail(what);
}

// As the library and $FILE_NAME hold it.
MFT_REF file_reference(const entry_number &file)
{
    return file.entry | u64{file.sequence} << 48;
}

struct close_inode {
    void operator()(ntfs_inode *inode) const { ntfs_inode_close(inode); }
};
using open_inode = std::unique_ptr<ntfs_inode, close_inode>;

struct close_attribute {
    void operator()(ntfs_attr *attribute) const { ntfs_attr_close(attribute); }
};
using open_attribute = std::unique_ptr<ntfs_attr, close_attribute>;

open_inode open(ntfs_volume *volume, entry_number file)
{
    open_inode inode(ntfs_inode_open(volume, file_reference(file)));
    if (!inode) fail("open entry " + std::to_string(file.entry));
    return inode;
}

// The library only reads the name, but asks for one that it may write to.
open_attribute open_stream(ntfs_inode *inode, ntfs_name &name)
{
    open_attribute stream(ntfs_attr_open(
        inode, AT_DATA, name.empty() ? AT_UNNAMED : name.data(), length_of(name)));
    if (!stream) fail("open a stream");
    return stream;
}

entry_number make(ntfs_volume *volume, const linux_volume::place &at, mode_t type)
{
    const open_inode folder = open(volume, at.folder);
    const ntfs_name name = as_ntfs(at.name);
    const open_inode inode(ntfs_create(folder.get(), const_cpu_to_le32(0), name.data(),
                                       length_of(name), type));
    if (!inode) fail("make a file");
    return {inode->mft_no, le16_to_cpu(inode->mrec->sequence_number)};
}

// False if the volume is full.
bool write_stream(ntfs_volume *volume, entry_number file, u64 position,
                  const byte_vector &bytes, std::u16string_view stream_name)
{
    const open_inode inode = open(volume, file);
    ntfs_name name = as_ntfs(stream_name);
    if (!name.empty() &&
        ntfs_attr_exist(inode.get(), AT_DATA, name.data(), length_of(name)) == 0)
        check(ntfs_attr_add(inode.get(), AT_DATA, name.data(), length_of(name), nullptr,
                            0) == 0,
              "add a stream");
    const open_attribute stream = open_stream(inode.get(), name);
    for (std::size_t done = 0; done < bytes.size();) {
        const s64 count =
            ntfs_attr_pwrite(stream.get(), static_cast<s64>(position + done),
                             static_cast<s64>(bytes.size() - done), &bytes[done]);
        if (count <= 0 && errno == ENOSPC) return false;
        check(count > 0, "write to a stream");
        done += static_cast<std::size_t>(count);
    }
    // The last block of a compressed stream is only packed now.
    if (NAttrCompressed(stream.get()) != 0)
        check(ntfs_attr_pclose(stream.get()) == 0, "finish a compressed stream");
    return true;
}

std::string make_empty_medium(u64 size)
{
    std::string path = std::filesystem::temp_directory_path() / "volume-XXXXXX";
    const int file = mkstemp(path.data());
    if (file < 0) throw std::runtime_error("can't make " + path);
    const bool sized = ftruncate(file, static_cast<off_t>(size)) == 0;
    ::close(file);
    if (!sized) throw std::runtime_error("can't make " + path);
    return path;
}

byte_vector read_file(const std::string &path)
{
    byte_vector bytes(std::filesystem::file_size(path));
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(
        std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file || std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
        throw std::runtime_error("can't read " + path);
    return bytes;
}

void run_mkntfs(const std::string &medium, u32 cluster_size)
{
    // The geometry is stated since mkntfs can't ask a file for it, and -T fixes the
    // times and the serial number.
    std::istringstream options("-q -F -f -T -p 0 -s 512 -H 16 -S 63 -L LAB -c " +
                               std::to_string(cluster_size));
    std::vector<std::string> words{LAB_MKNTFS};
    for (std::string word; options >> word;) words.push_back(word);
    words.push_back(medium);
    std::vector<char *> arguments(words.size() + 1, nullptr);
    std::transform(words.begin(), words.end(), arguments.begin(),
                   [](std::string &word) { return word.data(); });
    // Standard error is dropped: mkntfs warns of each file that it isn't a block
    // device.
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int status = 0;
    const bool ran = posix_spawn(&child, LAB_MKNTFS, &actions, nullptr,
                                 arguments.data(), environ) == 0 &&
                     waitpid(child, &status, 0) == child && status == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (!ran) throw std::runtime_error("mkntfs failed on " + medium);
}

} // namespace

linux_volume::linux_volume(u64 size, u32 cluster_size, u64 filetime)
    : m_medium{make_empty_medium(size)}
{
    run_mkntfs(m_medium.path, cluster_size);
    set_clock(filetime);
    m_volume = ntfs_mount(m_medium.path.c_str(), 0);
    if (m_volume == nullptr) fail("open a volume");
    NVolSetCompression(m_volume);
}

linux_volume::temporary_file::~temporary_file()
{
    unlink(path.c_str());
}

linux_volume::~linux_volume()
{
    if (m_volume != nullptr) ntfs_umount(m_volume, FALSE);
    volume_clock = 0;
}

byte_vector linux_volume::close()
{
    check(ntfs_umount(m_volume, FALSE) == 0, "close a volume");
    m_volume = nullptr;
    return read_file(m_medium.path);
}

void linux_volume::set_clock(u64 filetime)
{
    volume_clock = filetime - ticks_before_1970;
}

entry_number linux_volume::make_folder(const place &at)
{
    return make(m_volume, at, S_IFDIR);
}

entry_number linux_volume::make_file(const place &at, const byte_vector &content)
{
    const entry_number file = make(m_volume, at, S_IFREG);
    if (!content.empty()) write(file, 0, content);
    return file;
}

void linux_volume::write(entry_number file, u64 position, const byte_vector &bytes,
                         std::u16string_view stream)
{
    if (!write_stream(m_volume, file, position, bytes, stream))
        throw std::runtime_error("the volume is full");
}

bool linux_volume::write_if_room(entry_number file, u64 position,
                                 const byte_vector &bytes)
{
    return write_stream(m_volume, file, position, bytes, {});
}

void linux_volume::truncate(entry_number file, u64 size)
{
    const open_inode inode = open(m_volume, file);
    ntfs_name unnamed;
    const open_attribute stream = open_stream(inode.get(), unnamed);
    check(ntfs_attr_truncate(stream.get(), static_cast<s64>(size)) == 0,
          "cut a stream");
}

void linux_volume::set_attributes(entry_number file, u32 flags)
{
    const open_inode inode = open(m_volume, file);
    char value[sizeof flags];
    std::memcpy(value, &flags, sizeof flags);
    check(ntfs_set_ntfs_attrib(inode.get(), value, sizeof value, 0) == 0,
          "set attributes");
}

void linux_volume::set_short_name(entry_number file, const place &at,
                                  const std::string &name)
{
    open_inode inode = open(m_volume, file);
    open_inode folder = open(m_volume, at.folder);
    // The call closes both, even if it fails.
    check(ntfs_set_ntfs_dos_name(inode.release(), folder.release(), name.data(),
                                 name.size(), 0) == 0,
          "set a short name");
}

void linux_volume::add_link(entry_number file, const place &at)
{
    const open_inode inode = open(m_volume, file);
    const open_inode folder = open(m_volume, at.folder);
    const ntfs_name name = as_ntfs(at.name);
    check(ntfs_link(inode.get(), folder.get(), name.data(), length_of(name)) == 0,
          "add a link");
}

void linux_volume::rename(entry_number file, const place &from, const place &to)
{
    add_link(file, to);
    remove(file, from);
}

void linux_volume::remove(entry_number file, const place &at)
{
    open_inode inode = open(m_volume, file);
    open_inode folder = open(m_volume, at.folder);
    const ntfs_name name = as_ntfs(at.name);
    // The call closes both, even if it fails.
    check(ntfs_delete(m_volume, nullptr, inode.release(), folder.release(), name.data(),
                      length_of(name)) == 0,
          "remove a name");
}

bool linux_volume::is_resident(entry_number file)
{
    const open_inode inode = open(m_volume, file);
    ntfs_name unnamed;
    return NAttrNonResident(open_stream(inode.get(), unnamed).get()) == 0;
}

std::vector<linux_volume::stretch> linux_volume::stretches(entry_number file,
                                                           u64 position, u64 size)
{
    const open_inode inode = open(m_volume, file);
    ntfs_name unnamed;
    const open_attribute stream = open_stream(inode.get(), unnamed);
    std::vector<stretch> found;
    if (NAttrNonResident(stream.get()) == 0) return found;
    const u64 cluster_size = m_volume->cluster_size;
    for (u64 at = position; at < position + size;) {
        const LCN cluster =
            ntfs_attr_vcn_to_lcn(stream.get(), static_cast<VCN>(at / cluster_size));
        const u64 count =
            std::min(cluster_size - at % cluster_size, position + size - at);
        const u64 where = static_cast<u64>(cluster) * cluster_size + at % cluster_size;
        if (!found.empty() && found.back().position + found.back().size == where)
            found.back().size += count;
        else if (cluster >= 0)
            found.push_back({where, count});
        at += count;
    }
    return found;
}

} // namespace lab
