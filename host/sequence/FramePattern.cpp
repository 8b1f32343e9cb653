#include "host/sequence/FramePattern.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <regex>
#include <set>
#include <stdexcept>
#include <system_error>

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

const std::regex& placeOfNumber() {
    static const std::regex place("#+|@+|%0?[0-9]*d");
    return place;
}

int digitsOf(const std::string& place) {
    if (place.front() != '%') return static_cast<int>(place.size());
    const std::string width = place.substr(1, place.size() - 2);
    return width.empty() ? 1 : std::max(1, std::stoi(width));
}

constexpr std::size_t mostFrames = 1'000'000;

std::optional<int> wholeNumber(std::string_view text) {
    int number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// `first`, `first-last` or `first-lastxstep`; numbers may be negative.
struct FrameRun {
    int first, last, step;

    static std::optional<FrameRun> parse(const std::string& text) {
        static const std::regex form("(-?[0-9]+)(?:-(-?[0-9]+)(?:x([0-9]+))?)?");
        std::smatch match;
        if (!std::regex_match(text, match, form)) return std::nullopt;
        const auto first = wholeNumber(match[1].str());
        const auto last = match[2].matched ? wholeNumber(match[2].str()) : first;
        const auto step = match[3].matched ? wholeNumber(match[3].str()) : 1;
        if (!first || !last || !step || *step < 1) return std::nullopt;
        return FrameRun{*first, *last, *step};
    }
};

}  // namespace

std::optional<FramePattern> FramePattern::parse(const std::string& text) {
    const fs::path path = text;
    const std::string folder = path.parent_path().string(), name = path.filename().string();
    std::smatch match;
    if (std::regex_search(folder, match, placeOfNumber()))
        throw std::invalid_argument(
            fmt::format("'{}': the frame number belongs into the file's name, not into its folder's.", text));
    if (!std::regex_search(name, match, placeOfNumber())) return std::nullopt;
    FramePattern pattern;
    pattern.text_ = text;
    pattern.folder_ = path.parent_path();
    pattern.before_ = match.prefix();
    pattern.after_ = match.suffix();
    pattern.digits_ = digitsOf(match.str());
    if (std::regex_search(pattern.after_, placeOfNumber()))
        throw std::invalid_argument(fmt::format("'{}' has several places for the frame number; it needs one.", text));
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
    const auto number = wholeNumber(
        std::string_view(fileName).substr(before_.size(), fileName.size() - before_.size() - after_.size()));
    return number && path(*number).filename() == fileName ? number : std::nullopt;
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
    std::set<int> seen;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const std::string part(text.substr(begin, end - begin));
        const auto run = FrameRun::parse(part);
        if (!run)
            throw std::invalid_argument(fmt::format(
                "'{}' is no range of frames; write for example 1001-1240, 1001-1240x2 or 1001,1005.", part));
        const long long step = run->last < run->first ? -run->step : run->step;
        for (long long frame = run->first; step > 0 ? frame <= run->last : frame >= run->last; frame += step) {
            if (seen.insert(static_cast<int>(frame)).second) frames.push_back(static_cast<int>(frame));
            if (frames.size() > mostFrames)
                throw std::invalid_argument(fmt::format("'{}' are more than {} frames.", part, mostFrames));
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
