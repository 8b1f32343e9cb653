#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace Vellum::JIT {

/// What a slot without contents holds, raw.
inline constexpr std::string_view placeholderSlot = "12";

/// Data of a variant as it is stored: raw where the two sizes are equal, else a zlib stream.
class StoredData {
public:
    StoredData(const void* data, std::int32_t storedBytes, std::int32_t bytes)
        : data_(static_cast<const std::byte*>(data)), storedBytes_(storedBytes), bytes_(bytes) {}

    /// Inflated at the first call. Throws Compute::Exception where the data are damaged; `owner` and `what` say of
    /// what.
    std::span<const std::byte> bytes(std::string_view owner, const char* what) const;
    bool isPlaceholder() const;

private:
    std::vector<std::byte> inflate() const;

    const std::byte* data_;
    std::int32_t storedBytes_;
    std::int32_t bytes_;
    mutable std::vector<std::byte> inflated_;
};

/// One registered variant of a kernel. Only points to its data.
class PrecompiledKernel {
public:
    PrecompiledKernel(std::string_view key, StoredData slot1, StoredData slot2, StoredData record)
        : key_(key), slot1_(std::move(slot1)), slot2_(std::move(slot2)), record_(std::move(record)) {}

    std::string_view key() const { return key_; }
    bool hasGpuBody() const { return !slot1_.isPlaceholder(); }
    /// The GPU text.
    std::span<const std::byte> slot1() const { return slot1_.bytes(key_, "GPU text"); }
    /// The CPU module; the placeholder where kernels are ordinary functions.
    std::span<const std::byte> slot2() const { return slot2_.bytes(key_, "module"); }
    /// What ParameterRecord::parse reads.
    std::span<const std::byte> record() const { return record_.bytes(key_, "parameter record"); }

private:
    std::string_view key_;
    StoredData slot1_;
    StoredData slot2_;
    StoredData record_;
};

/// Enters a variant into the registry, unless its key is there already. Nothing is copied, so everything must stay
/// where it is; nothing is checked before its first use. For both slots: data, stored size, size after inflation.
void AddPrecompiledKernel(std::string_view key, const void* slot1, std::int32_t storedBytes1, std::int32_t bytes1,
                          const void* slot2, std::int32_t storedBytes2, std::int32_t bytes2, const void* record,
                          std::int32_t recordBytes);

/// The variant with exactly this key, or null.
const PrecompiledKernel* findPrecompiledKernel(std::string_view key);
/// The same; throws Compute::Exception where there is none.
const PrecompiledKernel& precompiledKernel(std::string_view key);
std::size_t precompiledKernelCount();

}  // namespace Vellum::JIT
