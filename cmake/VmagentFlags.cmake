# Warnings and sanitizers of the whole build.

add_library(vmagent_warnings INTERFACE)
target_compile_options(vmagent_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wswitch
  # gtest's INSTANTIATE_TEST_SUITE_P leaves its last argument out, as C++20 allows.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
if(VMAGENT_WERROR)
  target_compile_options(vmagent_warnings INTERFACE -Werror)
endif()

# Traces name the file they come from as the repository does.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

# Bounds and null checks of the standard library, wherever assertions are on.
add_compile_definitions($<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

if(VMAGENT_SANITIZE)
  # Every object, or else an error in one that is not instrumented goes unseen.
  add_compile_options(
    -fsanitize=${VMAGENT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    # It wants the type information of classes that are only called through, as a host calls the
    # module's, and takes classes of one name in two files' unnamed namespaces for the same.
    -fno-sanitize=vptr
    # The instrumentation makes g++ see uninitialized variables where there are none.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  add_link_options(-fsanitize=${VMAGENT_SANITIZE})
endif()
