# benchmarks: builds them.  bench: runs them.  bench-<name>: builds and runs one.
add_custom_target(benchmarks)
add_custom_target(bench)

if(VMAGENT_BENCHMARKS)
  find_package(benchmark REQUIRED)
  set(VMAGENT_BENCH_RESULTS ${PROJECT_BINARY_DIR}/bench)
  file(MAKE_DIRECTORY ${VMAGENT_BENCH_RESULTS})
endif()

# vmagent_benchmark(NAME <name> SOURCES <file>... [LIBRARIES <target>...])
#
# A Google Benchmark program <name>.  Its results go to bench/<name>.json in the build folder.
function(vmagent_benchmark)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME" "SOURCES;LIBRARIES")
  if(NOT VMAGENT_BENCHMARKS)
    return()
  endif()
  add_executable(${arg_NAME} ${arg_SOURCES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBRARIES} benchmark::benchmark_main)
  # Repeated in random order, so that what else the machine does falls on all alike; of the
  # repetitions the results hold the median.
  # USES_TERMINAL: ninja runs one such command at a time, so no two disturb each other.
  add_custom_target(bench-${arg_NAME}
    COMMAND ${arg_NAME}
      --benchmark_repetitions=9 --benchmark_min_time=0.05
      --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
      --benchmark_out=${VMAGENT_BENCH_RESULTS}/${arg_NAME}.json --benchmark_out_format=json
    USES_TERMINAL)
  add_dependencies(benchmarks ${arg_NAME})
  add_dependencies(bench bench-${arg_NAME})
endfunction()
