#include "vellumDonorLists.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "BilateralFilter/kernels/donorCells.h"
#include "compute/HostDevice.h"

namespace Vellum::BilateralFilter {

namespace {

using Kernels::DonorCell;
using Kernels::donorCellSide;
using Vellum::Image::Box;
using Vellum::Image::Image;

const float* rowOf(const Image& image, int row, int component = 0) {
    const auto& layout = image.tile().layout;
    return image.data() + row * layout.y.elements + component * layout.component.elements;
}

/// Collects the donors of one cell.
class CellWriter {
public:
    CellWriter(DonorCell& cell, float* donors) : cell_(cell), donor_(donors) {
        constexpr float infinite = std::numeric_limits<float>::infinity();
        cell_ = {
            0,        infinite, infinite, -1, -1, {infinite, infinite, infinite}, {-infinite, -infinite, -infinite},
            {0, 0, 0}};
    }
    ~CellWriter() { std::copy(sum_, sum_ + 3, cell_.sum); }
    CellWriter(const CellWriter&) = delete;
    CellWriter& operator=(const CellWriter&) = delete;

    void add(int x, int y, const float (&guide)[3], const float (&value)[3]) {
        const auto column = static_cast<float>(x), row = static_cast<float>(y);
        cell_.count += 1;
        cell_.left = std::min(cell_.left, column);
        cell_.right = std::max(cell_.right, column);
        cell_.bottom = std::min(cell_.bottom, row);
        cell_.top = std::max(cell_.top, row);
        for (int c = 0; c < 3; ++c) {
            cell_.least[c] = std::fmin(cell_.least[c], guide[c]);
            cell_.most[c] = std::fmax(cell_.most[c], guide[c]);
            sum_[c] += double{value[c]};
        }
        const float donor[Kernels::donorFloats] = {column,   row,      guide[0], guide[1],
                                                   guide[2], value[0], value[1], value[2]};
        donor_ = std::copy(std::begin(donor), std::end(donor), donor_);
    }

private:
    DonorCell& cell_;
    float* donor_;
    double sum_[3] = {};
};

/// The cells of a picture, row by row.
class CellGrid {
public:
    CellGrid(const Image& distance, const Image& guide, const Image& values)
        : distance_(distance),
          guide_(guide),
          values_(values),
          width_(distance.box().width()),
          height_(distance.box().height()) {}

    int columns() const { return cellsIn(width_); }
    int rows() const { return cellsIn(height_); }

    /// How many pixels of each cell of a row give.
    void countRow(int row, int* counts) const {
        std::fill(counts, counts + columns(), 0);
        for (int y = begin(row); y < end(row, height_); ++y) {
            const float* distances = rowOf(distance_, y);
            for (int x = 0; x < width_; ++x)
                counts[x / donorCellSide] += distances[x * step(distance_)] == 0;
        }
    }

    void writeCell(int column, int row, DonorCell& cell, float* donors) const {
        CellWriter writer(cell, donors);
        for (int y = begin(row); y < end(row, height_); ++y)
            for (int x = begin(column); x < end(column, width_); ++x) {
                if (rowOf(distance_, y)[x * step(distance_)] != 0) continue;
                float guide[3], value[3];
                for (int c = 0; c < 3; ++c) {
                    guide[c] = rowOf(guide_, y, c)[x * step(guide_)];
                    value[c] = rowOf(values_, y, c)[x * step(values_)];
                }
                writer.add(x, y, guide, value);
            }
    }

private:
    static int cellsIn(int pixels) { return (pixels + donorCellSide - 1) / donorCellSide; }
    static int begin(int cell) { return cell * donorCellSide; }
    static int end(int cell, int pixels) { return std::min(begin(cell) + donorCellSide, pixels); }
    static std::int64_t step(const Image& image) { return image.tile().layout.x.elements; }

    const Image& distance_;
    const Image& guide_;
    const Image& values_;
    int width_, height_;
};

}  // namespace

DonorLists listDonors(const Image& distance, const Image& guide, const Image& values) {
    const CellGrid grid(distance, guide, values);
    const auto columns = static_cast<std::size_t>(grid.columns());
    auto& host = Compute::Host::hostDevice();
    const auto threader = host.threader();
    const auto forEachRow = [&](auto&& each) { Parallel::forEachIndex(*threader, grid.rows(), each); };

    std::vector<int> counts(columns * static_cast<std::size_t>(grid.rows()));
    forEachRow([&](int row) { grid.countRow(row, counts.data() + row * columns); });

    const Image firstCells({{0, 0, grid.columns() + 1, grid.rows()}, 1}, host);
    int cellCount = 0;
    for (int row = 0; row < grid.rows(); ++row) {
        auto* first = const_cast<float*>(rowOf(firstCells, row));
        for (std::size_t column = 0; column < columns; ++column) {
            first[column] = static_cast<float>(cellCount);
            cellCount += counts[row * columns + column] > 0;
        }
        first[columns] = static_cast<float>(cellCount);
    }

    const Image cells({{0, 0, Kernels::donorCellFloats, cellCount}, 1}, host);
    const Image donors({{0, 0, Kernels::donorFloats * Kernels::donorsPerCell, cellCount}, 1}, host);
    forEachRow([&](int row) {
        int number = static_cast<int>(rowOf(firstCells, row)[0]);
        for (int column = 0; column < grid.columns(); ++column) {
            if (counts[row * columns + column] == 0) continue;
            auto& cell = *reinterpret_cast<DonorCell*>(const_cast<float*>(rowOf(cells, number)));
            grid.writeCell(column, row, cell, const_cast<float*>(rowOf(donors, number)));
            ++number;
        }
    });
    return {firstCells, cells, donors};
}

}  // namespace Vellum::BilateralFilter
