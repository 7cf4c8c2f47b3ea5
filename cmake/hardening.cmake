# What makes a fault in memory end a program instead of being of use to somebody. For everything that
# is shipped; a target links tessel_hardening privately, so the tests, which are not optimised, do
# without. A sanitizer finds more and wants the code as it is.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

add_library(tessel_hardening INTERFACE)
if(TESSEL_SANITIZE)
  return()
endif()

# Everything is bound when it is loaded, and the tables of that are read-only afterwards.
target_link_options(tessel_hardening INTERFACE -Wl,-z,relro,-z,now)

foreach(flag IN ITEMS -fstack-protector-strong -fcf-protection)
  string(MAKE_C_IDENTIFIER "TESSEL_HAS${flag}" has)
  check_cxx_compiler_flag(${flag} ${has})
  if(${has})
    target_compile_options(tessel_hardening INTERFACE ${flag})
  endif()
endforeach()

# Variables without a value are zero. Clang 14 has that only together with a second option.
set(zero -ftrivial-auto-var-init=zero)
set(confirmed -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang)
check_cxx_compiler_flag(${zero} TESSEL_HAS_ZERO_INIT)
check_cxx_compiler_flag("${zero} ${confirmed}" TESSEL_HAS_CONFIRMED_ZERO_INIT)
if(TESSEL_HAS_ZERO_INIT)
  target_compile_options(tessel_hardening INTERFACE ${zero})
elseif(TESSEL_HAS_CONFIRMED_ZERO_INIT)
  target_compile_options(tessel_hardening INTERFACE ${zero} ${confirmed})
endif()

# The C library checks the sizes that it is given. It needs an optimised build.
set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("
  #include <cstdio>
  #if __USE_FORTIFY_LEVEL < 3
  #error treated like 2
  #endif
  int main() {}" TESSEL_HAS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
target_compile_options(tessel_hardening INTERFACE
  $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
  $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=$<IF:$<BOOL:${TESSEL_HAS_FORTIFY_3}>,3,2>>)
