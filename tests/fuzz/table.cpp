// Instantiates the generated export table against the public header.
#include "table.hpp"

#include "keli.h"

namespace keli_fuzz {

#include "exports.inc"

const int kExportCount = sizeof kExports / sizeof kExports[0];
const int kEnumCount = sizeof kEnums / sizeof kEnums[0];

}  // namespace keli_fuzz
