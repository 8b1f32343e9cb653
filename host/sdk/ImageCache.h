#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <ostream>
#include <utility>

#include "host/sdk/Hash.h"

namespace Fresco::Image {

/// Results on disk that outlive the program: one file for each key, in a directory with a budget. Whatever goes wrong
/// there is no failure: a result that isn't found is computed. Any thread; several processes may share a directory.
///
/// What is written comes back as it was, or not at all: how a file is protected against damage is the cache's affair
/// and shows in neither stream.
class Image_Cache {
public:
    virtual ~Image_Cache() = default;

    /// The host's cache, or null where it keeps none.
    static Image_Cache* mainCache() { return main_; }
    /// Returns the former one.
    static Image_Cache* setMainCache(Image_Cache* cache) { return std::exchange(main_, cache); }

    /// A file in the making. It stands under its key after `commit`, whole, and never without.
    class NewFile {
    public:
        virtual ~NewFile() = default;
        virtual std::ostream& stream() = 0;
        /// False where the disk refused any byte of it; nothing is left then.
        virtual bool commit() = 0;
    };

    /// The file of a key for reading, or null. Damage that only the last byte tells goes bad at the end: results count
    /// once the stream is read to its end and isn't `bad()`.
    virtual std::unique_ptr<std::istream> open(const Hash& key) = 0;
    virtual bool has_file(const Hash& key) const = 0;
    /// Makes room for a new file, at the cost of those that were not read for longest. Null where it can't.
    virtual std::unique_ptr<NewFile> add_file(const Hash& key, std::size_t bytes) = 0;
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
