#include "host/files/ImageCacheDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <istream>
#include <ostream>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/Failure.h"
#include "host/files/MultiViewFile.h"
#include "host/files/SealedFile.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

using Cobalt::Base::systemText;

static_assert(sizeof(Seal) == ImageCacheDirectory::sealBytes);

constexpr std::string_view resultSuffix = ".vlm";
constexpr std::string_view unfinishedSuffix = ".part";
/// Whoever has made a file holds its lock well before that. Younger ones may be about to be locked.
constexpr std::time_t secondsToLock = 3600;

std::string nameOf(const Fresco::Image::Hash& key) {
    return fmt::format("{:016x}{}", key.value(), resultSuffix);
}

/// A name of its own for each writer, that ends like no result.
std::string temporaryNameFor(const std::string& name) {
    static std::atomic<unsigned> number = 0;
    return fmt::format("{}.{}-{}{}", name, ::getpid(), ++number, unfinishedSuffix);
}

/// The folder as it is now, for calls that name files in it: nobody can put another in its place meanwhile.
struct Folder {
    Descriptor descriptor;
    std::string problem;  ///< why it can't be used; empty where it can

    explicit Folder(const fs::path& path) : descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        struct stat status {};
        if (!descriptor || ::fstat(descriptor.value(), &status) != 0)
            problem = systemText(errno);
        else if (status.st_uid != ::geteuid())
            problem = "it belongs to another user, who could put false results there; name a folder of your own";
        else if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
            problem = fmt::format(
                "others may write to it and could put false results there; take that right away with "
                "'chmod go-w {}', or name a folder of your own",
                path.string());
    }
};

struct Entry {
    std::string name;
    std::uint64_t bytes;
    timespec read;
};

bool isEarlier(const Entry& a, const Entry& b) {
    return std::pair(a.read.tv_sec, a.read.tv_nsec) < std::pair(b.read.tv_sec, b.read.tv_nsec);
}

/// Takes away a temporary file that no living process holds.
void removeIfAbandoned(int folder, const std::string& name, const struct stat& status) {
    if (std::time(nullptr) - status.st_mtim.tv_sec < secondsToLock) return;
    const Descriptor file(::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file && ::flock(file.value(), LOCK_EX | LOCK_NB) == 0) ::unlinkat(folder, name.c_str(), 0);
}

