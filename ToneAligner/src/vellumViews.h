#pragma once

#include "ToneAligner/ToneAligner.h"

namespace Vellum::Tone {

/// The pictures of one call, as the manager holds them.
struct ToneAligner::Views {
    using Managed = Utils::BufferManagement::BufferManagedImage;

    Views(BufferManager& manager, const Image& sourceView, const Image& rebuiltView, const Image& userMask,
          const Image& occlusionMask, const Image& disparityEdges)
        : source(manager, sourceView),
          rebuilt(manager, rebuiltView),
          mask(manager, userMask),
          occlusion(manager, occlusionMask),
          edges(manager, disparityEdges) {}

    Managed source;
    Managed rebuilt;
    Managed mask;
    Managed occlusion;
    Managed edges;
};

}  // namespace Vellum::Tone
