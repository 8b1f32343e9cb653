#include <algorithm>
#include <complex>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "FFT/Exceptions.h"
#include "FFT/HostFourierTransform.h"
#include "FFT/PaddedSizes.h"
#include "compute/Exception.h"
#include "vellumDftiCalls.h"

namespace Vellum::FFT::Host {

namespace {

using Vellum::Image::Tile;
using Complex = std::complex<float>;

constexpr auto floats = Vellum::Pixel::DataEnum::float32;

/// Throws for a status that is an error.
void check(MKL_LONG status, int line, const char* function) {
    const DftiCalls& library = dftiCalls();
    if (status == 0 || library.errorClass(status, DFTI_NO_ERROR)) return;
    FFTException failure;
    failure.set("UserMessage", "FFT error: %%(Error)%%.");
    failure.set("Error", library.errorMessage(status));
    Cobalt::Base::raise(std::move(failure), Cobalt::Base::ThrowPlace{"vellumHostFFT_MKL", line, function});
}

template <class Value>
Value* rowOf(const Tile& tile, int y) {
    return reinterpret_cast<Value*>(static_cast<char*>(tile.memory->address()) + y * tile.layout.y.bytes);
}

bool isPacked(const Image& image, std::uint32_t components) {
    const auto& layout = image.tile().layout;
    return image.components() == components && layout.x.elements == components &&
           (components == 1 || layout.component.elements == 1);
}

}  // namespace

/// The two descriptors of one size.
class FFTPlan {
public:
    FFTPlan(Compute::Host::Device& device, const Box& box) : device_(device), box_(box) {
        try {
            commit();
        } catch (...) {
            releaseQuietly();
            throw;
        }
    }
    FFTPlan(const FFTPlan&) = delete;
    FFTPlan& operator=(const FFTPlan&) = delete;
    /// Where a descriptor can't be freed there is nobody left to tell: whoever wants to know calls release().
    ~FFTPlan() { releaseQuietly(); }

    /// Frees the descriptors; throws FFTException.
    void release() {
        const auto free = [&](DFTI_DESCRIPTOR_HANDLE& descriptor, int line) {
            if (!descriptor) return;
            DFTI_DESCRIPTOR_HANDLE freed = std::exchange(descriptor, nullptr);
            check(dftiCalls().freeDescriptor(&freed), line, "Vellum::FFT::Host::FFTPlan::~FFTPlan");
        };
        free(rowDescriptor_, __LINE__);
        free(columnDescriptor_, __LINE__);
    }

    Compute::Host::Device& device() const { return device_; }
    const Box& box() const { return box_; }
    DFTI_DESCRIPTOR_HANDLE row() const { return rowDescriptor_; }
    DFTI_DESCRIPTOR_HANDLE column() const { return columnDescriptor_; }

private:
    void commit() {
        const DftiCalls& library = dftiCalls();
        const MKL_LONG threads = device_.threader()->threads();
        const auto checked = [](MKL_LONG status, int line) {
            check(status, line, "Vellum::FFT::Host::FFTPlan::FFTPlan");
        };
        checked(library.createDescriptor(&rowDescriptor_, DFTI_REAL, box_.width()), __LINE__);
        checked(library.setValue(rowDescriptor_, DFTI_NUMBER_OF_USER_THREADS, threads), __LINE__);
        checked(library.setValue(rowDescriptor_, DFTI_PLACEMENT, DFTI_NOT_INPLACE), __LINE__);
        checked(library.setValue(rowDescriptor_, DFTI_CONJUGATE_EVEN_STORAGE, DFTI_COMPLEX_COMPLEX), __LINE__);
        checked(library.commitDescriptor(rowDescriptor_), __LINE__);
        checked(library.createDescriptor(&columnDescriptor_, DFTI_COMPLEX, box_.height()), __LINE__);
        checked(library.setValue(columnDescriptor_, DFTI_NUMBER_OF_USER_THREADS, threads), __LINE__);
        checked(library.commitDescriptor(columnDescriptor_), __LINE__);
    }
    void releaseQuietly() noexcept {
        while (rowDescriptor_ || columnDescriptor_) {
            try {
                release();
            } catch (...) {
                // The next round frees the other one.
            }
        }
    }

