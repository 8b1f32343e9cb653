#pragma once

#include <cstddef>
#include <filesystem>
#include <istream>
#include <memory>
#include <utility>

#include "host/sdk/Hash.h"

namespace Fresco::Image {

/// Results on disk that outlive the program: one file for each key, in a directory with a budget. Whatever goes wrong
/// there is silent: a result that isn't found is computed. Any thread; several processes may share a directory.
class Image_Cache {
public:
    virtual ~Image_Cache() = default;

    /// The host's cache, or null where it keeps none.
    static Image_Cache* mainCache() { return main_; }
    /// Returns the former one.
    static Image_Cache* setMainCache(Image_Cache* cache) { return std::exchange(main_, cache); }

    /// The file of a key for reading, or null.
    virtual std::unique_ptr<std::istream> open(const Hash& key) = 0;
    virtual bool has_file(const Hash& key) const = 0;
    /// Makes room for a new file, at the cost of those that were not read for longest. False where it can't.
    virtual bool add_file(const Hash& key, std::size_t bytes) = 0;
    /// Where the file of a key is, or is to be put: complete, by renaming a temporary file in the same folder.
    virtual std::filesystem::path filename(const Hash& key) const = 0;
    /// Takes away a file that is damaged.
    virtual void remove_file(const Hash& key) = 0;

private:
    static inline Image_Cache* main_ = nullptr;
};

/// Whether an artist works with the host, so that results are worth keeping.
inline bool IsGUIActive() {
    return Image_Cache::mainCache() != nullptr;
}

}  // namespace Fresco::Image
