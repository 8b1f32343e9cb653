#include "tests/harness/KernelHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "compute/Catalogue.h"
#include "tests/harness/SoftwareDevice.h"

namespace ViewTint::Tests {

namespace {

using Vellum::CodeGen::Flags;
using Vellum::CodeGen::InstructionSet;
using Vellum::Kernels::CatalogueEntry;
using Vellum::Kernels::PixelTypes;

/// One compiled form of a kernel.
struct Form {
    Flags flags;
    InstructionSet set;
};

std::string nameOf(const Form& form) {
    return form.flags == Flags::onePixel ? "one pixel" : Vellum::CodeGen::toString(form.set);
}

std::vector<Form> allForms() {
    std::vector<Form> forms{{Flags::onePixel, InstructionSet::sse2}};
    for (const InstructionSet set : Vellum::CodeGen::availableInstructionSets())
        forms.push_back({Flags::packed, set});
    return forms;
}

/// What the device forms run on: a software device, or the machine's GPU where VIEWTINT_TEST_GPU is set.
class TestedGpu {
public:
    TestedGpu() {
        if (!std::getenv("VIEWTINT_TEST_GPU")) return;
        const auto found = VellumLibrary::FindGPUContexts(Cobalt::Device::APIEnum::CUDA);
        if (found.empty()) throw std::runtime_error("VIEWTINT_TEST_GPU is set, but there is no GPU");
        card_ = found.front();
    }
    Vellum::Compute::Device& device() const { return card_ ? card_->device() : software_.device(); }
    bool gapsIntact() const { return card_ || software_.device().gapsIntact(); }

private:
    SoftwareContext software_;
    Vellum::Compute::ContextPointer card_;
};

/// Selects a form for a scope.
class FormScope {
public:
    explicit FormScope(const Form& form) {
        Vellum::CodeGen::limitInstructionSet(form.set);
        Vellum::CodeGen::serveOnePixelCode(form.flags == Flags::onePixel);
    }
    ~FormScope() {
        Vellum::CodeGen::limitInstructionSet(InstructionSet::avx512);
        Vellum::CodeGen::serveOnePixelCode(false);
    }
};

struct Result {
    std::map<int, Pixels> outputs;  // the written images by their number
    std::map<std::string, std::vector<float>> sums;
};

class KernelCheck {
public:
    KernelCheck(const KernelCase& kernelCase, const CatalogueEntry& entry) : case_(kernelCase), entry_(entry) {}

    void run();

private:
    void sweepSizes(int tuple);
    void checkThreads(int tuple);
    void checkSubRange(int tuple);
    void checkDevice(const Scene& scene, const Result& expected, const IterationController& range,
                     const std::string& where) const;
    std::map<std::string, std::vector<float>> sumsOf(const KernelExecutionContext& context) const;
    Scene makeScene(const Box& box, int tuple, std::uint32_t seed, bool hostile,
                    const std::function<void(Pixels&)>& change = nullptr) const;
    Result runOnce(const Scene& scene, Arrangement arrangement, const Form& form, const IterationController& range,
                   const std::string& where) const;
    void expectReference(const Scene& scene, const Result& result, const std::string& where) const;
    void expectPixels(const Reference& reference, const Scene& scene, const Pixels& output,
                      const std::string& where) const;
    void expectSums(const Scene& scene, const Result& result, const std::string& where) const;
    void expectSame(const Result& expected, const Result& actual, const std::string& where) const;
    IterationController rangeFor(const Box& box) const {
        return case_.range ? case_.range(box) : IterationController{};
    }
    bool reduces() const { return entry_.declaration().passes == 2; }
    bool writes(int image) const { return entry_.declaration().images.list[image].written; }
    int lastImage() const { return entry_.declaration().images.count - 1; }
    std::string where(int tuple, const Box& box) const {
        return case_.kernel + " " + entry_.tuples()[tuple].text() + " " + toString(box);
    }