    Compute::Host::Device& device_;
    Box box_;
    DFTI_DESCRIPTOR_HANDLE rowDescriptor_ = nullptr;
    DFTI_DESCRIPTOR_HANDLE columnDescriptor_ = nullptr;
};

namespace {

constexpr int forwards = 1;

/// One-dimensional transforms of rows, forward from real to complex, or back.
template <int direction>
class RowTransform {
public:
    RowTransform(const FFTPlan& plan, const Tile& source, const Tile& destination)
        : plan_(plan), source_(source), destination_(destination) {}

    void iterate(int first, int last) const {
        const DftiCalls& library = dftiCalls();
        for (int y = first; y < last; ++y) {
            if constexpr (direction == forwards)
                check(library.computeForward(plan_.row(), rowOf<float>(source_, y), rowOf<Complex>(destination_, y)),
                      __LINE__, "Vellum::FFT::Host::RowTransform<1>::iterate");
            else
                check(library.computeBackward(plan_.row(), rowOf<Complex>(source_, y), rowOf<float>(destination_, y)),
                      __LINE__, "Vellum::FFT::Host::RowTransform<0>::iterate");
        }
    }

private:
    const FFTPlan& plan_;
    const Tile& source_;
    const Tile& destination_;
};

/// Memory of the library's own, aligned for it.
class GatherBuffer {
public:
    explicit GatherBuffer(std::size_t count) {
        constexpr int alignment = 128;
        values_ = static_cast<Complex*>(dftiCalls().allocate(count * sizeof(Complex), alignment));
        if (!values_)
            Cobalt::Base::raise(Compute::MemoryException("There is not enough memory for a Fourier transform."));
    }
    GatherBuffer(const GatherBuffer&) = delete;
    GatherBuffer& operator=(const GatherBuffer&) = delete;
    ~GatherBuffer() { dftiCalls().release(values_); }

    Complex* data() const { return values_; }

private:
    Complex* values_;
};

/// One-dimensional complex transforms of columns, in place. Several neighbours are gathered at a time, so that whole
/// cache lines are read and written.
template <int direction>
class ColumnTransform {
public:
    ColumnTransform(const FFTPlan& plan, const Tile& spectrum) : plan_(plan), spectrum_(spectrum) {}

    void iterate(int first, int last) const {
        const GatherBuffer buffer(static_cast<std::size_t>(abreast) * length());
        for (int x = first; x < last; x += abreast) {
            const int count = std::min(abreast, last - x);
            gather(x, count, buffer.data());
            for (int i = 0; i < count; ++i)
                transform(buffer.data() + i * length());
            scatter(x, count, buffer.data());
        }
    }

private:
    static constexpr int abreast = 16;
    /// Columns begin a little more than their height apart: at a power of two they would compete for the cache.
    static constexpr int gap = 16;

    std::size_t length() const { return static_cast<std::size_t>(height() + gap); }
    int height() const { return spectrum_.layout.box.height(); }

    void gather(int x, int count, Complex* columns) const {
        for (int y = 0; y < height(); ++y) {
            const Complex* row = rowOf<Complex>(spectrum_, y) + x;
            for (int i = 0; i < count; ++i)
                columns[i * length() + y] = row[i];
        }
    }
    void scatter(int x, int count, const Complex* columns) const {
        for (int y = 0; y < height(); ++y) {
            Complex* row = rowOf<Complex>(spectrum_, y) + x;
            for (int i = 0; i < count; ++i)
                row[i] = columns[i * length() + y];
        }
    }
    void transform(Complex* column) const {
        const DftiCalls& library = dftiCalls();
        if constexpr (direction == forwards)
            check(library.computeForwardInPlace(plan_.column(), column), __LINE__,
                  "Vellum::FFT::Host::ColumnTransform<1>::iterate");
        else
            check(library.computeBackwardInPlace(plan_.column(), column), __LINE__,
                  "Vellum::FFT::Host::ColumnTransform<0>::iterate");
    }

