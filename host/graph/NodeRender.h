#pragma once

#include <optional>
#include <string>
#include <vector>

#include "compute/Image.h"
#include "host/graph/ControlValues.h"
#include "host/graph/OperatorNode.h"

namespace ViewTint::Host {

/// What a frame is made of, in memory. All pictures but the mask lie over one box.
struct FramePictures {
    using Image = Vellum::Image::Image;
    Image left, right;               ///< red, green, blue, alpha in linear light
    Image disparity;                 ///< of the view to correct: x and y into the left view, x and y into the right one
    std::vector<Image> occlusions;   ///< one component, 1 where hidden: of this frame, then of -1, +1, -2, +2
    std::optional<Image> mask = {};  ///< the node's input Mask: 1, 3 or 4 components
};

/// Renders one frame of pictures in memory with the colour matching node. Renders one at a time in the process.
class NodeRender {
public:
    struct Result {
        std::optional<Vellum::Image::Image> picture;  ///< 4 components; none where the node refused
        std::vector<std::string> messages;            ///< the node's, the first tells the cause
        /// False where too little of the view is visible in both views: the picture is as it came in, and a warning
        /// says why.
        bool matched = true;
    };

    /// `controls` must outlive this. Throws SettingError.
    static Result render(const ControlValues& controls, const FramePictures& pictures,
                         const RenderServices& services = {});
};

}  // namespace ViewTint::Host