    const KernelCase& case_;
    const CatalogueEntry& entry_;
    std::vector<Form> forms_ = allForms();
};

Scene KernelCheck::makeScene(const Box& box, int tuple, std::uint32_t seed, bool hostile,
                             const std::function<void(Pixels&)>& change) const {
    std::vector<Pixels> images;
    const auto counts = countsOf(entry_.tuples()[tuple]);
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const int index = static_cast<int>(i);
        const Box own = case_.boxOf ? case_.boxOf(index, box) : box;
        images.push_back(randomPixels(own, counts[i], seed + 17 * static_cast<std::uint32_t>(i), hostile));
        if (case_.prepare) case_.prepare(index, images.back());
        if (change) change(images.back());
    }
    return Scene(std::move(images));
}

Result KernelCheck::runOnce(const Scene& scene, Arrangement arrangement, const Form& form,
                            const IterationController& range, const std::string& where) const {
    const FormScope scope(form);
    std::vector<TestImage> images;
    for (const Pixels& pixels : scene.images())
        images.emplace_back(pixels, arrangement);
    std::vector<const Image*> list;
    for (const TestImage& image : images)
        list.push_back(&image.image());

    KernelExecutionContext context(Vellum::JIT::Kernel::Make(entry_, list, form.flags));
    context.setImageParamBindings(list);
    case_.scalars(context);
    context.iterate(Vellum::Compute::Host::hostDevice(), range);

    Result result;
    for (std::size_t i = 0; i < images.size(); ++i) {
        EXPECT_TRUE(images[i].guardsIntact()) << where << ": wrote outside image " << i;
        const int index = static_cast<int>(i);
        if (writes(index))
            result.outputs.emplace(index, images[i].pixels());
        else
            EXPECT_EQ(firstDifference(scene.images()[i], images[i].pixels()), "")
                << where << ": wrote into image " << i;
    }
    result.sums = sumsOf(context);
    return result;
}

std::map<std::string, std::vector<float>> KernelCheck::sumsOf(const KernelExecutionContext& context) const {
    std::map<std::string, std::vector<float>> sums;
    const auto& accumulators = entry_.declaration().accumulators;
    for (int i = 0; i < accumulators.count; ++i) {
        auto& values = sums[accumulators.list[i].name];
        switch (accumulators.list[i].vectorWidth) {
            case 1:
                values = {context.get<float>({accumulators.list[i].name})};
                break;
            case 3:
                for (const float v : context.get<std::array<float, 3>>({accumulators.list[i].name}))
                    values.push_back(v);
                break;
            default:
                for (const float v : context.get<std::array<float, 4>>({accumulators.list[i].name}))
                    values.push_back(v);
        }
    }
    return sums;
}

/// The device's form gives the host's bits; sums, which it adds in another order, the reference's values.
void KernelCheck::checkDevice(const Scene& scene, const Result& expected, const IterationController& range,
                              const std::string& where) const {
    const TestedGpu gpu;
    for (const std::uint32_t arrangement : {1u, 2u}) {  // planar, packed
        std::vector<Image> images;
        for (const Pixels& pixels : scene.images()) {
            images.emplace_back(Vellum::Image::Info{pixels.box(), static_cast<std::uint32_t>(pixels.components())},
                                gpu.device(), Vellum::Image::LayoutSpec{arrangement, 1, 0});
            images.back().copyFrom(TestImage(pixels, Arrangement::planar).image());
        }
        std::vector<const Image*> list;
        for (const Image& image : images)
            list.push_back(&image);
        KernelExecutionContext context(Vellum::JIT::Kernel::Make(entry_, list, Flags::packed, gpu.device().api()));
        context.setImageParamBindings(list);
        case_.scalars(context);
        context.iterate(gpu.device(), range);

        const std::string here = where + ", " + gpu.device().name();
        Result result;
        for (int i = 0; i <= lastImage(); ++i)
            if (writes(i)) result.outputs.emplace(i, pixelsOf(images[i]));
        EXPECT_TRUE(gpu.gapsIntact()) << here << ": wrote outside its images";
        expectSame({expected.outputs, {}}, result, here);
        result.sums = sumsOf(context);
        expectSums(scene, result, here);
    }
}

double largestFinite(const Scene& scene) {
    double largest = 0;
    for (const Pixels& image : scene.images())
        image.forEach([&](int x, int y, int c) {
            if (std::isfinite(image.at(x, y, c))) largest = std::max(largest, std::abs(double{image.at(x, y, c)}));
        });
    return largest;
}

void KernelCheck::expectReference(const Scene& scene, const Result& result, const std::string& where) const {
    if (case_.reference && writes(lastImage()))
        expectPixels(case_.reference, scene, result.outputs.at(lastImage()), where);
    for (const auto& [image, reference] : case_.otherReferences)
        expectPixels(reference, scene, result.outputs.at(image), where + " image " + std::to_string(image));
}

void KernelCheck::expectPixels(const Reference& reference, const Scene& scene, const Pixels& output,
                               const std::string& where) const {
    int reported = 0;
    const double largest = largestFinite(scene);
    for (int y = output.box().y0; y < output.box().y1; ++y) {
        for (int x = output.box().x0; x < output.box().x1; ++x) {
            const Pixel expected = reference(scene, x, y);
            for (int c = 0; c < output.components(); ++c) {
                const double actual = output.at(x, y, c);
                const bool bothNaN = std::isnan(actual) && std::isnan(expected[c]);
                const bool finite = std::isfinite(actual) && std::isfinite(expected[c]);
                const double allowed = finite ? case_.tolerance * (1 + std::abs(expected[c]) + largest) : 0;
                if (bothNaN || actual == expected[c] || (finite && std::abs(actual - expected[c]) <= allowed)) continue;
                if (++reported <= 3)
                    ADD_FAILURE() << where << " at (" << x << ", " << y << ") component " << c << ": " << actual
                                  << " instead of " << expected[c];
            }
        }
    }
}

void KernelCheck::expectSums(const Scene& scene, const Result& result, const std::string& where) const {
    if (!case_.sums) return;
    for (const auto& [name, expected] : case_.sums(scene)) {
        const auto& actual = result.sums.at(name);
        ASSERT_EQ(actual.size(), expected.size()) << where;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            if (std::isnan(expected[i]) && std::isnan(actual[i])) continue;
            if (std::isinf(expected[i]) && expected[i] == actual[i]) continue;
            const bool finite = std::isfinite(expected[i]) && std::isfinite(actual[i]);
            EXPECT_TRUE(finite) << where << " " << name << "[" << i << "]: " << actual[i] << " instead of "
                                << expected[i];
            EXPECT_NEAR(actual[i], expected[i], case_.tolerance * (1 + std::abs(expected[i]) + scene.box(0).pixels()))
                << where << " " << name << "[" << i << "]";
        }
    }
}