/// The results in a folder; takes away what was left behind. Files of other kinds are let be.
std::vector<Entry> entriesOf(const Descriptor& folder) {
    std::vector<Entry> entries;
    const int again = ::openat(folder.value(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* listing = again < 0 ? nullptr : ::fdopendir(again);
    if (!listing) return entries;
    while (const dirent* found = ::readdir(listing)) {
        const std::string name = found->d_name;
        struct stat status {};
        if (::fstatat(folder.value(), found->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (!S_ISREG(status.st_mode)) continue;
        if (name.ends_with(resultSuffix))
            entries.push_back({name, static_cast<std::uint64_t>(status.st_size), status.st_mtim});
        if (name.ends_with(unfinishedSuffix)) removeIfAbandoned(folder.value(), name, status);
    }
    ::closedir(listing);
    return entries;
}

std::uint64_t sumOf(const std::vector<Entry>& entries) {
    std::uint64_t sum = 0;
    for (const Entry& entry : entries)
        sum += entry.bytes;
    return sum;
}

/// A stream that owns what it reads from.
class ResultStream : public std::istream {
public:
    explicit ResultStream(std::unique_ptr<SealedReader> reader)
        : std::istream(reader.get()), reader_(std::move(reader)) {}

private:
    std::unique_ptr<SealedReader> reader_;
};

FileError cannot(const char* act, const fs::path& directory, const std::string& reason) {
    return FileError(fmt::format("Cannot {} the folder '{}' for --cache: {}.", act, directory.string(), reason));
}

}  // namespace

/// Written under a temporary name, locked for as long as it is in the making.
class ImageCacheDirectory::SealedNewFile : public NewFile {
public:
    /// Throws nothing: where the folder takes no file, `error` tells why.
    SealedNewFile(ImageCacheDirectory& cache, Descriptor folder, const Hash& key)
        : cache_(cache),
          folder_(std::move(folder)),
          name_(nameOf(key)),
          temporary_(temporaryNameFor(name_)),
          writer_(create(), key.value()),
          stream_(&writer_) {}
    ~SealedNewFile() override {
        if (pending_) ::unlinkat(folder_.value(), temporary_.c_str(), 0);
    }

    int error() const { return error_; }
    std::ostream& stream() override { return stream_; }
    bool commit() override {
        if (!writer_.finish()) error_ = writer_.error();
        if (error_ == 0 && ::renameat(folder_.value(), temporary_.c_str(), folder_.value(), name_.c_str()) != 0)
            error_ = errno;
        if (error_ != 0)
            cache_.tell(systemText(error_));
        else
            pending_ = false;
        return error_ == 0;
    }

private:
    Descriptor create() {
        constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
        Descriptor file(::openat(folder_.value(), temporary_.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly));
        pending_ = static_cast<bool>(file);
        if (!file)
            error_ = errno;
        else
            ::flock(file.value(), LOCK_EX | LOCK_NB);
        return file;
    }

    ImageCacheDirectory& cache_;
    Descriptor folder_;
    std::string name_, temporary_;
    bool pending_ = false;
    int error_ = 0;
    SealedWriter writer_;
    std::ostream stream_;
};

ImageCacheDirectory::ImageCacheDirectory(fs::path directory, std::uint64_t budgetBytes)
    : directory_(std::move(directory)), budget_(budgetBytes) {
    std::error_code failed;
    const fs::path whole = directory_.lexically_normal();
    const fs::path bare = whole.has_filename() ? whole : whole.parent_path();  // without a slash behind it
    if (bare.has_parent_path()) fs::create_directories(bare.parent_path(), failed);
    if (failed) throw cannot("make", directory_, failed.message());
    if (::mkdir(bare.c_str(), S_IRWXU) != 0 && errno != EEXIST) throw cannot("make", directory_, systemText(errno));
    const Folder folder(directory_);
    if (!folder.descriptor) throw cannot("make", directory_, folder.problem);
    if (!folder.problem.empty()) throw cannot("use", directory_, folder.problem);
    if (::faccessat(folder.descriptor.value(), ".", W_OK | X_OK, AT_EACCESS) != 0)
        throw cannot("use", directory_, systemText(errno));
    used_ = sumOf(entriesOf(folder.descriptor));
    former_ = setMainCache(this);
}

ImageCacheDirectory::~ImageCacheDirectory() {
    setMainCache(former_);
}

void ImageCacheDirectory::tell(const std::string& reason) {
    {
        const std::lock_guard holding(mutex_);
        if (std::exchange(told_, true)) return;
    }
    if (warn)
        warn(fmt::format("the folder '{}' for --cache takes no more results ({}); the render goes on without it.",
                         directory_.string(), reason));
}

std::unique_ptr<std::istream> ImageCacheDirectory::open(const Hash& key) {
    const Folder folder(directory_);
    if (!folder.problem.empty()) return nullptr;
    const std::string name = nameOf(key);
    Descriptor file(::openat(folder.descriptor.value(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        if (errno == ELOOP) remove_file(key);  // a link: nothing of ours
        return nullptr;
    }
    ::futimens(file.value(), nullptr);  // the time tells which files are in use
    auto reader = SealedReader::open(std::move(file), key.value());
    if (!reader) {
        remove_file(key);
        return nullptr;
    }
    return std::make_unique<ResultStream>(std::move(reader));
}

bool ImageCacheDirectory::has_file(const Hash& key) const {
    const Folder folder(directory_);
    struct stat status {};
    return folder.problem.empty() &&
           ::fstatat(folder.descriptor.value(), nameOf(key).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(status.st_mode);
}

std::unique_ptr<Fresco::Image::Image_Cache::NewFile> ImageCacheDirectory::add_file(const Hash& key, std::size_t bytes) {
    const std::uint64_t wanted = bytes + sealBytes;
    if (wanted > budget_) {
        tell(fmt::format("--cache-size is smaller than one result, which takes {} bytes", wanted));
        return nullptr;
    }
    Folder folder(directory_);
    if (!folder.problem.empty()) {
        tell(folder.problem);
        return nullptr;
    }
    {
        const std::lock_guard holding(mutex_);
        if (used_ + wanted > budget_) makeRoom(folder.descriptor, wanted);
        used_ += wanted;
    }
    auto file = std::make_unique<SealedNewFile>(*this, std::move(folder.descriptor), key);
    if (file->error() == 0) return file;
    tell(systemText(file->error()));
    return nullptr;
}

void ImageCacheDirectory::remove_file(const Hash& key) {
    const Folder folder(directory_);
    if (folder.problem.empty()) ::unlinkat(folder.descriptor.value(), nameOf(key).c_str(), 0);
}

void ImageCacheDirectory::makeRoom(const Descriptor& folder, std::uint64_t bytes) {
    std::vector<Entry> entries = entriesOf(folder);
    std::ranges::sort(entries, isEarlier);
    used_ = sumOf(entries);
    for (const Entry& entry : entries) {
        if (used_ + bytes <= budget_) break;
        ::unlinkat(folder.value(), entry.name.c_str(), 0);
        used_ -= entry.bytes;
    }
}

}  // namespace ViewTint::Host
