# The flags of our own code. Results are the same to the byte on every compiler and processor, hence no fused
# multiply-add and, on 32-bit x86, SSE2 arithmetic instead of the 80-bit kind.

set(RASTREL_SANITIZE "" CACHE STRING "Sanitizers to build with, e.g. address,undefined")
option(RASTREL_COVERAGE "Build for coverage reports" OFF)

add_library(rastrel_link_options INTERFACE)
if(RASTREL_SANITIZE)
  target_compile_options(rastrel_link_options INTERFACE
    -fsanitize=${RASTREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(rastrel_link_options INTERFACE -fsanitize=${RASTREL_SANITIZE})
endif()
if(RASTREL_COVERAGE)
  target_compile_options(rastrel_link_options INTERFACE --coverage)
  target_link_options(rastrel_link_options INTERFACE --coverage)
endif()

set(RASTREL_FOR_NESTED_VECTORS "")
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 16)
  set(RASTREL_FOR_NESTED_VECTORS -include ${PROJECT_SOURCE_DIR}/cmake/nested_vectors.h)
endif()

# For everything of ours.
add_library(rastrel_options INTERFACE)
target_link_libraries(rastrel_options INTERFACE rastrel_link_options)
target_compile_options(rastrel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>  # GCC 12 sees overlaps in std::string operator+ that are not there
  -ffp-contract=off $<$<BOOL:${RASTREL_WARNINGS_AS_ERRORS}>:-Werror>)
if(EMSCRIPTEN)
  # 128-bit vectors and exceptions that the engine itself knows, as all browsers have had since 2022. Linking needs the
  # same word. Sizes of the web's 32 bits are compared with 64-bit ones on purpose.
  target_compile_options(rastrel_link_options INTERFACE -msimd128 -fwasm-exceptions)
  target_link_options(rastrel_link_options INTERFACE -fwasm-exceptions)
elseif(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_options(rastrel_options INTERFACE -msse2 -mfpmath=sse)
endif()

if(WIN32)
  target_compile_definitions(rastrel_options INTERFACE NOMINMAX WIN32_LEAN_AND_MEAN)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    # The stack is aligned to 16 bytes there, and GCC takes it to suit AVX2's 32.
    target_compile_options(rastrel_options INTERFACE -Wa,-muse-unaligned-vector-move)
  endif()
endif()

# For the library: nothing throws across the C interface, and only what is exported is visible.
add_library(rastrel_library_options INTERFACE)
target_link_libraries(rastrel_library_options INTERFACE rastrel_options)
target_compile_definitions(rastrel_library_options INTERFACE _FILE_OFFSET_BITS=64)  # files of up to 4 GiB on 32-bit too
target_compile_options(rastrel_library_options INTERFACE
  -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden -fno-exceptions -fno-rtti>)
