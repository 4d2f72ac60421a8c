# The manual pages, the install layout and the Debian packages.
find_program(PELLAM_GROFF groff)
if(PELLAM_GROFF)
  add_test(NAME man_pages
    COMMAND bash ${CMAKE_SOURCE_DIR}/tests/e2e/man_page_test.sh $<TARGET_FILE:pellam-spi> ${CMAKE_SOURCE_DIR}/packaging)
  set_tests_properties(man_pages PROPERTIES TIMEOUT 60)
endif()
find_program(PELLAM_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(PELLAM_DPKG_SHLIBDEPS)
  add_test(NAME install_and_packages
    COMMAND bash ${CMAKE_SOURCE_DIR}/tests/e2e/install_test.sh ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR})
  set_tests_properties(install_and_packages PROPERTIES TIMEOUT 180)
endif()
