// Runs a fuzz target over the files of the folders named on the command line, and over
// prefixes of each: a truncated record is the most common damage. With --whole, the
// files alone.

#include "base/hv_types.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const hv::u8 *data, std::size_t size);

namespace {

namespace fs = std::filesystem;

enum class prefixes { none, some };

// Structures and their fields are small: most of what a cut can do differently happens
// at the start, and near the end.
std::size_t next_size(std::size_t size, std::size_t whole)
{
    constexpr std::size_t dense = 1024, step = 15;
    return size < dense || size + dense / 4 > whole ? size + 1 : size + step;
}

void replay(const fs::path &path, prefixes shorter)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> text(std::istreambuf_iterator<char>(file), {});
    for (std::size_t size = shorter == prefixes::some ? 0 : text.size();
         size <= text.size(); size = next_size(size, text.size())) {
        // A copy of exactly this size, so that a sanitizer sees reads after its end.
        const std::vector<hv::u8> bytes(text.begin(),
                                        text.begin() + static_cast<long>(size));
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
}

} // namespace

int main(int argc, char **argv)
{
    std::size_t files = 0;
    prefixes shorter = prefixes::some;
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--whole") {
            shorter = prefixes::none;
            continue;
        }
        for (const auto &entry : fs::directory_iterator(argv[i])) {
            replay(entry.path(), shorter);
            ++files;
        }
    }
    std::cout << files << " files replayed\n";
    return files == 0 ? 1 : 0;
}
