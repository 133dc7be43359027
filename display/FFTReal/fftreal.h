// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "dynarray.h"
#include "fftassert.h"
#include "sincososcillator.h"

#include <algorithm>
#include <cmath>
#include <utility>

// The table-driven passes are compiled twice on x86-64 with GCC, for AVX2 and
// for the baseline instruction set, and the loader picks the clone the
// processor supports. Both clones do the same IEEE operations in the same
// order (no fused multiply-add), so the results do not depend on the clone.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define FFTREAL_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define FFTREAL_VECTOR_CLONES
#endif

// True when x is a power of two; x must be positive.
inline bool FFTReal_is_pow2(int x)
{
    FFTREAL_ASSERT(x > 0);
    return (x & -x) == x;
}

// Discrete Fourier transform of a real sequence whose length N is a power of
// two, as a radix-2 decimation in time. The result is packed into N values:
// f[k] = Re X(k) for k = 0 .. N/2 and f[N/2 + k] = -Im X(k) for k = 1 .. N/2 - 1,
// where X(k) = sum over m of x[m] exp(-2 pi i k m / N), without scaling.
//
// The tables are computed once here; a transform makes no trigonometric call
// and allocates nothing. It does change the oscillators and the scratch
// buffer, so one transformer must not run two transforms at the same time.
//
// The data members are protected so that a derived class can inspect the tables.
template <class DT> class FFTReal
{
public:
    typedef DT DataType;

    static constexpr int MAX_BIT_DEPTH = 30;  // largest log2 of the length
    static constexpr int LUT_PASS_LIMIT = 12; // highest pass level served by _cos_table

    explicit FFTReal(int length);
    virtual ~FFTReal() = default;

    FFTReal(const FFTReal &) = delete;
    FFTReal &operator=(const FFTReal &) = delete;

    DataType *use_buffer() { return &_buffer[0]; }

    // f receives the N packed results, x holds the N real inputs (not modified).
    void forward_transform(DataType f[], const DataType x[]);

protected:
    int _length;
    int _nbr_bits;
    DynArray<int> _bit_rev_table;
    DynArray<DataType> _cos_table;
    DynArray<DataType> _buffer;
    DynArray<SinCosOscillator> _osc_table;

private:
    static constexpr DataType SQRT2_2 = DataType(0.7071067811865476);
    static constexpr DataType PI = DataType(3.141592653589793);

    static int count_bits(int length);
    void init_bit_rev_table();
    void init_cos_table();
    void init_osc_table();

    static void butterfly_1_2(DataType *__restrict d, const DataType *__restrict x, int quarter);
    void compute_direct_pass_1_2(DataType *__restrict df, const DataType *__restrict x);
    void compute_direct_pass_3(DataType df[], const DataType sf[]);
    void compute_direct_pass_n(DataType df[], const DataType sf[], int pass);
    static void butterfly(DataType &d1, DataType &d1_mirror, DataType &d2, DataType &d2_mirror,
                          DataType s1r, DataType s1i, DataType s2r, DataType s2i, DataType c,
                          DataType s);
    static void butterfly_edges(DataType *__restrict d1, DataType *__restrict d2,
                                const DataType *__restrict s1, const DataType *__restrict s2,
                                int h);
    static void lut_block(DataType *d1, DataType *d1_end, DataType *d2, DataType *d2_end,
                          const DataType *__restrict s1r, const DataType *__restrict s1i,
                          const DataType *__restrict s2r, const DataType *__restrict s2i,
                          const DataType *__restrict cos_fwd, const DataType *__restrict cos_end,
                          int h);
    FFTREAL_VECTOR_CLONES void compute_direct_pass_n_lut(DataType *__restrict df,
                                                         const DataType *__restrict sf, int pass);
    void compute_direct_pass_n_osc(DataType *__restrict df, const DataType *__restrict sf,
                                   int pass);
};

template <class DT>
FFTReal<DT>::FFTReal(int length) : _length(length), _nbr_bits(count_bits(length)), _buffer(length)
{
    // The call is stringised as written; keep the space before the parentheses.
    // clang-format off
    FFTREAL_ASSERT(FFTReal_is_pow2 (length));
    // clang-format on
    FFTREAL_ASSERT(_nbr_bits <= MAX_BIT_DEPTH);

    init_bit_rev_table();
    init_cos_table();
    init_osc_table();
}

