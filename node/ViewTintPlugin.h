#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "compute/BufferManagement/BufferManager.h"
#include "framework/SextantProgress.h"
#include "framework/SextantVellumBase.h"
#include "framework/StereoKnob.h"

namespace Vellum::Tone {
class ToneAligner;
}

namespace Cobalt::Research {

/// Corrects colour differences between the two views of a stereo pair: changes the view that `matchWhat` names so that
/// its colours agree with the other view's. Input 0 is the picture with disparity and occlusion, input 1 an optional
/// mask.
class ViewTintPlugin : public Cobalt::Sextant::SextantVellumBase {
public:
    explicit ViewTintPlugin(Fresco::Image::Node* node);
    ~ViewTintPlugin() override;

    // Stored by the controls of the same names before `_validate`. Enumerations by value, sizes in pixels.
    int matchWhat = 0;     ///< 0 corrects the left view, 1 the right
    int matchingMode = 1;  ///< 0 "Basic", 1 "Local Matching"
    int blockSize = 5;
    int maskWith = 0;
    float adjustEdges = 0.0f;
    float edgeDetect = 0.0f;
    float colourTolerance = 0.1f;
    int supportSize = 20;
    int samples = 5;
    int maxBlockSize = 100;
    int correctionType = 1;
    int intervalType = 0;
    int occlusionCorrection = 0;  ///< 0 "Occlusions", 1 "Occlusions and Edges", 2 "None"
    float featherSize = 1.5f;
    bool outputOcclusionsToAlpha = false;
    bool stabiliseOcclusions = true;
    int stabiliseOcclusionsNumberOfFrames = 5;
    float noiseLevel = 0.25f;
    bool previewCorrection = false;
    float correctionLimit = 1.0f;
    float correctionScale = 0.5f;

    /// The split of input 0 that holds the corrected view, written at the start of every render.
    int matchInputOffset = 0;
    /// Shown the intermediate pictures of "Local Matching" by name, see ToneAligner.
    std::function<void(const char* name, const Vellum::Image::Image& picture)> stageObserver;
    std::unique_ptr<StereoKnobI> stereoKnob;

    // ---- description (src/vellumViewTintPlugin.cpp, src/vellumViewTintControls.cpp)

    const char* Class() const override;
    const char* displayName() const override;
    const char* node_help() const override;
    int minimum_inputs() const override { return 1; }
    int maximum_inputs() const override { return 2; }
    const char* input_label(int input, char* buffer) const override;
    void knobs(Fresco::Image::Knob_Callback closure) override;
    int knob_changed(Fresco::Image::Knob* knob) override;

    // ---- inputs (src/vellumViewTintInputs.cpp)

    void append(Fresco::Image::Hash& hash) override;
    int split_input(int input) const override;
    const Fresco::Image::OutputContext& inputContext(int input, int offset,
                                                     Fresco::Image::OutputContext& context) const override;
    int doPreValidate(Fresco::Image::ViewerContext* viewer, Fresco::Image::PreValidateContext* context) override;
    void getRequests(const Fresco::Image::Box& box, const Fresco::Image::ChannelSet& channels, int count,
                     Fresco::Image::RequestOutput& requests) override;

    /// What the artist's mask selects of the view to correct: one component over `box`. Nothing where every pixel is
    /// selected, and, with an error on the node, where the mask is missing.
    std::optional<Vellum::Image::Image> selection(const Vellum::Image::Box& box);

    // ---- render (src/vellumViewTintRender.cpp)

    /// Renders the corrected view's whole plane. Failures end up on the node by Op::error; an abort ends silently.
    void renderStripe(Fresco::Image::ImagePlane& plane) override;

protected:
    using Image = Vellum::Image::Image;

    void _validate(bool forReal) override;

    // ---- fetching (src/vellumViewTintFetch.cpp); false with an error on the node, or silently after an abort

    /// RGBA of both views, each in its own box.
    bool fetchSourceViews(Image& left, Image& right);
    /// Four components: the vectors of the left view, then those of the right.
    bool fetchDisparity(Image& disparity);
    /// The largest occlusion over the frames that stabilisation takes in. Throws InterruptedException after an abort.
    bool fetchOcclusionMask(Image& occlusion);
    bool fetchOcclusionFrames(std::vector<Image>& frames);
    /// One component in the box of `reference`: 1 where the artist's mask selects.
    bool fetchMask(Image& mask, const Image& reference);

private:
    class Steps;

    /// What became of a fetch: the input or a channel isn't there, nothing was delivered, or an image.
    enum class Fetched { missing, nothing, image };

    bool stabilises() const { return stabiliseOcclusions && occlusionCorrection <= 1; }
    void refreshKnobVals();
    void enableControls();

    Fetched fetch(Image& out, int inputIndex, int offset, const Fresco::Image::ChannelSet& needed,
                  const Fresco::Image::ChannelSet& channels) const;
    /// Puts the message on the node where something is missing. True for an image.
    bool report(Fetched fetched, const std::string& message) const;

    void render(Fresco::Image::ImagePlane& plane, Steps& steps);
    std::array<int, 2> sourceFormat() const;
    static bool loadResult(Fresco::Image::ImagePlane& plane, const Fresco::Image::Hash& renderHash);
    /// The first component of `disparity` that belongs to the view to correct.
    int firstVectorComponent() const { return matchWhat == 0 ? 2 : 0; }
    /// Occludes the pixels whose vector leads nowhere. Returns how many they are.
    std::size_t hideBrokenVectors(const Image& disparity, Image& occlusion) const;
    void markDisparityEdges(const Image& disparity, Image& edges) const;
    /// The other view's colours on the geometry of the view to correct.
    void rebuildOtherView(Vellum::Utils::BufferManagement::BufferManager& bufferManager,
                          const std::array<int, 2>& fullSize, const Image& leftView, const Image& rightView,
                          const Image& disparity, const Image& occlusion, Image& projected) const;
    /// Warns of broken pixels; the pictures' counts are those of this render.
    void tellBrokenPixels(std::size_t target, std::size_t other, std::size_t vectors, std::size_t mask) const;
    void setUp(Vellum::Tone::ToneAligner& aligner, const std::array<int, 2>& fullSize, int width) const;

    std::vector<std::size_t> brokenOcclusions_;  ///< of the frames of the latest fetch
};

}  // namespace Cobalt::Research
