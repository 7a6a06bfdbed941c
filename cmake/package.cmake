# A Debian package: `cpack --config build/release/CPackConfig.cmake -G DEB`. The manual pages, the shells' completions and
# the examples go along.
set(QUIL_HELP_PAGES ${PROJECT_BINARY_DIR}/help)
install(DIRECTORY ${QUIL_HELP_PAGES}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 FILES_MATCHING PATTERN "*.1")
install(FILES ${QUIL_HELP_PAGES}/quil.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME quil)
install(FILES ${QUIL_HELP_PAGES}/_quil DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES ${QUIL_HELP_PAGES}/quil.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quil)
set(CPACK_PACKAGE_CONTACT "The QUIL maintainers <quil@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Hazard screening for planners, and the QUIL plug-in with its host")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)  # by dpkg-shlibdeps (package dpkg-dev)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)  # packing does not build the tests
include(CPack)