// Number of significant bits of length - 1, that is log2(length) for a power
// of two. Lengths below 1 give 0 and are rejected by the checks that follow.
template <class DT> int FFTReal<DT>::count_bits(int length)
{
    int nbr_bits = 0;
    if (length < 1) {
        return nbr_bits;
    }
    int rest = length - 1;
    while ((rest & ~0xFFFF) != 0) {
        rest >>= 16;
        nbr_bits += 16;
    }
    while ((rest & ~0xF) != 0) {
        rest >>= 4;
        nbr_bits += 4;
    }
    while (rest > 0) {
        rest >>= 1;
        ++nbr_bits;
    }
    return nbr_bits;
}

// Entry i is i with its _nbr_bits low bits reversed, built by counting in
// reversed bit order: from the top bit down, clear set bits until one that was
// clear is set.
template <class DT> void FFTReal<DT>::init_bit_rev_table()
{
    _bit_rev_table.resize(_length);
    int reversed = 0;
    _bit_rev_table[0] = reversed;
    for (int i = 1; i < _length; ++i) {
        int bit = _length >> 1;
        while ((reversed & bit) != 0) {
            reversed ^= bit;
            bit >>= 1;
        }
        reversed ^= bit;
        _bit_rev_table[i] = reversed;
    }
}

// Quarter-wave cosines of the pass levels 3 .. min(b - 1, 12), one after the
// other: level L starts at 2^(L-1) - 4 and holds cos(j pi / 2^L), j < 2^(L-1).
template <class DT> void FFTReal<DT>::init_cos_table()
{
    if (_nbr_bits <= 3) {
        return;
    }
    const int last_level = std::min(_nbr_bits - 1, LUT_PASS_LIMIT);
    _cos_table.resize((1 << last_level) - 4);
    for (int level = 3; level <= last_level; ++level) {
        const int level_len = 1 << (level - 1);
        const int level_start = level_len - 4;
        const double mul = (PI / 2) / level_len;
        for (int j = 0; j < level_len; ++j) {
            _cos_table[level_start + j] = DataType(std::cos(j * mul));
        }
    }
}

// One oscillator per pass level from 13 to b - 1, stepping by pi / 2^level.
template <class DT> void FFTReal<DT>::init_osc_table()
{
    if (_nbr_bits <= LUT_PASS_LIMIT + 1) {
        return;
    }
    const int nbr_osc = _nbr_bits - (LUT_PASS_LIMIT + 1);
    _osc_table.resize(nbr_osc);
    for (int osc_index = 0; osc_index < nbr_osc; ++osc_index) {
        const int level = osc_index + LUT_PASS_LIMIT + 1;
        _osc_table[osc_index].set_step((PI / 2) / (1 << (level - 1)));
    }
}

template <class DT> void FFTReal<DT>::forward_transform(DataType f[], const DataType x[])
{
    FFTREAL_ASSERT(f != 0);
    // clang-format off
    FFTREAL_ASSERT(f != use_buffer ());
    FFTREAL_ASSERT(x != 0);
    FFTREAL_ASSERT(x != use_buffer ());
    // clang-format on
    FFTREAL_ASSERT(x != f);

    switch (_nbr_bits) {
    case 0:
        f[0] = x[0];
        return;
    case 1:
        f[0] = x[0] + x[1];
        f[1] = x[0] - x[1];
        return;
    case 2: {
        f[1] = x[0] - x[2];
        f[3] = x[1] - x[3];
        const DataType s0 = x[0] + x[2];
        const DataType s1 = x[1] + x[3];
        f[0] = s0 + s1;
        f[2] = s0 - s1;
        return;
    }
    default:
        break;
    }

    // The passes alternate between f and the scratch buffer. There are b - 1
    // of them, so starting in the buffer for odd b ends in f.
    DataType *dst = (_nbr_bits & 1) ? use_buffer() : f;
    DataType *src = (dst == f) ? use_buffer() : f;
    compute_direct_pass_1_2(dst, x);
    std::swap(src, dst);
    compute_direct_pass_3(dst, src);
    for (int pass = 3; pass < _nbr_bits; ++pass) {
        std::swap(src, dst);
        compute_direct_pass_n(dst, src, pass);
    }
}

