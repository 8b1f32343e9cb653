#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/ControlOptions.h"
#include "cli/DisparityOptions.h"
#include "cli/GpuOptions.h"
#include "host/files/ImageCacheDirectory.h"
#include "host/files/MultiViewFile.h"
#include "host/graph/ChannelRoles.h"
#include "host/graph/ControlPanel.h"
#include "host/graph/OperatorNode.h"

/// What renders of stills and of sequences share.
namespace ViewTint::Cli {

/// The options as they stand on the command line.
struct RenderOptions {
    std::string input;
    std::string output;
    std::optional<std::string> mask;
    std::vector<std::string> channels;
    std::vector<std::string> views{"left", "right"};  ///< of names with %V
    std::string outside = "empty";
    bool quiet = false;
    bool stats = false;
    bool json = false;
    std::string frames;
    std::string missing = "error";
    bool skipExisting = false;
    bool skipVerified = false;
    std::uint64_t memoryBytes = 0;
    std::string stageFolder;
    std::string cacheFolder;
    std::uint64_t cacheBytes = std::uint64_t{10} << 30;
    DisparityOptions disparity;
    GpuOptions gpu;
    ControlOptions controls;
};

/// Adds FILE and the options that tell what comes out of a render, whoever runs it. `options` must outlive the parsing.
void addShotOptions(CLI::App& command, RenderOptions& options);

/// What the files of a render tell of these options beside the controls.
std::string recordedOptions(const RenderOptions& options);

/// Whether each view has a file of its own.
bool isPerView(const RenderOptions& options);
Host::ChannelRoles rolesOf(const RenderOptions& options);

/// A mask that nothing reads would go unnoticed: throws CallError.
void checkMask(const RenderOptions& options);

/// Complains of roles that share a channel. Throws CallError where one's result would overwrite another's, and what
/// ChannelRoles::assign throws.
void checkRoles(const RenderOptions& options);

/// Complains of values that do nothing, and of those that together do what nobody wants.
void warnOfOddSettings(const Host::ControlPanel& panel);

/// Keeps results while it lives, if asked to; else null. `services` hear when it no longer does.
std::unique_ptr<Host::ImageCacheDirectory> openCache(const RenderOptions& options,
                                                     const Host::RenderServices& services);
std::shared_ptr<const Host::MultiViewFile> openMask(const std::filesystem::path& path);

double secondsSince(std::chrono::steady_clock::time_point start);

}  // namespace ViewTint::Cli
