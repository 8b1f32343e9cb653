#pragma once

#include <optional>
#include <string>

namespace ViewTint::Host {

class OperatorNode;

/// How much of the view to correct is visible in both views.
struct SharedPicture {
    double visible = 1;             ///< where the mask is 1; these four are shares of the pixels
    double hidden = 0;              ///< occluded in this frame
    double hiddenByNeighbours = 0;  ///< occluded only in frames that its occlusion is stabilised with
    double outside = 0;             ///< matched outside the other view, or nowhere
    bool masked = false;            ///< of what the artist's mask selects, and not of the whole view

    /// What to say of a view that is left as it is. `occlusion` is the file's name for that channel.
    std::string complaint(const std::string& view, const std::string& occlusion) const;
};

/// Looks at what the node will be given, as the node itself does. Nothing where at least one per cent of the view is
/// visible in both views, and of what a mask fully selects in it at least a pixel: enough to match their colours.
/// Nothing either where an input is missing: the node says so. `node` has been entered in the context of the view to
/// correct; of other nodes than the colour matching one nothing is said.
std::optional<SharedPicture> tooLittleShared(const OperatorNode& node);

}  // namespace ViewTint::Host
