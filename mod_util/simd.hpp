// The embedded host includes this header too.
//
// Wider instructions, chosen at run time. The host includes this header too.
//
// A kernel that gains from them is written once as an always-inline body and instantiated twice: plainly,
// and inside a wrapper marked TARGET_AVX2. The caller picks by have_avx2(), which tests all that the mark
// names. Results are the same bit for bit: nothing is contracted or reassociated. With SKOKLANA_SCALAR
// defined only the plain form is built.
#pragma once

#define FORCE_INLINE inline __attribute__((always_inline))

#if defined(__x86_64__) && defined(__GNUC__) && !defined(SKOKLANA_SCALAR)
#define SKOKLANA_HAVE_AVX2_FORM 1
#define TARGET_AVX2 __attribute__((target("avx2,bmi,bmi2,popcnt")))
inline bool have_avx2()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}
#else
#define SKOKLANA_HAVE_AVX2_FORM 0
#define TARGET_AVX2
inline bool have_avx2()
{
    return false;
}
#endif
