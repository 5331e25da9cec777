#include "frame/version.hpp"

namespace keli {

// Read-only and the same object at every call: callers may keep the pointer.
const KelLibraryVersion kLibraryVersion = {
    2022, 3, 0, 0x0FC08BB1, {'w', '7', 0, 0},
    "kelIP SSE4.2 (w7)", "2022.3.0 (r0x0fc08bb1)", "Sep 19 2025",
};

}  // namespace keli
