# The bounded formatter against the C library's snprintf on the message
# shapes the program prints most. Figures go to bench/util_format_results.txt
# in the build directory. Run with: cmake --build <dir> --target bench_util_format
if(benchmark_FOUND)
  add_executable(util_format_bench ${CMAKE_SOURCE_DIR}/bench/util_format.cpp)
  target_link_libraries(util_format_bench PRIVATE pellam_util benchmark::benchmark)
  add_custom_target(bench_util_format
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/bench
    COMMAND util_format_bench --out=${CMAKE_BINARY_DIR}/bench/util_format_results.txt
    DEPENDS util_format_bench
    USES_TERMINAL
    COMMENT "UTIL_snprintf against snprintf")
endif()
