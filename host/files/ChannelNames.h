#pragma once

#include <string>
#include <vector>

namespace ViewTint::Host {

/// Where a channel of a one-part multi-view file belongs.
struct ViewChannel {
    std::string view;
    std::string channel;  ///< without the view's name
};

/// Splits the name that a file has for a channel: the second-to-last component is the view's name ("right.R",
/// "disparityL.right.x"). A name without one belongs to the default view, the first of `views`,
/// which has one at least.
ViewChannel splitViewName(const std::string& fileName, const std::vector<std::string>& views);

/// The name of a view's channel in a one-part file: the opposite of splitViewName. Names of the default view's
/// channels stay bare.
std::string joinViewName(const std::string& channel, const std::string& view, const std::string& defaultView);

/// The layer that a part's name stands for: the name without the view's name ("disparityL.left" is "disparityL").
/// Empty for the main layer, "rgba", and where only the view's name was there.
std::string layerOfPart(const std::string& partName, const std::string& view);

/// "left, right", for messages; "none" for an empty list.
std::string listNames(const std::vector<std::string>& names);

}  // namespace ViewTint::Host
