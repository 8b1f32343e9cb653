// Stands in for NVIDIA's driver library: its devices are software devices, which run what is launched from the block of
// arguments that a card would get. As strict as a driver: a call without a current context, a text that is none of the
// stored ones, an entry point that the text hasn't got, a block of arguments of another size than the text declares
// are errors.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "compute/Exception.h"
#include "compute/PrecompiledKernels.h"
#include "node/KernelLibraries.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/standIns/StandIn.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

using Vellum::Kernels::CatalogueEntry;
using ViewTint::Tests::SoftwareDevice;

enum Result {
    success = 0,
    invalidValue = 1,
    outOfMemory = 2,
    invalidDevice = 101,
    invalidContext = 201,
    invalidText = 218,
    notFound = 500,
    illegalAddress = 700,
    launchFailed = 719,
};

struct Variant {
    const CatalogueEntry* entry;
    int number;
    std::string text;
};

struct EntryPoint {
    const Variant* variant;
    bool fold;
    std::size_t argumentBytes;
};

struct Card {
    std::unique_ptr<SoftwareDevice> device;
    std::map<unsigned long long, Cobalt::Device::MemoryHandle> blocks;
};

int numberFromEnvironment(const char* name, int otherwise) {
    const char* text = std::getenv(name);
    return text ? std::atoi(text) : otherwise;
}

struct State {
    std::recursive_mutex mutex;
    std::deque<Card> cards;
    std::map<std::string, Variant> variants;  // by text
    std::deque<EntryPoint> entryPoints;
    std::map<std::string, int> counts;
    std::string failing;
    int failAt = 0, failWith = 0;
    bool failAlways = false;
    bool initialised = false;

    State() {
        Vellum::registerKernelLibraries();
        const int devices = numberFromEnvironment("VIEWTINT_STAND_IN_DEVICES", 1);
        const auto bytes = static_cast<std::size_t>(numberFromEnvironment("VIEWTINT_STAND_IN_MIB", 4096)) << 20;
        for (int i = 0; i < devices; ++i)
            cards.emplace_back().device = std::make_unique<SoftwareDevice>(bytes, SoftwareDevice::HostAccess::open);
        if (const char* order = std::getenv("VIEWTINT_STAND_IN_FAIL")) {
            char call[64] = {}, plus = 0;
            if (std::sscanf(order, "%63[^:]:%d:%d%c", call, &failAt, &failWith, &plus) >= 3) failing = call;
            failAlways = plus == '+';
        }
    }

    /// By the text: variants of one text have one body.
    const Variant* find(const std::string& text) {
        if (variants.empty()) {
            for (const auto* family : Vellum::Kernels::families())
                for (const CatalogueEntry& entry : family->kernels())
                    for (int variant = 0; variant < static_cast<int>(entry.tuples().size()); ++variant) {
                        const auto key = entry.key(variant, Vellum::Kernels::KernelTarget::cuda).text();
                        const auto stored = Vellum::JIT::precompiledKernel(key).slot1();
                        std::string code(reinterpret_cast<const char*>(stored.data()), stored.size());
                        variants.try_emplace(code, Variant{&entry, variant, code});
                    }
        }
        const auto found = variants.find(text);
        return found == variants.end() ? nullptr : &found->second;
    }

    /// Counts a call. What it returns instead of working, or 0.
    int enter(const char* call) {
        const int all = counts["*"]++;
        const int number = failing == "*" ? (++counts[call], all) : counts[call]++;
        if ((failing != "*" && failing != call) || number < failAt || (number > failAt && !failAlways)) return success;
        return failWith;
    }
};

State& state() {
    static State& only = *new State;
    return only;
}

thread_local std::vector<void*> current;  // contexts: numbers of cards, from 1

Card* currentCard() {
    if (current.empty()) return nullptr;
    return &state().cards[reinterpret_cast<std::size_t>(current.back()) - 1];
}

/// The block that holds an address, and the offset in it; null where the range isn't within one.
Cobalt::Device::MemoryBlock* blockAt(Card& card, unsigned long long address, std::size_t bytes, std::size_t& offset) {
    auto after = card.blocks.upper_bound(address);
    if (after == card.blocks.begin()) return nullptr;
    const auto& [begin, block] = *std::prev(after);
    offset = address - begin;
    return offset + bytes <= block->bytes() ? block.get() : nullptr;
}

}  // namespace

#define ENTER(call)                                                     \
    const std::lock_guard<std::recursive_mutex> holding(state().mutex); \
    if (const int failure = state().enter(call)) return failure;
#define ENTER_WITH_CARD(call)         \
    ENTER(call)                       \
    Card* const card = currentCard(); \
    if (!card) return invalidContext;

