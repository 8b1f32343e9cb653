#include "compute/PrecompiledKernels.h"

#include <mutex>
#include <string>
#include <unordered_map>

#include <zlib.h>

#include "compute/Exception.h"

namespace Vellum::JIT {

namespace {

std::mutex registryMutex;
std::unordered_map<std::string_view, PrecompiledKernel> registry;

}  // namespace

bool StoredData::isPlaceholder() const {
    if (!data_ || storedBytes_ < 0 || bytes_ != storedBytes_) return false;
    return std::string_view(reinterpret_cast<const char*>(data_), static_cast<std::size_t>(bytes_)) == placeholderSlot;
}

std::vector<std::byte> StoredData::inflate() const {
    // More than this no zlib stream can give; a false size must not ask for gigabytes.
    constexpr std::int64_t strongestCompression = 1032;
    if (storedBytes_ <= 0 || bytes_ <= 0 || !data_ || bytes_ > storedBytes_ * strongestCompression) return {};
    std::vector<std::byte> inflated(static_cast<std::size_t>(bytes_));
    uLongf written = inflated.size();
    uLong read = static_cast<uLong>(storedBytes_);
    const int outcome =
        uncompress2(reinterpret_cast<Bytef*>(inflated.data()), &written, reinterpret_cast<const Bytef*>(data_), &read);
    const bool whole = written == inflated.size() && read == static_cast<uLong>(storedBytes_);
    if (outcome != Z_OK || !whole) return {};
    return inflated;
}

std::span<const std::byte> StoredData::bytes(std::string_view owner, const char* what) const {
    if (storedBytes_ == bytes_ && bytes_ >= 0 && data_) return {data_, static_cast<std::size_t>(bytes_)};
    const std::scoped_lock lock(registryMutex);
    if (inflated_.empty()) inflated_ = inflate();
    if (inflated_.empty())
        Vellum::Compute::fail("The stored " + std::string(what) + " of kernel variant " + std::string(owner) +
                              " is damaged; install ViewTint again.");
    return inflated_;
}

void AddPrecompiledKernel(std::string_view key, const void* slot1, std::int32_t storedBytes1, std::int32_t bytes1,
                          const void* slot2, std::int32_t storedBytes2, std::int32_t bytes2, const void* record,
                          std::int32_t recordBytes) {
    const std::scoped_lock lock(registryMutex);
    registry.try_emplace(key, key, StoredData(slot1, storedBytes1, bytes1), StoredData(slot2, storedBytes2, bytes2),
                         StoredData(record, recordBytes, recordBytes));
}

const PrecompiledKernel* findPrecompiledKernel(std::string_view key) {
    const std::scoped_lock lock(registryMutex);
    const auto found = registry.find(key);
    return found == registry.end() ? nullptr : &found->second;
}

const PrecompiledKernel& precompiledKernel(std::string_view key) {
    if (const auto* kernel = findPrecompiledKernel(key)) return *kernel;
    Vellum::Compute::fail("There is no kernel variant " + std::string(key) + ".");
}

std::size_t precompiledKernelCount() {
    const std::scoped_lock lock(registryMutex);
    return registry.size();
}

}  // namespace Vellum::JIT
