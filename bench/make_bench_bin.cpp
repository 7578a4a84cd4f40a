// Makes a bin of COUNT pairs of metadata and data files, spread over ten users.
// Usage: make_bench_bin FOLDER COUNT

#include "samples/record_builders.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

int main(int argc, char **argv)
{
    namespace fs = std::filesystem;
    using namespace test_support;
    if (argc != 3) {
        std::cerr << "usage: make_bench_bin FOLDER COUNT\n";
        return 1;
    }
    const fs::path bin = fs::path(argv[1]) / "$Recycle.Bin";
    const int count = std::stoi(argv[2]);
    const std::string content(4096, 'x');
    for (int i = 0; i < count; ++i) {
        const fs::path user = bin / ("S-1-5-21-1004336348-1177238915-682003330-" +
                                     std::to_string(1001 + i % 10));
        if (i < 10) fs::create_directories(user);
        char name[24];
        std::snprintf(name, sizeof name, "%06X.docx", static_cast<unsigned>(i));
        const byte_vector metadata =
            dollar_i_builder()
                .path(u"C:\\Users\\somebody\\Documents\\quarterly report.docx")
                .version(i % 2 == 0 ? 2 : 1)
                .bytes();
        std::ofstream(user / (std::string("$I") + name), std::ios::binary)
            << std::string(metadata.begin(), metadata.end());
        std::ofstream(user / (std::string("$R") + name), std::ios::binary) << content;
    }
    return 0;
}
