// A sequential read through a chain of three virtual disk files, compared with a plain
// file of the same content. The files of the chain hold its grains in turn.

#include "disk/hv_raw_disk_io.h"
#include "samples/vmdk_builder.h"

#include <benchmark/benchmark.h>

#include <array>
#include <filesystem>
#include <fstream>

namespace {

constexpr std::uint64_t grain_sectors = 128;
constexpr std::uint64_t grains = 4096; // 256 MiB
constexpr std::uint64_t medium_size = grains * grain_sectors * 512;

// The input of all runs; removed when the process ends.
class media {
public:
    media()
    {
        std::string plain;
        std::array<test_support::sparse_file, 3> files;
        for (std::size_t i = 0; i < files.size(); ++i) {
            files[i].cid = std::to_string(i);
            if (i != 0) files[i].parent = std::to_string(i - 1);
            files[i].capacity = grains * grain_sectors;
            files[i].grain = grain_sectors;
            files[i].entries = 512;
        }
        for (std::uint64_t i = 0; i < grains; ++i) {
            const char letter = static_cast<char>('A' + i % 26);
            // Runs of several grains in one file, as on a disk in use.
            files[i / 5 % files.size()].grains.emplace_back(i, letter);
            plain.append(grain_sectors * 512, letter);
        }
        write("plain", plain);
        for (const auto &file : files) {
            chain.push_back(m_folder + "/" + file.cid);
            write(file.cid, file.bytes());
        }
    }
    ~media() { std::filesystem::remove_all(m_folder); }
    media(const media &) = delete;
    media &operator=(const media &) = delete;

    std::string plain() const { return m_folder + "/plain"; }
    std::vector<std::string> chain;

private:
    void write(const std::string &name, const std::string &bytes) const
    {
        std::ofstream(m_folder + "/" + name, std::ios::binary) << bytes;
    }

    std::string m_folder = [] {
        std::string name = std::filesystem::temp_directory_path() / "chain_XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name);
        return name;
    }();
};

const media &all_media()
{
    static const media made;
    return made;
}

void read_whole(benchmark::State &state, const hv::RAW_DISK_IO &disk)
{
    if (disk.get_size() != medium_size) {
        state.SkipWithError("the medium can't be read");
        return;
    }
    std::vector<hv::u8> buffer(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        for (hv::u64 at = 0; at < medium_size; at += buffer.size()) {
            hv::u32 length = static_cast<hv::u32>(buffer.size());
            if (!disk.read_checked(buffer.data(), length, at))
                state.SkipWithError("a read failed");
            benchmark::DoNotOptimize(buffer.data());
        }
    state.SetBytesProcessed(state.iterations() *
                            static_cast<std::int64_t>(medium_size));
}

void plain_file(benchmark::State &state)
{
    read_whole(state, hv::RAW_DISK_IO(all_media().plain()));
}
BENCHMARK(plain_file)->Arg(64 << 10)->Arg(1 << 20);

void chain_of_three(benchmark::State &state)
{
    read_whole(state, hv::RAW_DISK_IO(all_media().chain));
}
BENCHMARK(chain_of_three)->Arg(64 << 10)->Arg(1 << 20);

} // namespace
