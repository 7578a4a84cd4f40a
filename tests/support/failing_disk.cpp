// A file system with one file, "disk", whose bytes are those of another file, except
// for the faults that the command line asks for. It answers in the foreground until it
// is unmounted.
//
//     failing_disk IMAGE MOUNT_POINT [FAULT...]
//
// Reads are counted from 1, over all that open the file. Numbers may begin with 0x.
//
//     fail=BEGIN-END    reads that meet these bytes end with EIO
//     slow=MS           each read takes so many milliseconds, unless it is interrupted
//     shrink=N:SIZE     from read N on, the file has SIZE bytes
//     vanish=N          from read N on, reads end with ENODEV
//     die=N             read N ends the process, as the driver of a disk might
//     change=N:AT:BYTE  from read N on, the byte at AT is BYTE
//     cached            the system caches the file, and so reads it in pages

#define FUSE_USE_VERSION 31

#include <fuse3/fuse.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using u64 = std::uint64_t;

constexpr const char *file_name = "disk";
constexpr u64 never = ~u64{0};

struct stretch {
    u64 begin = 0;
    u64 end = 0;
};

struct changed_byte {
    u64 since = 0; // number of a read
    u64 at = 0;
    char byte = 0;
};

struct disk_state {
    int image = -1;
    std::atomic<u64> size = 0;
    std::atomic<u64> reads = 0;
    std::vector<stretch> unreadable;
    std::vector<changed_byte> changes;
    u64 pause_ms = 0;
    u64 shrinks_at = never;
    u64 shrunk_size = 0;
    u64 vanishes_at = never;
    u64 dies_at = never;
    bool is_cached = false;
};

disk_state disk;

int get_status(const char *path, struct stat *status, fuse_file_info *)
{
    *status = {};
    const bool is_root = std::string_view(path) == "/";
    if (!is_root && path + 1 != std::string_view(file_name)) return -ENOENT;
    status->st_mode = is_root ? S_IFDIR | 0755 : S_IFREG | 0444;
    status->st_nlink = 1;
    status->st_size = is_root ? 0 : static_cast<off_t>(disk.size);
    return 0;
}

int list_folder(const char *, void *list, fuse_fill_dir_t add, off_t, fuse_file_info *,
                fuse_readdir_flags)
{
    for (const char *name : {".", "..", file_name})
        add(list, name, nullptr, 0, fuse_fill_dir_flags{});
    return 0;
}

int open_disk(const char *, fuse_file_info *file)
{
    file->direct_io = disk.is_cached ? 0 : 1;
    return 0;
}

void pause_unless_interrupted()
{
    for (u64 ms = 0; ms < disk.pause_ms && fuse_interrupted() == 0; ms += 5)
        usleep(5000);
}

int read_disk(const char *, char *bytes, size_t length, off_t offset, fuse_file_info *)
{
    const u64 number = ++disk.reads;
    if (number >= disk.dies_at) _exit(1);
    pause_unless_interrupted();
    if (number >= disk.vanishes_at) return -ENODEV;
    if (number >= disk.shrinks_at) disk.size = disk.shrunk_size;
    const u64 begin = static_cast<u64>(offset);
    const u64 end = std::min<u64>(begin + length, disk.size);
    if (begin >= end) return 0;
    for (const stretch &bad : disk.unreadable)
        if (begin < bad.end && bad.begin < end) return -EIO;
    const ssize_t count = pread(disk.image, bytes, end - begin, offset);
    if (count < 0) return -errno;
    for (const changed_byte &change : disk.changes)
        if (number >= change.since && change.at >= begin && change.at < end)
            bytes[change.at - begin] = change.byte;
    return static_cast<int>(count);
}

// The numbers of a fault, between ":" or "-".
std::vector<u64> numbers_of(const std::string &text)
{
    std::vector<u64> numbers;
    const char *at = text.c_str();
    while (*at != '\0') {
        char *end = nullptr;
        numbers.push_back(std::strtoull(at, &end, 0));
        at = *end == '\0' ? end : end + 1;
    }
    return numbers;
}

bool take_fault(const std::string &fault)
{
    const std::size_t equals = fault.find('=');
    const std::string kind = fault.substr(0, equals);
    const std::vector<u64> n = equals == fault.npos
                                   ? std::vector<u64>()
                                   : numbers_of(fault.substr(equals + 1));
    if (kind == "fail" && n.size() == 2)
        disk.unreadable.push_back({n[0], n[1]});
    else if (kind == "slow" && n.size() == 1)
        disk.pause_ms = n[0];
    else if (kind == "shrink" && n.size() == 2)
        disk.shrinks_at = n[0], disk.shrunk_size = n[1];
    else if (kind == "vanish" && n.size() == 1)
        disk.vanishes_at = n[0];
    else if (kind == "die" && n.size() == 1)
        disk.dies_at = n[0];
    else if (kind == "change" && n.size() == 3)
        disk.changes.push_back({n[0], n[1], static_cast<char>(n[2])});
    else if (kind == "cached" && n.empty())
        disk.is_cached = true;
    else
        return false;
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) return 2;
    disk.image = open(argv[1], O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (disk.image < 0 || fstat(disk.image, &status) != 0) {
        std::perror(argv[1]);
        return 1;
    }
    disk.size = static_cast<u64>(status.st_size);
    for (int i = 3; i < argc; ++i)
        if (!take_fault(argv[i])) {
            std::fprintf(stderr, "%s: no such fault\n", argv[i]);
            return 2;
        }
    fuse_operations operations = {};
    operations.getattr = get_status;
    operations.readdir = list_folder;
    operations.open = open_disk;
    operations.read = read_disk;
    // In the foreground. An interruption is a request of its own, so there are threads.
    std::string options = "-ofsname=failing_disk,attr_timeout=0", foreground = "-f";
    std::vector<char *> arguments = {argv[0], foreground.data(), options.data(),
                                     argv[2]};
    return fuse_main(static_cast<int>(arguments.size()), arguments.data(), &operations,
                     nullptr);
}
