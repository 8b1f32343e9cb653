#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/files/AtomicFile.h"
#include "host/graph/ControlPanel.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"
#include "host/parallax/ParallaxSource.h"
#include "host/sequence/SequenceRender.h"
#include "operations.h"

namespace ViewTint::Python {

namespace {

using Settings = std::vector<std::pair<std::string, std::string>>;
using Host::FramePattern;
using Host::FrameResult;
using Host::MultiViewFile;

constexpr std::size_t memoryForFrames = std::size_t{4} << 30;

std::shared_ptr<const MultiViewFile> openPicture(const std::string& path) {
    return std::make_shared<MultiViewFile>(MultiViewFile::open(path));
}

/// Where disparity comes from, as the command's option tells it, for the views that the controls choose.
Host::ParallaxSettings parallaxSettings(const std::string& disparity, const Host::ControlValues& controls,
                                        const std::vector<std::string>& views) {
    Host::ParallaxSettings settings;
    settings.parse(disparity);
    settings.views = Host::ControlPanel(controls, views).stereoViews();
    return settings;
}

/// As the command tells them in its files.
std::string optionsText(const std::optional<std::string>& mask, const std::string& disparity) {
    return Host::RenderRecord::optionsText({{"disparity", disparity, true}, {"mask", mask.value_or(""), true}});
}

void renderStill(const std::string& input, const std::string& output, Host::ControlValues controls,
                 const std::optional<std::string>& mask, const std::string& disparity,
                 const Host::RenderServices& services) {
    Host::checkWritable(output);
    constexpr int frame = 1;
    const auto picture = std::make_shared<MultiViewFile>(MultiViewFile::open(input));
    Host::StillSource still(picture, frame);
    Host::ParallaxSource source(still, Host::ChannelRoles(), parallaxSettings(disparity, controls, picture->views()),
                                services);
    Host::RenderJob job(source, std::move(controls), Host::ChannelRoles(), services);
    job.setOptionsText(optionsText(mask, disparity));
    if (mask) job.setMask(openPicture(*mask));
    job.render(frame, output);
}

std::vector<FrameResult> renderSequence(const FramePattern& input, const std::string& output,
                                        Host::ControlValues controls, const std::optional<std::string>& mask,
                                        const std::optional<std::string>& frames, bool skipExisting,
                                        const std::string& disparity, const Host::RenderServices& services) {
    const auto outputs = FramePattern::parse(output);
    if (!outputs) throw std::invalid_argument("'" + output + "' has no place for the frame number.");
    const auto masks = mask ? FramePattern::parse(*mask) : std::nullopt;
    Host::SequenceSource source(input, Host::SequenceSource::Outside::empty, Host::SequenceSource::Missing::fail);
    Host::SequenceSettings settings;
    settings.frames = frames ? Host::parseFrames(*frames) : source.files();
    settings.skip = skipExisting ? Host::SkipFrames::whole : Host::SkipFrames::none;
    settings.memory = memoryForFrames;
    const std::vector<std::string> views = source.views(settings.frames.front());
    settings.neighbours = Host::neighbourRequests(controls, Host::ChannelRoles(), views);
    Host::ParallaxSource withDisparity(source, Host::ChannelRoles(), parallaxSettings(disparity, controls, views),
                                       services);
    withDisparity.addTo(settings.neighbours, settings.frames.front());
    Host::RenderJob job(withDisparity, std::move(controls), Host::ChannelRoles(), services);
    job.setOptionsText(optionsText(mask, disparity));
    if (mask && !masks) job.setMask(openPicture(*mask));
    std::vector<FrameResult> results;
    Host::SequenceRender render(source, job, *outputs, settings);
    render.begin = [&](int frame, std::size_t) {
        if (masks) job.setMask(openPicture(masks->path(frame).string()));
    };
    render.report = [&](const FrameResult& result) { results.push_back(result); };
    render.run();
    return results;
}

std::vector<FrameResult> renderAny(const std::string& input, const std::string& output, const Settings& given,
                                   const std::optional<std::string>& mask, const std::optional<std::string>& frames,
                                   bool skipExisting, const std::string& disparity,
                                   const Host::RenderServices& services) {
    Host::ControlValues controls(Host::viewTintClass);
    for (const auto& [name, text] : given)
        controls.set(name, text);
    if (const auto pattern = FramePattern::parse(input))
        return renderSequence(*pattern, output, std::move(controls), mask, frames, skipExisting, disparity, services);
    renderStill(input, output, std::move(controls), mask, disparity, services);
    return {};
}

/// The frames of a sequence, and warnings.
std::pair<nb::list, std::vector<std::string>> renderFile(const std::string& input, const std::string& output,
                                                         const Settings& given, const std::optional<std::string>& mask,
                                                         const std::optional<std::string>& frames, bool skipExisting,
                                                         const std::string& disparity) {
    std::vector<FrameResult> results;
    std::vector<std::string> warnings;
    Host::RenderServices services;
    services.warn = [&](const std::string& sentence) { warnings.push_back(sentence); };
    try {
        results =
            unlocked([&] { return renderAny(input, output, given, mask, frames, skipExisting, disparity, services); });
    } catch (const Host::SettingError& error) {
        raiseValue(error.what());
    } catch (const std::invalid_argument& error) {
        raiseValue(error.what());
    } catch (const Host::FileError& error) {
        raise("Error", error.what());
    } catch (const Host::RenderError& error) {
        raise("Error", input + ": " + error.what());
    }
    nb::list list;
    for (const FrameResult& result : results) {
        nb::dict frame;
        frame["frame"] = result.frame;
        frame["file"] = result.file.string();
        frame["status"] = result.word();
        frame["message"] = result.message;
        frame["seconds"] = result.seconds;
        list.append(frame);
    }
    return {list, warnings};
}

}  // namespace

void bindRenderFile(nb::module_& module) {
    module.def("_render_file", &renderFile, "input"_a, "output"_a, "controls"_a, "mask"_a.none(), "frames"_a.none(),
               "skip_existing"_a, "disparity"_a);
}

}  // namespace ViewTint::Python