    const FFTPlan& plan_;
    const Tile& spectrum_;
};

/// Hands a range of rows or columns to the device's threads, each a share of it.
template <class Transform>
void runPass(const Compute::Host::Device& device, const Transform& transform, int first, int last) {
    const auto threader = device.threader();
    const int items = last - first;
    const int threads = Parallel::ThreadingEnabled() ? std::clamp(items, 1, threader->threads()) : 1;
    if (threads == 1) {
        transform.iterate(first, last);
        return;
    }
    Parallel::forEachIndex(*threader, threads, [&](int index) {
        int lo = first, hi = last;
        Parallel::DivideRange(lo, hi, index, threads);
        transform.iterate(lo, hi);
    });
}

}  // namespace

Box FourierTransformHelper::paddedSize(const Box& box) const {
    return {0, 0, hostPaddedLength(box.width()), hostPaddedLength(box.height())};
}

FourierTransform::FourierTransform(Compute::Host::Device& device) : FFT::FourierTransform(device) {}

FourierTransform::~FourierTransform() = default;

void FourierTransform::planFor(const Box& box) {
    if (plan_ && plan_->box() == box) return;
    if (plan_) {
        const std::unique_ptr<FFTPlan> former = std::move(plan_);
        former->release();
    }
    plan_ = std::make_unique<FFTPlan>(static_cast<Compute::Host::Device&>(device()), box);
}

void FourierTransform::forward(Image& output, const Image& input, bool skipRows, const RowBand& band) {
    if (input.box().empty() || !isPacked(input, 1))
        Compute::fail(
            "A Fourier transform needs a picture of one component whose neighbouring pixels lie side by side.");
    planFor(input.box());
    const Image real = input;  // the output may be the same image
    output.reset({spectrumSize(real.box()), 2, floats}, device(), complexLayout());
    const Tile& spectrum = output.tile();
    const RowTransform<forwards> rows(*plan_, real.tile(), spectrum);
    const int height = real.box().height();
    if (skipRows) {
        const int first = std::clamp(band.first, 0, height), last = std::clamp(band.last, first, height);
        const std::size_t rowBytes = static_cast<std::size_t>(output.box().width()) * sizeof(Complex);
        for (int y = first; y < last; ++y)
            std::memset(static_cast<void*>(rowOf<Complex>(spectrum, y)), 0, rowBytes);
        runPass(plan_->device(), rows, 0, first);
        runPass(plan_->device(), rows, last, height);
    } else {
        runPass(plan_->device(), rows, 0, height);
    }
    runPass(plan_->device(), ColumnTransform<forwards>(*plan_, spectrum), 0, output.box().width());
}

void FourierTransform::reverse(Image& output, Image& spectrum) {
    if (!plan_) Compute::fail("A reverse Fourier transform needs a forward one of the same size before it.");
    const Box expected = spectrumSize(plan_->box());
    if (spectrum.box().width() != expected.width() || spectrum.box().height() != expected.height() ||
        !isPacked(spectrum, 2))
        Compute::fail("A reverse Fourier transform needs a spectrum of " + std::to_string(expected.width()) + " x " +
                      std::to_string(expected.height()) + " complex numbers, as the last forward one gave.");
    const Image complex = spectrum;
    output.reset({plan_->box(), 1, floats}, device(), realLayout());
    runPass(plan_->device(), ColumnTransform<1 - forwards>(*plan_, complex.tile()), 0, expected.width());
    runPass(plan_->device(), RowTransform<1 - forwards>(*plan_, complex.tile(), output.tile()), 0,
            plan_->box().height());
}

}  // namespace Vellum::FFT::Host
