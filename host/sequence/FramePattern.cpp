#include "host/sequence/FramePattern.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <unordered_set>

#include "base/Text.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t longestName = 4095;  // bytes with the folder: what systems take
constexpr int mostDigits = 12;
constexpr int largestFrame = 999'999'999;  // neighbours of it are numbers, too
constexpr std::size_t mostFrames = 1'000'000;

/// In quotes, and cut off where it is too long to be read.
std::string inQuotes(std::string_view text) {
    constexpr std::size_t readable = 120;
    return fmt::format("'{}{}'", Cobalt::Base::beginningOf(text, readable), text.size() > readable ? "..." : "");
}

/// Where the number stands in a name, and how many digits it has at least.
struct Place {
    std::size_t begin, end;
    std::size_t digits;
};

/// Digits that `04` asks for; of long ones no more than that they are too many.
std::size_t widthOf(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
    std::size_t width = 0;
    for (const char digit : text)
        width = std::min<std::size_t>(10 * width + static_cast<std::size_t>(digit - '0'), longestName);
    return std::max<std::size_t>(width, 1);
}

std::optional<Place> placeIn(std::string_view name, std::size_t from = 0) {
    constexpr std::size_t digitsOfOneHash = 4;
    for (std::size_t i = name.find_first_of("#@%", from); i < name.size(); i = name.find_first_of("#@%", i + 1)) {
        if (name[i] != '%') {
            const std::size_t end = std::min(name.find_first_not_of(name[i], i), name.size());
            return Place{i, end, name[i] == '#' && end - i == 1 ? digitsOfOneHash : end - i};
        }
        const std::size_t letter = name.find_first_not_of("0123456789", i + 1);
        if (letter < name.size() && name[letter] == 'd')
            return Place{i, letter + 1, widthOf(name.substr(i + 1, letter - i - 1))};
    }
    return std::nullopt;
}

/// Takes a number from the beginning of a text.
std::optional<int> takeNumber(std::string_view& text) {
    int number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure == std::errc::invalid_argument) return std::nullopt;
    if (failure != std::errc() || std::abs(std::int64_t{number}) > largestFrame)
        throw std::invalid_argument(
            fmt::format("{}: frame numbers go from -{} to {}.", inQuotes(text), largestFrame, largestFrame));
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

/// Takes a sign if the text begins with it.
bool take(std::string_view& text, char sign) {
    if (!text.starts_with(sign)) return false;
    text.remove_prefix(1);
    return true;
}

/// `first`, `first-last` or `first-lastxstep`; numbers may be negative.
struct FrameRun {
    std::int64_t first, last, step;

    static std::optional<FrameRun> parse(std::string_view text) {
        const auto first = takeNumber(text);
        if (!first) return std::nullopt;
        const bool ranges = take(text, '-');
        const auto last = ranges ? takeNumber(text) : first;
        const auto step = ranges && take(text, 'x') ? takeNumber(text) : 1;
        if (!last || !step || *step < 1 || !text.empty()) return std::nullopt;
        return FrameRun{*first, *last, *step};
    }
    std::size_t count() const { return static_cast<std::size_t>(std::abs(last - first) / step) + 1; }
};

}  // namespace

std::optional<FramePattern> FramePattern::parse(const std::string& text) {
    if (text.size() > longestName)
        throw std::invalid_argument(fmt::format("{}: the name has {} characters; at most {} are possible.",
                                                inQuotes(text), text.size(), longestName));
    const fs::path path = text;
    const std::string name = path.filename().string();
    const auto place = placeIn(name);
    if (!place) {
        std::error_code ignored;
        if (placeIn(path.parent_path().string()) && !fs::exists(path.parent_path(), ignored))
            throw std::invalid_argument(
                fmt::format("{}: there is no such folder. The frame number belongs in the file's name; write for "
                            "example folder/shot.####.exr.",
                            inQuotes(text)));
        return std::nullopt;
    }
    const auto placeText = [&](const Place& one) { return name.substr(one.begin, one.end - one.begin); };
    if (const auto other = placeIn(name, place->end))
        throw std::invalid_argument(
            fmt::format("{} has several places for the frame number, {} and {}; it needs one, as shot.####.exr has. #, "
                        "@ and %d stand for nothing else.",
                        inQuotes(text), inQuotes(placeText(*place)), inQuotes(placeText(*other))));
    if (place->digits > mostDigits)
        throw std::invalid_argument(
            fmt::format("{}: the place for the frame number, {}, has more than {} digits; write for example "
                        "shot.####.exr.",
                        inQuotes(text), inQuotes(placeText(*place)), mostDigits));
    FramePattern pattern;
    pattern.text_ = text;
    pattern.folder_ = path.parent_path();
    pattern.before_ = name.substr(0, place->begin);
    pattern.after_ = name.substr(place->end);
    pattern.digits_ = static_cast<int>(place->digits);
    return pattern;
}

