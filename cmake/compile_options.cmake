# Warnings and sanitizers of everything in this tree.

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  add_compile_options(-Wthread-safety -Werror=thread-safety)
endif()
if(OSTRAND_WERROR)
  add_compile_options(-Werror)
endif()

# Libraries show only what they mark as theirs.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(OSTRAND_SANITIZE)
  add_compile_options(-fsanitize=${OSTRAND_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${OSTRAND_SANITIZE})
endif()
if(OSTRAND_FUZZ)
  # Coverage counters in the layers (see there); the fuzzer's own main only in the fuzz targets.
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
