#include "base/Progress.h"

#include <typeinfo>

namespace Cobalt::Base {

namespace {

bool isPlain(const Progress& progress) {
    return typeid(progress) == typeid(Progress);
}

}  // namespace

void Progress::fraction(float done) {
    for (const Progress* level = this; level->parent_; level = level->parent_) {
        done = level->mapped(done);
        if (!isPlain(*level->parent_)) {
            level->parent_->fraction(done);
            return;
        }
    }
}

void Progress::message(const char* text) {
    Progress* ancestor = parent_;
    while (ancestor && isPlain(*ancestor))
        ancestor = ancestor->parent_;
    if (ancestor) ancestor->message(text);
}

}  // namespace Cobalt::Base
