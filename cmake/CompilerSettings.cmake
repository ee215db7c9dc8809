# SPDX-License-Identifier: GPL-3.0-or-later
# What every target is compiled with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# "Dev": quick enough to measure by, with assertions and enough debug information for a backtrace.
set(CMAKE_CXX_FLAGS_DEV "-O1 -g1" CACHE STRING "Flags of the Dev build type" FORCE)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG" CACHE STRING "Flags of the Release build type" FORCE)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Dev CACHE STRING "Build type" FORCE)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Werror)
if(LEDGERFINCH_SANITIZE)
  # Instrumented code makes the compiler warn of what isn't there (std::regex); the plain build has the last word.
  add_compile_options("-fsanitize=${LEDGERFINCH_SANITIZE}" -fno-omit-frame-pointer -fno-sanitize-recover=all
                      -Wno-error -Wno-maybe-uninitialized)
  add_link_options("-fsanitize=${LEDGERFINCH_SANITIZE}")
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}")
endif()
find_program(MOLD mold)
if(MOLD)
  add_link_options(-fuse-ld=mold)
endif()
