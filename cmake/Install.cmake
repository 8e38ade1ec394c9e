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
install(DIRECTORY sessions DESTINATION share/vela-display)

set(package lib/cmake/vela-display)
configure_package_config_file(cmake/vela-display-config.cmake.in
    ${CMAKE_BINARY_DIR}/vela-display-config.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vela-display-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vela-display-config.cmake
    ${CMAKE_BINARY_DIR}/vela-display-config-version.cmake DESTINATION ${package})
