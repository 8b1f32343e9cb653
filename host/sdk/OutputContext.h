#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace Fresco::Image {

/// What the host knows of the whole project: its views. View 0 is "no view"; real views count from 1.
class Project {
public:
    virtual ~Project() = default;
    /// The number of views plus one, for view 0.
    virtual int viewcount() const = 0;
    /// The number of the view of that name, or -1.
    virtual int lookup_view(std::string_view name) const = 0;
    /// The name of a view's number; empty for a number that is none.
    virtual std::string view_name(int view) const = 0;

    /// The project of this process. Null until a host sets one.
    static Project* current() { return slot().load(); }
    /// The project must outlive its use; returns the previous one.
    static Project* setCurrent(Project* project) { return slot().exchange(project); }

private:
    static std::atomic<Project*>& slot() {
        static std::atomic<Project*> project{nullptr};
        return project;
    }
};

/// The frame and the view that an operator copy delivers.
struct OutputContext {
    double frame = 0.0;
    int view = 1;

    /// Without a project: one view.
    static int viewcount() {
        const Project* project = Project::current();
        return project ? project->viewcount() : 2;
    }
    static std::string view_name(int view) {
        const Project* project = Project::current();
        return project ? project->view_name(view) : std::string();
    }
    static int lookup_view(std::string_view name) {
        const Project* project = Project::current();
        return project ? project->lookup_view(name) : -1;
    }

    friend bool operator==(const OutputContext&, const OutputContext&) = default;
};

}  // namespace Fresco::Image
