#pragma once

#include <memory>

#include "host/parallax/ParallaxEstimate.h"
#include "host/sdk/Iop.h"

namespace ViewTint::Host {

/// The class name of the node below.
inline constexpr const char* parallaxFieldClass = "Q_ParallaxField";

/// A node that adds disparity and occlusion to both views of its input, views 1 (left) and 2 (right): of the left view
/// the vectors to the right one in `disparityR`, of the right view those to the left one in `disparityL`, in pixels, x
/// to the right, y up; in `mask_occlusion.alpha` 1 where the other view doesn't show the pixel or nothing is known.
/// Colours and everything else pass through. Results are kept in the host's image cache, if it keeps one.
class ParallaxField : public Fresco::Image::PlanarIop {
public:
    explicit ParallaxField(Fresco::Image::Node* node) : PlanarIop(node) {}

    const char* Class() const override { return parallaxFieldClass; }
    const char* node_help() const override;
    const char* input_label(int, char*) const override { return "Source"; }
    int split_input(int input) const override;
    const Fresco::Image::OutputContext& inputContext(int input, int offset,
                                                     Fresco::Image::OutputContext& context) const override;
    void getRequests(const Fresco::Image::Box& box, const Fresco::Image::ChannelSet& channels, int count,
                     Fresco::Image::RequestOutput& requests) override;
    bool useStripes() const override { return false; }
    /// Of all that is shown of the views. Reports an error where a view isn't there.
    void renderStripe(Fresco::Image::ImagePlane& plane) override;

protected:
    void _validate(bool forReal) override;

private:
    bool estimate();
    bool fetchColours(int offset, RgbPicture& picture) const;

    /// Of the latest frame: both views ask for it.
    std::unique_ptr<ParallaxEstimate> estimate_;
    double frameOfEstimate_ = 0;
};

}  // namespace ViewTint::Host
