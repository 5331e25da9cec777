// The constant version record.
#pragma once

#include "keli_types.h"

namespace keli {

extern const KelLibraryVersion kLibraryVersion;

}  // namespace keli
