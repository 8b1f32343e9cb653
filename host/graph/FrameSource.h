#pragma once

#include <memory>

#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

/// The pictures of a shot by frame number.
class FrameSource {
public:
    virtual ~FrameSource() = default;

    /// The picture of a frame, or null before the first and after the last, where every channel counts as 0. The
    /// colour of the frame that is rendered gets overwritten in it. Throws FileError.
    virtual std::shared_ptr<MultiViewFile> frame(int number) = 0;
};

/// A sequence of one.
class StillSource : public FrameSource {
public:
    enum class Outside { empty, hold };  ///< what other frames are: nothing, or the still again

    StillSource(std::shared_ptr<MultiViewFile> picture, int number, Outside outside = Outside::empty)
        : picture_(std::move(picture)), number_(number), outside_(outside) {}

    std::shared_ptr<MultiViewFile> frame(int number) override {
        return number == number_ || outside_ == Outside::hold ? picture_ : nullptr;
    }

private:
    std::shared_ptr<MultiViewFile> picture_;
    int number_;
    Outside outside_;
};

}  // namespace ViewTint::Host
