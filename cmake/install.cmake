# An installed copy: bin/quil, LIBDIR/libquilplatform.so.1 and LIBDIR/quil/QUIL.fmplugin. They find each other by their places
# relative to one another, so the whole may lie, or be moved, anywhere.
file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(installed_code ${CMAKE_INSTALL_LIBDIR}/quil/QUIL.fmplugin/Contents)

# Where a binary finds libquilplatform: installed, and in the build folder. One text for both, because what CMake would
# exchange at installation it pads with empty entries, and the loader takes these for the current folder.
function(find_platform_library target installed built)
    set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON
        INSTALL_RPATH "$ORIGIN/${installed};$ORIGIN/${built}")
endfunction()
find_platform_library(quil ${bin_to_lib} src)
find_platform_library(QUIL ../../../.. ../../../src)  # from Contents/Linux to LIBDIR
find_platform_library(quil_sqlite .. src)  # from LIBDIR/quil to LIBDIR

install(TARGETS quil RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS quilplatform LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
install(TARGETS QUIL LIBRARY DESTINATION ${installed_code}/Linux)
install(TARGETS quil_sqlite LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/quil)
install(DIRECTORY ${PROJECT_BINARY_DIR}/QUIL.fmplugin/Contents/Resources DESTINATION ${installed_code})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TARGET quil_desk)
    find_platform_library(quil_desk ${bin_to_lib} src)
    install(TARGETS quil_desk RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/org.quil.Desk.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/org.quil.Desk.svg
            DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
endif()
