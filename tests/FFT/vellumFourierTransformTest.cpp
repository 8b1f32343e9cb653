#include "FFT/FourierTransform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <complex>
#include <numbers>

#include "FFT/Exceptions.h"
#include "FFT/HostFourierTransform.h"
#include "FFT/PaddedSizes.h"
#include "FFT/src/vellumDftiCalls.h"

#include "compute/Exception.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::FFT::FourierTransform;
using Vellum::FFT::FourierTransformHelper;
using Vellum::FFT::Host::DftiCalls;
using Vellum::FFT::Host::DftiCallsScope;
using Vellum::FFT::Host::FFTException;
using Vellum::FFT::Host::libraryDftiCalls;
using Complex = std::complex<double>;

class Fourier : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::FFT::registerKernels(); }
};

Image real(const Pixels& pixels) {
    Image image({pixels.box(), 1}, hostDevice(), Vellum::FFT::Host::rowLayout);
    image.copyFrom(TestImage(pixels, Arrangement::planar).image());
    return image;
}

/// The sum over rows, then over columns, in double.
std::vector<Complex> spectrumOf(const Pixels& pixels) {
    const Box& box = pixels.box();
    const int width = box.width(), height = box.height(), columns = width / 2 + 1;
    const auto turn = [](int product, int length) {
        return std::polar(1.0, -2 * std::numbers::pi * (product % length) / length);
    };
    std::vector<Complex> rows(static_cast<std::size_t>(columns) * height), all(rows.size());
    for (int y = 0; y < height; ++y)
        for (int u = 0; u < columns; ++u)
            for (int x = 0; x < width; ++x)
                rows[y * columns + u] += double{pixels.at(box.x0 + x, box.y0 + y, 0)} * turn(u * x, width);
    for (int v = 0; v < height; ++v)
        for (int u = 0; u < columns; ++u)
            for (int y = 0; y < height; ++y)
                all[v * columns + u] += rows[y * columns + u] * turn(v * y, height);
    return all;
}

void expectSpectrum(const Pixels& expectedOf, const Image& spectrum) {
    const auto expected = spectrumOf(expectedOf);
    const Pixels actual = pixelsOf(spectrum);
    const Box& box = expectedOf.box();
    ASSERT_EQ(actual.box(), (Box{0, 0, box.width() / 2 + 1, box.height()}));
    ASSERT_EQ(actual.components(), 2);
    double largest = 0, error = 0;
    for (int v = 0; v < actual.box().y1; ++v)
        for (int u = 0; u < actual.box().x1; ++u) {
            const Complex& e = expected[v * actual.box().x1 + u];
            largest = std::max(largest, std::abs(e));
            error = std::max(error, std::abs(e - Complex(actual.at(u, v, 0), actual.at(u, v, 1))));
        }
    EXPECT_LT(error, 1e-6 * (1 + largest)) << toString(box);
}

/// The largest error of a way forward and back, over the largest value.
double errorOfRoundTrip(FourierTransform& transform, const Pixels& pixels) {
    Image spectrum, back;
    transform.forward(spectrum, real(pixels));
    transform.reverse(back, spectrum);
    EXPECT_EQ(back.box(), pixels.box());
    const Pixels actual = pixelsOf(back);
    double error = 0;
    pixels.forEach([&](int x, int y, int) {
        const double value = actual.at(x, y, 0) / static_cast<double>(pixels.box().pixels());
        error = std::max(error, std::abs(value - pixels.at(x, y, 0)));
    });
    return error;
}

/// Counts the calls of the library and lets one of them fail.
struct Library {
    static inline std::atomic<int> call = 0;  // the passes run on several threads
    static inline int failing = -1;
    static inline int descriptors = 0, created = 0;
    static inline std::atomic<int> buffers = 0;
    static constexpr MKL_LONG failure = DFTI_MEMORY_ERROR;

    static bool fails() { return call++ == failing; }

    Library() : scope(calls()) { call = 0, buffers = 0, created = descriptors = 0, failing = -1; }
    DftiCallsScope scope;