void KernelCheck::expectSame(const Result& expected, const Result& actual, const std::string& where) const {
    for (const auto& [image, pixels] : expected.outputs)
        EXPECT_EQ(firstDifference(pixels, actual.outputs.at(image)), "") << where << " image " << image;
    for (const auto& [name, values] : expected.sums)
        for (std::size_t i = 0; i < values.size(); ++i)
            EXPECT_TRUE(sameBits(values[i], actual.sums.at(name)[i]))
                << where << " " << name << "[" << i << "]: " << values[i] << " and " << actual.sums.at(name)[i];
}

void KernelCheck::sweepSizes(int tuple) {
#if VIEWTINT_SHORT_SWEEP  // sanitizers take twenty times as long
    const int widths[] = {0, 1, 3, 8, 17, 35};
    const int heights[] = {1, 3};
#else
    const int widths[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 35, 66};
    const int heights[] = {1, 3, 34};
#endif
    std::uint32_t seed = 1;
    for (const int width : widths) {
        for (const int height : heights) {
            if (width < case_.smallest || height < case_.smallest) continue;
            ++seed;
            const Box box = seed % 2 ? Box{0, 0, width, height} : Box{-7, 3, -7 + width, 3 + height};
            const bool hostile = case_.hostilePixels && seed % 3 == 0;
            const Scene scene = makeScene(box, tuple, seed, hostile);
            const auto range = rangeFor(box);
            const std::string here = where(tuple, box);
            const Result expected = runOnce(scene, Arrangement::planar, forms_.front(), range, here);
            expectReference(scene, expected, here);
            expectSums(scene, expected, here);
            for (const Arrangement arrangement : allArrangements)
                for (const Form& form : forms_)
                    expectSame(expected, runOnce(scene, arrangement, form, range, here),
                               here + " " + toString(arrangement) + ", " + nameOf(form));
            checkDevice(scene, expected, range, here);
            if (testing::Test::HasFailure()) return;
        }
    }
}

