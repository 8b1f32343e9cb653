#pragma once

#include <map>
#include <string>
#include <vector>

#include "compute/Image.h"

namespace Vellum::Utils::BufferManagement {

using Vellum::Image::Box;
using Vellum::Image::bufferMemory;
using Vellum::Image::DeviceBase;
using Vellum::Image::Image;
using Vellum::Image::Info;
using Vellum::Image::LayoutSpec;
using Vellum::Image::MemoryKind;
using Vellum::Image::ordinaryLayout;

/// Owns the working images of one render by name, on the primary device until an allocation there fails; then
/// everything moves to the fallback device and stays there. Belongs to one thread.
class BufferManager {
public:
    /// For a render on the CPU both are the CPU device. Neither is owned.
    BufferManager(DeviceBase& primaryDevice, DeviceBase& fallbackDevice);
    BufferManager(const BufferManager&) = delete;
    BufferManager& operator=(const BufferManager&) = delete;
    virtual ~BufferManager() = default;

    bool sameDevices() const { return primaryDevice_ == fallbackDevice_; }
    /// The fallback device.
    DeviceBase* device() const { return fallbackDevice_; }
    DeviceBase* currentDevice() const { return currentDevice_; }

    // Guarded: a first failure moves everything to the fallback device and tries once more there; a second failure
    // reaches the caller. An image or tuple already under the name is replaced: it makes room before the new one is
    // allocated, and stays empty if that fails. A new name is entered only with its image.
    Image& allocate(const std::string& name, const Info& info, const LayoutSpec& spec = ordinaryLayout,
                    unsigned flags = 0, const MemoryKind& kind = bufferMemory());
    Image& adopt(const std::string& name, const Image& image);
    std::vector<Image>& allocateTuple(const std::string& name, std::size_t count, const Info& info,
                                      const LayoutSpec& spec = ordinaryLayout, unsigned flags = 0,
                                      const MemoryKind& kind = bufferMemory());
    /// One image for each box, in the order of the boxes.
    std::vector<Image>& allocateTupleOfBoxes(const std::string& name, const std::vector<Box>& boxes,
                                             std::uint32_t components, Vellum::Pixel::DataEnum type,
                                             const LayoutSpec& spec = ordinaryLayout, unsigned flags = 0,
                                             const MemoryKind& kind = bufferMemory());

    /// A view of the named image's first pixels under `box`. Empty where the name is unknown or the box is larger.
    Image imageView(const std::string& name, const Box& box) const;
    /// The same for each member of a tuple. Empty where the name is unknown.
    std::vector<Image> tupleView(const std::string& name, const Box& box) const;

    /// Parks the image on the fallback device. An unknown name gives an empty image. Failures reach the caller.
    Image& toFallback(const std::string& name);
    /// Brings it back to the current device, guarded.
    Image& toCurrent(const std::string& name);
    std::vector<Image>& tupleToFallback(const std::string& name);
    std::vector<Image>& tupleToCurrent(const std::string& name);

    /// The stored image or tuple; an empty one where the name is unknown.
    Image& image(const std::string& name);
    std::vector<Image>& tuple(const std::string& name);

    void release(const std::string& name);
    void releaseTuple(const std::string& name);

    bool hasImage(const std::string& name) const { return images_.contains(name); }
    bool hasTuple(const std::string& name) const { return tuples_.contains(name); }

    /// Continues on the fallback device with all pixels. With `warn` says so on the standard output.
    void moveToFallback(bool warn);
    /// Continues on the fallback device with nothing: after a failure of the device its pixels can't be trusted.
    void switchToFallback(bool warn);

private:
    template <class Step>
    auto guarded(Step&& step) -> decltype(step());

    Image emptyImage_;
    std::vector<Image> emptyTuple_;
    std::map<std::string, Image> images_;
    std::map<std::string, std::vector<Image>> tuples_;
    DeviceBase* primaryDevice_;
    DeviceBase* fallbackDevice_;
    DeviceBase* currentDevice_;
};

/// Gives one of the manager's images the life of a scope.
class BufferManagedImage {
public:
    BufferManagedImage(BufferManager& manager, const Info& info, const LayoutSpec& spec = ordinaryLayout,
                       unsigned flags = 0, const MemoryKind& kind = bufferMemory());
    BufferManagedImage(BufferManager& manager, const Image& image);
    BufferManagedImage(const BufferManagedImage&) = delete;
    BufferManagedImage& operator=(const BufferManagedImage&) = delete;
    virtual ~BufferManagedImage();

    /// The image in the manager. After release(), or once the manager has dropped all images, an empty one.
    Image& image() const;
    BufferManagedImage& toFallback();
    BufferManagedImage& toCurrent();
    void release();

private:
    BufferManager* manager_;
    std::string name_;
};

/// The same for a tuple.
class BufferManagedImageTuple {
public:
    BufferManagedImageTuple(BufferManager& manager, std::size_t count, const Info& info,
                            const LayoutSpec& spec = ordinaryLayout, unsigned flags = 0,
                            const MemoryKind& kind = bufferMemory());
    BufferManagedImageTuple(BufferManager& manager, const std::vector<Box>& boxes, std::uint32_t components,
                            Vellum::Pixel::DataEnum type, const LayoutSpec& spec = ordinaryLayout, unsigned flags = 0,
                            const MemoryKind& kind = bufferMemory());
    BufferManagedImageTuple(const BufferManagedImageTuple&) = delete;
    BufferManagedImageTuple& operator=(const BufferManagedImageTuple&) = delete;
    virtual ~BufferManagedImageTuple();

    std::vector<Image>& images() const;
    BufferManagedImageTuple& toFallback();
    BufferManagedImageTuple& toCurrent();
    void release();

private:
    BufferManager* manager_;
    std::string name_;
};

}  // namespace Vellum::Utils::BufferManagement