    static const DftiCalls& calls() {
        static const DftiCalls table = [] {
            DftiCalls t = libraryDftiCalls();
            t.createDescriptor = [](DFTI_DESCRIPTOR_HANDLE* handle, DFTI_CONFIG_VALUE domain, MKL_LONG length) {
                if (fails()) return failure;
                ++descriptors;
                ++created;
                return libraryDftiCalls().createDescriptor(handle, domain, length);
            };
            t.setValue = [](DFTI_DESCRIPTOR_HANDLE handle, DFTI_CONFIG_PARAM parameter, MKL_LONG value) {
                return fails() ? failure : libraryDftiCalls().setValue(handle, parameter, value);
            };
            t.commitDescriptor = [](DFTI_DESCRIPTOR_HANDLE handle) {
                return fails() ? failure : libraryDftiCalls().commitDescriptor(handle);
            };
            t.computeForward = [](DFTI_DESCRIPTOR_HANDLE handle, void* source, void* destination) {
                return fails() ? failure : libraryDftiCalls().computeForward(handle, source, destination);
            };
            t.computeForwardInPlace = [](DFTI_DESCRIPTOR_HANDLE handle, void* values) {
                return fails() ? failure : libraryDftiCalls().computeForwardInPlace(handle, values);
            };
            t.computeBackward = [](DFTI_DESCRIPTOR_HANDLE handle, void* source, void* destination) {
                return fails() ? failure : libraryDftiCalls().computeBackward(handle, source, destination);
            };
            t.computeBackwardInPlace = [](DFTI_DESCRIPTOR_HANDLE handle, void* values) {
                return fails() ? failure : libraryDftiCalls().computeBackwardInPlace(handle, values);
            };
            // A descriptor that the library says it could not free is gone for us all the same.
            t.freeDescriptor = [](DFTI_DESCRIPTOR_HANDLE* handle) {
                --descriptors;
                const MKL_LONG status = libraryDftiCalls().freeDescriptor(handle);
                return fails() ? failure : status;
            };
            t.allocate = [](std::size_t bytes, int alignment) -> void* {
                if (fails()) return nullptr;
                ++buffers;
                return libraryDftiCalls().allocate(bytes, alignment);
            };
            t.release = [](void* memory) {
                if (memory) --buffers;
                libraryDftiCalls().release(memory);
            };
            return t;
        }();
        return table;
    }
};

}  // namespace

TEST_F(Fourier, spectraAreTheDefinition) {
    const auto transform = FourierTransform::make(hostDevice());
    for (const Box& box : {Box{0, 0, 1, 1}, Box{0, 0, 2, 1}, Box{0, 0, 1, 9}, Box{-3, 5, 21, 17}, Box{0, 0, 31, 37},
                           Box{4, 4, 68, 6}, Box{0, 0, 30, 28}}) {
        const Pixels pixels = randomPixels(box, 1, 1, false);
        Image spectrum;
        transform->forward(spectrum, real(pixels));
        expectSpectrum(pixels, spectrum);
        EXPECT_LT(errorOfRoundTrip(*transform, pixels), 1e-6);
    }
}

TEST_F(Fourier, sizesOfTheTable) {
    const auto helper = FourierTransformHelper::make(hostDevice());
    const auto transform = FourierTransform::make(hostDevice());
    int count = 0;
    for (int size = 1; size <= 19845; ++size) {
        const int padded = Vellum::FFT::hostPaddedLength(size);
        if (padded != size) {
            ASSERT_EQ(padded, Vellum::FFT::hostPaddedLength(size + 1)) << size;
            continue;
        }
        ++count;
        ASSERT_LT(errorOfRoundTrip(*transform, randomPixels({0, 0, size, 2}, 1, 2, false)), 1e-6) << size;
        ASSERT_LT(errorOfRoundTrip(*transform, randomPixels({0, 0, 2, size}, 1, 3, false)), 1e-6) << size;
    }
    EXPECT_EQ(count, 425);
    EXPECT_EQ(helper->paddedSize({5, 6, 6, 17}), (Box{0, 0, 2, 12}));
    EXPECT_EQ(helper->paddedSize({0, 0, 19846, 1080}), (Box{0, 0, 19846, 1080}));
    EXPECT_LT(errorOfRoundTrip(*transform, randomPixels({0, 0, 19846, 3}, 1, 4, false)), 2e-6);
}

