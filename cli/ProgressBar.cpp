#include "cli/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <fmt/format.h>

#include "cli/Printing.h"

namespace ViewTint::Cli {

namespace {

constexpr int barCells = 30;
constexpr const char* clearLine = "\r\x1b[K";

}  // namespace

ProgressBar::ProgressBar(Style style) : enabled_(style != Style::off), onTerminal_(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    clear();
}

void ProgressBar::show(double done, const std::string& stage) {
    const std::scoped_lock lock(mutex_);
    if (!enabled_) return;
    if (onTerminal_) {
        draw(std::clamp(done, 0.0, 1.0), stage);
        drawn_ = true;
    } else if (stage != stage_) {
        put(stderr, fmt::format("viewtint: {}\n", printable(stage)));
    }
    stage_ = stage;
}

void ProgressBar::clear() {
    const std::scoped_lock lock(mutex_);
    if (drawn_) std::fputs(clearLine, stderr);
    drawn_ = false;
}

void ProgressBar::draw(double done, const std::string& stage) const {
    const int full = static_cast<int>(std::lround(done * barCells));
    fmt::print(stderr, "{}[{:#<{}}{:.<{}}] {:3.0f}% {}", clearLine, "", full, "", barCells - full, done * 100,
               printable(stage));
    std::fflush(stderr);
}

}  // namespace ViewTint::Cli
