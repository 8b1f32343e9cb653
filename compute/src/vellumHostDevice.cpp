#include "compute/HostDevice.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "compute/Kernel.h"

namespace Vellum::Compute::Host {

namespace {

using Vellum::Image::Box;
using Vellum::Kernels::ImageArgument;
using Vellum::Kernels::ImageParameters;
using Vellum::Kernels::KernelDeclaration;
using Vellum::Kernels::Launch;
using Vellum::Kernels::LaunchFunction;
using Vellum::Kernels::mostImages;
using Vellum::Kernels::Pattern;

/// Working memory kept between uses: about 60 planes of 4096 by 2160, more than a render holds at once.
constexpr std::size_t memoryKept = std::size_t{2} << 30;
/// Launches with less work stay on the caller's thread: waking the others takes longer.
constexpr std::int64_t pixelsWorthThreads = 16384;
/// Chunks for each thread, so that a core that others use too delays the end little.
constexpr int chunksPerThread = 4;
/// Rows that share one private copy of the sums. Fixed, so that a sum doesn't depend on the number of threads.
constexpr int rowsPerSum = 32;
/// Columns are handed out in whole cache lines, and the rows of a strip one pixel wide by whole registers.
constexpr int pixelStep = 16;

/// One kernel call, ready to be cut into pieces.
class Work {
public:
    Work(const KernelCall& call, Vellum::Parallel::Threader& threader);
    void run();

private:
    enum class Cut { rows, rowSteps, columns, sumBands };

    bool hasPattern(Pattern pattern, bool writtenOnly) const;
    int rowsReached() const;
    bool onePixelCode() const;
    bool unitStride() const;
    void turnStrip();
    void chooseForm();
    void chooseCut();
    static int steps(int length) { return (length + pixelStep - 1) / pixelStep; }
    void takeSteps(int& lo, int& hi, int index) const;
    Box piece(int index) const;
    void runPiece(int index, float* accumulators);
    void runSums();

