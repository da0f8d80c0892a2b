# What `cmake --install` gives: the library with its header, the private parts beside it, the command with its manual, and
# how other builds find them (pkg-config, CMake package). Nothing installed holds a path of the build.
include(CMakePackageConfigHelpers)

set(NORVIK_PRIVATE_DIR ${CMAKE_INSTALL_LIBDIR}/norvik)
set_target_properties(Norvik PROPERTIES INSTALL_RPATH "$ORIGIN/norvik;$ORIGIN"
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
set_target_properties(NorvikCore PROPERTIES INSTALL_RPATH "$ORIGIN")

target_include_directories(Norvik INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS Norvik EXPORT NorvikTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS NorvikCore EXPORT NorvikTargets LIBRARY DESTINATION ${NORVIK_PRIVATE_DIR})
if(TARGET NorvikDialogs)
  set_target_properties(NorvikDialogs PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS NorvikDialogs LIBRARY DESTINATION ${NORVIK_PRIVATE_DIR})
  set_target_properties(norvik_windows PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS norvik_windows RUNTIME DESTINATION ${NORVIK_PRIVATE_DIR})
endif()
install(TARGETS norvik_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(NORVIK_RELAY)
  install(TARGETS norvik_launcher RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(FILES include/norvik/norvik.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/norvik)
install(FILES ${PROJECT_BINARY_DIR}/man/norvik.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

set(NORVIK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Norvik)
install(EXPORT NorvikTargets NAMESPACE Norvik:: DESTINATION ${NORVIK_CMAKE_DIR})
configure_package_config_file(cmake/NorvikConfig.cmake.in ${PROJECT_BINARY_DIR}/NorvikConfig.cmake
  INSTALL_DESTINATION ${NORVIK_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NorvikConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NorvikConfig.cmake ${PROJECT_BINARY_DIR}/NorvikConfigVersion.cmake
  DESTINATION ${NORVIK_CMAKE_DIR})

file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/norvik.pc.in ${PROJECT_BINARY_DIR}/norvik.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/norvik.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
