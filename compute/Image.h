#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include <vnl/vnl_vector_fixed.h>

#include "compute/Box.h"
#include "compute/Device.h"
#include "compute/Pixel.h"

namespace Vellum::Image {

using Cobalt::Device::bufferMemory;
using Cobalt::Device::DeviceBase;
using Cobalt::Device::MemoryHandle;
using Cobalt::Device::MemoryKind;

/// How storage is laid out.
struct LayoutSpec {
    std::uint32_t arrangement =
        1;  ///< 1: any; 2: the components of a pixel side by side; 3: strides stated by the caller
    std::uint32_t rowAlignment = 1;  ///< for arrangement 2, in elements
    std::uint32_t extra = 0;         ///< always 0

    friend constexpr bool operator==(const LayoutSpec&, const LayoutSpec&) = default;
};

inline constexpr LayoutSpec ordinaryLayout{1, 1, 0};

/// What an image is made from.
struct Info {
    Box box;
    std::uint32_t components = 0;
    Vellum::Pixel::DataEnum type = Vellum::Pixel::DataEnum::float32;

    friend constexpr bool operator==(const Info&, const Info&) = default;
};

/// The distance from one element to the next along one axis.
struct Stride {
    std::int64_t bytes = 0;
    std::int64_t elements = 0;
};

/// True where a view of `box` lies inside an image of `whole`: it is no wider and no higher.
constexpr bool fitsInto(const Box& box, const Box& whole) {
    const auto longer = [](std::int32_t a0, std::int32_t a1, std::int32_t b0, std::int32_t b1) {
        return std::int64_t{a1} - a0 > std::int64_t{b1} - b0;
    };
    return !longer(box.x0, box.x1, whole.x0, whole.x1) && !longer(box.y0, box.y1, whole.y0, whole.y1);
}

/// The complete geometry of one block of memory. Element (x, y, c) lies at
/// (x - box.x0) * x.elements + (y - box.y0) * y.elements + c * component.elements from the block's start.
struct Layout {
    Box box;
    std::uint32_t components = 0;
    Vellum::Pixel::DataEnum type = Vellum::Pixel::DataEnum::float32;
    LayoutSpec spec;
    Stride x;
    Stride y;
    Stride component;

    /// A layout whose byte strides the caller states.
    static Layout withStrides(const Info& info, std::int64_t xBytes, std::int64_t yBytes, std::int64_t componentBytes);
    /// Bytes from the block's start to the end of the last element.
    std::size_t extent() const;
};

/// One contiguous block of memory and its geometry; tiles may share a block.
struct Tile {
    Tile(const Layout& geometry, MemoryHandle block) : layout(geometry), memory(std::move(block)) {}

    DeviceBase* device() const { return memory ? memory->device() : nullptr; }

    Layout layout;
    MemoryHandle memory;
};

/// A raster of 1 to 4 components on one device. A value: copies share the pixels.
class Image {
public:
    /// Empty: no tile, empty box, zero components.
    Image() = default;
    /// Allocates; pixels are unspecified. Throws Cobalt::Base::Exception where the device has no room, for other than 1
    /// to 4 components and for boxes of 2^31 values or more or beyond 2^30.
    Image(const Info& info, DeviceBase& device, const LayoutSpec& spec = ordinaryLayout, unsigned flags = 0,
          const MemoryKind& kind = bufferMemory());
    /// Shares the tile's memory.
    explicit Image(const Tile& tile);

    /// As if newly made. Refused or failed, it leaves the image as it was; until it has succeeded both are in memory.
    void reset(const Info& info, DeviceBase& device, const LayoutSpec& spec = ordinaryLayout, unsigned flags = 0,
               const MemoryKind& kind = bufferMemory());

    bool empty() const { return tiles_.empty(); }
    const Info& info() const { return info_; }
    const Box& box() const { return info_.box; }
    std::uint32_t components() const { return info_.components; }
    DeviceBase* device() const { return device_; }
    const Tile& tile() const { return tiles_.front(); }

    /// The same pixels found at (x + offset.x, y + offset.y). Shares the memory.
    Image translate(const vnl_vector_fixed<int, 2>& offset) const;
    /// The first pixels of this image under another box, which may not be wider or higher. Shares the memory.
    Image subView(const Box& box) const;
    /// One component as an image of its own. Shares the memory.
    Image componentView(std::uint32_t component) const;
    /// This image on another device; shares the memory where it already lies there.
    Image distributeTo(DeviceBase& device, const MemoryKind& kind = bufferMemory()) const;
    /// A new image of the same description on a device; pixels are unspecified. Laid out alike, except that strides
    /// that a caller stated give way to the ordinary layout.
    Image makeLike(DeviceBase& device, const MemoryKind& kind = bufferMemory()) const;
    /// Copies pixels from an image of the same box and pixel type, on whatever device.
    void copyFrom(const Image& source);
    /// Writes zero to every component of every pixel.
    void clear();

    /// Address of (box().x0, box().y0), component 0. For host-accessible devices.
    float* data() const { return static_cast<float*>(tile().memory->address()); }

private:
    std::vector<Tile> tiles_;
    Info info_;
    DeviceBase* device_ = nullptr;
    MemoryKind kind_ = bufferMemory();
};

/// Wraps memory of a device without a copy; the handle keeps it alive.
Image wrapMemory(const Layout& layout, const MemoryHandle& memory, DeviceBase& device);

}  // namespace Vellum::Image

namespace Vellum::Compute {

/// The device on which an image lies, as one that runs kernels. Throws Exception for an empty image.
Device& deviceOf(const Vellum::Image::Image& image);

}  // namespace Vellum::Compute