std::string FramePattern::canonicalText() const {
    return (folder_ / (before_ + std::string(static_cast<std::size_t>(digits_), '#') + after_)).string();
}

fs::path FramePattern::path(int frame) const {
    const std::string number = frame < 0 ? fmt::format("-{:0{}}", -static_cast<long long>(frame), digits_)
                                         : fmt::format("{:0{}}", frame, digits_);
    return folder_ / (before_ + number + after_);
}

std::optional<int> FramePattern::frameOf(const std::string& fileName) const {
    if (fileName.size() <= before_.size() + after_.size() || !fileName.starts_with(before_) ||
        !fileName.ends_with(after_))
        return std::nullopt;
    const char* const end = fileName.data() + fileName.size() - after_.size();
    int number = 0;
    const auto [numberEnd, failure] = std::from_chars(fileName.data() + before_.size(), end, number);
    const bool whole = failure == std::errc() && numberEnd == end && std::abs(std::int64_t{number}) <= largestFrame;
    return whole && path(number).filename() == fileName ? std::optional(number) : std::nullopt;
}

std::vector<int> FramePattern::existing() const {
    std::vector<int> frames;
    std::error_code failed;
    for (fs::directory_iterator at(folder_.empty() ? "." : folder_, failed), end; !failed && at != end;
         at.increment(failed))
        if (const auto frame = frameOf(at->path().filename().string())) frames.push_back(*frame);
    std::ranges::sort(frames);
    return frames;
}

std::optional<std::string> nameForView(const std::string& text, const std::string& view) {
    std::string name;
    bool replaced = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool whole = text.compare(i, 2, "%V") == 0, letter = text.compare(i, 2, "%v") == 0;
        if (whole || letter) {
            name += whole ? view : view.substr(0, 1);
            replaced = true;
            ++i;
        } else {
            name += text[i];
        }
    }
    return replaced ? std::optional(name) : std::nullopt;
}

std::vector<int> parseFrames(std::string_view text) {
    std::vector<int> frames;
    std::unordered_set<int> seen;
    std::size_t typed = 0;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const std::string_view part = text.substr(begin, end - begin);
        const auto run = FrameRun::parse(part);
        if (!run)
            throw std::invalid_argument(fmt::format(
                "{} is no range of frames; write for example 1001-1240, 1001-1240x2 or 1001,1005.", inQuotes(part)));
        typed += run->count();
        if (typed > mostFrames)
            throw std::invalid_argument(fmt::format("{} are more than {} frames.", inQuotes(text), mostFrames));
        const std::int64_t step = run->last < run->first ? -run->step : run->step;
        for (std::size_t i = 0; i < run->count(); ++i) {
            const int frame = static_cast<int>(run->first + static_cast<std::int64_t>(i) * step);
            if (seen.insert(frame).second) frames.push_back(frame);
        }
        begin = end + 1;
    }
    return frames;
}

std::string formatFrames(std::span<const int> frames) {
    std::string text;
    while (!frames.empty()) {
        const auto step = [&](std::size_t i) { return std::int64_t{frames[i]} - frames[i - 1]; };
        std::size_t count = 1;
        while (count < frames.size() && step(count) == step(1))
            ++count;
        // Two that are not neighbours are told one by one.
        if (count == 2 && std::abs(step(1)) != 1) count = 1;
        if (!text.empty()) text += ',';
        text += fmt::format("{}", frames.front());
        if (count > 1) text += fmt::format("-{}", frames[count - 1]);
        if (count > 1 && std::abs(step(1)) != 1) text += fmt::format("x{}", std::abs(step(1)));
        frames = frames.subspan(count);
    }
    return text;
}

}  // namespace ViewTint::Host
