#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

/// Marks code for processors with vectors of four doubles and fused multiplication and addition.
#if defined(__x86_64__)
#define KELVO_FMA gnu::target("avx2,fma")
#else
#define KELVO_FMA
#endif

namespace util {

/// Returns whether the processor has what code marked KELVO_FMA needs; else it must not run.
bool HasFma();

/// Four numbers calculated side by side, and four integers or the bits of four numbers.
using Quad = double __attribute__((vector_size(4 * sizeof(double))));
using QuadBits = std::uint64_t __attribute__((vector_size(4 * sizeof(std::uint64_t))));

// What follows is the same for one double and for a Quad, for code that is written for both.

template <class Real>
struct BitsFor;
template <>
struct BitsFor<double> {
  using Type = std::uint64_t;
};
template <>
struct BitsFor<Quad> {
  using Type = QuadBits;
};
/// std::uint64_t for double, QuadBits for Quad.
template <class Real>
using BitsOf = typename BitsFor<Real>::Type;

/// Returns the bits of a number.
inline std::uint64_t ToBits(double x) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &x, sizeof bits);
  return bits;
}
[[KELVO_FMA, gnu::always_inline]] inline QuadBits ToBits(Quad x) {
  return reinterpret_cast<QuadBits>(x);
}

/// Returns the number of these bits.
inline double FromBits(std::uint64_t bits) {
  double x = 0;
  std::memcpy(&x, &bits, sizeof x);
  return x;
}
[[KELVO_FMA, gnu::always_inline]] inline Quad FromBits(QuadBits bits) {
  return reinterpret_cast<Quad>(bits);
}

/// Returns x in every place.
template <class Real>
[[KELVO_FMA, gnu::always_inline]] inline Real All(double x) {
  return Real{} + x;
}

/// Returns a b + c with one rounding.
[[KELVO_FMA, gnu::always_inline]] inline double Fma(double a, double b, double c) {
  return __builtin_fma(a, b, c);
}
[[KELVO_FMA, gnu::always_inline]] inline Quad Fma(Quad a, Quad b, Quad c) {
#if defined(__x86_64__)
  return _mm256_fmadd_pd(a, b, c);
#else
  return Quad{Fma(a[0], b[0], c[0]), Fma(a[1], b[1], c[1]), Fma(a[2], b[2], c[2]),
              Fma(a[3], b[3], c[3])};
#endif
}

/// Returns the square root.
[[KELVO_FMA, gnu::always_inline]] inline double Sqrt(double a) {
  return std::sqrt(a);
}
[[KELVO_FMA, gnu::always_inline]] inline Quad Sqrt(Quad a) {
#if defined(__x86_64__)
  return _mm256_sqrt_pd(a);
#else
  return Quad{std::sqrt(a[0]), std::sqrt(a[1]), std::sqrt(a[2]), std::sqrt(a[3])};
#endif
}

/// Returns one member of the rows of a table that have these indices, which are not checked.
template <class Row, class Number>
[[KELVO_FMA, gnu::always_inline]] inline Number Each(const Row* rows, std::uint64_t i,
                                                     Number Row::*member) {
  return rows[i].*member;
}
template <class Row>
[[KELVO_FMA, gnu::always_inline]] inline Quad Each(const Row* rows, QuadBits i,
                                                   double Row::*member) {
  return Quad{rows[i[0]].*member, rows[i[1]].*member, rows[i[2]].*member, rows[i[3]].*member};
}
template <class Row>
[[KELVO_FMA, gnu::always_inline]] inline QuadBits Each(const Row* rows, QuadBits i,
                                                       std::uint64_t Row::*member) {
  return QuadBits{rows[i[0]].*member, rows[i[1]].*member, rows[i[2]].*member, rows[i[3]].*member};
}

/// Returns whether low <= x < high in every place.
[[KELVO_FMA, gnu::always_inline]] inline bool Inside(double low, double x, double high) {
  return low <= x && x < high;
}
[[KELVO_FMA, gnu::always_inline]] inline bool Inside(Quad low, Quad x, Quad high) {
#if defined(__x86_64__)
  return _mm256_movemask_pd(_mm256_and_pd(_mm256_cmp_pd(low, x, _CMP_LE_OQ),
                                          _mm256_cmp_pd(x, high, _CMP_LT_OQ))) == 15;
#else
  return Inside(low[0], x[0], high[0]) && Inside(low[1], x[1], high[1]) &&
         Inside(low[2], x[2], high[2]) && Inside(low[3], x[3], high[3]);
#endif
}

/// Returns function(x) for each number.
template <class Function>
[[KELVO_FMA, gnu::always_inline]] inline double ForEach(double x, const Function& function) {
  return function(x);
}
template <class Function>
[[KELVO_FMA, gnu::always_inline]] inline Quad ForEach(Quad x, const Function& function) {
  return Quad{function(x[0]), function(x[1]), function(x[2]), function(x[3])};
}

/// Returns a where it equals b, else function(x), which is rarely asked for.
template <class Function>
[[KELVO_FMA, gnu::always_inline]] inline double IfEqual(double a, double b, double x,
                                                        const Function& function) {
  return __builtin_expect(a == b, 1) ? a : function(x);
}
template <class Function>
[[KELVO_FMA, gnu::always_inline]] inline Quad IfEqual(Quad a, Quad b, Quad x,
                                                      const Function& function) {
#if defined(__x86_64__)
  const bool equal = _mm256_movemask_pd(_mm256_cmp_pd(a, b, _CMP_EQ_OQ)) == 15;
#else
  const bool equal = a[0] == b[0] && a[1] == b[1] && a[2] == b[2] && a[3] == b[3];
#endif
  if (__builtin_expect(equal, 1)) return a;
  Quad result = a;
  for (int k = 0; k < 4; ++k)
    if (a[k] != b[k]) result[k] = function(x[k]);
  return result;
}

} // namespace util
