add_executable(hex_fuzz ${CMAKE_SOURCE_DIR}/tests/fuzz/hex_fuzz.cpp)
target_compile_options(hex_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_options(hex_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_libraries(hex_fuzz PRIVATE pellam_datafile)
