// Included before anything else by what clang before 16 would not compile: types with a vector of themselves,
// such as qpdf has, where GCC 12's vectors are constexpr. Here they are not. What std::fill does for vectors
// of bits has been declared as constexpr before, and takes another name: nobody uses it here.
#include <string>

#pragma push_macro("_GLIBCXX20_CONSTEXPR")
#undef _GLIBCXX20_CONSTEXPR
#define _GLIBCXX20_CONSTEXPR
#define __fill_a1 __fill_bits
#include <vector>
#undef __fill_a1
#pragma pop_macro("_GLIBCXX20_CONSTEXPR")
