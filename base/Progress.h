#pragma once

namespace Cobalt::Base {

/// A stage's share of the progress of its parent: 0 to 1 of this stage is `offset` to `offset + scale` of the parent.
/// Reports climb the chain to the first ancestor of another class, which shows them; a chain without one swallows
/// them. Parents must outlive their children.
class Progress {
public:
    explicit Progress(Progress* parent = nullptr, float offset = 0.0f, float scale = 1.0f)
        : parent_(parent), offset_(offset), scale_(scale) {}
    virtual ~Progress() = default;

    /// Reports how much of this stage is done, 0 to 1.
    virtual void fraction(float done);
    /// Names what is being done.
    virtual void message(const char* text);

    float mapped(float done) const { return done * scale_ + offset_; }

private:
    Progress* parent_;
    float offset_;
    float scale_;
};

}  // namespace Cobalt::Base