EXPORTED void standInFail(const char* call, int number, int result, bool always) {
    const std::lock_guard holding(state().mutex);
    state().failing = call ? call : "";
    state().failAt = (call ? state().counts[call] : 0) + number;
    state().failWith = result;
    state().failAlways = always;
}
EXPORTED int standInCount(const char* call) {
    const std::lock_guard holding(state().mutex);
    return state().counts[call];
}
EXPORTED int cuInit(unsigned flags) {
    ENTER("cuInit")
    state().initialised = true;
    return flags == 0 ? success : invalidValue;
}
EXPORTED int cuDeviceGetCount(int* count) {
    ENTER("cuDeviceGetCount")
    *count = static_cast<int>(state().cards.size());
    return success;
}
EXPORTED int cuDeviceGet(int* device, int ordinal) {
    ENTER("cuDeviceGet")
    if (ordinal < 0 || ordinal >= static_cast<int>(state().cards.size())) return invalidDevice;
    *device = ordinal;
    return success;
}
EXPORTED int cuDeviceGetName(char* name, int length, int device) {
    ENTER("cuDeviceGetName")
    std::snprintf(name, static_cast<std::size_t>(length), "Stand-in GPU %d", device);
    return success;
}
EXPORTED int cuDeviceGetAttribute(int* value, int attribute, int) {
    ENTER("cuDeviceGetAttribute")
    *value = attribute == 75 ? 9 : 0;
    return success;
}
EXPORTED int cuDeviceTotalMem_v2(std::size_t* bytes, int device) {
    ENTER("cuDeviceTotalMem")
    *bytes = state().cards[static_cast<std::size_t>(device)].device->budget();
    return success;
}
EXPORTED int cuDevicePrimaryCtxRetain(void** context, int device) {
    ENTER("cuDevicePrimaryCtxRetain")
    *context = reinterpret_cast<void*>(static_cast<std::size_t>(device) + 1);
    return success;
}
EXPORTED int cuCtxPushCurrent_v2(void* context) {
    ENTER("cuCtxPushCurrent")
    current.push_back(context);
    return success;
}
EXPORTED int cuCtxPopCurrent_v2(void** context) {
    if (current.empty()) return invalidContext;
    *context = current.back();
    current.pop_back();
    return success;
}
EXPORTED int cuCtxSynchronize() {
    ENTER_WITH_CARD("cuCtxSynchronize")
    return success;
}
EXPORTED int cuMemAlloc_v2(unsigned long long* address, std::size_t bytes) {
    ENTER_WITH_CARD("cuMemAlloc")
    try {
        auto block = card->device->allocate(bytes, Cobalt::Device::bufferMemory());
        *address = reinterpret_cast<unsigned long long>(block->address());
        card->blocks[*address] = std::move(block);
        return success;
    } catch (const Vellum::Compute::Exception&) {
        return outOfMemory;
    }
}
EXPORTED int cuMemFree_v2(unsigned long long address) {
    ENTER_WITH_CARD("cuMemFree")
    return card->blocks.erase(address) == 1 ? success : invalidValue;
}
EXPORTED int cuMemcpyHtoD_v2(unsigned long long destination, const void* source, std::size_t bytes) {
    ENTER_WITH_CARD("cuMemcpyHtoD")
    std::size_t offset = 0;
    auto* block = blockAt(*card, destination, bytes, offset);
    if (!block) return invalidValue;
    card->device->upload(*block, offset, source, bytes);
    return success;
}
EXPORTED int cuMemcpyDtoH_v2(void* destination, unsigned long long source, std::size_t bytes) {
    ENTER_WITH_CARD("cuMemcpyDtoH")
    std::size_t offset = 0;
    const auto* block = blockAt(*card, source, bytes, offset);
    if (!block) return invalidValue;
    card->device->download(destination, *block, offset, bytes);
    return success;
}
EXPORTED int cuModuleLoadData(void** module, const void* text) {
    ENTER_WITH_CARD("cuModuleLoadData")
    const Variant* variant = state().find(static_cast<const char*>(text));
    *module = const_cast<Variant*>(variant);
    return variant ? success : invalidText;
}
EXPORTED int cuModuleGetFunction(void** function, void* module, const char* name) {
    ENTER_WITH_CARD("cuModuleGetFunction")
    const Variant& variant = *static_cast<const Variant*>(module);
    const std::size_t entry = variant.text.find(std::string(".entry ") + name + "(");
    if (entry == std::string::npos) return notFound;
    const std::size_t size = variant.text.find('[', entry);
    state().entryPoints.push_back(
        {&variant, name[std::strlen(name) - 1] == '4', std::strtoull(variant.text.c_str() + size + 1, nullptr, 10)});
    *function = &state().entryPoints.back();
    return success;
}
EXPORTED int cuLaunchKernel(void* function, unsigned gridX, unsigned gridY, unsigned gridZ, unsigned blockX,
                            unsigned blockY, unsigned blockZ, unsigned, void*, void** parameters, void** extra) {
    ENTER_WITH_CARD("cuLaunchKernel")
    const auto& entry = *static_cast<const EntryPoint*>(function);
    const auto tag = [&](int i) { return reinterpret_cast<std::size_t>(extra[i]); };
    if (parameters || !extra || tag(0) != 1 || tag(2) != 2 || tag(4) != 0) return invalidValue;
    constexpr unsigned mostThreads = 1024, mostGroups = 65535;
    if (blockX * blockY * blockZ > mostThreads || blockX * blockY * blockZ == 0) return invalidValue;
    if (gridY > mostGroups || gridZ > mostGroups || gridX * gridY * gridZ == 0) return invalidValue;
    if (*static_cast<std::size_t*>(extra[3]) != entry.argumentBytes) return invalidValue;
    card->device->runWorkers(*entry.variant->entry, entry.variant->number, entry.fold,
                             {int(gridX * blockX), int(gridY * blockY), int(gridZ)}, extra[1]);
    return success;
}
EXPORTED int cuGetErrorName(int error, const char** name) {
    switch (error) {
        case invalidValue:
            *name = "CUDA_ERROR_INVALID_VALUE";
            return success;
        case outOfMemory:
            *name = "CUDA_ERROR_OUT_OF_MEMORY";
            return success;
        case invalidContext:
            *name = "CUDA_ERROR_INVALID_CONTEXT";
            return success;
        case invalidText:
            *name = "CUDA_ERROR_INVALID_PTX";
            return success;
        case notFound:
            *name = "CUDA_ERROR_NOT_FOUND";
            return success;
        case illegalAddress:
            *name = "CUDA_ERROR_ILLEGAL_ADDRESS";
            return success;
        case launchFailed:
            *name = "CUDA_ERROR_LAUNCH_FAILED";
            return success;
        default:
            return invalidValue;
    }
}
