#include "GuidedFilter/GuidedFilter.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "Common/Common.h"
#include "compute/Exception.h"
#include "compute/RunKernel.h"
#include "vellumTileSource.h"

namespace Vellum::Kernels {
extern const Family guided;
}

namespace Vellum::GuidedFilter {

namespace {

using Compute::ProgramSource;
using Compute::runKernel;
using Compute::Scalar;
using Utils::BufferManagement::BufferManagedImage;
using Utils::BufferManagement::BufferManager;
using Vellum::Image::Box;
using Vellum::Image::Image;
using Vellum::Image::Info;

const ProgramSource guidedSolveSource(Kernels::guided, "guidedSolveKernel");
const ProgramSource guidedSlopesSource(Kernels::guided, "guidedSlopesKernel");
const ProgramSource guidedApplySource(Kernels::guided, "guidedApplyKernel");
const ProgramSource guidedLineSource(Kernels::guided, "guidedLineKernel");
const ProgramSource guidedOutputSource(Kernels::guided, "guidedOutputKernel");

constexpr int packedCode = 19;
/// Box means of a larger radius run along their lines and add in another order than the two fused passes.
constexpr int mostDirectRadius = 15;

Box grown(const Box& box, int pixels) {
    return {box.x0 - pixels, box.y0 - pixels, box.x1 + pixels, box.y1 + pixels};
}

bool shareMemory(const Image& a, const Image& b) {
    const auto range = [](const Image& image) {
        const auto begin = reinterpret_cast<std::uintptr_t>(image.tile().memory->address());
        return std::pair(begin, begin + image.tile().layout.extent());
    };
    const auto [beginA, endA] = range(a);
    const auto [beginB, endB] = range(b);
    return a.device() == b.device() && beginA < endB && beginB < endA;
}

bool samePicture(const Image& a, const Image& b) {
    return shareMemory(a, b) && a.tile().memory->address() == b.tile().memory->address() && a.box() == b.box() &&
           a.components() == b.components();
}

/// The working images of a call, under their names until its end.
class Buffers {
public:
    Buffers(BufferManager& manager, const Box& box, int inputs, int guides, bool colour) : manager_(manager) {
        const Info one{box, 1};
        const auto tuple = [&](const char* name, int count) { manager.allocateTuple(name, count, one); };
        tuple("kInputTuple", inputs);
        tuple("kGuidanceTuple", guides);
        manager.allocate("kFiltered", {box, static_cast<std::uint32_t>(inputs)});
        manager.allocate("kMeanInput", one);
        manager.allocate("kB", one);
        constexpr int channels = 3;
        tuple("kMeanGuidanceTuple", colour ? channels : 1);
        tuple("kCovarianceGuidanceImageTuple", colour ? channels : 1);
        tuple("kVarianceGuidanceTuple", colour ? channels * (channels + 1) / 2 : 1);
        tuple("kATuple", colour ? channels : 1);
    }
    Buffers(const Buffers&) = delete;
    Buffers& operator=(const Buffers&) = delete;
    ~Buffers() {
        manager_.releaseTuple("kInputTuple");
        manager_.releaseTuple("kGuidanceTuple");
        manager_.release("kFiltered");
        manager_.release("kMeanInput");
        manager_.releaseTuple("kMeanGuidanceTuple");
        manager_.releaseTuple("kCovarianceGuidanceImageTuple");
        manager_.releaseTuple("kVarianceGuidanceTuple");
        manager_.releaseTuple("kATuple");
        manager_.release("kB");
    }

private:
    BufferManager& manager_;
};

/// What the filters of one channel work with, over the box of that channel.
struct Working {
    Working(const BufferManager& manager, const Box& box)
        : meanGuidance(manager.tupleView("kMeanGuidanceTuple", box)),
          meanInput(manager.imageView("kMeanInput", box)),
          covariance(manager.tupleView("kCovarianceGuidanceImageTuple", box)),
          variance(manager.tupleView("kVarianceGuidanceTuple", box)),
          a(manager.tupleView("kATuple", box)),
          b(manager.imageView("kB", box)) {}

