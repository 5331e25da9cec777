// Size queries and Init of the two-dimensional FFT.
#include "frequency/fft.hpp"

#include <cstring>

namespace keli::fft {
namespace {

constexpr std::int64_t kSizeLimit = 0x7FFFFFFF;

bool valid_flag(int flag) { return flag == 1 || flag == 2 || flag == 4 || flag == 8; }

// The checks of one one-dimensional plan. Orders are compared as unsigned, so a negative order
// is out of range like a too large one.
KelStatus check_plan(int order, int maxOrder, int flag, bool needMemInit, const void* pMemInit)
{
    if (static_cast<unsigned>(order) > static_cast<unsigned>(maxOrder)) return kelStatusBadFftOrder;
    if (!valid_flag(flag)) return kelStatusBadFftFlag;
    if (needMemInit && static_cast<unsigned>(order) >= kFirstTabledOrder && !pMemInit) return kelStatusNullPtr;
    return kelStatusOk;
}

// The plans of a spec in field order: real (complex Y, real X, real Y), complex (X, Y). The
// plans' checks run in that order, each order, flag, then pMemInit.
KelStatus check_plans(bool real, int orderX, int orderY, int flag, bool needMemInit, const void* pMemInit)
{
    if (real)
        return check::first({check_plan(orderY, kComplexMaxOrder, flag, needMemInit, pMemInit),
                             check_plan(orderX, kRealMaxOrder, flag, needMemInit, pMemInit),
                             check_plan(orderY, kRealMaxOrder, flag, needMemInit, pMemInit)});
    return check::first({check_plan(orderX, kComplexMaxOrder, flag, needMemInit, pMemInit),
                         check_plan(orderY, kComplexMaxOrder, flag, needMemInit, pMemInit)});
}

Sizes sizes_of(bool real, int orderX, int orderY)
{
    return real ? real_2d_sizes(orderX, orderY) : complex_2d_sizes(orderX, orderY);
}

bool overflows(const Sizes& s) { return s.spec > kSizeLimit || s.init > kSizeLimit || s.buffer > kSizeLimit; }

}  // namespace

KelStatus get_size(bool real, int orderX, int orderY, int flag, int /*hint: no size depends on it*/, int* pSizeSpec, int* pSizeInit, int* pSizeBuf)
{
    if (KelStatus s = check::first({check::pointers(pSizeSpec, pSizeInit, pSizeBuf),
                                    check_plans(real, orderX, orderY, flag, false, nullptr)}))
        return s;
    // Sizes are exact in 64 bits; a size the 32-bit interface cannot carry is refused.
    const Sizes s = sizes_of(real, orderX, orderY);
    if (overflows(s)) return kelStatusSizeOverflow;
    *pSizeSpec = static_cast<int>(s.spec);
    *pSizeInit = static_cast<int>(s.init);
    *pSizeBuf = static_cast<int>(s.buffer);
    return kelStatusOk;
}

KelStatus init(bool real, int orderX, int orderY, int flag, int hint, Kel8u* pSpec, Kel8u* pMemInit)
{
    constexpr unsigned kOrderLimit = 31;
    if (static_cast<unsigned>(orderX) >= kOrderLimit || static_cast<unsigned>(orderY) >= kOrderLimit)
        return kelStatusBadFftOrder;
    if (!pSpec) return kelStatusNullPtr;
    if (KelStatus s = check_plans(real, orderX, orderY, flag, true, pMemInit)) return s;
    const Sizes sizes = sizes_of(real, orderX, orderY);
    if (overflows(sizes)) return kelStatusSizeOverflow;

    auto* spec = keli::spec::aligned<Spec2D>(pSpec);
    // Scratch for the quarter-wave table of each plan from order 11; one at a time, so the
    // largest plan's room serves all.
    float* quarter = pMemInit ? keli::spec::aligned<float>(pMemInit) : nullptr;
    std::memset(spec, 0, kHeaderBytes);
    spec->id = real ? kRealSpecId : kComplexSpecId;
    spec->orderX = orderX;
    spec->orderY = orderY;
    spec->hint = hint;
    spec->bufferSize = static_cast<std::int32_t>(sizes.buffer);
    auto* room = reinterpret_cast<unsigned char*>(spec) + kHeaderBytes;
    const bool equal = orderX == orderY;
    if (real) {
        spec->plan[0] = init_complex_plan(room, orderY, flag, hint, quarter);
        room += align64(complex_sizes(orderY).spec);
        spec->plan[1] = init_real_plan(room, orderX, flag, hint, quarter);
        room += align64(real_sizes(orderX).spec);
        spec->plan[2] = equal ? nullptr : init_real_plan(room, orderY, flag, hint, quarter);
    } else {
        spec->plan[0] = init_complex_plan(room, orderX, flag, hint, quarter);
        room += align64(complex_sizes(orderX).spec);
        spec->plan[1] = equal ? nullptr : init_complex_plan(room, orderY, flag, hint, quarter);
    }
    return kelStatusOk;
}

}  // namespace keli::fft