// One length-4 transform of x[0], x[N/2], x[N/4] and x[3N/4] (quarter = N/4)
// into d[0 .. 3].
template <class DT>
void FFTReal<DT>::butterfly_1_2(DataType *__restrict d, const DataType *__restrict x, int quarter)
{
    const DataType x0 = x[0];
    const DataType x1 = x[2 * quarter];
    const DataType x2 = x[quarter];
    const DataType x3 = x[3 * quarter];
    d[1] = x0 - x1;
    d[3] = x2 - x3;
    const DataType s0 = x0 + x1;
    const DataType s1 = x2 + x3;
    d[0] = s0 + s1;
    d[2] = s0 - s1;
}

// Passes 1 and 2 together: length-4 transforms of the inputs taken in
// bit-reversed order. The group at i reads x at the table entries i .. i + 3,
// which are r, r + N/2, r + N/4 and r + 3N/4 with r = entry i; the group at
// i + 4 reads the same pattern from r + N/8. The table is its own inverse, so
// i = entry r. Visiting the groups in the order of r, two at a time, reads x
// sequentially and writes each cache line of the destination whole, instead
// of gathering x from scattered places; every group computes the same values
// as in the order of i.
template <class DT>
void FFTReal<DT>::compute_direct_pass_1_2(DataType *__restrict df, const DataType *__restrict x)
{
    FFTREAL_ASSERT(df != 0);
    FFTREAL_ASSERT(x != 0);
    FFTREAL_ASSERT(df != x);

    const int *bit_rev = &_bit_rev_table[0];
    const int quarter = _length >> 2;
    const int eighth = _length >> 3;
    for (int r = 0; r < eighth; ++r) {
        DataType *d = df + bit_rev[r];
        butterfly_1_2(d, x + r, quarter);
        butterfly_1_2(d + 4, x + r + eighth, quarter);
    }
}

// Pass 3: merges blocks of 4 into blocks of 8; the only twiddle besides 1 and
// i is sqrt(2)/2.
template <class DT> void FFTReal<DT>::compute_direct_pass_3(DataType df[], const DataType sf[])
{
    FFTREAL_ASSERT(df != 0);
    FFTREAL_ASSERT(sf != 0);
    FFTREAL_ASSERT(df != sf);

    const DataType sqrt2_2 = SQRT2_2;
    for (int i = 0; i < _length; i += 8) {
        df[i] = sf[i] + sf[i + 4];
        df[i + 4] = sf[i] - sf[i + 4];
        df[i + 2] = sf[i + 2];
        df[i + 6] = sf[i + 6];

        DataType v = (sf[i + 5] - sf[i + 7]) * sqrt2_2;
        df[i + 1] = sf[i + 1] + v;
        df[i + 3] = sf[i + 1] - v;

        v = (sf[i + 5] + sf[i + 7]) * sqrt2_2;
        df[i + 5] = v + sf[i + 3];
        df[i + 7] = v - sf[i + 3];
    }
}

// Pass at level p >= 3: merges neighbouring blocks of n = 2^p values into
// blocks of 2n. The twiddles come from the cosine table up to level 12 and
// from the level's oscillator above.
template <class DT>
void FFTReal<DT>::compute_direct_pass_n(DataType df[], const DataType sf[], int pass)
{
    FFTREAL_ASSERT(df != 0);
    FFTREAL_ASSERT(sf != 0);
    FFTREAL_ASSERT(df != sf);
    FFTREAL_ASSERT(pass < _nbr_bits);

    if (pass <= LUT_PASS_LIMIT) {
        compute_direct_pass_n_lut(df, sf, pass);
    } else {
        compute_direct_pass_n_osc(df, sf, pass);
    }
}

// Butterfly j of a block of the pass at level p, n = 2^p, h = n/2: s1r, s1i,
// s2r, s2i are S1[j], S1[h + j], S2[j], S2[h + j]; the results go to D1[j],
// D1[n - j], D2[j] and D2[n - j]; (c, s) = (cos(j pi / n), sin(j pi / n)).
template <class DT>
inline void FFTReal<DT>::butterfly(DataType &d1, DataType &d1_mirror, DataType &d2,
                                   DataType &d2_mirror, DataType s1r, DataType s1i, DataType s2r,
                                   DataType s2i, DataType c, DataType s)
{
    const DataType v = s2r * c - s2i * s;
    d1 = s1r + v;
    d1_mirror = s1r - v;

    const DataType u = s2r * s + s2i * c;
    d2 = u + s1i;
    d2_mirror = u - s1i;
}