    std::vector<Image> meanGuidance;
    Image meanInput;
    std::vector<Image> covariance;
    std::vector<Image> variance;
    std::vector<Image> a;
    Image b;
};

/// covariance = mean(x y) - mean(x) mean(y), which are given.
void covarianceOf(const Image& x, const Image& y, const Image& meanX, const Image& meanY, Image& work1, Image& work2,
                  Image& covariance, int radius) {
    Common::multiply(x, y, covariance);
    Common::boxFilter(covariance, work2, work1, radius);
    Common::multiply(meanX, meanY, covariance);
    Common::subtract(work1, covariance, covariance);
}

}  // namespace

GuidedFilter::GuidedFilter(BufferManager& bufferManager, int radius, float epsilon, int guidanceMode, int callerField)
    : bufferManager_(bufferManager),
      radius_(radius),
      tileMargin_(4 * radius + 1),
      epsilon_(epsilon),
      guidanceMode_(guidanceMode),
      callerField_(callerField) {}

/// One call.
class GuidedFilter::Run {
public:
    Run(const GuidedFilter& filter, const Image& input, const Image& guidance, Image& output);
    void run();

private:
    struct Sources;

    bool tiled() const {
        return filter_.forceTiling_ || (bounds_.width() < filter_.tileWidth_ && bounds_.height() < filter_.tileHeight_);
    }
    Box plannedBox() const {
        if (!tiled()) return bounds_;
        return {0, 0, filter_.tileWidth_ + 2 * filter_.tileMargin_, filter_.tileHeight_ + 2 * filter_.tileMargin_};
    }
    int guideCount() const { return std::min(guides_, filter_.maxChannels_); }
    bool fuses() const { return filter_.fusedPasses_ && manager_.currentDevice()->hostAccessible(); }
    bool writesDirectly() const {
        return fuses() && filter_.guidanceMode_ == channelByChannel && inputs_ == guideCount();
    }

    void filterWhole(Image& output);
    void filterTiles(Sources& sources, Image& output);
    void filterTile(Sources& sources, const Box& tile, const Box& extended, Image& output);
    void filterTileDirectly(Sources& sources, const Box& tile, const Box& extended, Image& output);
    void dispatch(std::vector<Image>& inputs, std::vector<Image>& guides) const;
    void filterByOne(const Image& input, const Image& guidance, Image& output) const;
    void filterByOneFused(const Image& input, const Image& guidance, Image& output, const Box& range) const;
    void filterByColour(const Image& input, const std::vector<Image>& guidance, Image& output) const;

    const GuidedFilter& filter_;
    BufferManager& manager_;
    int radius_;
    Box bounds_;
    int inputs_;
    int guides_;
    Buffers buffers_;
    BufferManagedImage input_;
    BufferManagedImage guidance_;
    Image& output_;
};

GuidedFilter::Run::Run(const GuidedFilter& filter, const Image& input, const Image& guidance, Image& output)
    : filter_(filter),
      manager_(filter.bufferManager_),
      radius_(filter.radius_),
      bounds_(input.box()),
      inputs_(std::min<int>(input.components(), filter.maxChannels_)),
      guides_(static_cast<int>(guidance.components())),
      buffers_(manager_, plannedBox(), inputs_, guides_, filter.guidanceMode_ == allChannels && guides_ >= 3),
      input_(manager_, input),
      guidance_(manager_, guidance),
      output_(output) {}

/// What the tile loop reads from.
struct GuidedFilter::Run::Sources {
    explicit Sources(const Run& run)
        : direct(run.writesDirectly()),
          bySelf(samePicture(run.input_.image(), run.guidance_.image())),
          tiles{run.bounds_, run.filter_.tileWidth_,
                direct && run.radius_ <= mostDirectRadius ? 2 * run.radius_ : run.filter_.tileMargin_},
          inputs(run.manager_, run.input_.image(), tiles, run.inputs_, shareMemory(run.input_.image(), run.output_)) {
        if (!bySelf)
            guides.emplace(run.manager_, run.guidance_.image(), tiles, run.guides_,
                           shareMemory(run.guidance_.image(), run.output_));
    }

