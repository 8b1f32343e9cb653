#pragma once

#include <memory>
#include <string>

#include "host/files/MultiViewFile.h"
#include "host/graph/ChannelRoles.h"
#include "host/sdk/Iop.h"

namespace ViewTint::Host {

/// Delivers one view of a file. The box is the view's data window; shown is the file's display window, which is the
/// format too where all data windows are the same. The channels are the roles that the file has a channel for; all
/// others are 0.
class FileReadOp : public Fresco::Image::Iop {
public:
    /// The file must have the view; it must not be replaced while pixels are fetched.
    FileReadOp(std::shared_ptr<const MultiViewFile> file, std::string view, ChannelRoles roles);

    const char* Class() const override { return "Read"; }
    int minimum_inputs() const override { return 0; }
    /// A file that fails is told as Cobalt::Base::Exception with the FileError's sentence.
    void fetchPlane(Fresco::Image::ImagePlane& plane) override;
    /// Adds what the pixels depend on: the identities that all files of the picture had when they were read, with those
    /// of other views' files, which estimates come from too; the view; where added channels come from; the roles.
    void append(Fresco::Image::Hash& hash) override;

protected:
    void _validate(bool forReal) override;

    const std::shared_ptr<const MultiViewFile> file_;
    const std::string view_;
    const ChannelRoles roles_;

private:
    bool fillsWhatIsShown() const;
    void readInto(Fresco::Image::ImagePlane& plane) const;
};

/// A frame before or after all others: the box and channels of another operator, every pixel 0.
class EmptyFrameOp : public Fresco::Image::Iop {
public:
    explicit EmptyFrameOp(const Fresco::Image::Info& like) : Iop(nullptr) { info_ = like; }

    const char* Class() const override { return "EmptyFrame"; }
    int minimum_inputs() const override { return 0; }
    void fetchPlane(Fresco::Image::ImagePlane& plane) override;

protected:
    void _validate(bool) override {}
};

/// Stands at a necessary input without a connection, known by its class. Has no pixels.
class BlackOp : public EmptyFrameOp {
public:
    BlackOp() : EmptyFrameOp({}) {}
    const char* Class() const override { return "Black"; }
};

}  // namespace ViewTint::Host
