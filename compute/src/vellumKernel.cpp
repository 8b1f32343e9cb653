#include "compute/Kernel.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "compute/Exception.h"
#include "compute/Hash.h"
#include "compute/StageStatistics.h"

namespace Vellum::Compute {

const Vellum::Kernels::CatalogueEntry& ProgramSource::entry() const {
    const auto* entry = entry_.load(std::memory_order_acquire);
    if (entry) return *entry;
    entry = family_->find(kernel_);
    if (!entry) fail(std::string("There is no kernel \"") + kernel_ + "\".");
    entry_.store(entry, std::memory_order_release);
    return *entry;
}

}  // namespace Vellum::Compute

namespace Vellum::JIT {

namespace {

using Vellum::CodeGen::MarshalledParam;
using Vellum::Compute::fail;
using Vellum::Image::Box;
using Vellum::Kernels::EdgeMethod;
using Vellum::Kernels::ImageArgument;
using Vellum::Kernels::ImageDeclaration;
using Vellum::Kernels::ImageParameters;
using Vellum::Kernels::KernelDeclaration;
using Vellum::Kernels::Pattern;
using Vellum::Kernels::ScalarDeclaration;
using Vellum::Kernels::ScalarDeclarations;
using Vellum::Kernels::ScalarType;

constexpr std::string_view edgeColourPrefix = "constEdgeColor";

std::string named(const KernelDeclaration& kernel) {
    return std::string("Kernel \"") + kernel.name + "\"";
}

Box boxOf(const ImageArgument& image) {
    return {image.x0, image.y0, image.x1, image.y1};
}

Vellum::Kernels::PixelTypes typesOf(std::span<const Vellum::Image::Image* const> images) {
    Vellum::Kernels::PixelTypes types;
    for (const Vellum::Image::Image* image : images)
        types.append(static_cast<int>(image->components()), image->info().type == Vellum::Pixel::DataEnum::unsigned32);
    return types;
}

[[noreturn]] void noVariant(const Vellum::Kernels::CatalogueEntry& entry, const Vellum::Kernels::PixelTypes& types) {
    std::string known;
    for (const auto& tuple : entry.tuples())
        known += (known.empty() ? "" : ", ") + tuple.text();
    fail(named(entry.declaration()) + " has no variant for pixel types " + types.text() + "; there are " + known + ".");
}

ImageArgument argumentOf(const Vellum::Image::Image& image, const KernelDeclaration& kernel) {
    const auto& layout = image.tile().layout;
    for (const auto stride : {layout.x.elements, layout.y.elements, layout.component.elements})
        if (stride > std::numeric_limits<std::int32_t>::max() || stride < std::numeric_limits<std::int32_t>::min())
            fail(named(kernel) + " was given an image of " + toString(image.box()) + ", which is too large.");
    const Box& box = image.box();
    if (layout.extent() / sizeof(float) > std::numeric_limits<std::int32_t>::max())
        fail(named(kernel) + " was given an image of " + toString(box) + ", which has too many elements.");
    return {image.data(),
            box.x0,
            box.y0,
            box.x1,
            box.y1,
            static_cast<int>(layout.x.elements),
            static_cast<int>(layout.y.elements),
            static_cast<int>(layout.component.elements),
            0};
}

const ScalarDeclaration* find(const ScalarDeclarations& scalars, const ParamName& wanted) {
    for (int i = 0; i < scalars.count; ++i) {
        const char* name = scalars.list[i].name;
        if (wanted.name.empty() ? wanted.hash == Vellum::Kernels::nameHash(name) : wanted.name == name)
            return &scalars.list[i];
    }
    return nullptr;
}

std::string textOf(const ParamName& name) {
    return name.name.empty() ? "o" + Vellum::Kernels::hexadecimal(name.hash) : std::string(name.name);
}

MarshalledParam marshalled(const ScalarDeclaration& scalar, bool inAccumulator) {
    return {scalar.offset, scalar.vectorWidth, scalar.arrayLength, scalar.type, inAccumulator};
}

std::vector<NamedParam> named(const ScalarDeclarations& scalars, bool inAccumulator) {
    std::vector<NamedParam> params;
    params.reserve(scalars.count);
    for (int i = 0; i < scalars.count; ++i)
        params.push_back({scalars.list[i].name, marshalled(scalars.list[i], inAccumulator)});
    return params;
}

/// The number of the image whose outside colour the name means, or -1.
int imageOfEdgeColour(const KernelDeclaration& kernel, std::string_view name) {
    if (!name.starts_with(edgeColourPrefix)) return -1;
    name.remove_prefix(edgeColourPrefix.size());
    for (int i = 0; i < kernel.images.count; ++i)
        if (kernel.images.list[i].edge == EdgeMethod::constant && name == kernel.images.list[i].name) return i;
    return -1;
}

MarshalledParam edgeColour(const Vellum::Kernels::CatalogueEntry& entry, int image) {
    const auto offset = entry.imageParametersOffset() + image * int{sizeof(ImageParameters)} +
                        int{offsetof(ImageParameters, constEdgeColor)};
    return {offset, 4, 1, ScalarType::real, false};
}

/// Whether the pixels that a kernel touches without an edge rule, for a range of iteration pixels, are all there.
bool covers(const ImageArgument& argument, const ImageDeclaration& image, const ImageParameters& parameters,
            const Box& range) {
    std::int64_t x0 = range.x0, y0 = range.y0, x1 = range.x1, y1 = range.y1;
    if (image.pattern == Pattern::axis) {
        const bool alongY = parameters.rangedAxisMask != 0;
        (alongY ? y0 : x0) += parameters.rangeMin[0];
        (alongY ? y1 : x1) += parameters.rangeMax[0];
    } else if (image.pattern == Pattern::rectangle) {
        x0 += parameters.rangeMin[0];
        y0 += parameters.rangeMin[1];
        x1 += parameters.rangeMax[0];
        y1 += parameters.rangeMax[1];
    }
    return x0 >= argument.x0 && y0 >= argument.y0 && x1 <= argument.x1 && y1 <= argument.y1;
}

/// Whether the places that a body reads round a pixel can be counted in 32 bits, from any coordinate.
bool reachIsPossible(const ImageDeclaration& image, const ImageParameters& parameters) {
    constexpr int most = 1 << 29;
    const int axes = image.pattern == Pattern::axis ? 1 : image.pattern == Pattern::rectangle ? 2 : 0;
    for (int axis = 0; axis < axes; ++axis)
        for (const int reach : {parameters.rangeMin[axis], parameters.rangeMax[axis]})
            if (reach < -most || reach > most) return false;
    return true;
}

bool sameGeometry(const ImageArgument& a, const ImageArgument& b) {
    return boxOf(a) == boxOf(b) && a.strideX == b.strideX && a.strideY == b.strideY && a.strideC == b.strideC;
}

}  // namespace

std::vector<NamedParam> callerParams(const Vellum::Kernels::CatalogueEntry& entry) {
    const KernelDeclaration& kernel = entry.declaration();
    auto params = named(kernel.scalars, false);
    for (int i = 0; i < kernel.images.count; ++i)
        if (kernel.images.list[i].edge == EdgeMethod::constant)
            params.push_back({std::string(edgeColourPrefix) + kernel.images.list[i].name, edgeColour(entry, i)});
    return params;
}

std::vector<NamedParam> accumulatorParams(const Vellum::Kernels::CatalogueEntry& entry) {
    return named(entry.declaration().accumulators, true);
}

KernelPointer Kernel::Make(const Vellum::Kernels::CatalogueEntry& entry,
                           std::span<const Vellum::Image::Image* const> images, Vellum::CodeGen::Flags flags,
                           Cobalt::Device::APIEnum api) {
    if (flags != Vellum::CodeGen::Flags::onePixel && flags != Vellum::CodeGen::Flags::packed)
        fail(named(entry.declaration()) + " was asked for with flags " + std::to_string(static_cast<int>(flags)) +
             "; there are 1 (one pixel at a time) and 19 (packed).");
    const int wanted = entry.declaration().images.count;
    if (static_cast<int>(images.size()) != wanted)
        fail(named(entry.declaration()) + " takes " + std::to_string(wanted) + " images, not " +
             std::to_string(images.size()) + ".");
    const auto types = typesOf(images);
    const int variant = entry.variant(types);
    if (variant < 0) noVariant(entry, types);
    KernelPointer kernel(new Kernel(entry, variant, flags, api));
    if (api == Cobalt::Device::APIEnum::CUDA) kernel->findStoredCode();
    return kernel;
}

void Kernel::findStoredCode() {
    stored_ = findPrecompiledKernel(key().text());
    if (!stored_ || !stored_->hasGpuBody())
        fail(named(entry_->declaration()) + " has no code for GPUs for pixel types " +
             entry_->tuples()[static_cast<std::size_t>(variant_)].text() +
             "; this build of ViewTint was made without a compiler for them.");
    stored_->slot1();
}

KernelPointer Kernel::Make(Vellum::Compute::Context& context, const Vellum::Compute::ProgramSource& source,
                           std::span<const Vellum::Image::Image* const> images, const ParamName&,
                           Vellum::CodeGen::Flags flags, std::string*, std::string*) {
    return Make(source.entry(), images, flags, context.device().api());
}

KernelExecutionContext::KernelExecutionContext(KernelPointer kernel) : kernel_(std::move(kernel)) {
    const auto& entry = kernel_->entry();
    const bool fits = entry.parameterBytes() <= mostParameterBytes &&
                      declaration().accumulatorBytes <= static_cast<int>(sizeof accumulators_);
    if (!fits) fail(named(declaration()) + " has too many parameters or results.");
    declaration().writeDefaults(parameters_);
    std::memset(imageParameters(), 0, declaration().images.count * sizeof(ImageParameters));
}

ImageParameters* KernelExecutionContext::imageParameters() {
    return reinterpret_cast<ImageParameters*>(parameters_ + kernel_->entry().imageParametersOffset());
}

void KernelExecutionContext::setImageParamBindings(std::span<const Vellum::Image::Image* const> images) {
    if (static_cast<int>(images.size()) != declaration().images.count)
        fail(named(declaration()) + " takes " + std::to_string(declaration().images.count) + " images, not " +
             std::to_string(images.size()) + ".");
    imageCount_ = static_cast<int>(images.size());
    for (int i = 0; i < imageCount_; ++i) {
        if (images[i]->empty())
            fail(named(declaration()) + " was given an empty image as \"" + declaration().images.list[i].name + "\".");
        images_[i] = argumentOf(*images[i], declaration());
        components_[i] = static_cast<int>(images[i]->components());
        devices_[i] = images[i]->device();
    }
    derivedAreStale_ = true;  // they may depend on the boxes
}

MarshalledParam KernelExecutionContext::getMarshalledParamThrow(const ParamName& name) const {
    const KernelDeclaration& kernel = declaration();
    if (const auto* scalar = find(kernel.scalars, name)) return marshalled(*scalar, false);
    if (const auto* result = find(kernel.accumulators, name)) return marshalled(*result, true);
    if (const int image = imageOfEdgeColour(kernel, name.name); image >= 0) return edgeColour(kernel_->entry(), image);
    std::string known;
    for (const auto& scalar : callerParams(kernel_->entry()))
        known += (known.empty() ? "" : ", ") + scalar.name;
    fail(named(kernel) + " has no parameter \"" + textOf(name) + "\"; " +
         (known.empty() ? "it has none." : "there are " + known + "."));
}

void KernelExecutionContext::badType(const ParamName& name, const MarshalledParam& param) const {
    fail(named(declaration()) + ": parameter \"" + textOf(name) + "\" is " +
         typeText(param.type, param.count * param.arrayLength) + " and was used as another type.");
}

void KernelExecutionContext::writeScalar(const ParamName& name, ScalarType type, int elements, const void* bytes,
                                         int size) {
    const MarshalledParam param = getMarshalledParamThrow(name);
    if (param.type != type || param.count * param.arrayLength != elements || param.inAccumulator) badType(name, param);
    std::byte* place = parameters_ + param.offset;
    if (std::memcmp(place, bytes, size) == 0) return;
    std::memcpy(place, bytes, size);
    dirty_ = true;
}

void KernelExecutionContext::readScalar(const ParamName& name, ScalarType type, int elements, void* bytes,
                                        int size) const {
    const MarshalledParam param = getMarshalledParamThrow(name);
    if (param.type != type || param.count * param.arrayLength != elements) badType(name, param);
    const auto* block = param.inAccumulator ? reinterpret_cast<const std::byte*>(accumulators_.data()) : parameters_;
    std::memcpy(bytes, block + param.offset, size);
}

/// The image whose box and components the default range covers.
int KernelExecutionContext::imageOfRange() const {
    for (int i = imageCount_ - 1; i >= 0; --i)
        if (declaration().images.list[i].written) return i;
    return imageCount_ - 1;
}

/// A body trusts its range: every pixel that it touches without an edge rule must be there, and nothing that it reads
/// beside its own pixel may be written in the same call.
void KernelExecutionContext::checkReach(const Box& box, int c0, int c1) {
    const KernelDeclaration& kernel = declaration();
    for (int i = 0; i < imageCount_; ++i) {
        const ImageDeclaration& image = kernel.images.list[i];
        const auto imageName = [&] { return std::string(" image \"") + image.name + "\""; };
        if (boxOf(images_[i]).empty()) fail(named(kernel) + imageName() + " has no pixels.");
        if (kernel.perComponent && (c0 < 0 || c1 > components_[i]))
            fail(named(kernel) + " runs over components " + std::to_string(c0) + " to " + std::to_string(c1 - 1) +
                 ", but" + imageName() + " has " + std::to_string(components_[i]) + ".");
        const bool bounded = image.pattern != Pattern::random && image.edge == EdgeMethod::none;
        if (bounded && !covers(images_[i], image, imageParameters()[i], box))
            fail(named(kernel) + " runs over " + toString(box) + " and reads or writes pixels that" + imageName() +
                 " of " + toString(boxOf(images_[i])) + " doesn't have.");
        if (!bounded && !reachIsPossible(image, imageParameters()[i]))
            fail(named(kernel) + " would read" + imageName() + " too far from a pixel.");
        if (image.written) continue;
        for (int j = 0; j < imageCount_; ++j) {
            if (!kernel.images.list[j].written || images_[j].data != images_[i].data) continue;
            if (image.pattern != Pattern::point || !sameGeometry(images_[i], images_[j]))
                fail(named(kernel) + " can't write into the image that it reads as \"" + image.name + "\".");
        }
    }
}

/// A pixel's bytes in every image, over the range.
std::uint64_t KernelExecutionContext::bytesTouched(const Box& box, int components) const {
    std::uint64_t perPixel = 0;
    for (int i = 0; i < imageCount_; ++i)
        perPixel += sizeof(float) * (declaration().perComponent ? components : components_[i]);
    return perPixel * static_cast<std::uint64_t>(box.pixels());
}

void KernelExecutionContext::iterate(Vellum::Compute::Device& device, const IterationController& controller) {
    if (imageCount_ == 0) fail(named(declaration()) + " was started without images.");
    for (int i = 0; i < imageCount_; ++i)
        if (devices_[i] != &device)
            fail(named(declaration()) + " image \"" + declaration().images.list[i].name +
                 "\" lies on another device than the one that is to run it.");
    const int ranging = imageOfRange();
    Box box{controller.x0, controller.y0, controller.x1, controller.y1};
    const bool wholeImage = box == Box{} && controller.c0 == 0 && controller.c1 == 0;
    if (wholeImage) box = boxOf(images_[ranging]);
    declaration().startResults(accumulators_.data());
    if (box.empty()) return;
    const bool allComponents = controller.c0 == 0 && controller.c1 == 0;
    const int c0 = controller.c0;
    const int c1 = allComponents ? components_[ranging] : controller.c1;
    if (c1 <= c0) return;

    if (dirty_ || derivedAreStale_) {
        declaration().derive(parameters_, images_.data(), imageParameters());
        dirty_ = derivedAreStale_ = false;
    }
    checkReach(box, c0, c1);
    if (Vellum::Compute::Stage::counting()) Vellum::Compute::Stage::countKernelCall(bytesTouched(box, c1 - c0));
    device.run({*kernel_,
                box,
                c0,
                c1,
                {images_.data(), static_cast<std::size_t>(imageCount_)},
                {parameters_, static_cast<std::size_t>(kernel_->entry().parameterBytes())},
                {accumulators_.data(), static_cast<std::size_t>(declaration().accumulatorBytes) / sizeof(float)}});
}

}  // namespace Vellum::JIT
