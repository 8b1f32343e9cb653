#include "cli/FileLayout.h"

#include <algorithm>
#include <map>

#include <Iex.h>
#include <ImfChannelList.h>
#include <ImfMultiPartInputFile.h>
#include <ImfStandardAttributes.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "host/files/ChannelNames.h"
#include "host/graph/RenderNeeds.h"

namespace ViewTint::Cli {

namespace {

std::string typeName(Imf::PixelType type) {
    switch (type) {
        case Imf::HALF:
            return "half";
        case Imf::FLOAT:
            return "float";
        default:
            return "uint";
    }
}

std::string compressionName(Imf::Compression compression) {
    switch (compression) {
        case Imf::NO_COMPRESSION:
            return "uncompressed";
        case Imf::RLE_COMPRESSION:
            return "RLE";
        case Imf::ZIPS_COMPRESSION:
            return "ZIPS";
        case Imf::ZIP_COMPRESSION:
            return "ZIP";
        case Imf::PIZ_COMPRESSION:
            return "PIZ";
        case Imf::PXR24_COMPRESSION:
            return "PXR24";
        case Imf::B44_COMPRESSION:
            return "B44";
        case Imf::B44A_COMPRESSION:
            return "B44A";
        case Imf::DWAA_COMPRESSION:
            return "DWAA";
        case Imf::DWAB_COMPRESSION:
            return "DWAB";
        default:
            return "compressed";
    }
}

/// The types of each view's channels, in the file's order.
std::map<std::string, std::vector<std::string>> channelTypes(const Imf::MultiPartInputFile& file,
                                                             const std::string& defaultView) {
    std::map<std::string, std::vector<std::string>> types;
    for (int part = 0; part < file.parts(); ++part) {
        const Imf::Header& header = file.header(part);
        const std::string partView = header.hasView() ? header.view() : defaultView;
        const bool severalViews = !header.hasView() && Imf::hasMultiView(header) && !Imf::multiView(header).empty();
        for (auto channel = header.channels().begin(); channel != header.channels().end(); ++channel) {
            const std::string view =
                severalViews ? Host::splitViewName(channel.name(), Imf::multiView(header)).view : partView;
            types[view].push_back(typeName(channel.channel().type));
        }
    }
    return types;
}

bool hasChannel(const FileLayout::View& view, const std::string& name) {
    return std::any_of(view.channels.begin(), view.channels.end(),
                       [&](const FileLayout::Channel& channel) { return channel.name == name; });
}

/// The channels of a need that a view has or lacks.
std::vector<std::string> channelsOf(const Host::RenderNeed& need, const FileLayout::View& view, bool there) {
    std::vector<std::string> names;
    const Host::ChannelRoles roles;
    for (const Host::ChannelRoles::Role& role : roles.all())
        if (need.has(role) && hasChannel(view, role.usualChannel) == there) names.push_back(role.usualChannel);
    return names;
}

void addAbsent(const Host::RenderNeed& need, const FileLayout::View& view, const std::string& ofView,
               std::vector<std::string>& phrases) {
    const auto absent = channelsOf(need, view, false);
    if (!absent.empty())
        phrases.push_back(fmt::format("{}{} ({} {})", need.what, ofView, absent.size() == 1 ? "channel" : "channels",
                                      fmt::join(absent, ", ")));
}

}  // namespace

FileLayout readLayout(const std::filesystem::path& path) {
    const Host::MultiViewFile file = Host::MultiViewFile::open(path);
    FileLayout layout;
    layout.width = file.width();
    layout.height = file.height();
    layout.made = Host::RenderRecord::of(file);
    layout.unmatched = Host::RenderRecord::tellsUnmatched(file);
    try {
        const Imf::MultiPartInputFile headers(path.c_str());
        layout.parts = headers.parts();
        layout.compression = compressionName(headers.header(0).compression());
        const auto types = channelTypes(headers, file.views().front());
        for (const std::string& name : file.views()) {
            FileLayout::View view{name, file.dataBox(name), {}};
            std::size_t position = 0;
            for (const std::string& channel : file.channels(name))
                view.channels.push_back({channel, types.at(name).at(position++)});
            layout.views.push_back(std::move(view));
        }
    } catch (const Iex::BaseExc& error) {
        throw Host::FileError(fmt::format("Cannot read '{}': {}.", path.string(), error.what()));
    }
    return layout;
}

RenderOutlook renderOutlook(const FileLayout& layout, const FileLayout::View& view) {
    using Without = Host::RenderNeed::Without;
    RenderOutlook outlook;
    if (layout.views.size() < 2) outlook.missing.push_back("a second view to take the colours from");
    if (layout.width < 2 || layout.height < 2)
        outlook.missing.push_back("pixels: the picture must be at least 2 wide and 2 high");
    const bool estimates = std::ranges::all_of(
        layout.views, [](const FileLayout::View& one) { return channelsOf(Host::disparityNeed, one, true).empty(); });
    for (const Host::RenderNeed& need : {Host::colourNeed, Host::disparityNeed, Host::occlusionNeed}) {
        auto& phrases = need.without != Without::fails && estimates ? outlook.estimated
                        : need.without == Without::readsZeros       ? outlook.zero
                                                                    : outlook.missing;
        addAbsent(need, view, "", phrases);
        for (const FileLayout::View& other : layout.views)
            if (need.ofBothViews && other.name != view.name)
                addAbsent(need, other, fmt::format(" of view '{}'", other.name), phrases);
    }
    return outlook;
}

}  // namespace ViewTint::Cli
