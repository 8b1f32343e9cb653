// A kept 1080p result of four channels, read back, against reading the bytes of its files.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "benchmarks/MemoryReference.h"
#include "framework/ResultCache.h"
#include "host/files/ImageCacheDirectory.h"

namespace ViewTint::Benchmarks {

namespace {

namespace fs = std::filesystem;
namespace ResultCache = Cobalt::Research::ResultCache;
using namespace Fresco::Image;

/// Seconds to read all files of a folder, each to a place of its own in memory that exists.
double secondsToRead(const fs::path& folder, std::vector<char>& memory) {
    return secondsFor([&] {
        char* place = memory.data();
        for (const auto& entry : fs::directory_iterator(folder)) {
            const int file = open(entry.path().c_str(), O_RDONLY);
            for (ssize_t count = 1; count > 0; place += count)
                count = read(file, place, static_cast<std::size_t>(memory.data() + memory.size() - place));
            close(file);
        }
    });
}

void load(benchmark::State& state) {
    const fs::path folder = fs::temp_directory_path() / "viewtint_bench_cache";
    fs::remove_all(folder);
    double best = 1e9, bytes = 1e9;
    {
        const Host::ImageCacheDirectory cache(folder, std::uint64_t{1} << 30);
        ImagePlane plane({0, 0, width, height}, false, ChannelSet::fromMask(rgbaMask));
        const std::size_t count = static_cast<std::size_t>(width) * height * 4;
        std::fill_n(plane.writableBuffer().data(), count, 0.5f);
        const Hash hash;
        ResultCache::storePlane(plane, hash);
        std::vector<char> memory(4 * planeBytes + 1000);
        for (auto _ : state) {
            const double seconds = secondsFor([&] {
                if (!ResultCache::hasChannels(plane.channels(), hash) || ResultCache::load(plane, hash).size() != 4)
                    state.SkipWithError("nothing was kept");
            });
            state.SetIterationTime(seconds);
            best = std::min(best, seconds);
            bytes = std::min(bytes, secondsToRead(folder, memory));
        }
    }
    fs::remove_all(folder);
    state.counters["times_reading_bytes"] = best / bytes;
}

}  // namespace

BENCHMARK(load)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
