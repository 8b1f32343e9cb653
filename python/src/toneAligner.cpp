#include "ToneAligner/ToneAligner.h"

#include <fmt/format.h>
#include <nanobind/stl/array.h>
#include <nanobind/stl/vector.h>

#include <string>
#include <utility>
#include <vector>

#include "operations.h"
#include "requirements.h"

namespace ViewTint::Python {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Utils::BufferManagement::BufferManager;
using Aligner = Vellum::Tone::ToneAligner;

/// The settings and, with keepStages, the pictures of the last call; everything else belongs to one call, so that
/// threads can share the object.
class ToneAligner {
    using Stages = std::vector<std::pair<std::string, Image>>;
    static constexpr int mostBlockSize = 4096;

    template <class Work>
    auto run(Work&& work) const {
        return unlocked([&] {
            BufferManager buffers(hostDevice(), hostDevice());
            Aligner aligner(buffers, packedCode);
            aligner.setSettings(settings);
            return work(aligner);
        });
    }

    Stages stages_;

public:
    Aligner::Settings settings;
    bool keepStages = false;

    Image process(const Image& source, const Image& rebuilt, const Image& mask, const Image& occlusion,
                  const Image& edges) {
        requireComponents("source", source, 4);
        requireComponents("rebuilt", rebuilt, 4);
        requireComponents("mask", mask, 1);
        requireComponents("occlusion", occlusion, 1);
        requireComponents("edges", edges, 1);
        requireSameBox("rebuilt", rebuilt, "source", source);
        requireSameBox("occlusion", occlusion, "source", source);
        requireSameBox("edges", edges, "source", source);
        Stages kept;
        Image output = run([&](Aligner& aligner) {
            if (keepStages)
                aligner.setStageObserver([&](const char* name, const Image& picture) {
                    Image copy = newLike(picture);
                    copy.copyFrom(picture);
                    kept.emplace_back(name, copy);
                });
            Image result({source.box(), 4}, hostDevice());
            if (settings.mode == Aligner::idle) Vellum::Common::clear(result);  // which nothing else writes
            aligner.process(source, rebuilt, mask, occlusion, edges, result);
            return result;
        });
        stages_ = std::move(kept);
        return output;
    }

    nb::dict stages() const {
        nb::dict named;
        for (const auto& [name, picture] : stages_)
            named[name.c_str()] = picture;
        return named;
    }

    Image matchBlocks(const Image& source, const Image& target, const Image& valid, int blockSize) const {
        requireComponents("source", source, 3);
        requireComponents("target", target, 3);
        requireComponents("valid", valid, 1);
        requireSameSize("target", target, "source", source);
        requireSameSize("valid", valid, "source", source);
        if (blockSize < 2 || blockSize > mostBlockSize)
            raiseValue(fmt::format("blockSize must lie in 2 .. {} pixels.", mostBlockSize));
        return run([&](Aligner& aligner) {
            Image result({source.box(), 3}, hostDevice());
            aligner.matchBlocks(source, target, valid, result, blockSize);
            return result;
        });
    }

    Image buildFillMask(const Image& sourceView, const Image& rebuiltView, const Image& occlusion,
                        const Image& disparityEdges) const {
        requireColour("sourceView", sourceView);
        requireColour("rebuiltView", rebuiltView);
        requireComponents("occlusion", occlusion, 1);
        requireComponents("disparityEdges", disparityEdges, 1);
        requireSameBox("rebuiltView", rebuiltView, "sourceView", sourceView);
        requireSameBox("occlusion", occlusion, "sourceView", sourceView);
        requireSameBox("disparityEdges", disparityEdges, "sourceView", sourceView);
        return run([&](Aligner& aligner) {
            Image mask({occlusion.box(), 1}, hostDevice());
            aligner.buildFillMask(sourceView, rebuiltView, occlusion, disparityEdges, mask);
            return mask;
        });
    }

    Image refill(const Image& corrected, const Image& source, const Image& mask) const {
        requireComponents("corrected", corrected, 3);
        requireComponents("source", source, 3);
        requireComponents("mask", mask, 1);
        requireSameBox("corrected", corrected, "source", source);
        requireSameBox("mask", mask, "source", source);
        return run([&](Aligner& aligner) {
            Image refilled({source.box(), 3}, hostDevice());
            aligner.refill(corrected, source, mask, refilled);
            return refilled;
        });
    }

