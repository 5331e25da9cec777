// libFuzzer entry: the input picks an export and decodes its arguments (see call.hpp).
//
// An input that starts with an export's name and a zero byte calls that export (the committed
// seeds do, so they keep reaching their exports when the table grows); any other input picks
// the export by its first two bytes.
#include <cstdlib>
#include <cstring>
#include <string>

#include "call.hpp"

using namespace keli_fuzz;

namespace {

void dump_at_exit()
{
    if (const char* path = std::getenv("KELI_FUZZ_REACHED")) dump_reached(path);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::atexit(dump_at_exit);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    int index = -1;
    size_t skip = 0;
    if (size > 5 && std::memcmp(data, "kel", 3) == 0) {
        const void* end = std::memchr(data, 0, size < 80 ? size : 80);
        if (end) {
            skip = static_cast<size_t>(static_cast<const uint8_t*>(end) - data) + 1;
            index = find_export(std::string(reinterpret_cast<const char*>(data), skip - 1));
        }
    }
    if (index < 0) {
        skip = 0;
        uint16_t pick = static_cast<uint16_t>(size > 0 ? data[0] : 0) |
                        static_cast<uint16_t>((size > 1 ? data[1] : 0) << 8);
        index = pick % kExportCount;
        skip = size < 2 ? size : 2;
    }
    Context ctx(data + skip, size - skip);
    Call call(ctx, index, nullptr);
    call.run_checked();
    return 0;
}
