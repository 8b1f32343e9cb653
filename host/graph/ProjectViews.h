#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/sdk/OutputContext.h"

namespace ViewTint::Host {

/// The views of the picture that is rendered, known to the whole process for the life of the object: other threads that
/// make one wait, the same thread may. Numbered from 1, "left" first, "right" second, others in the given order.
class ProjectViews : public Fresco::Image::Project {
public:
    explicit ProjectViews(std::vector<std::string> views);
    ~ProjectViews() override;
    ProjectViews(const ProjectViews&) = delete;
    ProjectViews& operator=(const ProjectViews&) = delete;

    int viewcount() const override { return static_cast<int>(names_.size()) + 1; }
    int lookup_view(std::string_view name) const override;
    std::string view_name(int view) const override { return name(view) ? *name(view) : std::string(); }

    const std::vector<std::string>& names() const { return names_; }
    /// The name of a view's number, or null.
    const std::string* name(int view) const;

private:
    static inline std::recursive_mutex oneThreadAtATime;

    std::unique_lock<std::recursive_mutex> lock_{oneThreadAtATime};
    std::vector<std::string> names_;
    Project* previous_ = nullptr;
};

}  // namespace ViewTint::Host
