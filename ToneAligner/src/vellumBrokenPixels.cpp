#include "Common/Common.h"
#include "PullPush/PullPush.h"
#include "vellumViews.h"

namespace Vellum::Tone {

namespace {

using Utils::BufferManagement::BufferManagedImage;
using Utils::BufferManagement::BufferManager;

/// Returns how many values were replaced.
std::size_t cleanMask(BufferManager& manager, BufferManagedImage& mask, float replacement) {
    const std::size_t broken = Common::countBroken(mask.image());
    if (broken == 0) return 0;
    const BufferManagedImage clean(manager, mask.image().info());
    Common::replaceBroken(mask.image(), clean.image(), replacement);
    mask.image() = clean.image();
    return broken;
}

/// `mask` becomes `mark` at the broken pixels.
void mendPicture(BufferManager& manager, BufferManagedImage& picture, BufferManagedImage& mask, float mark, int flags) {
    const BufferManagedImage whole(manager, mask.image().info());
    const BufferManagedImage marked(manager, mask.image().info());
    const BufferManagedImage mended(manager, picture.image().info());
    const BufferManagedImage surroundings(manager, picture.image().info());
    Common::wholePixels(picture.image(), whole.image());
    Common::replaceBroken(picture.image(), mended.image(), 0);
    PullPush::PullPush(manager, flags).apply(mended.image(), whole.image(), surroundings.image());
    Common::mendPixels(picture.image(), surroundings.image(), mended.image());
    picture.image() = mended.image();
    Common::copy(mask.image(), marked.image());
    Common::fillWhereMask(marked.image(), whole.image(), {mark}, true);
    mask.image() = marked.image();
}

}  // namespace

BrokenPixels ToneAligner::Views::leaveOutBrokenPixels(BufferManager& manager, int kernelFlags) {
    BrokenPixels broken;
    broken.mask = cleanMask(manager, mask, 0);
    broken.occlusion = cleanMask(manager, occlusion, 1);
    cleanMask(manager, edges, 1);
    broken.source = Common::countBroken(source.image());
    if (broken.source != 0) {
        asItCame.emplace(manager, source.image());
        mendPicture(manager, source, mask, 0, kernelFlags);
    }
    broken.rebuilt = Common::countBroken(rebuilt.image());
    if (broken.rebuilt != 0) mendPicture(manager, rebuilt, occlusion, 1, kernelFlags);
    return broken;
}

}  // namespace Vellum::Tone
