#pragma once

#include <cstdint>
#include <mutex>

#include "host/sdk/ImageCache.h"

namespace ViewTint::Host {

/// A cache of results in a directory of its own. Files are read and removed without locks, so several processes can
/// share it; each keeps to its own budget. While an object exists it is the host's main cache.
class ImageCacheDirectory : public Fresco::Image::Image_Cache {
public:
    using Hash = Fresco::Image::Hash;

    /// Makes the directory where there is none. Throws FileError where it can't, or isn't allowed to write there.
    ImageCacheDirectory(std::filesystem::path directory, std::uint64_t budgetBytes);
    ~ImageCacheDirectory() override;
    ImageCacheDirectory(const ImageCacheDirectory&) = delete;
    ImageCacheDirectory& operator=(const ImageCacheDirectory&) = delete;

    std::unique_ptr<std::istream> open(const Hash& key) override;
    bool has_file(const Hash& key) const override;
    bool add_file(const Hash& key, std::size_t bytes) override;
    std::filesystem::path filename(const Hash& key) const override;
    void remove_file(const Hash& key) override;

private:
    void makeRoom(std::uint64_t bytes);

    std::filesystem::path directory_;
    std::uint64_t budget_;
    std::mutex mutex_;
    std::uint64_t used_ = 0;  ///< by the last look at the directory, and what was added since
    Image_Cache* former_;
};

}  // namespace ViewTint::Host
