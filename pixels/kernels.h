// Kernels: inner loops that are compiled, or written, more than once, as processors have wider registers or
// instructions of their own.
//
// A loop that is only compiled again is called as `Widest<Loop>(...)`. One that is also written anew is a
// Kernel, which names its versions. Every version makes the same bytes of the same input; tests run all that
// the machine has, by LimitProcessor.
#ifndef RASTREL_PIXELS_KERNELS_H
#define RASTREL_PIXELS_KERNELS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

// A function marked so may use these instructions: call it only by way of a Kernel. Elsewhere than on x86 the
// marks do nothing.
#if defined(__x86_64__) || defined(__i386__)
#define RASTREL_HAS_X86_VERSIONS 1
#define RASTREL_FOR_AVX2 __attribute__((target("avx2")))
#define RASTREL_FOR_SSSE3 __attribute__((target("ssse3")))
#else
#define RASTREL_HAS_X86_VERSIONS 0
#define RASTREL_FOR_AVX2
#define RASTREL_FOR_SSSE3
#endif

// Whether all processors that the library is compiled for have SSE2: its functions need no mark.
#if RASTREL_HAS_X86_VERSIONS && defined(__SSE2__)
#define RASTREL_HAS_SSE2 1
#else
#define RASTREL_HAS_SSE2 0
#endif

namespace rastrel {

// What a version asks of the processor: each has all that those before it have.
enum class Processor : uint8_t {
  kAny,  // plain code
  kSse2,
  kSsse3,
  kAvx2,
};
constexpr size_t kProcessors = 4;

inline Processor MachinesProcessor() {
#if RASTREL_HAS_SSE2
  if (__builtin_cpu_supports("avx2") != 0) return Processor::kAvx2;
  if (__builtin_cpu_supports("ssse3") != 0) return Processor::kSsse3;
  return Processor::kSse2;
#else
  return Processor::kAny;
#endif
}

namespace kernels {
constexpr uint8_t kNotAsked = 0xFF;
inline constinit std::atomic<uint8_t> used{kNotAsked};
}  // namespace kernels

// Which versions are run from now on, on all threads: those for `most` or, where the machine has less, for
// what it has. For tests: results do not depend on it.
inline void LimitProcessor(Processor most) {
  const Processor machines = MachinesProcessor();
  kernels::used.store(static_cast<uint8_t>(most < machines ? most : machines), std::memory_order_relaxed);
}

inline size_t UsedProcessor() {
  const uint8_t used = kernels::used.load(std::memory_order_relaxed);
  if (used != kernels::kNotAsked) return used;
  LimitProcessor(Processor::kAvx2);
  return kernels::used.load(std::memory_order_relaxed);
}

template <class Function>
class Kernel;

// The versions of one function, beginning with the one in plain code:
//
//     constexpr Kernel kPick = Kernel(PickOneByOne).With(Processor::kSsse3, PickByShuffles);
template <class Result, class... Arguments>
class Kernel<Result (*)(Arguments...)> {
 public:
  using Function = Result (*)(Arguments...);

  constexpr explicit Kernel(Function plain) { versions_.fill(plain); }

  // With another version for `processor` and those that have more.
  constexpr Kernel With(Processor processor, Function version) const {
    Kernel kernel = *this;
    for (auto i = static_cast<size_t>(processor); i < kProcessors; ++i) kernel.versions_[i] = version;
    return kernel;
  }

  // The version for this machine: for loops that call it again and again.
  Function Best() const { return versions_[UsedProcessor()]; }
  Result operator()(Arguments... arguments) const { return Best()(arguments...); }

 private:
  std::array<Function, kProcessors> versions_{};
};
template <class Result, class... Arguments>
Kernel(Result (*)(Arguments...)) -> Kernel<Result (*)(Arguments...)>;

namespace kernels {

template <auto kLoop>
struct Wide;

// `flatten` has all that the loop calls compiled with it, so that it is not left narrow.
template <class Result, class... Arguments, Result (*kLoop)(Arguments...)>
struct Wide<kLoop> {
  [[gnu::flatten]] RASTREL_FOR_AVX2 static Result Run(Arguments... arguments) { return kLoop(arguments...); }
};

template <auto kLoop>
constexpr Kernel<decltype(kLoop)> WidestOf() {
  const Kernel plain(kLoop);
#if RASTREL_HAS_X86_VERSIONS
  return plain.With(Processor::kAvx2, Wide<kLoop>::Run);
#else
  return plain;
#endif
}

}  // namespace kernels

// A loop that compilers turn into vector instructions, compiled once more for registers of 32 bytes. The loop
// is best a name of its own file.
template <auto kLoop>
inline constexpr Kernel<decltype(kLoop)> Widest = kernels::WidestOf<kLoop>();

}  // namespace rastrel

#endif
