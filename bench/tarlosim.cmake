# Throughput of the simulated probe library itself: frames/s and MB/s of page
# programs through the batch function, next to memcpy of the same bytes.
# Figures go to bench/tarlosim_results.txt in the build directory.
# Run with: cmake --build <dir> --target bench_tarlosim
if(benchmark_FOUND)
  add_executable(tarlosim_bench ${CMAKE_SOURCE_DIR}/bench/tarlosim_bench.cpp)
  target_link_libraries(tarlosim_bench PRIVATE tarloarm benchmark::benchmark)
  target_include_directories(tarlosim_bench PRIVATE ${CMAKE_SOURCE_DIR})
  add_custom_target(bench_tarlosim
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/bench
    COMMAND tarlosim_bench --benchmark_min_time=0.5 --out=${CMAKE_BINARY_DIR}/bench/tarlosim_results.txt
    DEPENDS tarlosim_bench
    USES_TERMINAL
    COMMENT "Simulated probe library throughput")
endif()
