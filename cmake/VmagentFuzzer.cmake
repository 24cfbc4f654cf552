# fuzzers: builds them, into fuzzers/ of the build folder.
add_custom_target(fuzzers)

if(VMAGENT_FUZZERS AND NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "VMAGENT_FUZZERS needs clang++: only it has libFuzzer (use preset fuzz)")
endif()

# vmagent_fuzzer(NAME <name> SOURCES <file>... [LIBRARIES <target>...])
#
# A libFuzzer program <name>; its seeds, if any, are the files of fuzz/corpus/<name>.
function(vmagent_fuzzer)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME" "SOURCES;LIBRARIES")
  if(NOT VMAGENT_FUZZERS)
    return()
  endif()
  add_executable(${arg_NAME} ${arg_SOURCES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBRARIES})
  target_link_options(${arg_NAME} PRIVATE -fsanitize=fuzzer)
  set_target_properties(${arg_NAME} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/fuzzers)
  add_dependencies(fuzzers ${arg_NAME})
endfunction()
