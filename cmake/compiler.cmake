# SPDX-License-Identifier: MIT
# Flags of our own code. Assertions stay on in every build type: no NDEBUG anywhere.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()
foreach(type RELEASE RELWITHDEBINFO MINSIZEREL)
  string(REPLACE "-DNDEBUG" "" CMAKE_CXX_FLAGS_${type} "${CMAKE_CXX_FLAGS_${type}}")
endforeach()
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")

add_library(nasutil_flags INTERFACE)
target_compile_definitions(nasutil_flags INTERFACE _GNU_SOURCE)
target_compile_options(
  nasutil_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -fstack-protector-strong)
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")  # Fortified calls need the optimiser.
  target_compile_options(nasutil_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
target_link_options(nasutil_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

# nasutil_sources(<variable> <list of fast modules> <list of small ones>): the sources of both, set to
# be compiled for what they are.
function(nasutil_sources variable fast small)
  list(TRANSFORM ${fast} APPEND .cc)
  list(TRANSFORM ${small} APPEND .cc)
  set_source_files_properties(${${small}} PROPERTIES COMPILE_OPTIONS "$<$<NOT:$<CONFIG:Debug>>:-Os>")
  set(${variable} ${${small}} ${${fast}} PARENT_SCOPE)
endfunction()

# For the libraries' objects. Linking with -flto and less than -O2, g++ merges functions of several
# sources that differ only in the types they write. A caller that knows the other type then misses
# what was written, and a map loses entries.
set(nasutil_object_options $<$<CXX_COMPILER_ID:GNU>:-fno-ipa-icf>)

# nasutil_link_shared(<target> <version script>): small, with nothing exported that is not named.
# The library's calls of its own functions are bound when it is linked, those of others at start.
function(nasutil_link_shared target symbols)
  set_target_properties(${target} PROPERTIES LINK_DEPENDS "${symbols}")
  target_link_libraries(${target} PRIVATE nasutil_flags)
  target_link_options(${target} PRIVATE "-Wl,--version-script=${symbols}" -Wl,-Bsymbolic-functions
                      -Wl,-z,noseparate-code)
endfunction()

# What comes in this folder is built to be run once: compiled quickly, with line numbers in back
# traces. Fortified calls need some optimisation; a Debug build has none.
macro(nasutil_built_to_run_once)
  add_compile_options($<IF:$<CONFIG:Debug>,-O0,-Og> -g1)
endmacro()
