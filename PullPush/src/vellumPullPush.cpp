#include "PullPush/PullPush.h"

namespace Vellum::PullPush {}  // namespace Vellum::PullPush
