#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "host/files/MultiViewFileContents.h"

namespace Imf = OPENEXR_IMF_NAMESPACE;

namespace OPENEXR_IMF_INTERNAL_NAMESPACE {
class InputPart;
class MultiPartInputFile;
}  // namespace OPENEXR_IMF_INTERNAL_NAMESPACE

namespace ViewTint::Host {

/// Scan lines with ZIP or ZIPS compression, for readers that want few of the channels or none. A chunk is inflated as a
/// whole; what the compression did before that, deltas of the bytes and two halves for even and odd ones, is undone for
/// the channels alone that are wanted. Of eighteen channels one takes half of the time of all.
class ZipPart {
public:
    /// Whether a part is of this kind.
    static bool serves(const Imf::Header& header);

    explicit ZipPart(const StoredPart& part);

    /// Reads the channels that have memory. Throws what the file library throws.
    void read(Imf::MultiPartInputFile& file, int index);
    /// Inflates everything, which tests the checksums. Throws likewise.
    void check(Imf::MultiPartInputFile& file, int index);

private:
    template <class Use>
    void forEachChunk(Imf::MultiPartInputFile& file, int index, Use use);
    void copyStored(std::span<const std::uint8_t> chunk, std::int64_t firstRow) const;
    void copyDeltas(std::span<const std::uint8_t> chunk, std::int64_t firstRow) const;

    /// Where a wanted channel lies in each line of a chunk.
    struct Place {
        const StoredChannel* channel;
        std::size_t offset, bytes;
    };

    const StoredPart& part_;
    std::vector<Place> places_;
    std::size_t lineBytes_ = 0;
    std::vector<std::uint8_t> inflated_;
};

}  // namespace ViewTint::Host
