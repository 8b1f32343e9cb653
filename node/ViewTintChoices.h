#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "compute/Image.h"
#include "host/sdk/ChannelSet.h"

/// What follows from the controls' values, and the sentences for inputs that lack something.
namespace Cobalt::Research {

// ---- mask modes, by the value of `maskWith`

/// Alpha for 1, 2, 5 and 6; red, green and blue for 3 and 4; none for any other.
Fresco::Image::ChannelSet maskChannels(int mode);
bool maskIsLuminance(int mode);
bool maskIsInverted(int mode);

// ---- the matcher's settings

/// The smoothing radius in pixels, 2 to 40: `correctionScale` 1 stands for 20 pixels in a picture 2048 wide, plus 2.
int smoothingRadius(float correctionScale, int width);
/// The matcher's mode number.
int matcherMode(int matchingMode, int samples);

// ---- channels and frames

/// Input 0's first offset that stands for a neighbouring frame.
inline constexpr int firstFrameOffset = 3;

/// The occlusion mask's channel, made on demand. Any thread.
Fresco::Image::Channel occlusionChannel();
Fresco::Image::ChannelSet colourChannels();
Fresco::Image::ChannelSet disparityChannels();

// ---- images

/// The larger value of all frames at each pixel, in the box of the first frame. Frames elsewhere count for nothing.
/// There is at least one frame. A broken value hides. Returns how many each frame has.
std::vector<std::size_t> combineOcclusionFrames(const std::vector<Vellum::Image::Image>& frames,
                                                Vellum::Image::Image& out);
/// A one-component image with exactly this box: `source` itself where it fits, else its pixels at their own places
/// and 0 elsewhere.
Vellum::Image::Image fitImageToBox(const Vellum::Image::Image& source, const Vellum::Image::Box& box);

// ---- messages

std::string missingInputMessage(const std::string& inputName, const std::string& what);
std::string missingUpstreamMessage(const std::string& inputName, const std::string& what, const std::string& node);
std::string missingChannelMessage(const std::string& name);

/// Broken pixels of a render's pictures, by their names; `corrected` is that of the view to correct. Pictures without
/// any are left out; empty where all are.
std::string brokenPixelsMessage(const std::vector<std::pair<std::string, std::size_t>>& counts,
                                const std::string& corrected);

}  // namespace Cobalt::Research