TEST_F(Fourier, sizesForGraphicsDevices) {
    for (const auto& [size, padded] :
         {std::pair(1, 16), {16, 16}, {17, 32}, {1000, 1024}, {1025, 1536}, {1500, 1536}, {2048, 2048}, {2049, 2560}})
        EXPECT_EQ(Vellum::FFT::cudaPaddedLength(size), padded) << size;
}

TEST_F(Fourier, threadsDoNotChangeSpectra) {
    const Pixels pixels = randomPixels({0, 0, 1080, 45}, 1, 5, false);
    const auto run = [&] {
        const auto transform = FourierTransform::make(hostDevice());
        Image spectrum, back;
        transform->forward(spectrum, real(pixels));
        const Pixels forward = pixelsOf(spectrum);
        transform->reverse(back, spectrum);
        return std::pair(forward, pixelsOf(back));
    };
    const auto [forward, back] = run();
    for (const auto& threader :
         {Vellum::Parallel::MakeThreader(1), Vellum::Parallel::MakeThreader(5), makeShuffledThreader(7)}) {
        const ThreadScope scope(threader);
        const auto [again, backAgain] = run();
        EXPECT_EQ(firstDifference(forward, again), "");
        EXPECT_EQ(firstDifference(back, backAgain), "");
    }
    Vellum::Parallel::SetThreadingEnabled(false);
    EXPECT_EQ(firstDifference(forward, run().first), "");
    Vellum::Parallel::SetThreadingEnabled(true);
}

TEST_F(Fourier, aBandOfZerosIsSpared) {
    Pixels pixels = randomPixels({0, 0, 40, 30}, 1, 6, false);
    pixels.forEach([&](int x, int y, int) {
        if (y >= 7 && y < 22) pixels.at(x, y, 0) = 0;
    });
    const auto transform = FourierTransform::make(hostDevice());
    Image whole, spared;
    transform->forward(whole, real(pixels));
    transform->forward(spared, real(pixels), true, {7, 22});
    EXPECT_EQ(firstDifference(pixelsOf(whole), pixelsOf(spared)), "");
    Pixels other = pixels;
    other.at(3, 10, 0) = 5;  // not looked at
    transform->forward(spared, real(other), true, {7, 22});
    EXPECT_EQ(firstDifference(pixelsOf(whole), pixelsOf(spared)), "");
}

TEST_F(Fourier, aSizeIsPlannedOnce) {
    const Library library;
    {
        const auto transform = FourierTransform::make(hostDevice());
        const Pixels pixels = randomPixels({0, 0, 24, 18}, 1, 7, false);
        errorOfRoundTrip(*transform, pixels);
        errorOfRoundTrip(*transform, pixels);
        EXPECT_EQ(Library::created, 2);
        errorOfRoundTrip(*transform, randomPixels({0, 0, 18, 24}, 1, 7, false));
        EXPECT_EQ(Library::created, 4);
        EXPECT_EQ(Library::descriptors, 2) << "the former plan is gone";
        // Another place is another box.
        errorOfRoundTrip(*transform, randomPixels({1, 0, 19, 24}, 1, 7, false));
        EXPECT_EQ(Library::created, 6);
    }
    EXPECT_EQ(Library::descriptors, 0);
    EXPECT_EQ(Library::buffers, 0);
}

