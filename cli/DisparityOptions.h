#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "cli/Printing.h"
#include "host/parallax/ParallaxSource.h"

namespace ViewTint::Cli {

/// Two pictures in place of one file, and where their disparity comes from.
struct DisparityOptions {
    std::optional<std::string> right;  ///< the right view where FILE is the left one
    std::string from;  ///< as on the command line: "estimate", "file" or a file's name; empty: as it comes
    bool save = false;
    std::optional<std::string> colourspace;

    /// The options of a command whose FILE may be a left view.
    void addPictureTo(CLI::App& command);
    void addTo(CLI::App& command);

    /// Both views of two pictures as one. Throws FileError.
    Host::MultiViewFile openPair(const std::string& left) const;
    /// Settings for views of these names. Throws CallError.
    Host::ParallaxSettings settings(const std::pair<std::string, std::string>& views) const;
};

/// A line on what was found, unless `quiet`; a warning where it is less than half.
void tellParallax(const Host::ParallaxReport& report, const std::string& file, bool quiet,
                  const std::function<void(const std::string& sentence)>& warn = Cli::warn);

}  // namespace ViewTint::Cli
