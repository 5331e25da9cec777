// Argument checks. A family's body lists its checks in its fixed order, one short call each:
//
//     if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi),
//                                     check::steps(srcStep, dstStep)}))
//         return s;
//
// Every check is a pure test of its arguments, so evaluating them all before picking the
// first failure writes nothing and costs nothing worth measuring.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "keli_types.h"

namespace keli::check {

// The first non-zero status of the list, in list order.
inline KelStatus first(std::initializer_list<KelStatus> results)
{
    for (KelStatus s : results)
        if (s != kelStatusOk) return s;
    return kelStatusOk;
}

template <class... P> inline KelStatus pointers(const P*... p)
{
    return ((p == nullptr) || ...) ? kelStatusNullPtr : kelStatusOk;
}

inline KelStatus size(KeliSize s)
{
    return s.width < 1 || s.height < 1 ? kelStatusBadSize : kelStatusOk;
}

inline KelStatus size(KeliSizeL s)
{
    return s.width < 1 || s.height < 1 ? kelStatusBadSize : kelStatusOk;
}

// Row steps below one byte.
template <class... S> inline KelStatus steps(S... step)
{
    return ((step < 1) || ...) ? kelStatusBadStep : kelStatusOk;
}

}  // namespace keli::check
