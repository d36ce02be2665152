# How everything that is built defends itself: stack protector and stack clash protection, checked calls of libc
# where the optimiser runs, position independent code, read-only relocations bound at start, no executable stack.
# The test "hardening" looks for all of it in what was built.
#
# Instrumented builds go without: the sanitizers replace the same calls.

if(QUORVEL_INSTRUMENTED)
    return()
endif()

include(CheckPIESupported)
include(CheckCXXSourceCompiles)

check_pie_supported()

set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("
#include <features.h>
#if __USE_FORTIFY_LEVEL < 3
#error not supported
#endif
int main() { return 0; }" QUORVEL_HAS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
if(QUORVEL_HAS_FORTIFY_3)
    set(level 3)
else()
    set(level 2)
endif()

add_compile_options(
    -fstack-protector-strong
    -fstack-clash-protection
    "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${level}>")
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,text)