// The butterflies without a twiddle factor, j = 0 and j = h, of one block:
// s1, s2 point to S1[0] and S2[0], d1, d2 to D1[0] and D2[0].
template <class DT>
inline void FFTReal<DT>::butterfly_edges(DataType *__restrict d1, DataType *__restrict d2,
                                         const DataType *__restrict s1,
                                         const DataType *__restrict s2, int h)
{
    d1[0] = s1[0] + s2[0];
    d2[0] = s1[0] - s2[0];
    d1[h] = s1[h];
    d2[h] = s2[h];
}

// Butterflies j = 1 .. h - 1 of one block with twiddles from the cosine table.
// Each stream has a pointer of its own, the mirrored ones (D1[n - j], D2[n - j]
// and the sines) indexed backwards from their end, and the read-only streams
// are restrict, so that the compiler can keep the loads in registers and
// vectorise the loop.
template <class DT>
inline void FFTReal<DT>::lut_block(DataType *d1, DataType *d1_end, DataType *d2, DataType *d2_end,
                                   const DataType *__restrict s1r, const DataType *__restrict s1i,
                                   const DataType *__restrict s2r, const DataType *__restrict s2i,
                                   const DataType *__restrict cos_fwd,
                                   const DataType *__restrict cos_end, int h)
{
    for (int j = 1; j < h; ++j) {
        butterfly(d1[j], d1_end[-j], d2[j], d2_end[-j], s1r[j], s1i[j], s2r[j], s2i[j], cos_fwd[j],
                  cos_end[-j]);
    }
}

// Twiddles from the level's quarter-wave cosine table, read forwards for the
// cosine and backwards for the sine.
template <class DT>
FFTREAL_VECTOR_CLONES void FFTReal<DT>::compute_direct_pass_n_lut(DataType *__restrict df,
                                                                  const DataType *__restrict sf,
                                                                  int pass)
{
    const int nbr_coef = 1 << pass;
    const int h_nbr_coef = nbr_coef >> 1;
    const int d_nbr_coef = nbr_coef << 1;
    const DataType *cos_ptr = &_cos_table[h_nbr_coef - 4];

    for (int c0 = 0; c0 < _length; c0 += d_nbr_coef) {
        DataType *d1 = df + c0;
        DataType *d2 = d1 + nbr_coef;
        const DataType *s1 = sf + c0;
        const DataType *s2 = s1 + nbr_coef;
        butterfly_edges(d1, d2, s1, s2, h_nbr_coef);
        lut_block(d1, d2, d2, d2 + nbr_coef, s1, s1 + h_nbr_coef, s2, s2 + h_nbr_coef, cos_ptr,
                  cos_ptr + h_nbr_coef, h_nbr_coef);
    }
}

// Twiddles from the level's oscillator, cleared at each block and stepped
// once per butterfly. The rotations form a serial chain that sets the pace of
// these passes, so the next rotation is started before the butterfly that
// uses the current twiddle; the last butterfly of a block steps no further,
// which leaves the oscillator h - 1 steps on as usual. The oscillator is
// worked on in a local copy, so that it stays in registers instead of being
// reloaded after every store to df, and is stored back at the end.
template <class DT>
void FFTReal<DT>::compute_direct_pass_n_osc(DataType *__restrict df, const DataType *__restrict sf,
                                            int pass)
{
    const int nbr_coef = 1 << pass;
    const int h_nbr_coef = nbr_coef >> 1;
    const int d_nbr_coef = nbr_coef << 1;
    SinCosOscillator &stored_osc = _osc_table[pass - (LUT_PASS_LIMIT + 1)];
    SinCosOscillator osc = stored_osc;

    for (int c0 = 0; c0 < _length; c0 += d_nbr_coef) {
        DataType *d1 = df + c0;
        DataType *d2 = d1 + nbr_coef;
        const DataType *s1 = sf + c0;
        const DataType *s2 = s1 + nbr_coef;
        butterfly_edges(d1, d2, s1, s2, h_nbr_coef);

        osc.clear_buffers();
        osc.step();
        for (int j = 1; j < h_nbr_coef; ++j) {
            const DataType c = DataType(osc.get_cos());
            const DataType s = DataType(osc.get_sin());
            if (j < h_nbr_coef - 1) {
                osc.step();
            }
            butterfly(d1[j], d1[nbr_coef - j], d2[j], d2[nbr_coef - j], s1[j], s1[h_nbr_coef + j],
                      s2[j], s2[h_nbr_coef + j], c, s);
        }
    }
    stored_osc = osc;
}
