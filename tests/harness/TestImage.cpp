#include "tests/harness/TestImage.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <sstream>

namespace ViewTint::Tests {

namespace {

using Vellum::Image::Layout;

constexpr std::uint32_t guardBits = 0x7fc0abcd;  // a NaN that no arithmetic makes
constexpr int guardElements = 64;

Layout layoutOf(const Pixels& pixels, Arrangement arrangement) {
    const Box& box = pixels.box();
    const std::int64_t width = std::max(box.width(), 0);
    const std::int64_t height = std::max(box.height(), 0);
    const std::int64_t components = pixels.components();
    const Vellum::Image::Info info{box, static_cast<std::uint32_t>(components), Vellum::Pixel::DataEnum::float32};
    auto elements = [&](std::int64_t x, std::int64_t y, std::int64_t c) {
        return Layout::withStrides(info, x * 4, y * 4, c * 4);
    };
    switch (arrangement) {
        case Arrangement::planar:
            return elements(1, width, width * height);
        case Arrangement::paddedPlanar:
            return elements(1, width + 5, (width + 5) * height + 7);
        case Arrangement::packed:
            return elements(components, width * components, 1);
        case Arrangement::wide:
            return elements(components + 3, width * (components + 3) + 11, 1);
        case Arrangement::ordinary:
            break;
    }
    return Image(info, Vellum::Compute::Host::hostDevice()).tile().layout;
}

std::vector<std::size_t> pixelPlaces(const Layout& layout) {
    std::vector<std::size_t> places;
    for (std::uint32_t c = 0; c < layout.components; ++c)
        for (int y = 0; y < layout.box.height(); ++y)
            for (int x = 0; x < layout.box.width(); ++x)
                places.push_back(x * layout.x.elements + y * layout.y.elements + c * layout.component.elements);
    return places;
}

class ShuffledThreader : public Vellum::Parallel::Threader {
public:
    explicit ShuffledThreader(std::uint32_t seed) : random_(seed) {}
    int threads() const override { return 4; }
    void run(Function function, int count, void* argument) override {
        std::vector<int> order(count);
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), random_);
        for (const int index : order)
            function(index, argument);
    }

private:
    std::mt19937 random_;
};

}  // namespace

bool sameBits(float a, float b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) == std::isnan(b);
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

double largestDifference(const Pixels& a, const Pixels& b) {
    double worst = 0;
    a.forEach([&](int x, int y, int c) {
        const double d = std::abs(double{a.at(x, y, c)} - b.at(x, y, c));
        worst = std::isnan(d) ? std::numeric_limits<double>::infinity() : std::max(worst, d);
    });
    return worst;
}

std::string firstDifference(const Pixels& expected, const Pixels& actual) {
    std::ostringstream text;
    text.precision(9);
    int different = 0;
    expected.forEach([&](int x, int y, int c) {
        if (sameBits(expected.at(x, y, c), actual.at(x, y, c))) return;
        if (different++ == 0)
            text << "first at (" << x << ", " << y << ") component " << c << ": " << expected.at(x, y, c) << " and "
                 << actual.at(x, y, c);
    });
    if (different > 0) text << "; " << different << " values differ";
    return text.str();
}

const char* toString(Arrangement arrangement) {
    switch (arrangement) {
        case Arrangement::ordinary:
            return "ordinary";
        case Arrangement::planar:
            return "planar";
        case Arrangement::paddedPlanar:
            return "padded planar";
        case Arrangement::packed:
            return "packed";
        case Arrangement::wide:
            return "wide";
    }
    return "unknown";
}

class TestImage::Storage : public Cobalt::Device::MemoryBlock {
public:
    Storage(std::size_t elements, std::unique_ptr<float[]> values)
        : MemoryBlock(values.get() + guardElements, elements * sizeof(float)),
          elements_(elements),
          values_(std::move(values)) {}

    float& element(std::size_t place) { return values_[guardElements + place]; }

    bool guardsIntact(const std::vector<std::size_t>& places) const {
        std::vector<bool> isPixel(elements_ + 2 * guardElements, false);
        for (const std::size_t place : places)
            isPixel[guardElements + place] = true;
        for (std::size_t i = 0; i < isPixel.size(); ++i)
            if (!isPixel[i] && std::bit_cast<std::uint32_t>(values_[i]) != guardBits) return false;
        return true;
    }

private:
    std::size_t elements_;
    std::unique_ptr<float[]> values_;
};

TestImage::TestImage(const Pixels& pixels, Arrangement arrangement) {
    const Layout layout = layoutOf(pixels, arrangement);
    const std::size_t elements = layout.extent() / sizeof(float);
    auto values = std::make_unique<float[]>(elements + 2 * guardElements);
    std::fill_n(values.get(), elements + 2 * guardElements, std::bit_cast<float>(guardBits));
    auto* storage = new Storage(elements, std::move(values));
    image_ = Vellum::Image::wrapMemory(layout, storage, Vellum::Compute::Host::hostDevice());
    pixels.forEach([&](int x, int y, int c) {
        storage->element((x - layout.box.x0) * layout.x.elements + (y - layout.box.y0) * layout.y.elements +
                         c * layout.component.elements) = pixels.at(x, y, c);
    });
}

Pixels TestImage::pixels() const {
    return pixelsOf(image_);
}

bool TestImage::guardsIntact() const {
    const auto& storage = static_cast<const Storage&>(*image_.tile().memory);
    return storage.guardsIntact(pixelPlaces(image_.tile().layout));
}

Pixels pixelsOf(const Image& anywhere) {
    const Image image = anywhere.distributeTo(Vellum::Compute::Host::hostDevice());
    Pixels pixels(image.box(), static_cast<int>(image.components()));
    const Layout& layout = image.tile().layout;
    pixels.forEach([&](int x, int y, int c) {
        pixels.at(x, y, c) = image.data()[(x - layout.box.x0) * layout.x.elements +
                                          (y - layout.box.y0) * layout.y.elements + c * layout.component.elements];
    });
    return pixels;
}

Pixels randomPixels(const Box& box, int components, std::uint32_t seed, bool hostile) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    constexpr float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                                  infinity,
                                  -infinity,
                                  0.0f,
                                  -0.0f,
                                  1e-40f,
                                  1e-8f,
                                  1.0f,
                                  -1000.0f,
                                  1000.0f};
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> value(-0.5f, 1.5f);
    std::uniform_int_distribution<std::size_t> special(0, std::size(specials) - 1);
    Pixels pixels(box, components);
    pixels.forEach([&](int x, int y, int c) {
        const bool isSpecial = hostile && random() % 16 == 0;
        pixels.at(x, y, c) = isSpecial ? specials[special(random)] : value(random);
    });
    return pixels;
}

ThreadScope::ThreadScope(Vellum::Parallel::ThreaderPointer threader)
    : previous_(Vellum::Compute::Host::hostDevice().threader()) {
    Vellum::Compute::Host::hostDevice().setThreader(std::move(threader));
}

ThreadScope::~ThreadScope() {
    Vellum::Compute::Host::hostDevice().setThreader(previous_);
}

Vellum::Parallel::ThreaderPointer makeShuffledThreader(std::uint32_t seed) {
    return new ShuffledThreader(seed);
}

}  // namespace ViewTint::Tests