    Image limitCorrection(const Image& source, const Image& corrected) const {
        requireColour("source", source);
        requireColour("corrected", corrected);
        requireSameBox("corrected", corrected, "source", source);
        Image view = copied(source);
        Image limited = copied(corrected);
        run([&](Aligner& aligner) { aligner.limitCorrection(view, limited); });
        return limited;
    }

    std::vector<int> sampleBlockSizes() const {
        return run([](Aligner& aligner) { return aligner.sampleBlockSizes(); });
    }
};

/// A setting as an attribute that refuses values outside lowest .. highest.
template <auto member, class T>
void bindNumber(nb::class_<ToneAligner>& aligner, const char* name, T lowest, T highest, const char* doc) {
    aligner.def_prop_rw(
        name, [](const ToneAligner& self) { return self.settings.*member; },
        [=](ToneAligner& self, T value) {
            if (!(value >= lowest && value <= highest))
                raiseValue(fmt::format("{} must lie in {} .. {}.", name, lowest, highest));
            self.settings.*member = value;
        },
        doc);
}

template <auto member>
void bindSwitch(nb::class_<ToneAligner>& aligner, const char* name, const char* doc) {
    aligner.def_prop_rw(
        name, [](const ToneAligner& self) { return self.settings.*member; },
        [](ToneAligner& self, bool value) { self.settings.*member = value; }, doc);
}

void bindAlignerSettings(nb::class_<ToneAligner>& aligner) {
    using S = Aligner::Settings;
    bindNumber<&S::mode>(aligner, "mode", 0, 3,
                         "0 one map for the whole picture, 2 one block size, 3 several; 1 gives 0.");
    bindNumber<&S::blockSize>(aligner, "blockSize", 2, 4096, "Edge of a block in pixels; the smallest of several.");
    bindNumber<&S::maxBlockSize>(aligner, "maxBlockSize", 2, 4096, "The largest of several block sizes.");
    bindNumber<&S::samples>(aligner, "samples", 1, 1000, "How many block sizes.");
    bindNumber<&S::intervalType>(aligner, "intervalType", 0, 1,
                                 "0 block sizes at equal steps, 1 the small ones closer together.");
    bindNumber<&S::correctionType>(aligner, "correctionType", 0, 2,
                                   "What becomes of several sizes: 0 the one that changes least, 1 the one nearest to "
                                   "the rebuilt view, 2 their average.");
    bindSwitch<&S::fillEmptyBlocks>(aligner, "fillEmptyBlocks",
                                    "Give blocks with too few pixels that count what their neighbours have.");
    bindSwitch<&S::fillOcclusions>(aligner, "fillOcclusions",
                                   "Refill the correction where the other view doesn't show the pixel.");
    bindNumber<&S::colourTolerance>(aligner, "colourTolerance", 0.0f, 1e6f,
                                    "How unlike in Lab the pixels may be that refill one.");
    bindNumber<&S::supportSize>(aligner, "supportSize", 0, 4096,
                                "Pixels by which the refill looks beyond the nearest pixel that counts.");
    bindNumber<&S::adjustEdges>(aligner, "adjustEdges", -1000.0f, 1000.0f,
                                "Pixels by which edges of the disparity grow, or shrink, in the mask of the refill.");
    bindNumber<&S::edgeDetect>(aligner, "edgeDetect", 0.0f, 1.0f,
                               "0 none, 1 also the weakest edges of the pictures join the mask of the refill.");
    bindNumber<&S::featherSize>(aligner, "featherSize", 0.0f, 1000.0f, "Sigma of that mask's blur in pixels.");
    bindSwitch<&S::outputOcclusionsToAlpha>(aligner, "outputOcclusionsToAlpha", "Put that mask into the alpha.");
    bindNumber<&S::noiseLevel>(aligner, "noiseLevel", 0.0f, 1.0f, "How strong a grain stays out of the matching.");
    bindSwitch<&S::previewCorrection>(aligner, "previewCorrection", "Give the difference instead of the picture.");
    bindNumber<&S::correctionLimit>(aligner, "correctionLimit", 0.0f, 1e6f,
                                    "How far L may be corrected away from the average of a wide surrounding.");
    bindNumber<&S::smoothingRadius>(aligner, "smoothingRadius", 0, 200,
                                    "Radius in pixels of the filter that smooths the correction.");
    aligner.def_prop_rw(
        "wrapSize", [](const ToneAligner& self) { return self.settings.wrapSize; },
        [](ToneAligner& self, const std::array<int, 2>& size) { self.settings.wrapSize = size; },
        "Width and height of the format; both at least 1 make columns close round the width, as in every render.");
    aligner.def_rw("keepStages", &ToneAligner::keepStages, "Keep the intermediate pictures of process() in `stages`.");
}

}  // namespace

