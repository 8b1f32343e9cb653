#include "host/files/ImageCacheDirectory.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include "host/files/AtomicFile.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

constexpr const char* resultSuffix = ".vlm";
constexpr const char* unfinishedSuffix = ".part";
/// Files that nobody has finished for so long were left behind by a process that was killed.
constexpr std::chrono::hours longestWrite{1};

struct Entry {
    fs::path path;
    std::uint64_t bytes;
    fs::file_time_type read;
};

/// The results in a directory; takes away what was left behind. Files of other kinds are let be.
std::vector<Entry> entriesOf(const fs::path& directory) {
    std::vector<Entry> entries;
    std::error_code ignored;
    for (fs::directory_iterator at(directory, ignored), end; !ignored && at != end; at.increment(ignored)) {
        std::error_code gone;
        const fs::path& path = at->path();
        const auto bytes = at->file_size(gone);
        const auto time = at->last_write_time(gone);
        if (gone) continue;
        if (path.extension() == resultSuffix) entries.push_back({path, bytes, time});
        if (path.extension() == unfinishedSuffix && fs::file_time_type::clock::now() - time > longestWrite)
            fs::remove(path, gone);
    }
    return entries;
}

}  // namespace

ImageCacheDirectory::ImageCacheDirectory(fs::path directory, std::uint64_t budgetBytes)
    : directory_(std::move(directory)), budget_(budgetBytes) {
    std::error_code failed;
    fs::create_directories(directory_, failed);
    if (failed)
        throw FileError(
            fmt::format("Cannot make the folder '{}' for --cache: {}.", directory_.string(), failed.message()));
    checkWritable(directory_ / "probe");
    for (const Entry& entry : entriesOf(directory_))
        used_ += entry.bytes;
    former_ = setMainCache(this);
}

ImageCacheDirectory::~ImageCacheDirectory() {
    setMainCache(former_);
}

fs::path ImageCacheDirectory::filename(const Hash& key) const {
    return directory_ / fmt::format("{:016x}{}", key.value(), resultSuffix);
}

std::unique_ptr<std::istream> ImageCacheDirectory::open(const Hash& key) {
    const fs::path path = filename(key);
    auto file = std::make_unique<std::ifstream>(path, std::ios::binary);
    if (!*file) return nullptr;
    std::error_code ignored;  // the time tells which files are in use
    fs::last_write_time(path, fs::file_time_type::clock::now(), ignored);
    return file;
}

bool ImageCacheDirectory::has_file(const Hash& key) const {
    std::error_code ignored;
    return fs::is_regular_file(filename(key), ignored);
}

bool ImageCacheDirectory::add_file(const Hash&, std::size_t bytes) {
    if (bytes > budget_) return false;
    const std::lock_guard holding(mutex_);
    if (used_ + bytes > budget_) makeRoom(bytes);
    used_ += bytes;
    return true;
}

void ImageCacheDirectory::remove_file(const Hash& key) {
    std::error_code ignored;
    fs::remove(filename(key), ignored);
}

void ImageCacheDirectory::makeRoom(std::uint64_t bytes) {
    std::vector<Entry> entries = entriesOf(directory_);
    std::ranges::sort(entries, {}, &Entry::read);
    used_ = 0;
    for (const Entry& entry : entries)
        used_ += entry.bytes;
    for (const Entry& entry : entries) {
        if (used_ + bytes <= budget_) break;
        std::error_code ignored;
        fs::remove(entry.path, ignored);
        used_ -= entry.bytes;
    }
}

}  // namespace ViewTint::Host
