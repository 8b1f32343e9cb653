#include "compute/BufferManagement/BufferManager.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "base/Exception.h"
#include "base/Failure.h"

namespace Vellum::Utils::BufferManagement {

namespace {

/// A name that is no key of the map yet.
template <class Taken>
std::string freshName(Taken&& taken) {
    std::string name;
    do
        name = std::to_string(static_cast<unsigned>(std::rand()));
    while (taken(name));
    return name;
}

std::vector<Image> makeAll(const std::vector<Box>& boxes, std::uint32_t components, Vellum::Pixel::DataEnum type,
                           const LayoutSpec& spec, unsigned flags, const MemoryKind& kind, DeviceBase& device) {
    std::vector<Image> images;
    images.reserve(boxes.size());
    for (const Box& box : boxes)
        images.emplace_back(Info{box, components, type}, device, spec, flags, kind);
    return images;
}

void distribute(std::vector<Image>& images, DeviceBase& device) {
    for (Image& image : images)
        image = image.distributeTo(device);
}

Image viewOrEmpty(const Image& image, const Box& box) {
    const bool fits = !image.empty() && Vellum::Image::fitsInto(box, image.box());
    return fits ? image.subView(box) : Image();
}

}  // namespace

BufferManager::BufferManager(DeviceBase& primaryDevice, DeviceBase& fallbackDevice)
    : primaryDevice_(&primaryDevice), fallbackDevice_(&fallbackDevice), currentDevice_(&primaryDevice) {}

template <class Step>
auto BufferManager::guarded(Step&& step) -> decltype(step()) {
    try {
        return step();
    } catch (...) {
        moveToFallback(true);
    }
    return step();
}

Image& BufferManager::allocate(const std::string& name, const Info& info, const LayoutSpec& spec, unsigned flags,
                               const MemoryKind& kind) {
    const Info wanted = info;  // the caller may hand over that of the image that is replaced
    if (const auto replaced = images_.find(name); replaced != images_.end()) replaced->second = Image();
    return guarded([&]() -> Image& {
        Image image(wanted, *currentDevice_, spec, flags, kind);
        return images_[name] = std::move(image);
    });
}

Image& BufferManager::adopt(const std::string& name, const Image& image) {
    return guarded([&]() -> Image& {
        Image adopted = image.distributeTo(*currentDevice_);
        return images_[name] = std::move(adopted);
    });
}

std::vector<Image>& BufferManager::allocateTuple(const std::string& name, std::size_t count, const Info& info,
                                                 const LayoutSpec& spec, unsigned flags, const MemoryKind& kind) {
    return allocateTupleOfBoxes(name, std::vector<Box>(count, info.box), info.components, info.type, spec, flags, kind);
}

std::vector<Image>& BufferManager::allocateTupleOfBoxes(const std::string& name, const std::vector<Box>& boxes,
                                                        std::uint32_t components, Vellum::Pixel::DataEnum type,
                                                        const LayoutSpec& spec, unsigned flags,
                                                        const MemoryKind& kind) {
    if (const auto replaced = tuples_.find(name); replaced != tuples_.end()) replaced->second.clear();
    return guarded([&]() -> std::vector<Image>& {
        auto images = makeAll(boxes, components, type, spec, flags, kind, *currentDevice_);
        return tuples_[name] = std::move(images);
    });
}

Image BufferManager::imageView(const std::string& name, const Box& box) const {
    const auto found = images_.find(name);
    return found == images_.end() ? Image() : viewOrEmpty(found->second, box);
}

std::vector<Image> BufferManager::tupleView(const std::string& name, const Box& box) const {
    const auto found = tuples_.find(name);
    if (found == tuples_.end()) return emptyTuple_;
    std::vector<Image> views;
    for (const Image& image : found->second)
        views.push_back(viewOrEmpty(image, box));
    return views;
}

Image& BufferManager::toFallback(const std::string& name) {
    const auto found = images_.find(name);
    if (found == images_.end()) return emptyImage_ = Image();
    return found->second = found->second.distributeTo(*fallbackDevice_);
}

Image& BufferManager::toCurrent(const std::string& name) {
    const auto found = images_.find(name);
    if (found == images_.end()) return emptyImage_ = Image();
    return guarded([&]() -> Image& { return found->second = found->second.distributeTo(*currentDevice_); });
}

std::vector<Image>& BufferManager::tupleToFallback(const std::string& name) {
    const auto found = tuples_.find(name);
    if (found == tuples_.end()) return emptyTuple_ = {};
    distribute(found->second, *fallbackDevice_);
    return found->second;
}

std::vector<Image>& BufferManager::tupleToCurrent(const std::string& name) {
    const auto found = tuples_.find(name);
    if (found == tuples_.end()) return emptyTuple_ = {};
    return guarded([&]() -> std::vector<Image>& {
        distribute(found->second, *currentDevice_);
        return found->second;
    });
}

Image& BufferManager::image(const std::string& name) {
    const auto found = images_.find(name);
    return found == images_.end() ? emptyImage_ = Image() : found->second;
}

std::vector<Image>& BufferManager::tuple(const std::string& name) {
    const auto found = tuples_.find(name);
    return found == tuples_.end() ? emptyTuple_ = {} : found->second;
}

void BufferManager::release(const std::string& name) {
    images_.erase(name);
}

void BufferManager::releaseTuple(const std::string& name) {
    tuples_.erase(name);
}

void BufferManager::tell(Fallback::Cause cause, const char* line) const {
    if (observer_ &&
        observer_({cause, !sameDevices(), std::current_exception() ? Cobalt::Base::currentFailure() : std::string()}))
        return;
    std::cout << line << std::endl;
}

void BufferManager::moveToFallback(bool warn) {
    if (warn) tell(Fallback::Cause::allocation, "Warning: not enough memory on GPU, switching to CPU.");
    currentDevice_ = fallbackDevice_;
    for (auto& [name, image] : images_)
        image = image.distributeTo(*currentDevice_);
    for (auto& [name, tuple] : tuples_)
        distribute(tuple, *currentDevice_);
}

void BufferManager::switchToFallback(bool warn) {
    if (warn) tell(Fallback::Cause::failure, "Warning: switching to CPU.");
    images_.clear();
    tuples_.clear();
    moveToFallback(false);
}

BufferManagedImage::BufferManagedImage(BufferManager& manager, const Info& info, const LayoutSpec& spec, unsigned flags,
                                       const MemoryKind& kind)
    : manager_(&manager), name_(freshName([&](const std::string& name) { return manager.hasImage(name); })) {
    manager.allocate(name_, info, spec, flags, kind);
}

BufferManagedImage::BufferManagedImage(BufferManager& manager, const Image& image)
    : manager_(&manager), name_(freshName([&](const std::string& name) { return manager.hasImage(name); })) {
    manager.adopt(name_, image);
}

BufferManagedImage::~BufferManagedImage() {
    release();
}

Image& BufferManagedImage::image() const {
    return manager_->image(name_);
}

BufferManagedImage& BufferManagedImage::toFallback() {
    manager_->toFallback(name_);
    return *this;
}

BufferManagedImage& BufferManagedImage::toCurrent() {
    manager_->toCurrent(name_);
    return *this;
}

void BufferManagedImage::release() {
    manager_->release(name_);
    name_.clear();  // another handle may draw the same name now
}

BufferManagedImageTuple::BufferManagedImageTuple(BufferManager& manager, std::size_t count, const Info& info,
                                                 const LayoutSpec& spec, unsigned flags, const MemoryKind& kind)
    : manager_(&manager), name_(freshName([&](const std::string& name) { return manager.hasTuple(name); })) {
    manager.allocateTuple(name_, count, info, spec, flags, kind);
}

BufferManagedImageTuple::BufferManagedImageTuple(BufferManager& manager, const std::vector<Box>& boxes,
                                                 std::uint32_t components, Vellum::Pixel::DataEnum type,
                                                 const LayoutSpec& spec, unsigned flags, const MemoryKind& kind)
    : manager_(&manager), name_(freshName([&](const std::string& name) { return manager.hasTuple(name); })) {
    manager.allocateTupleOfBoxes(name_, boxes, components, type, spec, flags, kind);
}

BufferManagedImageTuple::~BufferManagedImageTuple() {
    release();
}

std::vector<Image>& BufferManagedImageTuple::images() const {
    return manager_->tuple(name_);
}

BufferManagedImageTuple& BufferManagedImageTuple::toFallback() {
    manager_->tupleToFallback(name_);
    return *this;
}

BufferManagedImageTuple& BufferManagedImageTuple::toCurrent() {
    manager_->tupleToCurrent(name_);
    return *this;
}

void BufferManagedImageTuple::release() {
    manager_->releaseTuple(name_);
    name_.clear();
}

}  // namespace Vellum::Utils::BufferManagement
