#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "compute/HostDevice.h"
#include "compute/Image.h"

namespace ViewTint::Tests {

using Vellum::Image::Box;
using Vellum::Image::Image;

/// Plain pixel values without any layout.
class Pixels {
public:
    Pixels(const Box& box, int components) : box_(box), components_(components) {
        values_.resize(static_cast<std::size_t>(box.pixels()) * components);
    }

    const Box& box() const { return box_; }
    int components() const { return components_; }
    float& at(int x, int y, int c) { return values_[index(x, y, c)]; }
    float at(int x, int y, int c) const { return values_[index(x, y, c)]; }

    /// Calls f(x, y, c) for every value.
    template <class F>
    void forEach(F&& f) const {
        for (int y = box_.y0; y < box_.y1; ++y)
            for (int x = box_.x0; x < box_.x1; ++x)
                for (int c = 0; c < components_; ++c)
                    f(x, y, c);
    }

private:
    std::size_t index(int x, int y, int c) const {
        return (static_cast<std::size_t>(y - box_.y0) * box_.width() + (x - box_.x0)) * components_ + c;
    }

    Box box_;
    int components_;
    std::vector<float> values_;
};

/// The same bits; any NaN equals any other, since which of two a sum keeps is the compiler's choice.
bool sameBits(float a, float b);
/// Where two pictures differ first, or an empty text.
std::string firstDifference(const Pixels& expected, const Pixels& actual);
/// The largest difference between two pictures; infinite where a NaN stands in one of them.
double largestDifference(const Pixels& a, const Pixels& b);

enum class Arrangement {
    ordinary,      ///< as Image itself allocates
    planar,        ///< planes one after the other, rows without a gap
    paddedPlanar,  ///< rows and planes with gaps, so that no row starts on a register's boundary
    packed,        ///< the components of a pixel side by side
    wide,          ///< packed, with unused elements between pixels and between rows
};
inline constexpr Arrangement allArrangements[] = {Arrangement::ordinary, Arrangement::planar, Arrangement::paddedPlanar,
                                                  Arrangement::packed, Arrangement::wide};
const char* toString(Arrangement arrangement);

/// An image in memory of its own, with guard bands round it and marks in all its gaps.
class TestImage {
public:
    TestImage(const Pixels& pixels, Arrangement arrangement);

    const Image& image() const { return image_; }
    Image& image() { return image_; }
    Pixels pixels() const;
    /// True while every element that is no pixel is as it was made.
    bool guardsIntact() const;

private:
    class Storage;
    Image image_;
};

/// The pixels of an image on whatever device.
Pixels pixelsOf(const Image& image);

/// Repeatable values of -0.5 to 1.5; with `hostile` some are NaN, infinite, zeros of both signs, denormal or large.
Pixels randomPixels(const Box& box, int components, std::uint32_t seed, bool hostile);

/// Sets the host device's threads for a scope.
class ThreadScope {
public:
    explicit ThreadScope(Vellum::Parallel::ThreaderPointer threader);
    ~ThreadScope();
    ThreadScope(const ThreadScope&) = delete;
    ThreadScope& operator=(const ThreadScope&) = delete;

private:
    Vellum::Parallel::ThreaderPointer previous_;
};

/// Runs its tasks one after the other in an order drawn from the seed. Finds what depends on the order of work.
Vellum::Parallel::ThreaderPointer makeShuffledThreader(std::uint32_t seed);

}  // namespace ViewTint::Tests
