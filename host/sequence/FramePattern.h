#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ViewTint::Host {

/// A name with a place for the frame number: `shot.####.exr` (a digit for each sign; `#` alone is four), `shot.@@@.exr`
/// (a digit for each sign), `shot.%04d.exr` or `shot.%d.exr`. There is one, in the file's name: folders may be called
/// as they like.
class FramePattern {
public:
    /// Null for a name without a place. Throws std::invalid_argument with a sentence for one with several, with too
    /// many digits, or with one in the name of a folder that doesn't exist, and for names that are too long.
    static std::optional<FramePattern> parse(const std::string& text);

    const std::string& text() const { return text_; }
    /// The same for all ways of writing the place: `shot.####.exr`.
    std::string canonicalText() const;
    /// The file of a frame. Numbers with more digits keep them all.
    std::filesystem::path path(int frame) const;
    /// The frames whose files exist, in ascending order.
    std::vector<int> existing() const;

private:
    /// The number in a file's name, if the name is what path() gives for it.
    std::optional<int> frameOf(const std::string& fileName) const;

    std::string text_;
    std::filesystem::path folder_;
    std::string before_, after_;  ///< of the number, in the file's name
    int digits_ = 1;
};

/// The name with `%V` or `%v` replaced by a view's name (of `%v` its first letter), or null where it has neither.
std::optional<std::string> nameForView(const std::string& text, const std::string& view);

/// Frames as they are typed: `1001`, `1001-1240`, `1001-1240x2`, and several of these with commas. In the order of
/// typing, each once. Throws std::invalid_argument with a sentence.
std::vector<int> parseFrames(std::string_view text);

/// The shortest text that parseFrames reads back: runs of equal steps. Empty for no frames.
std::string formatFrames(std::span<const int> frames);

}  // namespace ViewTint::Host