/// The functions that throw when each call of the library in turn fails, with how often they do.
class FailingLibrary {
public:
    explicit FailingLibrary(int threads) : scope_(Vellum::Parallel::MakeThreader(threads)) {
        for (int failing = 0, calls = callsWithoutFailure(); failing < calls; ++failing) {
            SCOPED_TRACE(failing);
            letFail(failing);
        }
    }
    std::map<std::string, int> functions;

private:
    void work(FourierTransform& transform) {
        errorOfRoundTrip(transform, pixels_);
        errorOfRoundTrip(transform, other_);
    }
    int callsWithoutFailure() {
        const Library library;
        const auto transform = FourierTransform::make(hostDevice());
        work(*transform);
        return Library::call;
    }
    void letFail(int failing) {
        const Library library;
        Library::failing = failing;
        {
            const auto transform = FourierTransform::make(hostDevice());
            try {
                work(*transform);
                ADD_FAILURE() << "no exception";
            } catch (const FFTException& failure) {
                ++functions[failure.attributeText("ThrowFunction")];
                EXPECT_EQ(failure.attributeText("UserMessage"),
                          std::string("FFT error: ") + DftiErrorMessage(Library::failure) + ".");
                EXPECT_EQ(failure.attributeText("ThrowFile"), "vellumHostFFT_MKL");
                EXPECT_NE(failure.attributeText("ThrowLine"), "0");
                EXPECT_EQ(failure.attributeText("ExceptionClass"), "Vellum::FFT::Host::FFTException");
            } catch (const Vellum::Compute::MemoryException&) {
                ++functions["memory"];
            }
            Library::failing = -1;
            work(*transform);  // as if nothing had happened
        }
        EXPECT_EQ(Library::descriptors, 0);
        EXPECT_EQ(Library::buffers, 0);
    }

    ThreadScope scope_;
    Pixels pixels_ = randomPixels({0, 0, 6, 5}, 1, 8, false);
    Pixels other_ = randomPixels({0, 0, 5, 6}, 1, 8, false);
};

TEST_F(Fourier, everyFailureOfTheLibraryIsReportedAndLeavesNothing) {
    const FailingLibrary threads(2);
    FailingLibrary library(1);  // on one thread each call has its place in the order
    EXPECT_EQ(library.functions["memory"], 4) << "a buffer for the columns of each of four transforms";
    EXPECT_EQ(library.functions["Vellum::FFT::Host::FFTPlan::FFTPlan"], 16);
    EXPECT_EQ(library.functions["Vellum::FFT::Host::FFTPlan::~FFTPlan"], 2);
    EXPECT_EQ(library.functions["Vellum::FFT::Host::RowTransform<1>::iterate"], 11) << "rows of both pictures";
    EXPECT_EQ(library.functions["Vellum::FFT::Host::RowTransform<0>::iterate"], 11);
    EXPECT_EQ(library.functions["Vellum::FFT::Host::ColumnTransform<1>::iterate"], 7) << "columns of both spectra";
    EXPECT_EQ(library.functions["Vellum::FFT::Host::ColumnTransform<0>::iterate"], 7);
    EXPECT_EQ(library.functions.size(), 7u);
}

TEST_F(Fourier, callsThatCannotBeRight) {
    const auto transform = FourierTransform::make(hostDevice());
    Image spectrum({{0, 0, 4, 6}, 2}, hostDevice(), Vellum::FFT::Host::rowLayout), output;
    EXPECT_THROW(transform->reverse(output, spectrum), Vellum::Compute::Exception) << "nothing to work with";
    const Image two({{0, 0, 4, 4}, 2}, hostDevice());
    EXPECT_THROW(transform->forward(output, two), Vellum::Compute::Exception);
    transform->forward(output, real(randomPixels({0, 0, 8, 8}, 1, 9, false)));
    EXPECT_THROW(transform->reverse(output, spectrum), Vellum::Compute::Exception) << "of another size";
}

TEST_F(Fourier, devicesWithoutATransformSaySo) {
    const SoftwareContext context;
    const auto expect = [&](auto&& make, const char* function) {
        try {
            make();
            ADD_FAILURE();
        } catch (const Cobalt::Base::NotImplemented& failure) {
            EXPECT_EQ(userMessage(failure), "Unimplemented code path.");
            EXPECT_EQ(failure.attributeText("ThrowFile"), "vellumFourierTransformFactories");
            EXPECT_EQ(failure.attributeText("ThrowFunction"), function);
        }
    };
    expect([&] { FourierTransform::make(context.device()); }, "Vellum::FFT::FourierTransform::make");
    expect([&] { FourierTransformHelper::make(context.device()); }, "Vellum::FFT::FourierTransformHelper::make");
}

}  // namespace ViewTint::Tests