    bool direct;  ///< results go from the last pass into the output
    bool bySelf;  ///< input and guidance are one picture
    TileSource::Tiles tiles;
    TileSource inputs;
    std::optional<TileSource> guides;
};

void GuidedFilter::Run::run() {
    std::optional<Sources> sources;
    if (tiled()) sources.emplace(*this);
    // All is allocated: the manager stays on the device that it is on now.
    std::optional<BufferManagedImage> moved;
    if (output_.device() != manager_.currentDevice()) moved.emplace(manager_, output_);
    Image& output = moved ? moved->image() : output_;
    if (sources)
        filterTiles(*sources, output);
    else
        filterWhole(output);
    if (moved) output_.copyFrom(output);
}

void GuidedFilter::Run::filterWhole(Image& output) {
    std::vector<Image> inputs = manager_.tupleView("kInputTuple", bounds_);
    std::vector<Image> guides = manager_.tupleView("kGuidanceTuple", bounds_);
    for (int c = 0; c < inputs_; ++c)
        Common::copyChannel(input_.image(), inputs[c], c, 0);
    for (int c = 0; c < guides_; ++c)
        Common::copyChannel(guidance_.image(), guides[c], c, 0);
    dispatch(inputs, guides);
    for (int c = 0; c < inputs_; ++c)
        Common::copyChannel(inputs[c], bounds_, output, bounds_.x0, bounds_.y0, 0, c);
}

void GuidedFilter::Run::filterTiles(Sources& sources, Image& output) {
    const int common = static_cast<int>(std::min(output.components(), input_.image().components()));
    for (int x = bounds_.x0; x < bounds_.x1; x += filter_.tileWidth_)
        for (int y = bounds_.y0; y < bounds_.y1; y += filter_.tileHeight_) {
            const Box uncut{x, y, x + filter_.tileWidth_, y + filter_.tileHeight_};
            const Box tile = intersect(uncut, bounds_);
            const Box extended = intersect(grown(uncut, sources.tiles.margin), bounds_);
            if (sources.direct)
                filterTileDirectly(sources, tile, extended, output);
            else
                filterTile(sources, tile, extended, output);
            if (samePicture(input_.image(), output)) continue;
            for (int c = inputs_; c < common; ++c)
                Common::copyChannel(input_.image(), tile, output, tile.x0, tile.y0, c, c);
        }
}

void GuidedFilter::Run::filterTile(Sources& sources, const Box& tile, const Box& extended, Image& output) {
    std::vector<Image> inputs = manager_.tupleView("kInputTuple", extended);
    std::vector<Image> guides = manager_.tupleView("kGuidanceTuple", extended);
    Image filtered = manager_.imageView("kFiltered", extended);
    sources.inputs.assemble(tile, inputs);
    if (sources.guides)
        sources.guides->assemble(tile, guides);
    else
        for (int c = 0; c < inputs_; ++c)
            Common::copy(inputs[c], guides[c]);
    dispatch(inputs, guides);
    for (int c = 0; c < inputs_; ++c) {
        Common::copyChannel(inputs[c], tile, filtered, tile.x0, tile.y0, 0, c);
        Common::copyChannel(filtered, tile, output, tile.x0, tile.y0, c, c);
    }
}

/// Reads the pictures themselves where their pixels stay as they are.
void GuidedFilter::Run::filterTileDirectly(Sources& sources, const Box& tile, const Box& extended, Image& output) {
    const auto channelsOf = [&](TileSource& source, const char* tuple) {
        // Sums that run along lines have to begin where the tile's do.
        if (radius_ <= mostDirectRadius && source.staysReadable()) return source.channels();
        std::vector<Image> entries = manager_.tupleView(tuple, extended);
        source.assemble(tile, entries);
        return entries;
    };
    const std::vector<Image> inputs = channelsOf(sources.inputs, "kInputTuple");
    const std::vector<Image> guides = sources.guides ? channelsOf(*sources.guides, "kGuidanceTuple") : inputs;
    for (int c = 0; c < std::min<int>(inputs_, output.components()); ++c) {
        Image channel = output.componentView(c);
        filterByOneFused(inputs[c], guides[c], channel, tile);
    }
}

/// Filters each entry of `inputs` in place. Changes `guides`.
void GuidedFilter::Run::dispatch(std::vector<Image>& inputs, std::vector<Image>& guides) const {
    const auto filterAll = [&](auto&& guideOf) {
        for (int c = 0; c < inputs_; ++c) {
            if (fuses())
                filterByOneFused(inputs[c], guideOf(c), inputs[c], inputs[c].box());
            else
                filterByOne(inputs[c], guideOf(c), inputs[c]);
        }
    };
    switch (filter_.guidanceMode_) {
        case meanOfChannels:
            for (int c = 1; c < guideCount(); ++c)
                Common::add(guides[0], guides[c], guides[0]);
            Common::multiplyConstant(guides[0], guides[0], 1.0f / static_cast<float>(guideCount()));
            filterAll([&](int) -> const Image& { return guides[0]; });
            break;
        case channelByChannel:
            if (inputs_ == guideCount()) filterAll([&](int c) -> const Image& { return guides[c]; });
            break;
        case allChannels:
            if (guideCount() >= 3)
                for (int c = 0; c < inputs_; ++c)
                    filterByColour(inputs[c], guides, inputs[c]);
            break;
        default:
            break;
    }
}

/// The output is written last, so it may be the input.
void GuidedFilter::Run::filterByOne(const Image& input, const Image& guidance, Image& output) const {
    Working w(manager_, input.box());
    Image& a = w.a[0];
    Image& meanG = w.meanGuidance[0];
    Image& covariance = w.covariance[0];
    Image& variance = w.variance[0];
    Common::boxFilter(input, a, w.meanInput, radius_);
    Common::boxFilter(guidance, a, meanG, radius_);
    covarianceOf(input, guidance, w.meanInput, meanG, a, w.b, covariance, radius_);
    covarianceOf(guidance, guidance, meanG, meanG, a, w.b, variance, radius_);

    Common::addConstant(variance, a, filter_.epsilon_);
    Common::divide(covariance, a, a);
    Common::multiply(a, meanG, w.b);
    Common::subtract(w.meanInput, w.b, w.b);
    Image& meanA = covariance;
    Image& meanB = w.meanInput;
    Common::boxFilter(a, meanG, meanA, radius_);
    Common::boxFilter(w.b, meanG, meanB, radius_);
    Common::multiply(meanA, guidance, output);
    Common::add(meanB, output, output);
}

/// The same with fewer passes, written over `range` of larger pictures.
void GuidedFilter::Run::filterByOneFused(const Image& input, const Image& guidance, Image& output,
                                         const Box& range) const {
    const auto overRange = JIT::IterationController::over(range);
    if (radius_ <= mostDirectRadius) {
        const Box reached = intersect(grown(range, radius_), input.box());
        const Image a = manager_.tupleView("kATuple", reached)[0];
        const Image b = manager_.imageView("kB", reached);
        runKernel(guidedSlopesSource, {&input, &guidance, &a, &b}, packedCode, {}, Scalar{"radius", radius_},
                  Scalar{"epsilon", filter_.epsilon_});
        runKernel(guidedApplySource, {&a, &b, &guidance, &output}, packedCode, overRange, Scalar{"radius", radius_});
        return;
    }
    Working w(manager_, input.box());
    Image& a = w.a[0];
    Image& meanProduct = w.covariance[0];
    Image& meanSquare = w.variance[0];
    Common::boxFilter(input, a, w.meanInput, radius_);
    Common::boxFilter(guidance, a, w.meanGuidance[0], radius_);
    Common::multiply(input, guidance, a);
    Common::boxFilter(a, w.b, meanProduct, radius_);
    Common::multiply(guidance, guidance, a);
    Common::boxFilter(a, w.b, meanSquare, radius_);
    runKernel(guidedLineSource, {&w.meanInput, &w.meanGuidance[0], &meanProduct, &meanSquare, &a, &w.b}, packedCode, {},
              Scalar{"epsilon", filter_.epsilon_});
    Image& meanA = meanProduct;
    Image& meanB = meanSquare;
    Common::boxFilter(a, w.meanInput, meanA, radius_);
    Common::boxFilter(w.b, w.meanInput, meanB, radius_);
    runKernel(guidedOutputSource, {&meanA, &meanB, &guidance, &output}, packedCode, overRange);
}

void GuidedFilter::Run::filterByColour(const Image& input, const std::vector<Image>& guidance, Image& output) const {
    constexpr int channels = 3;
    Working w(manager_, input.box());
    std::vector<Image>& a = w.a;
    std::vector<Image>& covariance = w.covariance;
    std::vector<Image>& variance = w.variance;
    Common::boxFilter(input, a[0], w.meanInput, radius_);
    for (int c = 0; c < channels; ++c)
        Common::boxFilter(guidance[c], a[0], w.meanGuidance[c], radius_);
    for (int c = 0; c < channels; ++c)
        covarianceOf(guidance[c], input, w.meanGuidance[c], w.meanInput, a[0], w.b, covariance[c], radius_);
    int k = 0;
    for (int i = 0; i < channels; ++i)
        for (int j = i; j < channels; ++j)
            covarianceOf(guidance[i], guidance[j], w.meanGuidance[i], w.meanGuidance[j], a[0], w.b, variance[k++],
                         radius_);
    runKernel(guidedSolveSource,
              {&variance[0], &variance[1], &variance[2], &variance[3], &variance[4], &variance[5], &covariance[0],
               &covariance[1], &covariance[2], &a[0], &a[1], &a[2]},
              packedCode, {}, Scalar{"epsilon", filter_.epsilon_});

    Common::copy(w.meanInput, w.b);
    for (int c = 0; c < channels; ++c) {
        Common::multiply(a[c], w.meanGuidance[c], w.meanGuidance[c]);
        Common::subtract(w.b, w.meanGuidance[c], w.b);
    }
    std::vector<Image>& meanA = covariance;
    Image& meanB = w.meanInput;
    for (int c = 0; c < channels; ++c)
        Common::boxFilter(a[c], w.meanGuidance[0], meanA[c], radius_);
    Common::boxFilter(w.b, w.meanGuidance[0], meanB, radius_);
    for (int c = 0; c < channels; ++c)
        Common::multiply(meanA[c], guidance[c], meanA[c]);
    Common::add(meanA[0], meanA[1], output);
    Common::add(meanA[2], output, output);
    Common::add(meanB, output, output);
}

void GuidedFilter::apply(const Image& input, const Image& guidance, Image& output) {
    if (radius_ < 0)
        Compute::fail("The guided filter can't take a radius of " + std::to_string(radius_) + "; it begins at 0.");
    if (input.box().empty()) return;
    if (guidance.empty() || output.empty() || !guidance.box().contains(input.box()) ||
        !output.box().contains(input.box()))
        Compute::fail("The guided filter's guidance and output must cover its input.");
    Run(*this, input, guidance, output).run();
}

}  // namespace Vellum::GuidedFilter
