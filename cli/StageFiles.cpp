#include "cli/StageFiles.h"

#include <fmt/format.h>

#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "compute/HostDevice.h"
#include "host/files/AtomicFile.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Cli {

namespace {

/// One component as rows without gaps.
std::vector<float> planeOf(const Vellum::Image::Image& picture, int component) {
    const auto& box = picture.box();
    std::vector<float> plane(static_cast<std::size_t>(box.pixels()));
    const auto& layout = picture.tile().layout;
    float* out = plane.data();
    for (int y = 0; y < box.height(); ++y) {
        const float* row = picture.data() + y * layout.y.elements + component * layout.component.elements;
        for (int x = 0; x < box.width(); ++x)
            *out++ = row[x * layout.x.elements];
    }
    return plane;
}

}  // namespace

StageFiles::StageFiles(std::filesystem::path folder) : folder_(std::move(folder)) {
    std::error_code failure;
    std::filesystem::create_directories(folder_, failure);
    if (failure)
        throw Host::FileError(
            fmt::format("Cannot make the folder '{}' for --write-stages: {}.", folder_.string(), failure.message()));
    Host::checkWritable(folder_ / "probe.exr");
}

void StageFiles::write(const char* name, const Vellum::Image::Image& picture) {
    if (failure_) return;
    static const std::vector<std::string> colours{"R", "G", "B", "A"};
    const auto here = picture.distributeTo(Vellum::Compute::Host::hostDevice());
    Host::NewView view{"main", {}};
    for (int c = 0; c < static_cast<int>(here.components()); ++c)
        view.planes.push_back({here.components() == 1 ? "Y" : colours[c], planeOf(here, c)});
    try {
        Host::writeMultiView(folder_ / (std::string(name) + ".exr"), here.box().width(), here.box().height(),
                             {&view, 1}, Host::PixelStorage::single);
    } catch (const Host::FileError& failure) {
        failure_ = failure;
    }
}

void StageFiles::throwFailure() const {
    if (failure_) throw Host::FileError(*failure_);
}

}  // namespace ViewTint::Cli
