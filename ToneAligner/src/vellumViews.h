#pragma once

#include <optional>

#include "ToneAligner/ToneAligner.h"

namespace Vellum::Tone {

/// The pictures of one call, as the manager holds them. From leaveOutBrokenPixels() on everything in them is a value.
struct ToneAligner::Views {
    using Managed = Utils::BufferManagement::BufferManagedImage;

    Views(BufferManager& manager, const Image& sourceView, const Image& rebuiltView, const Image& userMask,
          const Image& occlusionMask, const Image& disparityEdges)
        : source(manager, sourceView),
          rebuilt(manager, rebuiltView),
          mask(manager, userMask),
          occlusion(manager, occlusionMask),
          edges(manager, disparityEdges) {}

    /// Broken pixels of the view to correct are left out of the mask, those of the rebuilt view are occluded, and both
    /// get the colours of their surroundings, because windows see them all the same. A broken mask selects nothing,
    /// broken occlusion hides.
    BrokenPixels leaveOutBrokenPixels(BufferManager& manager, int kernelFlags);
    /// The view to correct as it came.
    const Image& own() const { return asItCame ? asItCame->image() : source.image(); }

    Managed source;
    Managed rebuilt;
    Managed mask;
    Managed occlusion;
    Managed edges;
    std::optional<Managed> asItCame;  ///< the view to correct where it has broken pixels
};

}  // namespace Vellum::Tone
