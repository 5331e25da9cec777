// Selection networks of the median filters: straight lines of compare-exchanges that leave one
// order statistic (or two) of a small set in a known slot. They work on any value type R with an
// operation class O giving lo (minimum), hi (maximum) and sort (lo into the first, hi into the
// second); the same network thus runs on vector registers and on scalar keys, so that vector and
// scalar paths agree bit for bit.
//
// The sorted-column forms serve windows whose columns were sorted once for all the windows that
// share them; the pairs those columns make sorted already were dropped from the full network.
//
// Each network is a full sorting network with every compare-exchange removed whose results can
// no longer reach the slots wanted, and every half of one (only lo, or only hi) whose other half
// is never read again: the odd-even merge sort for three, five and twenty-five values, the
// classic nineteen-exchange median of nine, and the nineteen-exchange sort of eight.
#pragma once

namespace keli::rows::median {

// Leaves the median of three in v[1]: 4 min/max operations.
template <class O, class R> inline void median3(R (&v)[3])
{
    O::sort(v[0], v[1]);
    v[2] = O::hi(v[0], v[2]);
    v[1] = O::lo(v[1], v[2]);
}

// Leaves the median of five in v[2]: 12 min/max operations.
template <class O, class R> inline void median5(R (&v)[5])
{
    O::sort(v[0], v[1]);
    O::sort(v[2], v[3]);
    O::sort(v[0], v[2]);
    v[1] = O::lo(v[1], v[3]);
    O::sort(v[1], v[2]);
    v[4] = O::hi(v[0], v[4]);
    v[2] = O::lo(v[2], v[4]);
    v[2] = O::hi(v[1], v[2]);
}

// Leaves the median of nine in v[4]: 30 min/max operations.
template <class O, class R> inline void median9(R (&v)[9])
{
    O::sort(v[1], v[2]);
    O::sort(v[4], v[5]);
    O::sort(v[7], v[8]);
    O::sort(v[0], v[1]);
    O::sort(v[3], v[4]);
    O::sort(v[6], v[7]);
    O::sort(v[1], v[2]);
    O::sort(v[4], v[5]);
    O::sort(v[7], v[8]);
    v[3] = O::hi(v[0], v[3]);
    v[5] = O::lo(v[5], v[8]);
    O::sort(v[4], v[7]);
    v[6] = O::hi(v[3], v[6]);
    v[4] = O::hi(v[1], v[4]);
    v[2] = O::lo(v[2], v[5]);
    v[4] = O::lo(v[4], v[7]);
    O::sort(v[2], v[4]);
    v[4] = O::lo(v[4], v[6]);
    v[4] = O::hi(v[2], v[4]);
}

// The first three layers both 25-value networks share: sorted pairs, then sorted fours of
// v[0..23] (v[24] waits).
template <class O, class R> inline void sort_fours24(R (&v)[25])
{
    O::sort(v[0], v[1]);
    O::sort(v[2], v[3]);
    O::sort(v[4], v[5]);
    O::sort(v[6], v[7]);
    O::sort(v[8], v[9]);
    O::sort(v[10], v[11]);
    O::sort(v[12], v[13]);
    O::sort(v[14], v[15]);
    O::sort(v[16], v[17]);
    O::sort(v[18], v[19]);
    O::sort(v[20], v[21]);
    O::sort(v[22], v[23]);
    O::sort(v[0], v[2]);
    O::sort(v[1], v[3]);
    O::sort(v[4], v[6]);
    O::sort(v[5], v[7]);
    O::sort(v[8], v[10]);
    O::sort(v[9], v[11]);
    O::sort(v[12], v[14]);
    O::sort(v[13], v[15]);
    O::sort(v[16], v[18]);
    O::sort(v[17], v[19]);
    O::sort(v[20], v[22]);
    O::sort(v[21], v[23]);
    O::sort(v[1], v[2]);
    O::sort(v[5], v[6]);
    O::sort(v[9], v[10]);
    O::sort(v[13], v[14]);
    O::sort(v[17], v[18]);
    O::sort(v[21], v[22]);
}

// Leaves the median of twenty-five in v[12]: 202 min/max operations.
template <class O, class R> inline void median25(R (&v)[25])
{
    sort_fours24<O>(v);
    O::sort(v[0], v[4]);
    O::sort(v[1], v[5]);
    O::sort(v[2], v[6]);
    O::sort(v[3], v[7]);
    O::sort(v[8], v[12]);
    O::sort(v[9], v[13]);
    O::sort(v[10], v[14]);
    O::sort(v[11], v[15]);
    O::sort(v[16], v[20]);
    O::sort(v[17], v[21]);
    O::sort(v[18], v[22]);
    O::sort(v[19], v[23]);
    O::sort(v[2], v[4]);
    O::sort(v[3], v[5]);
    O::sort(v[10], v[12]);
    O::sort(v[11], v[13]);
    O::sort(v[18], v[20]);
    O::sort(v[19], v[21]);
    O::sort(v[1], v[2]);
    O::sort(v[3], v[4]);
    O::sort(v[5], v[6]);
    O::sort(v[9], v[10]);
    O::sort(v[11], v[12]);
    O::sort(v[13], v[14]);
    O::sort(v[17], v[18]);
    O::sort(v[19], v[20]);
    O::sort(v[21], v[22]);
    O::sort(v[0], v[8]);
    O::sort(v[1], v[9]);
    O::sort(v[2], v[10]);
    O::sort(v[3], v[11]);
    O::sort(v[4], v[12]);
    O::sort(v[5], v[13]);
    O::sort(v[6], v[14]);
    v[7] = O::lo(v[7], v[15]);
    O::sort(v[16], v[24]);
    O::sort(v[4], v[8]);
    O::sort(v[5], v[9]);
    O::sort(v[6], v[10]);
    O::sort(v[7], v[11]);
    O::sort(v[20], v[24]);
    O::sort(v[2], v[4]);
    O::sort(v[3], v[5]);
    O::sort(v[6], v[8]);
    O::sort(v[7], v[9]);
    O::sort(v[10], v[12]);
    O::sort(v[11], v[13]);
    O::sort(v[18], v[20]);
    O::sort(v[19], v[21]);
    O::sort(v[22], v[24]);
    O::sort(v[1], v[2]);
    O::sort(v[3], v[4]);
    O::sort(v[5], v[6]);
    O::sort(v[7], v[8]);
    O::sort(v[9], v[10]);
    O::sort(v[11], v[12]);
    v[13] = O::lo(v[13], v[14]);
    O::sort(v[17], v[18]);
    O::sort(v[19], v[20]);
    O::sort(v[21], v[22]);
    O::sort(v[23], v[24]);
    v[16] = O::hi(v[0], v[16]);
    v[17] = O::hi(v[1], v[17]);
    v[18] = O::hi(v[2], v[18]);
    v[19] = O::hi(v[3], v[19]);
    v[20] = O::hi(v[4], v[20]);
    v[21] = O::hi(v[5], v[21]);
    v[6] = O::lo(v[6], v[22]);
    v[7] = O::lo(v[7], v[23]);
    v[8] = O::lo(v[8], v[24]);
    v[16] = O::hi(v[8], v[16]);
    v[17] = O::hi(v[9], v[17]);
    v[10] = O::lo(v[10], v[18]);
    v[11] = O::lo(v[11], v[19]);
    v[12] = O::lo(v[12], v[20]);
    v[13] = O::lo(v[13], v[21]);
    v[10] = O::hi(v[6], v[10]);
    v[11] = O::hi(v[7], v[11]);
    v[12] = O::lo(v[12], v[16]);
    v[13] = O::lo(v[13], v[17]);
    v[12] = O::hi(v[10], v[12]);
    v[11] = O::lo(v[11], v[13]);
    v[12] = O::hi(v[11], v[12]);
}

// Leaves the order statistics 3 and 4 of eight in v[3] and v[4]: 28 min/max operations.
template <class O, class R> inline void order8_0(R (&v)[8])
{
    O::sort(v[0], v[2]);
    O::sort(v[1], v[3]);
    O::sort(v[4], v[6]);
    O::sort(v[5], v[7]);
    O::sort(v[0], v[4]);
    O::sort(v[1], v[5]);
    O::sort(v[2], v[6]);
    O::sort(v[3], v[7]);
    v[1] = O::hi(v[0], v[1]);
    O::sort(v[2], v[3]);
    O::sort(v[4], v[5]);
    v[6] = O::lo(v[6], v[7]);
    v[4] = O::hi(v[2], v[4]);
    v[3] = O::lo(v[3], v[5]);
    v[4] = O::hi(v[1], v[4]);
    v[3] = O::lo(v[3], v[6]);
    O::sort(v[3], v[4]);
}

// Leaves the order statistics 2 and 5 of eight in v[2] and v[5]: 30 min/max operations.
template <class O, class R> inline void order8_1(R (&v)[8])
{
    O::sort(v[0], v[2]);
    O::sort(v[1], v[3]);
    O::sort(v[4], v[6]);
    O::sort(v[5], v[7]);
    O::sort(v[0], v[4]);
    O::sort(v[1], v[5]);
    O::sort(v[2], v[6]);
    O::sort(v[3], v[7]);
    v[1] = O::hi(v[0], v[1]);
    O::sort(v[2], v[3]);
    O::sort(v[4], v[5]);
    v[6] = O::lo(v[6], v[7]);
    O::sort(v[2], v[4]);
    O::sort(v[3], v[5]);
    v[1] = O::lo(v[1], v[4]);
    v[6] = O::hi(v[3], v[6]);
    v[2] = O::hi(v[1], v[2]);
    v[5] = O::lo(v[5], v[6]);
}

// Leaves the order statistics 1 and 6 of eight in v[1] and v[6]: 30 min/max operations.
template <class O, class R> inline void order8_2(R (&v)[8])
{
    O::sort(v[0], v[2]);
    O::sort(v[1], v[3]);
    O::sort(v[4], v[6]);
    O::sort(v[5], v[7]);
    O::sort(v[0], v[4]);
    O::sort(v[1], v[5]);
    O::sort(v[2], v[6]);
    O::sort(v[3], v[7]);
    v[1] = O::hi(v[0], v[1]);
    O::sort(v[2], v[3]);
    O::sort(v[4], v[5]);
    v[6] = O::lo(v[6], v[7]);
    O::sort(v[2], v[4]);
    O::sort(v[3], v[5]);
    v[1] = O::lo(v[1], v[4]);
    v[6] = O::hi(v[3], v[6]);
    v[1] = O::lo(v[1], v[2]);
    v[6] = O::hi(v[5], v[6]);
}

// Leaves the order statistics 0 and 7 of eight in v[0] and v[7]: 14 min/max operations.
template <class O, class R> inline void order8_3(R (&v)[8])
{
    O::sort(v[0], v[2]);
    O::sort(v[1], v[3]);
    O::sort(v[4], v[6]);
    O::sort(v[5], v[7]);
    v[0] = O::lo(v[0], v[4]);
    v[1] = O::lo(v[1], v[5]);
    v[6] = O::hi(v[2], v[6]);
    v[7] = O::hi(v[3], v[7]);
    v[0] = O::lo(v[0], v[1]);
    v[7] = O::hi(v[6], v[7]);
}

// Leaves the median of 3x3 values v[j * 3 + i] whose columns (i fixed) already ascend in v[4]:
// the largest of the row of minima, the median of the row of middles and the smallest of the row
// of maxima bound the median from both sides, and their median is it. 12 min/max operations.
template <class O, class R> inline void median9_sorted_columns(R (&v)[9])
{
    v[2] = O::hi(O::hi(v[0], v[1]), v[2]);
    O::sort(v[3], v[4]);
    v[5] = O::hi(v[3], v[5]);
    v[4] = O::lo(v[4], v[5]);
    v[6] = O::lo(O::lo(v[6], v[7]), v[8]);
    O::sort(v[2], v[4]);
    v[6] = O::hi(v[2], v[6]);
    v[4] = O::lo(v[4], v[6]);
}

// Sorts 3 values ascending: 6 min/max operations.
template <class O, class R> inline void sort3(R (&v)[3])
{
    O::sort(v[0], v[1]);
    O::sort(v[0], v[2]);
    O::sort(v[1], v[2]);
}

// Sorts 5 values ascending: 18 min/max operations.
template <class O, class R> inline void sort5(R (&v)[5])
{
    O::sort(v[0], v[1]);
    O::sort(v[2], v[3]);
    O::sort(v[0], v[2]);
    O::sort(v[1], v[3]);
    O::sort(v[1], v[2]);
    O::sort(v[0], v[4]);
    O::sort(v[2], v[4]);
    O::sort(v[1], v[2]);
    O::sort(v[3], v[4]);
}

// Leaves the median of 5x5 values v[j * 5 + i] whose columns (i fixed) already ascend in v[12]: 168 min/max operations.
template <class O, class R> inline void median25_sorted_columns(R (&v)[25])
{
    sort_fours24<O>(v);
    v[4] = O::hi(v[0], v[4]);
    O::sort(v[1], v[5]);
    O::sort(v[2], v[6]);
    O::sort(v[3], v[7]);
    O::sort(v[8], v[12]);
    O::sort(v[9], v[13]);
    O::sort(v[10], v[14]);
    v[11] = O::lo(v[11], v[15]);
    O::sort(v[16], v[20]);
    O::sort(v[17], v[21]);
    O::sort(v[18], v[22]);
    v[19] = O::lo(v[19], v[23]);
    O::sort(v[2], v[4]);
    O::sort(v[3], v[5]);
    O::sort(v[10], v[12]);
    O::sort(v[11], v[13]);
    O::sort(v[18], v[20]);
    O::sort(v[19], v[21]);
    O::sort(v[1], v[2]);
    O::sort(v[3], v[4]);
    O::sort(v[5], v[6]);
    O::sort(v[9], v[10]);
    O::sort(v[11], v[12]);
    O::sort(v[13], v[14]);
    O::sort(v[17], v[18]);
    O::sort(v[19], v[20]);
    O::sort(v[21], v[22]);
    v[9] = O::hi(v[1], v[9]);
    v[10] = O::hi(v[2], v[10]);
    O::sort(v[3], v[11]);
    O::sort(v[4], v[12]);
    O::sort(v[5], v[13]);
    O::sort(v[6], v[14]);
    v[8] = O::hi(v[4], v[8]);
    O::sort(v[5], v[9]);
    O::sort(v[6], v[10]);
    O::sort(v[7], v[11]);
    O::sort(v[20], v[24]);
    v[5] = O::hi(v[3], v[5]);
    O::sort(v[6], v[8]);
    O::sort(v[7], v[9]);
    O::sort(v[10], v[12]);
    O::sort(v[11], v[13]);
    O::sort(v[18], v[20]);
    v[22] = O::lo(v[22], v[24]);
    v[6] = O::hi(v[5], v[6]);
    O::sort(v[7], v[8]);
    O::sort(v[9], v[10]);
    O::sort(v[11], v[12]);
    v[13] = O::lo(v[13], v[14]);
    O::sort(v[17], v[18]);
    O::sort(v[19], v[20]);
    v[21] = O::lo(v[21], v[22]);
    v[16] = O::hi(v[8], v[16]);
    v[17] = O::hi(v[9], v[17]);
    v[10] = O::lo(v[10], v[18]);
    v[11] = O::lo(v[11], v[19]);
    v[12] = O::lo(v[12], v[20]);
    v[13] = O::lo(v[13], v[21]);
    v[10] = O::hi(v[6], v[10]);
    v[11] = O::hi(v[7], v[11]);
    v[12] = O::lo(v[12], v[16]);
    v[13] = O::lo(v[13], v[17]);
    v[12] = O::hi(v[10], v[12]);
    v[11] = O::lo(v[11], v[13]);
    v[12] = O::hi(v[11], v[12]);
}

}  // namespace keli::rows::median