/// Large enough to be cut into pieces.
void KernelCheck::checkThreads(int tuple) {
    const Box box{-5, 2, -5 + 259, 2 + 70};
    const Scene scene = makeScene(box, tuple, 99, case_.hostilePixels);
    const auto range = rangeFor(box);
    const Form& packed = forms_.back();
    const ThreadScope one(Vellum::Parallel::MakeThreader(1));
    const Result expected = runOnce(scene, Arrangement::ordinary, packed, range, where(tuple, box));
    for (const int threads : {2, 3}) {
        const ThreadScope scope(Vellum::Parallel::MakeThreader(threads));
        expectSame(expected, runOnce(scene, Arrangement::ordinary, packed, range, where(tuple, box)),
                   where(tuple, box) + ", " + std::to_string(threads) + " threads");
    }
    for (const std::uint32_t seed : {1u, 2u}) {
        const ThreadScope scope(makeShuffledThreader(seed));
        for (const Arrangement arrangement : {Arrangement::ordinary, Arrangement::wide})
            expectSame(expected, runOnce(scene, arrangement, forms_.front(), range, where(tuple, box)),
                       where(tuple, box) + ", shuffled");
    }
}

/// Pixels outside a range stay, pixels inside are as in a full run.
void KernelCheck::checkSubRange(int tuple) {
    if (case_.range || case_.boxOf) return;
    const Box box{-3, -2, 40, 9};
    const Box inner{-1, -1, 33, 7};
    const Scene scene = makeScene(box, tuple, 7, false);
    const Result whole = runOnce(scene, Arrangement::planar, forms_.front(), {}, where(tuple, box));
    Result expected;
    for (const auto& [image, pixels] : whole.outputs) {
        Pixels& outside = expected.outputs.emplace(image, scene.images()[image]).first->second;
        outside.forEach([&](int x, int y, int c) {
            if (inner.contains({x, y, x + 1, y + 1})) outside.at(x, y, c) = pixels.at(x, y, c);
        });
    }
    for (const Form& form : forms_) {
        const auto counts = countsOf(entry_.tuples()[tuple]);
        const int components = *std::min_element(counts.begin(), counts.end());
        const auto range = entry_.declaration().perComponent ? IterationController::over(inner, 0, components)
                                                             : IterationController::over(inner);
        const Result part = runOnce(scene, Arrangement::ordinary, form, range, where(tuple, box));
        const std::string here = where(tuple, box) + " inner range, " + nameOf(form);
        if (reduces()) {
            // Pixels outside the range must not reach the sums.
            Scene changed = makeScene(box, tuple, 7, false, [&](Pixels& pixels) {
                pixels.forEach([&](int x, int y, int c) {
                    if (!inner.contains({x, y, x + 1, y + 1})) pixels.at(x, y, c) = 1000;
                });
            });
            expectSame({{}, runOnce(changed, Arrangement::packed, form, range, here).sums}, part, here);
        } else {
            expectSame(expected, part, here);
        }
    }
}

void KernelCheck::run() {
    for (std::size_t tuple = 0; tuple < entry_.tuples().size(); ++tuple) {
        if (entry_.tuples()[tuple].text().find("ui") != std::string::npos) continue;
        sweepSizes(static_cast<int>(tuple));
        if (testing::Test::HasFailure()) return;
        checkThreads(static_cast<int>(tuple));
        checkSubRange(static_cast<int>(tuple));
        if (testing::Test::HasFailure()) return;
    }
}

}  // namespace

std::vector<int> countsOf(const PixelTypes& types) {
    std::vector<int> counts;
    std::stringstream text(types.text());
    for (std::string token; std::getline(text, token, '_');)
        counts.push_back(token[0] - '0');
    return counts;
}

double Scene::clamped(int image, int x, int y, int c) const {
    const Box& b = box(image);
    return at(image, std::max(std::min(x, b.x1 - 1), b.x0), std::max(std::min(y, b.y1 - 1), b.y0), c);
}

void checkKernel(const KernelCase& kernelCase) {
    const CatalogueEntry* entry = Vellum::Kernels::findKernel(kernelCase.kernel);
    ASSERT_NE(entry, nullptr) << kernelCase.kernel;
    KernelCheck(kernelCase, *entry).run();
}

Reference eachComponent(std::function<double(const std::vector<double>&)> f) {
    return [f = std::move(f)](const Scene& scene, int x, int y) {
        const int images = static_cast<int>(scene.images().size());
        Pixel result{};
        for (int c = 0; c < scene.count(images - 1); ++c) {
            std::vector<double> values;
            for (int i = 0; i < images; ++i)
                values.push_back(scene.at(i, x, y, c));
            result[c] = f(values);
        }
        return result;
    };
}

}  // namespace ViewTint::Tests
