#pragma once

#include "base/Progress.h"
#include "framework/VellumPlanarIop.h"

namespace Cobalt::Research {

/// A planar operator that renders whole planes and shows progress on its node.
class ResearchVellumPlanarIop : public Cobalt::PlinthPlugins::VellumPlanarIop, public Cobalt::Base::Progress {
public:
    explicit ResearchVellumPlanarIop(Fresco::Image::Node* node) : VellumPlanarIop(node) {}

    /// Renders a plane. The default takes it from the result cache or calls renderPlane; throws InterruptedException
    /// after an abort.
    void renderStripe(Fresco::Image::ImagePlane& plane) override;
    bool useStripes() const override { return false; }
    bool renderFullPlanes() const override { return true; }

    /// The rows of a box that stands between y and t.
    virtual int boxHeight(int /*x*/, int y, int /*r*/, int t) const { return t - y; }
    /// What the render's result depends on.
    virtual void hash(Fresco::Image::Hash& out) const { out = ownHash(); }
    /// For operators that keep the default renderStripe; true when the plane's pixels are good.
    virtual bool renderPlane(Fresco::Image::ImagePlane& /*plane*/) { return true; }

    bool useResultCache = true;  ///< for the default renderStripe

    /// Shown on the node; 1 dismisses the display.
    void fraction(float done) override;
    void message(const char* text) override;
};

}  // namespace Cobalt::Research
