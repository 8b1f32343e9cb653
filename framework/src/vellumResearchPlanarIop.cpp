#include "framework/ResearchVellumPlanarIop.h"

#include "framework/ResultCache.h"
#include "framework/SextantProgress.h"

namespace Cobalt::Research {

void ResearchVellumPlanarIop::renderStripe(Fresco::Image::ImagePlane& plane) {
    Cobalt::Sextant::abortCheck(*this);
    Fresco::Image::Hash key;
    if (useResultCache) {
        hash(key);
        if (ResultCache::hasChannels(plane.channels(), key) &&
            ResultCache::load(plane, key).size() == plane.channels().size())
            return;
    }
    if (renderPlane(plane) && useResultCache) ResultCache::storePlane(plane, key);
}

void ResearchVellumPlanarIop::fraction(float done) {
    const float shown = mapped(done);
    if (shown >= 1.0f)
        progressDismiss();
    else
        progressFraction(shown, 0);
}

void ResearchVellumPlanarIop::message(const char* text) {
    progressMessage(text);
}

}  // namespace Cobalt::Research
