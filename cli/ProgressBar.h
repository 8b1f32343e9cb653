#pragma once

#include <mutex>
#include <string>

namespace ViewTint::Cli {

/// Shows how far the work is on the standard error stream: a bar on a terminal, a line for each new stage elsewhere.
/// May be told from any thread.
class ProgressBar {
public:
    enum class Style { automatic, off };

    explicit ProgressBar(Style style);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// `done` is 0 to 1.
    void show(double done, const std::string& stage);
    /// Takes the bar off the terminal, so that other lines can follow.
    void clear();

private:
    void draw(double done, const std::string& stage) const;

    std::mutex mutex_;
    bool enabled_;
    bool onTerminal_;
    bool drawn_ = false;
    std::string stage_;
};

}  // namespace ViewTint::Cli
