#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>

#include "host/files/Descriptor.h"
#include "host/sdk/ImageCache.h"

namespace ViewTint::Host {

/// A cache of results in a directory of its own. Files are read and removed without locks, so several processes can
/// share it; each keeps to its own budget. While an object exists it is the host's main cache.
///
/// Each file is what was written, then a Seal (host/files/SealedFile.h). One that was cut short, changed, or put under
/// the name of another counts as absent and is taken away. The folder belongs to the user alone, files can be read by
/// nobody else, and no link in it is followed: what lies there gets into pictures unseen.
class ImageCacheDirectory : public Fresco::Image::Image_Cache {
public:
    using Hash = Fresco::Image::Hash;
    /// How much longer a file is than what was written.
    static constexpr std::size_t sealBytes = 24;

    /// Makes the directory where there is none. Throws FileError where it can't, isn't allowed to write there, or
    /// others may write there as well.
    ImageCacheDirectory(std::filesystem::path directory, std::uint64_t budgetBytes);
    ~ImageCacheDirectory() override;
    ImageCacheDirectory(const ImageCacheDirectory&) = delete;
    ImageCacheDirectory& operator=(const ImageCacheDirectory&) = delete;

    /// Told in one sentence, once, when the directory takes a result no longer; renders go on without.
    std::function<void(const std::string& sentence)> warn;

    std::unique_ptr<std::istream> open(const Hash& key) override;
    bool has_file(const Hash& key) const override;
    std::unique_ptr<NewFile> add_file(const Hash& key, std::size_t bytes) override;
    void remove_file(const Hash& key) override;

private:
    class SealedNewFile;

    void makeRoom(const Descriptor& folder, std::uint64_t bytes);
    void tell(const std::string& reason);

    std::filesystem::path directory_;
    std::uint64_t budget_;
    std::mutex mutex_;
    std::uint64_t used_ = 0;  ///< by the last look at the directory, and what was added since
    bool told_ = false;
    Image_Cache* former_;
};

}  // namespace ViewTint::Host
