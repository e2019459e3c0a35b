# What `cmake --install` puts where. Components: runtime (the shared library), dev (all that is needed to
# build against it, and the documentation), tools (the program).
include(CMakePackageConfigHelpers)

if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  message(FATAL_ERROR "CMAKE_INSTALL_LIBDIR is counted from the prefix, so that what is installed can be moved")
endif()
set(K7M_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/k7m)
set(K7M_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# One folder, whatever the capitals of the project's name.
set(K7M_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/k7m)

install(
  TARGETS k7m
  EXPORT k7mTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          COMPONENT runtime
          NAMELINK_COMPONENT dev)
install(
  TARGETS k7m-static
  EXPORT k7mTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(DIRECTORY include/k7m DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
        FILES_MATCHING PATTERN "*.h")

install(
  EXPORT k7mTargets
  NAMESPACE k7m::
  DESTINATION ${K7M_CONFIG_DIR}
  COMPONENT dev)
configure_package_config_file(
  cmake/k7mConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/k7mConfig.cmake
  INSTALL_DESTINATION ${K7M_CONFIG_DIR}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/k7mConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(
  FILES ${CMAKE_CURRENT_BINARY_DIR}/k7mConfig.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/k7mConfigVersion.cmake
  DESTINATION ${K7M_CONFIG_DIR}
  COMPONENT dev)

# The file finds the others from where it lies itself, so that the whole can be moved.
file(RELATIVE_PATH K7M_PREFIX_FROM_PKGCONFIG /prefix/${K7M_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" K7M_PREFIX_FROM_PKGCONFIG "${K7M_PREFIX_FROM_PKGCONFIG}")
configure_file(cmake/k7m.pc.in ${CMAKE_CURRENT_BINARY_DIR}/k7m.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/k7m.pc DESTINATION ${K7M_PKGCONFIG_DIR} COMPONENT dev)

install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION ${K7M_DOC_DIR} COMPONENT dev)
install(DIRECTORY docs/ DESTINATION ${K7M_DOC_DIR}/docs COMPONENT dev FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples/ DESTINATION ${K7M_DOC_DIR}/examples COMPONENT dev
        FILES_MATCHING PATTERN "*.[ch]")

if(K7M_BUILD_TOOLS)
  install(TARGETS k7m-tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(DIRECTORY tools/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  set(completions ${CMAKE_CURRENT_SOURCE_DIR}/tools/completions)
  install(FILES ${completions}/k7m.bash RENAME k7m COMPONENT tools
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${completions}/_k7m COMPONENT tools
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${completions}/k7m.fish COMPONENT tools
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()
