// Makes the sample of examples/bin: two bins, as Windows 10 and Windows XP leave them.
// Usage: make_sample_bin FOLDER

#include "samples/record_builders.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

namespace {

namespace fs = std::filesystem;
using namespace test_support;

void write(const fs::path &path, const std::string &bytes)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

void write(const fs::path &path, const byte_vector &bytes)
{
    write(path, text(bytes));
}

void make_recent_bin(const fs::path &user)
{
    // 2024-03-05 09:41:17.250 UTC, and later moments of the same morning
    const u64 first = filetime(1709631677, 250);
    const u64 second = filetime(1709632040, 7);
    write(user / "desktop.ini", "[.ShellClassInfo]\r\n");
    write(user / "$IA1B2C3.docx",
          dollar_i_builder()
              .path(u"C:\\Users\\ada\\Documents\\offer, final.docx")
              .size(33)
              .time(first)
              .bytes());
    write(user / "$RA1B2C3.docx", "not really a document, but enough");
    write(user / "$I7KQ2ZD", dollar_i_builder()
                                 .path(u"C:\\Users\\ada\\Projects\\old")
                                 .size(40)
                                 .time(second)
                                 .bytes());
    write(user / "$R7KQ2ZD" / "notes.txt", "read me first\n");
    write(user / "$R7KQ2ZD" / "src" / "main.c", "int main(void) { return 0; }\n");
    write(user / "$IM4N5P6.jpg", dollar_i_builder()
                                     .path(u"D:\\Bilder\\K\u00f6ln.jpg")
                                     .size(5000000000)
                                     .time(filetime(1709633111, 999))
                                     .bytes());
    write(user / "$RX9Y8Z7.pdf", "the metadata of this one is gone");
}

void make_old_bin(const fs::path &user)
{
    // 2007-11-02 and 2007-11-03
    const byte_vector file = info2_file(
        {{"C:\\WINDOWS\\setup.log", u"C:\\WINDOWS\\setup.log", 1, 2,
          filetime(1194003662, 437), 8192},
         {"C:\\boot.bak", u"C:\\boot.bak", 2, 2, filetime(1194077100, 15), 4096}});
    write(user / "INFO2", file);
    write(user / "Dc2.bak", "[boot loader]\r\n");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::cerr << "usage: make_sample_bin FOLDER\n";
        return 1;
    }
    const fs::path root = argv[1];
    make_recent_bin(root / "$Recycle.Bin" /
                    "S-1-5-21-2025429265-492894223-1708537768-1001");
    make_old_bin(root / "RECYCLER" / "S-1-5-21-1844237615-1801674531-725345543-500");
    return 0;
}
