// What the processor may offer beyond what the library is compiled for.
#ifndef RASTREL_PIXELS_PROCESSOR_H
#define RASTREL_PIXELS_PROCESSOR_H

// RASTREL_FOR_AVX2 and RASTREL_FOR_SSSE3 compile a function for these: call it only where the processor has
// them. RASTREL_ALSO_AVX2 compiles one twice, and the loader picks; where loaders cannot, and under the
// thread sanitizer, which would be called before it is there, it is compiled once. Elsewhere than on x86 they
// do nothing.
#if defined(__x86_64__) || defined(__i386__)
#define RASTREL_FOR_AVX2 __attribute__((target("avx2")))
#define RASTREL_FOR_SSSE3 __attribute__((target("ssse3")))
#else
#define RASTREL_FOR_AVX2
#define RASTREL_FOR_SSSE3
#endif

#if defined(__x86_64__) && defined(__ELF__) && !defined(__SANITIZE_THREAD__)
#define RASTREL_ALSO_AVX2 __attribute__((target_clones("default", "avx2")))
#else
#define RASTREL_ALSO_AVX2
#endif

namespace rastrel {

inline bool HasAvx2() {
#if defined(__x86_64__) || defined(__i386__)
  return __builtin_cpu_supports("avx2") != 0;
#else
  return false;
#endif
}

inline bool HasSsse3() {
#if defined(__x86_64__) || defined(__i386__)
  return __builtin_cpu_supports("ssse3") != 0;
#else
  return false;
#endif
}

}  // namespace rastrel

#endif
