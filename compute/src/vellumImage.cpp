#include "compute/Image.h"

#include <algorithm>
#include <cstring>

// The template members, so that no library of VXL needs to be linked.
#include <vnl/vnl_vector_fixed.hxx>

#include "base/Ensure.h"
#include "compute/Exception.h"
#include "compute/HostDevice.h"

namespace Vellum::Image {

namespace {

constexpr std::int64_t floatsPerLine = 16;  // of 64 bytes

/// Planar: rows of whole cache lines, an odd number of lines each, and one line between planes. A power of two between
/// rows makes a column of pixels compete for a few places of the cache and costs up to 3.5 times in vertical filters.
Layout planarLayout(const Info& info, const LayoutSpec& spec) {
    const std::int64_t width = std::max(info.box.width(), 1);
    const std::int64_t rowElements = ((width + floatsPerLine - 1) / floatsPerLine | 1) * floatsPerLine;
    const std::int64_t planeElements = rowElements * std::max(info.box.height(), 1) + floatsPerLine;
    const std::int64_t size = Vellum::Pixel::DataSize(info.type);
    Layout layout = Layout::withStrides(info, size, rowElements * size, planeElements * size);
    layout.spec = spec;
    return layout;
}

/// The components of a pixel side by side, rows of a multiple of spec.rowAlignment elements.
Layout adjacentLayout(const Info& info, const LayoutSpec& spec) {
    const std::int64_t size = Vellum::Pixel::DataSize(info.type);
    const std::int64_t alignment = std::max<std::int64_t>(spec.rowAlignment, 1);
    const std::int64_t used = std::int64_t{info.box.width()} * info.components;
    const std::int64_t rowElements = (used + alignment - 1) / alignment * alignment;
    Layout layout = Layout::withStrides(info, info.components * size, rowElements * size, size);
    layout.spec = spec;
    return layout;
}

Layout layoutFor(const Info& info, const LayoutSpec& spec) {
    return spec.arrangement == 2 ? adjacentLayout(info, spec) : planarLayout(info, spec);
}

/// Kernels count the elements of a plane in 32 bits, rows padded.
void requirePossible(const Info& info) {
    if (info.components < 1 || info.components > 4)
        Vellum::Compute::fail("An image has 1 to 4 components, not " + std::to_string(info.components) + ".");
    if (info.box.empty()) return;
    constexpr std::int64_t most = std::int64_t{1} << 30;
    const Box& box = info.box;
    const bool corners = std::min(box.x0, box.y0) >= -most && std::max(box.x1, box.y1) <= most;
    // Not Box::width(), which wraps round at 2^31. Divided, because the product might not fit into 64 bits.
    const std::int64_t paddedWidth = std::int64_t{box.x1} - box.x0 + 2 * floatsPerLine;
    const std::int64_t rows = std::int64_t{box.y1} - box.y0;
    if (!corners || rows > (2 * most - 1) / (paddedWidth * info.components))
        Vellum::Compute::fail("An image of " + toString(box) + " and " + std::to_string(info.components) +
                              " components is too large: it may have 2^31 values.");
}

Tile allocateTile(const Layout& layout, DeviceBase& device, const MemoryKind& kind) {
    return Tile(layout, device.allocate(layout.extent(), kind));
}

char* addressOf(const Tile& tile, int row, std::uint32_t component) {
    return static_cast<char*>(tile.memory->address()) + row * tile.layout.y.bytes +
           component * tile.layout.component.bytes;
}

bool rowsAreContiguous(const Layout& layout) {
    return layout.x.bytes == Vellum::Pixel::DataSize(layout.type);
}

void copyRow(const Tile& from, const Tile& to, int row, std::uint32_t component) {
    const char* source = addressOf(from, row, component);
    char* destination = addressOf(to, row, component);
    const std::size_t size = Vellum::Pixel::DataSize(to.layout.type);
    const int width = to.layout.box.width();
    if (rowsAreContiguous(from.layout) && rowsAreContiguous(to.layout)) {
        std::memcpy(destination, source, width * size);
        return;
    }
    for (int x = 0; x < width; ++x)
        std::memcpy(destination + x * to.layout.x.bytes, source + x * from.layout.x.bytes, size);
}

/// Calls row(y, c) for each row and component, on the host's threads where the image is large.
template <class Row>
void forEachRow(const Layout& layout, Row&& row) {
    const int height = std::max(layout.box.height(), 0);
    auto rows = [&](int from, int to) {
        for (std::uint32_t c = 0; c < layout.components; ++c)
            for (int y = from; y < to; ++y)
                row(y, c);
    };
    constexpr std::int64_t pixelsWorthThreads = 65536;
    if (layout.box.pixels() < pixelsWorthThreads || !Vellum::Parallel::ThreadingEnabled()) {
        rows(0, height);
        return;
    }
    const auto threader = Vellum::Compute::Host::hostDevice().threader();
    const int pieces = std::min(height, threader->threads() * 4);
    Vellum::Parallel::forEachIndex(*threader, pieces, [&](int index) {
        int lo = 0;
        int hi = height;
        Vellum::Parallel::DivideRange(lo, hi, index, pieces);
        rows(lo, hi);
    });
}

/// A copy of the pixels in the host device's memory, in the tile's own layout.
Tile downloaded(const Tile& tile) {
    Tile copy = allocateTile(tile.layout, Vellum::Compute::Host::hostDevice(), bufferMemory());
    tile.device()->download(copy.memory->address(), *tile.memory, 0, tile.layout.extent());
    return copy;
}

}  // namespace

Layout Layout::withStrides(const Info& info, std::int64_t xBytes, std::int64_t yBytes, std::int64_t componentBytes) {
    const std::int64_t size = std::max<std::int64_t>(Vellum::Pixel::DataSize(info.type), 1);
    auto stride = [size](std::int64_t bytes) { return Stride{bytes, bytes / size}; };
    return {info.box, info.components, info.type, {3, 1, 0}, stride(xBytes), stride(yBytes), stride(componentBytes)};
}

std::size_t Layout::extent() const {
    if (box.empty() || components == 0) return 0;
    return (box.width() - 1) * x.bytes + (box.height() - 1) * y.bytes + (components - 1) * component.bytes +
           Vellum::Pixel::DataSize(type);
}

Image::Image(const Info& info, DeviceBase& device, const LayoutSpec& spec, unsigned flags, const MemoryKind& kind) {
    reset(info, device, spec, flags, kind);
}

Image::Image(const Tile& tile)
    : tiles_{tile}, info_{tile.layout.box, tile.layout.components, tile.layout.type}, device_(tile.device()) {}

void Image::reset(const Info& info, DeviceBase& device, const LayoutSpec& spec, unsigned, const MemoryKind& kind) {
    requirePossible(info);
    Image made;
    made.tiles_.push_back(allocateTile(layoutFor(info, spec), device, kind));
    made.info_ = info;
    made.device_ = &device;
    made.kind_ = kind;
    *this = std::move(made);
}

Image Image::translate(const vnl_vector_fixed<int, 2>& offset) const {
    Image moved = *this;
    const Box box{info_.box.x0 + offset[0], info_.box.y0 + offset[1], info_.box.x1 + offset[0],
                  info_.box.y1 + offset[1]};
    moved.info_.box = box;
    for (Tile& tile : moved.tiles_)
        tile.layout.box = box;
    return moved;
}

Image Image::subView(const Box& box) const {
    ENSURE(!empty(), "a view of an empty image");
    ENSURE(fitsInto(box, info_.box), "a view of {} over an image of {}", toString(box), toString(info_.box));
    Tile view = tile();
    const Layout& layout = view.layout;
    view.layout = Layout::withStrides({box, info_.components, info_.type}, layout.x.bytes, layout.y.bytes,
                                      layout.component.bytes);
    Image image(view);
    image.kind_ = kind_;
    return image;
}

namespace {

/// A block within a block, which it keeps alive.
class PartOfBlock final : public Cobalt::Device::MemoryBlock {
public:
    PartOfBlock(const MemoryHandle& whole, std::size_t offset)
        : MemoryBlock(static_cast<char*>(whole->address()) + offset, whole->bytes() - offset), whole_(whole) {
        placeOn(*whole->device());
    }

private:
    MemoryHandle whole_;
};

}  // namespace

Image Image::componentView(std::uint32_t component) const {
    ENSURE(component < components(), "component {} of an image of {}", component, components());
    const Layout& layout = tile().layout;
    const Layout one =
        Layout::withStrides({info_.box, 1, info_.type}, layout.x.bytes, layout.y.bytes, layout.component.bytes);
    const auto offset = static_cast<std::size_t>(component * layout.component.bytes);
    Image image(Tile(one, MemoryHandle(new PartOfBlock(tile().memory, offset))));
    image.kind_ = kind_;
    return image;
}

Image Image::distributeTo(DeviceBase& device, const MemoryKind& kind) const {
    if (empty() || device_ == &device) return *this;
    Image copy = makeLike(device, kind);
    copy.copyFrom(*this);
    return copy;
}

Image Image::makeLike(DeviceBase& device, const MemoryKind& kind) const {
    if (empty()) return {};
    const LayoutSpec& spec = tile().layout.spec;
    return Image(info_, device, spec.arrangement == 3 ? ordinaryLayout : spec, 0, kind);
}

void Image::copyFrom(const Image& source) {
    ENSURE_COMPARE(source.box(), ==, box());
    ENSURE(source.components() == components() && source.info_.type == info_.type, "the pixel types differ");
    if (empty() || box().empty()) return;
    const Tile from = source.device_->hostAccessible() ? source.tile() : downloaded(source.tile());
    if (device_->hostAccessible()) {
        forEachRow(tile().layout, [&](int y, std::uint32_t c) { copyRow(from, tile(), y, c); });
        return;
    }
    // What lies between the rows of a view belongs to others: it goes down and up again unchanged.
    const Tile staged = downloaded(tile());
    forEachRow(tile().layout, [&](int y, std::uint32_t c) { copyRow(from, staged, y, c); });
    device_->upload(*tile().memory, 0, staged.memory->address(), tile().layout.extent());
}

void Image::clear() {
    if (empty() || box().empty()) return;
    if (!device_->hostAccessible()) {
        Image zero(info_, Vellum::Compute::Host::hostDevice());
        zero.clear();
        copyFrom(zero);
        return;
    }
    const Tile& target = tile();
    const std::size_t size = Vellum::Pixel::DataSize(info_.type);
    forEachRow(target.layout, [&](int y, std::uint32_t c) {
        char* row = addressOf(target, y, c);
        if (rowsAreContiguous(target.layout)) {
            std::memset(row, 0, box().width() * size);
            return;
        }
        for (int x = 0; x < box().width(); ++x)
            std::memset(row + x * target.layout.x.bytes, 0, size);
    });
}

Image wrapMemory(const Layout& layout, const MemoryHandle& memory, DeviceBase& device) {
    memory->placeOn(device);
    return Image(Tile(layout, memory));
}

}  // namespace Vellum::Image
