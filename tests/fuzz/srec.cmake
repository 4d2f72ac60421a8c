add_executable(srec_fuzz ${CMAKE_SOURCE_DIR}/tests/fuzz/srec_fuzz.cpp)
target_compile_options(srec_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_options(srec_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_libraries(srec_fuzz PRIVATE pellam_datafile)
