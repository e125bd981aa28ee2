# cmake --install: libraries and headers, a CMake package, pkg-config files, the command line.
#
#   find_package(ostrand REQUIRED)
#   target_link_libraries(app PRIVATE ostrand::client)   # or ostrand::router, ostrand::fleet
#
#   c++ app.cpp $(pkg-config --cflags --libs ostrand-client)

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ostrand)
# An installed tree may be moved: its pkg-config files know the way from themselves to its top.
file(RELATIVE_PATH PATH_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})

function(ostrand_install_bundle name description requires)
  install(TARGETS ostrand_bundle_${name} EXPORT ostrand_targets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  set(BUNDLE ${name})
  set(DESCRIPTION ${description})
  set(REQUIRES ${requires})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/ostrand.pc.in
                 ${CMAKE_CURRENT_BINARY_DIR}/ostrand-${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ostrand-${name}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

ostrand_install_bundle(router "request router of a distributed table store's clients" "")
ostrand_install_bundle(client "client library of a distributed table store" ostrand-router)
ostrand_install_bundle(fleet "development fleet for tests of the client library" ostrand-router)

foreach(layer common net protocol vex service_api client fleet)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/${layer}
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ostrand FILES_MATCHING PATTERN "*.h")
endforeach()

install(EXPORT ostrand_targets NAMESPACE ostrand:: DESTINATION ${package_dir}
        FILE ostrand-targets.cmake)
configure_file(${PROJECT_SOURCE_DIR}/cmake/ostrand-config.cmake.in
               ${CMAKE_CURRENT_BINARY_DIR}/ostrand-config.cmake @ONLY)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ostrand-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ostrand-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/ostrand-config-version.cmake
        DESTINATION ${package_dir})

if(TARGET ostrand)
  install(TARGETS ostrand RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
