#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "compute/Device.h"
#include "host/sdk/Info.h"

namespace Fresco::Image {

/// Many readers or one writer.
class ReadWriteLock {
public:
    class Reading : public std::shared_lock<std::shared_mutex> {
    public:
        explicit Reading(ReadWriteLock& lock) : std::shared_lock<std::shared_mutex>(lock.mutex_) {}
    };
    class Writing : public std::unique_lock<std::shared_mutex> {
    public:
        explicit Writing(ReadWriteLock& lock) : std::unique_lock<std::shared_mutex>(lock.mutex_) {}
    };

private:
    std::shared_mutex mutex_;
};

/// The pixels of a plane, shared by reference count. They come from the host device's recycling pool.
class RefCountedFloatBuffer {
public:
    /// No pixels.
    RefCountedFloatBuffer() = default;
    /// For that many planes of that many pixels. Contents are unspecified. Throws Cobalt::Base::Exception where there
    /// is no room, also for a number of bytes that no integer holds.
    RefCountedFloatBuffer(std::int64_t pixels, std::uint32_t planes)
        : memory_(VellumLibrary::GetCurrentCPUContext()->device().allocate(bytesFor(pixels, planes),
                                                                           Cobalt::Device::bufferMemory())) {}

    explicit operator bool() const { return memory_ != nullptr; }
    float* data() const { return static_cast<float*>(memory_->address()); }
    /// A share of the memory, which keeps the pixels alive when the plane goes.
    const Cobalt::Device::MemoryHandle& getBuffer() const { return memory_; }

private:
    static std::size_t bytesFor(std::int64_t pixels, std::uint32_t planes) {
        std::size_t bytes = 0;
        const bool tooMany =
            __builtin_mul_overflow(pixels, planes, &bytes) || __builtin_mul_overflow(bytes, sizeof(float), &bytes);
        return tooMany ? std::numeric_limits<std::size_t>::max() : bytes;  // which no device has
    }

    Cobalt::Device::MemoryHandle memory_;
};

/// Pixels of some channels in a box, 32-bit float, lowest row first. Packed: the components of a pixel side by side;
/// planar: one plane after the other; rows without gaps either way. The buffer is made when it is first written.
class ImagePlane {
public:
    ImagePlane(const Box& box, bool packed, ChannelSet channels)
        : box_(box), packed_(packed), channels_(std::move(channels)) {}
    ImagePlane(const ImagePlane&) = delete;
    ImagePlane& operator=(const ImagePlane&) = delete;

    const Box& box() const { return box_; }
    bool packed() const { return packed_; }
    const ChannelSet& channels() const { return channels_; }
    std::uint32_t components() const { return static_cast<std::uint32_t>(channels_.size()); }

    // Strides in floats.
    std::int64_t pixelStride() const { return packed_ ? components() : 1; }
    std::int64_t rowStride() const { return pixelStride() * box_.width(); }
    std::int64_t channelStride() const { return packed_ ? 1 : box_.pixels(); }

    /// The pixels, or an empty buffer before the first write.
    RefCountedFloatBuffer buffer() const {
        const ReadWriteLock::Reading reading(lock_);
        return buffer_;
    }
    /// The pixels, made if need be; new ones are unspecified. Any thread.
    RefCountedFloatBuffer writableBuffer() {
        if (RefCountedFloatBuffer made = buffer()) return made;
        const ReadWriteLock::Writing writing(lock_);
        if (!buffer_) buffer_ = RefCountedFloatBuffer(box_.pixels(), components());
        return buffer_;
    }

    /// The address of component `index` of pixel (x, y). The plane has a buffer, the pixel lies in its box.
    float* at(int x, int y, int index) const {
        return buffer_.data() + (x - box_.x0) * pixelStride() + (y - box_.y0) * rowStride() + index * channelStride();
    }

private:
    Box box_;
    bool packed_;
    ChannelSet channels_;
    mutable ReadWriteLock lock_;
    RefCountedFloatBuffer buffer_;
};

}  // namespace Fresco::Image
