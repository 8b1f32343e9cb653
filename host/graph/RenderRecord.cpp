#include "host/graph/RenderRecord.h"

#include <fmt/format.h>

#include <filesystem>
#include <utility>

#include "host/files/MultiViewFile.h"
#include "host/graph/BuildIdentity.h"

namespace ViewTint::Host {

namespace {

constexpr const char* versionAttribute = "viewtintVersion";
constexpr const char* controlsAttribute = "viewtintControls";
constexpr const char* optionsAttribute = "viewtintOptions";
constexpr const char* statusAttribute = "viewtintStatus";
constexpr const char* unmatchedStatus = "unmatched";

}  // namespace

RenderRecord RenderRecord::of(const ControlValues& controls, std::string options) {
    return {programVersion(), controls.text(), std::move(options)};
}

RenderRecord RenderRecord::of(const MultiViewFile& picture) {
    return {picture.text(versionAttribute), picture.text(controlsAttribute), picture.text(optionsAttribute)};
}

std::string RenderRecord::optionsText(const std::vector<Option>& given) {
    std::string text;
    for (const auto& [name, value, isFile] : given)
        if (!value.empty())
            text += fmt::format("{}--{} {}", text.empty() ? "" : " ", name,
                                isFile ? std::filesystem::path(value).filename().string() : value);
    return text;
}

void RenderRecord::writeTo(MultiViewFile& picture, bool matched) const {
    picture.setText(versionAttribute, version);
    picture.setText(controlsAttribute, controls);
    picture.setText(optionsAttribute, options);
    picture.setText(statusAttribute, matched ? "corrected" : unmatchedStatus);
}

bool RenderRecord::tellsUnmatched(const MultiViewFile& picture) {
    return picture.text(statusAttribute) == unmatchedStatus;
}

}  // namespace ViewTint::Host