void bindToneAligner(nb::module_& module) {
    nb::class_<ToneAligner> aligner(module, "ToneAligner",
                                    R"(Makes the colours of one view agree with those of the other view on its geometry.

The settings are attributes, named and preset as in the C++ class. Colours are matched in scaled Lab, see rgbToLab.)");
    aligner.def(nb::init<>());
    bindAlignerSettings(aligner);
    aligner
        .def("process", &ToneAligner::process, "source"_a, "rebuilt"_a, "mask"_a, "occlusion"_a, "edges"_a,
             R"(The corrected view, 4 components.

source: the view to correct, rebuilt: the other view on its geometry (4 components of linear RGB and alpha in one box).
mask: 1 where the picture may change, of any box. occlusion: 1 where the other view doesn't show the pixel. edges: 1 on
edges of the disparity, see detectDisparityEdges. One component each. Else ValueError.
Where the mask is 0, and where source isn't a number or beyond 1e12, the result is source, bit for bit. Such a pixel of
rebuilt counts as occluded, such a value of mask as 0, of occlusion and edges as 1.)")
        .def_prop_ro(
            "stages", &ToneAligner::stages,
            R"(The pictures of the last process() with keepStages set, by name, in the order in which they came.
"V" pixels that take part in the statistics, "N" and "T" the views without noise, "noise", "C" (one block size) or "E0" ..
and "merged" (several) the matched pictures, "O" the mask of the refill, "delta" and "refilled" the correction and the
picture around it, "average" the mean change of L, "limited" and "smoothed". C, delta, refilled, limited and smoothed are
in Lab, the others in RGB.)")
        .def("matchBlocks", &ToneAligner::matchBlocks, "source"_a, "target"_a, "valid"_a, "blockSize"_a,
             R"(source (Lab, 3 components) with a gain and an offset at every pixel that take the mean and deviation of
the blocks around it to those of target, over the pixels where valid (1 component) is above 0.)")
        .def("buildFillMask", &ToneAligner::buildFillMask, "sourceView"_a, "rebuiltView"_a, "occlusion"_a,
             "disparityEdges"_a,
             R"(The mask of the refill: 0 .. 1 from occlusion and edges of the disparity, feathered, and with edgeDetect
above 0 edges of the pictures (linear RGB, 3 or 4 components).)")
        .def("refill", &ToneAligner::refill, "corrected"_a, "source"_a, "mask"_a,
             R"(source (Lab, 3 components) plus the correction, which under the mask is the average of that of nearby
pixels of like colour outside it.)")
        .def(
            "limitCorrection", &ToneAligner::limitCorrection, "source"_a, "corrected"_a,
            R"(corrected (linear RGB, 3 or 4 components) with its change of L kept within correctionLimit of the average
change of a wide surrounding.)")
        .def("sampleBlockSizes", &ToneAligner::sampleBlockSizes, "The block sizes of several samples, in their order.");

    module.def(
        "detectDisparityEdges",
        [](const Image& disparity, float scale, bool thin) {
            requireComponents("disparity", disparity, 2);
            return unlocked([&] {
                Image result({disparity.box(), 1}, hostDevice());
                Vellum::Tone::detectDisparityEdges(disparity, result, scale, thin);
                return result;
            });
        },
        "disparity"_a, "scale"_a = 1.0f, "thin"_a = true,
        R"(1 where the disparity (2 components, in pixels) times scale jumps by more than a pixel between the neighbours
of a pixel, else 0. Without thin the marks are as wide as the jumps.)");
}

}  // namespace ViewTint::Python
