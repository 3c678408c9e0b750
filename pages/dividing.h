// Division by small numbers, again and again.
#ifndef RASTREL_PAGES_DIVIDING_H
#define RASTREL_PAGES_DIVIDING_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace rastrel::pages {

// By 1 up to, not including, `kDivisors`: exact for what is below 2^32 / kDivisors.
template <size_t kDivisors>
class Dividing {
 public:
  constexpr Dividing() {
    for (size_t i = 1; i < kDivisors; ++i) factors_[i] = (uint64_t{1} << 32) / i + 1;
  }
  constexpr int operator()(int value, int divisor) const {
    return static_cast<int>(static_cast<uint64_t>(value) * factors_[static_cast<size_t>(divisor)] >> 32);
  }

 private:
  std::array<uint64_t, kDivisors> factors_{};
};

}  // namespace rastrel::pages

#endif
