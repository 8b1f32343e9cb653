#include "host/files/Picture.h"

#include <ImfTestFile.h>
#include <dlfcn.h>
#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include "base/Failure.h"
#include "compute/Threader.h"
#include "host/files/AtomicFile.h"
#include "host/files/ExrScan.h"
#include "host/files/InputFile.h"
#include "host/files/PictureCodec.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

std::atomic<int> threads = 0;
constexpr std::uint64_t exrMagicBytes = 4;

/// From where it was built, or from beside the program.
void* loadLibrary() {
    constexpr const char* name = "libviewtint_pictures.so";
    if (void* library = ::dlopen(name, RTLD_LAZY | RTLD_LOCAL)) return library;
    std::error_code failed;
    const fs::path beside = fs::read_symlink("/proc/self/exe", failed).parent_path() / name;
    return ::dlopen(beside.c_str(), RTLD_LAZY | RTLD_LOCAL);
}

/// Libraries beneath the one for pictures start threads while they are loaded, and hang or end the program where they
/// can't. Throws FileError there.
void requireThreads() {
    int needed = 8;
    if (!std::getenv("OPENIMAGEIO_THREADS")) needed += static_cast<int>(std::thread::hardware_concurrency());
    if (Vellum::Parallel::startableThreads(needed) < needed)
        throw FileError(fmt::format("Pictures other than multi-view OpenEXR need {} threads, and {}.", needed,
                                    Cobalt::Base::systemText(EAGAIN)));
}

const PictureCodec& codec() {
    static const PictureCodec* loaded = [] {
        requireThreads();
        void* library = loadLibrary();
        auto* get =
            library ? reinterpret_cast<PictureCodec::Get*>(::dlsym(library, PictureCodec::entryPoint)) : nullptr;
        if (!get)
            throw FileError(fmt::format(
                "The library for pictures other than multi-view OpenEXR can't be loaded ({}); put it beside "
                "the program, or build again.",
                ::dlerror()));
        get()->setLimits(PictureLimits::current());
        return get();
    }();
    if (const int wanted = threads.exchange(0); wanted > 0) loaded->setThreads(wanted);
    return *loaded;
}

/// Looks at what a decoder would take memory for before it does.
void requireReasonable(const fs::path& path) {
    InputFile file(path);
    if (file.size() >= exrMagicBytes && Imf::isOpenExrFile(file)) scanExr(file, path);
}

/// The decoders open files by their names.
template <class Read>
Picture readUnchanged(const fs::path& path, const char* decoding, Read read) try {
    const FileIdentity before = FileIdentity::of(path);
    requireReasonable(path);
    Picture picture = read();
    before.requireUnchanged(FileIdentity::of(path), path);
    picture.identity = before;
    picture.identity.decoding = decoding;
    return picture;
} catch (const std::bad_alloc&) {
    throw FileError(
        fmt::format("Cannot read '{}': there is not enough memory for a picture of this size.", path.string()));
}

}  // namespace

void setPictureThreads(int count) {
    threads = count;
}

Picture readPicture(const fs::path& path, Colourspace colourspace) {
    return readUnchanged(path, colourspace == Colourspace::sRGB ? "sRGB" : "linear",
                         [&] { return codec().readPicture(path, colourspace); });
}

Picture readCodes(const fs::path& path) {
    return readUnchanged(path, "codes", [&] { return codec().readCodes(path); });
}

Colourspace usualColourspace(const fs::path& path) {
    requireReasonable(path);
    return codec().usualColourspace(path);
}

std::vector<float> resizeRgb(const std::vector<float>& pixels, int width, int height, int newWidth, int newHeight) {
    return codec().resizeRgb(pixels, width, height, newWidth, newHeight);
}

void writeRgb8(const fs::path& path, int width, int height, const std::vector<std::uint8_t>& pixels) {
    const auto expected = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
    if (width < 1 || height < 1 || pixels.size() != expected) {
        throw FileError(
            fmt::format("Cannot write '{}': the pixels are not {} by {} RGB.", path.string(), width, height));
    }
    AtomicFile target(path);
    codec().encodeRgb8(path, target.temporaryPath(), width, height, pixels);
    target.commit();
}

}  // namespace ViewTint::Host
