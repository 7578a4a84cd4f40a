// Runs a fuzz target over the files of the folders named on the command line, and over
// every prefix of each: a truncated record is the most common damage.

#include "base/hv_types.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size);

int main(int argc, char **argv)
{
    namespace fs = std::filesystem;
    std::size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : fs::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> text(std::istreambuf_iterator<char>(file), {});
            for (std::size_t size = 0; size <= text.size(); ++size) {
                // A copy of exactly this size, so that a sanitizer sees reads after its
                // end.
                const std::vector<hv::u8> bytes(text.begin(),
                                                text.begin() + static_cast<long>(size));
                LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            }
            ++files;
        }
    }
    std::cout << files << " files replayed\n";
    return files == 0 ? 1 : 0;
}
