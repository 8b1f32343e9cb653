#include "framework/SextantVellumBase.h"

#include <string_view>

namespace Cobalt::Sextant {

bool SextantVellumBase::isInputUsable(int inputIndex) const {
    const auto* source = dynamic_cast<const Fresco::Image::Iop*>(input(inputIndex));
    if (!source || std::string_view(source->Class()) == "Black") return false;
    const Fresco::Image::Box& box = source->info().box;
    return box.width() >= 2 && box.height() >= 2;
}

bool SextantVellumBase::isSplitUsable(int offset) const {
    const int number = inputNumber(0, offset);
    return number >= 0 && isInputUsable(number);
}

}  // namespace Cobalt::Sextant
