#include "tests/harness/SoftwareDevice.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <system_error>

#include "compute/Exception.h"

namespace ViewTint::Tests {

namespace {

constexpr std::size_t pageBytes = 4096;
constexpr std::size_t alignment = 256;
/// Between two blocks; a multiple of the alignment.
constexpr std::size_t gap = 256;
/// Address space beyond twice the budget, for the gaps between small blocks.
constexpr std::size_t spareBytes = std::size_t{1} << 20;
constexpr int freshByte = 0xff;  // as floats these are NaNs
constexpr int gapByte = 0xa7;

std::size_t roundUp(std::size_t bytes, std::size_t step) {
    return (bytes + step - 1) / step * step;
}

/// From the end of a block's bytes to the place where the next may begin.
std::size_t span(std::size_t bytes) {
    return roundUp(bytes, alignment) + gap;
}

[[noreturn]] void outOfMemory() {
    Cobalt::Base::raise(Vellum::Compute::MemoryException("The software device is full."));
}

}  // namespace

/// Gives the share back when the last image lets go.
class SoftwareDevice::Block : public Cobalt::Device::MemoryBlock {
public:
    Block(SoftwareDevice& device, char* address, std::size_t bytes) : MemoryBlock(address, bytes), device_(device) {}
    ~Block() override { device_.release(static_cast<char*>(address())); }

private:
    SoftwareDevice& device_;
};

/// Makes the memory accessible for the length of one device operation.
class SoftwareDevice::Opened {
public:
    explicit Opened(const SoftwareDevice& device) : device_(device) { protect(PROT_READ | PROT_WRITE); }
    ~Opened() { protect(PROT_NONE); }

private:
    void protect(int access) const {
        if (device_.access_ == HostAccess::closed) mprotect(device_.arena_, device_.arenaBytes_, access);
    }
    const SoftwareDevice& device_;
};

SoftwareDevice::SoftwareDevice(std::size_t budget, HostAccess access)
    : budget_(budget), access_(access), arenaBytes_(roundUp(2 * budget, pageBytes) + spareBytes) {
    const int protection = access == HostAccess::closed ? PROT_NONE : PROT_READ | PROT_WRITE;
    void* arena = mmap(nullptr, arenaBytes_, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (arena == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    arena_ = static_cast<char*>(arena);
}

SoftwareDevice::~SoftwareDevice() {
    munmap(arena_, arenaBytes_);
}

void SoftwareDevice::failAt(Operation operation, int number, Failing failing) {
    failNoMore();
    auto& state = states_[static_cast<int>(operation)];
    state.failing = state.tried + number;
    state.how = failing;
}

void SoftwareDevice::failNoMore() {
    for (auto& state : states_)
        state.failing = -1;
}

void SoftwareDevice::tryOperation(Operation operation, const std::string& what) {
    auto& state = states_[static_cast<int>(operation)];
    const int number = state.tried++;
    if (state.failing < 0 || number < state.failing) return;
    if (state.how == Failing::once && number > state.failing) return;
    failedInsideCall_ = insideCall_;
    if (operation == Operation::allocation) outOfMemory();
    Vellum::Compute::fail("The software device failed while it " + what + ".");
}

char* SoftwareDevice::place(std::size_t bytes) const {
    char* at = arena_ + gap;
    for (const auto& [address, size] : blocks_) {
        if (address >= at + span(bytes)) break;
        at = address + span(size);
    }
    return at;
}

Cobalt::Device::MemoryHandle SoftwareDevice::allocate(std::size_t bytes, const Cobalt::Device::MemoryKind&) {
    tryOperation(Operation::allocation, "");
    char* address = place(bytes);
    if (inUse_ + bytes > budget_ || address + span(bytes) > arena_ + arenaBytes_) {
        failedInsideCall_ = insideCall_;
        outOfMemory();
    }
    const Opened opened(*this);
    std::memset(address, freshByte, bytes);
    std::memset(address + bytes, gapByte, span(bytes) - bytes);
    std::memset(address - gap, gapByte, gap);
    blocks_[address] = bytes;
    inUse_ += bytes;
    Cobalt::Device::MemoryHandle block(new Block(*this, address, bytes));
    block->placeOn(*this);
    return block;
}

void SoftwareDevice::release(char* address) {
    const auto found = blocks_.find(address);
    inUse_ -= found->second;
    // Untouched pages cost nothing where access is switched on and off.
    const auto begin = roundUp(reinterpret_cast<std::uintptr_t>(address), pageBytes);
    const auto end = (reinterpret_cast<std::uintptr_t>(address) + found->second) / pageBytes * pageBytes;
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    blocks_.erase(found);
}

void SoftwareDevice::checkRange(const Cobalt::Device::MemoryBlock& block, std::size_t offset, std::size_t bytes) const {
    if (block.device() != this || offset + bytes > block.bytes())
        Vellum::Compute::fail("A copy that leaves its block on the software device.");
}

void SoftwareDevice::upload(Cobalt::Device::MemoryBlock& destination, std::size_t offset, const void* source,
                            std::size_t bytes) {
    tryOperation(Operation::copy, "took in data");
    checkRange(destination, offset, bytes);
    const Opened opened(*this);
    std::memcpy(static_cast<char*>(destination.address()) + offset, source, bytes);
}

void SoftwareDevice::download(void* destination, const Cobalt::Device::MemoryBlock& source, std::size_t offset,
                              std::size_t bytes) {
    tryOperation(Operation::copy, "gave out data");
    checkRange(source, offset, bytes);
    const Opened opened(*this);
    std::memcpy(destination, static_cast<const char*>(source.address()) + offset, bytes);
}

void SoftwareDevice::run(const Vellum::Compute::KernelCall& call) {
    insideCall_ = true;
    struct Leave {
        bool& inside;
        ~Leave() { inside = false; }
    } leave{insideCall_};
    RemoteDevice::run(call);
}

void SoftwareDevice::launch(const Vellum::JIT::Kernel& kernel, Pass pass, const Grid& grid,
                            std::span<const std::byte> arguments) {
    tryOperation(Operation::launch, std::string("ran kernel ") + kernel.entry().declaration().name);
    runWorkers(kernel.entry(), kernel.variant(), pass == Pass::fold,
               {grid.groups[0] * grid.workers[0], grid.groups[1] * grid.workers[1], grid.groups[2]}, arguments.data());
}

void SoftwareDevice::runWorkers(const Vellum::Kernels::CatalogueEntry& entry, int variant, bool fold,
                                const int (&workers)[3], const void* arguments) const {
    const Opened opened(*this);
    if (fold) {
        for (int phase = 0; phase < 2; ++phase)
            for (int worker = 0; worker < workers[0]; ++worker)
                entry.deviceFold(variant)(arguments, worker, phase);
        return;
    }
    const auto body = entry.deviceBody(variant);
    for (int z = 0; z < workers[2]; ++z)
        for (int y = 0; y < workers[1]; ++y)
            for (int x = 0; x < workers[0]; ++x)
                body(arguments, x, y, z);
}

bool SoftwareDevice::gapsIntact() const {
    const Opened opened(*this);
    const auto intact = [](const char* from, std::size_t bytes) {
        return std::all_of(from, from + bytes, [](char c) { return c == static_cast<char>(gapByte); });
    };
    return std::all_of(blocks_.begin(), blocks_.end(), [&](const auto& block) {
        const auto& [address, bytes] = block;
        return intact(address + bytes, span(bytes) - bytes) && intact(address - gap, gap);
    });
}

SoftwareContext::SoftwareContext(std::size_t budget) {
    std::vector<std::unique_ptr<Vellum::Compute::Device>> devices;
    devices.push_back(std::make_unique<SoftwareDevice>(budget));
    context_ = new Vellum::Compute::Context(std::move(devices));
}

}  // namespace ViewTint::Tests
