# Warnings and sanitizers of the project's own targets. They never reach a consumer.
add_library(kbag_options INTERFACE)
target_compile_options(kbag_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wformat=2
  # GCC 12 reports memcpy overlaps in std::string's operator+ that cannot happen (its bug 105651).
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
  $<$<BOOL:${KBAG_WERROR}>:-Werror>)

# A product and a sum are rounded one after the other, as every processor can: where one has an instruction for
# both, which rounds once, compilers take it unasked, and outputs would depend on the machine.
include(CheckCXXSourceCompiles)
check_cxx_source_compiles("
  #if !defined(__x86_64__) || defined(__FMA__)
  int main() {}
  #endif" KBAG_MAY_FUSE)
if(KBAG_MAY_FUSE)
  add_compile_options(-ffp-contract=off)
endif()

if(KBAG_COVERAGE)
  add_link_options(--coverage)
endif()

if(KBAG_SANITIZE)
  list(JOIN KBAG_SANITIZE "," sanitizers)
  # Everything in the process is instrumented alike, so this is a directory-wide setting.
  add_compile_options(-fsanitize=${sanitizers} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${sanitizers})
  # GCC 12 takes instrumented standard containers for uninitialised.
  target_compile_options(kbag_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  if("undefined" IN_LIST KBAG_SANITIZE)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
