// The export table the fuzz harness walks: generated from the api tables (exports.inc).
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "keli_types.h"

namespace keli_fuzz {

// One argument as the harness decoded it; the generated thunk reads the member its C type needs.
struct Slot {
    int64_t i = 0;
    double f = 0;
    void* p = nullptr;
    alignas(8) unsigned char rec[48] = {};
};

template <class T> T record(const Slot& s)
{
    static_assert(sizeof(T) <= sizeof(s.rec), "record too large for a slot");
    T t;
    std::memcpy(&t, s.rec, sizeof t);
    return t;
}

struct Param {
    const char* type;  // base C type without const and '*': "Kel8u", "KeliSize", "int"
    const char* name;
    int depth;         // pointer depth (an array parameter counts as a pointer)
    int is_const;      // the pointed-to data is const
    int length;        // declared array length, 0 when none
    int element;       // sizeof the base type (1 for void and opaque records)
};

enum class Returns { status, nothing, pointer, value };

using Thunk = KelStatus (*)(const Slot*, void**);

struct Export {
    const char* name;
    int family;
    Returns returns;
    Thunk call;
    std::vector<Param> params;
};

struct Family {
    const char* name;
    std::vector<int> statuses;  // those its contract names
};

struct EnumValues {
    const char* type;
    std::vector<int> values;
};

extern const std::vector<int> kFrameStatuses;
extern const Family kFamilies[];
extern const Export kExports[];
extern const EnumValues kEnums[];
extern const int kExportCount;
extern const int kEnumCount;

}  // namespace keli_fuzz