    const KernelCall& call_;
    const KernelDeclaration& declaration_;
    Vellum::Parallel::Threader& threader_;
    Box box_;
    ImageArgument images_[mostImages];
    ImageParameters imageParameters_[mostImages];
    LaunchFunction form_ = nullptr;
    Cut cut_ = Cut::rows;
    int pieces_ = 1;
};

Work::Work(const KernelCall& call, Vellum::Parallel::Threader& threader)
    : call_(call), declaration_(call.kernel.entry().declaration()), threader_(threader), box_(call.box) {
    std::copy(call.images.begin(), call.images.end(), images_);
    std::memcpy(imageParameters_, call.parameters.data() + call.kernel.entry().imageParametersOffset(),
                call.images.size() * sizeof(ImageParameters));
    const bool keepsStrip = declaration_.hostFormTakesStrips && unitStride() && !onePixelCode();
    if (!keepsStrip) turnStrip();
    chooseForm();
    chooseCut();
}

bool Work::hasPattern(Pattern pattern, bool writtenOnly) const {
    for (int i = 0; i < declaration_.images.count; ++i) {
        const auto& image = declaration_.images.list[i];
        if (image.pattern == pattern && (image.written || !writtenOnly)) return true;
    }
    return false;
}

/// A strip one pixel wide is run with its axes exchanged, so that lanes and threads go down the strip.
void Work::turnStrip() {
    const bool turns = box_.width() == 1 && box_.height() > 1 && hasPattern(Pattern::axis, false) &&
                       !hasPattern(Pattern::rectangle, false) && !hasPattern(Pattern::random, false);
    if (!turns) return;
    std::swap(box_.x0, box_.y0);
    std::swap(box_.x1, box_.y1);
    for (int i = 0; i < declaration_.images.count; ++i) {
        std::swap(images_[i].x0, images_[i].y0);
        std::swap(images_[i].x1, images_[i].y1);
        std::swap(images_[i].strideX, images_[i].strideY);
        imageParameters_[i].rangedAxisMask = ~imageParameters_[i].rangedAxisMask;
    }
}

/// How many rows besides its own a body reads in a rectangle.
int Work::rowsReached() const {
    int most = 0;
    for (int i = 0; i < declaration_.images.count; ++i)
        if (declaration_.images.list[i].pattern == Pattern::rectangle)
            most = std::max(most, imageParameters_[i].rangeMax[1] - imageParameters_[i].rangeMin[1]);
    return most;
}

bool Work::onePixelCode() const {
    return call_.kernel.flags() == Vellum::CodeGen::Flags::onePixel && Vellum::CodeGen::onePixelCodeServed();
}

bool Work::unitStride() const {
    return std::all_of(images_, images_ + declaration_.images.count,
                       [](const ImageArgument& image) { return image.strideX == 1; });
}

void Work::chooseForm() {
    const auto& entry = call_.kernel.entry();
    const int variant = call_.kernel.variant();
    const bool chosen = declaration_.hostFormTakes && declaration_.hostFormTakes(images_);
    form_ = onePixelCode() ? entry.onePixelForm(variant) : entry.packedForm(variant, chosen || unitStride());
}

void Work::chooseCut() {
    if (declaration_.passes == 2) {
        cut_ = Cut::sumBands;
        pieces_ = (box_.height() + rowsPerSum - 1) / rowsPerSum;
        return;
    }
    if (declaration_.inRasterOrder) return;
    const std::int64_t components = declaration_.perComponent ? call_.c1 - call_.c0 : 1;
    // A body that writes along an axis walks a whole line at each pixel.
    const bool small = box_.pixels() * components < pixelsWorthThreads && !hasPattern(Pattern::axis, true) &&
                       !declaration_.costlyPixels;
    if (small || threader_.threads() == 1 || !Vellum::Parallel::ThreadingEnabled()) return;
    int wanted = threader_.threads() * chunksPerThread;
    // A form that reads rows round its own begins each piece with those, so pieces are several times as high.
    const int reached = rowsReached();
    if (reached > 0) wanted = std::clamp(box_.height() / (2 * reached), threader_.threads(), wanted);
    if (box_.height() < wanted && steps(box_.width()) > box_.height()) {
        cut_ = Cut::columns;
        pieces_ = std::min(wanted, steps(box_.width()));
    } else if (box_.width() == 1) {
        cut_ = Cut::rowSteps;
        pieces_ = std::min(wanted, steps(box_.height()));
    } else {
        pieces_ = std::min(wanted, box_.height());
    }
}

/// The share of a range that is handed out in whole steps.
void Work::takeSteps(int& lo, int& hi, int index) const {
    int first = 0;
    int last = steps(hi - lo);
    Vellum::Parallel::DivideRange(first, last, index, pieces_);
    hi = std::min(lo + last * pixelStep, hi);
    lo += first * pixelStep;
}

Box Work::piece(int index) const {
    Box part = box_;
    if (cut_ == Cut::sumBands) {
        part.y0 = box_.y0 + index * rowsPerSum;
        part.y1 = std::min(part.y0 + rowsPerSum, box_.y1);
    } else if (cut_ == Cut::rows) {
        Vellum::Parallel::DivideRange(part.y0, part.y1, index, pieces_);
    } else if (cut_ == Cut::rowSteps) {
        takeSteps(part.y0, part.y1, index);
    } else {
        takeSteps(part.x0, part.x1, index);
    }
    return part;
}

void Work::runPiece(int index, float* accumulators) {
    const Box part = piece(index);
    form_(Launch{part.x0, part.y0, part.x1, part.y1, call_.c0, call_.c1, images_, imageParameters_,
                 call_.parameters.data(), accumulators});
}

void Work::runSums() {
    const std::size_t fields = call_.accumulators.size();
    std::vector<float> slots(pieces_ * fields);
    auto band = [&](int index) {
        declaration_.startResults(slots.data() + index * fields);
        runPiece(index, slots.data() + index * fields);
    };
    const bool small = box_.pixels() < pixelsWorthThreads || !Vellum::Parallel::ThreadingEnabled();
    if (small)
        for (int index = 0; index < pieces_; ++index)
            band(index);
    else
        Vellum::Parallel::forEachIndex(threader_, pieces_, band);
    for (int index = 0; index < pieces_; ++index)
        declaration_.foldResults(call_.accumulators.data(), slots.data() + index * fields);
}

void Work::run() {
    if (cut_ == Cut::sumBands)
        runSums();
    else if (pieces_ <= 1)
        runPiece(0, nullptr);
    else
        Vellum::Parallel::forEachIndex(threader_, pieces_, [&](int index) { runPiece(index, nullptr); });
}

}  // namespace

Device::Device()
    : name_("CPU"), threader_(Vellum::Parallel::MakeThreader(0)), pool_(std::make_shared<MemoryPool>(memoryKept)) {}

Cobalt::Device::MemoryHandle Device::allocate(std::size_t bytes, const Cobalt::Device::MemoryKind&) {
    auto block = pool_->allocate(bytes);
    block->placeOn(*this);
    return block;
}

void Device::upload(Cobalt::Device::MemoryBlock& destination, std::size_t offset, const void* source,
                    std::size_t bytes) {
    std::memcpy(static_cast<char*>(destination.address()) + offset, source, bytes);
}

void Device::download(void* destination, const Cobalt::Device::MemoryBlock& source, std::size_t offset,
                      std::size_t bytes) {
    std::memcpy(destination, static_cast<const char*>(source.address()) + offset, bytes);
}

void Device::run(const KernelCall& call) {
    const auto threads = threader();
    Work(call, *threads).run();
}

Vellum::Parallel::ThreaderPointer Device::threader() const {
    const std::scoped_lock lock(threaderMutex_);
    return threader_;
}

void Device::setThreader(Vellum::Parallel::ThreaderPointer threader) {
    const std::scoped_lock lock(threaderMutex_);
    threader_.swap(threader);  // the former one may end its threads: outside the lock
}

Device& hostDevice() {
    return static_cast<Device&>(VellumLibrary::GetCurrentCPUContext()->device());
}

void setThreads(int threads) {
    hostDevice().setThreader(Vellum::Parallel::MakeThreader(threads));
}

}  // namespace Vellum::Compute::Host
