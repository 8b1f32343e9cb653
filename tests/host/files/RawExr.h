#pragma once

#include <ImfChannelList.h>
#include <ImfHeader.h>
#include <ImfPixelType.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ViewTint::Host::Testing {

/// Pictures written and read with OpenEXR alone, to judge the classes under test from outside.
struct RawPart {
    Imf::Header header;
    std::map<std::string, std::vector<char>> channels;  ///< file's names; rows from the top, the file's own types
};

using ChannelTypes = std::vector<std::pair<std::string, Imf::PixelType>>;

/// A part whose values are pseudo-random, finite, and smooth enough for every compression.
RawPart randomPart(Imf::Header header, const ChannelTypes& channels, unsigned seed);

/// A part of float channels whose value at a file's pixel is given by a function.
RawPart functionPart(Imf::Header header, const std::vector<std::string>& channels,
                     const std::function<float(const std::string&, int x, int y)>& value);

void writeRaw(const std::filesystem::path& path, const std::vector<RawPart>& parts);
std::vector<RawPart> readRaw(const std::filesystem::path& path);

/// Attribute name to type name and encoded value.
std::map<std::string, std::pair<std::string, std::string>> attributesOf(const Imf::Header& header);

std::string bytesOfFile(const std::filesystem::path& path);
void writeBytes(const std::filesystem::path& path, const std::string& bytes);

/// A folder of its own for each test.
class FolderTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::filesystem::path file(const std::string& name) const { return folder_ / name; }
    /// Names of all files in the folder, hidden ones too, in order.
    std::vector<std::string> filesThere() const;

    std::filesystem::path folder_;
};

/// Runs the action and returns the text of the FileError that it must throw.
std::string fileErrorOf(const std::function<void()>& action);

}  // namespace ViewTint::Host::Testing
