add_executable(cmdline_fuzz ${CMAKE_SOURCE_DIR}/tests/fuzz/cmdline_fuzz.cpp)
target_compile_options(cmdline_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_options(cmdline_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_libraries(cmdline_fuzz PRIVATE pellam_app)
