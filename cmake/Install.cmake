# cmake --install lays down the programs, the libraries and a package for programs of one's own:
# find_package(vela-display) gives vela-display::interface.
include(CMakePackageConfigHelpers)

set(android_libraries /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
set_target_properties(velahost velactl PROPERTIES INSTALL_RPATH "$ORIGIN/../lib;${android_libraries}")
set_target_properties(binder_ndk velaservice vela_product PROPERTIES
    INSTALL_RPATH "$ORIGIN;${android_libraries}")

# The programs look for the product library in "lib" beside their own folder.
install(TARGETS velahost velactl RUNTIME DESTINATION bin)
install(TARGETS binder_ndk velaservice vela_product vela_aidl DESTINATION lib)
install(DIRECTORY host/platform/include/android host/platform/include/binder_host
    $<TARGET_PROPERTY:vela_aidl,BINARY_DIR>/vela_aidl/include/aidl
    DESTINATION include/vela-display)
install(FILES host/velactl/completion.bash
    DESTINATION share/bash-completion/completions RENAME velactl)
install(FILES host/velactl/completion.bash
    DESTINATION share/bash-completion/completions RENAME velahost)
install(FILES host/velactl/completion.zsh DESTINATION share/zsh/site-functions RENAME _velactl)
install(FILES host/velactl/completion.fish
    DESTINATION share/fish/vendor_completions.d RENAME velactl.fish)
install(FILES host/velactl/completion.fish
    DESTINATION share/fish/vendor_completions.d RENAME velahost.fish)
# Made of what the programs' help says, so by programs that run here.
if(NOT CMAKE_CROSSCOMPILING AND NOT VELA_SANITIZE)
    set(man_pages ${CMAKE_BINARY_DIR}/man/velactl.1 ${CMAKE_BINARY_DIR}/man/velahost.1)
    add_custom_command(OUTPUT ${man_pages}
        COMMAND ${CMAKE_SOURCE_DIR}/scripts/man-pages ${CMAKE_BINARY_DIR}/man
            $<TARGET_FILE:velactl> $<TARGET_FILE:velahost>
        DEPENDS velactl velahost ${CMAKE_SOURCE_DIR}/scripts/man-pages)
    add_custom_target(man_pages ALL DEPENDS ${man_pages})
    install(FILES ${man_pages} DESTINATION share/man/man1)
endif()
install(DIRECTORY sessions DESTINATION share/vela-display)

set(package lib/cmake/vela-display)
configure_package_config_file(cmake/vela-display-config.cmake.in
    ${CMAKE_BINARY_DIR}/vela-display-config.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vela-display-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vela-display-config.cmake
    ${CMAKE_BINARY_DIR}/vela-display-config-version.cmake DESTINATION ${package})
