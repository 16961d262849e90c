# What `cmake --install` installs, and where. The layout is relocatable: the tool finds its parts relative to itself.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(platform_dir ${CMAKE_INSTALL_LIBDIR}/kestrel-platform)

install(
  TARGETS OVKKestrel
  EXPORT OVKKestrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(FILES include/OVKKestrel.h include/OVKKestrelCodes.def include/KestrelPlatform.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

install(
  TARGETS kestrel_platform_opencl kestrel_platform_opencl_c kestrel_platform_zcc kestrel_platform_qrl
  LIBRARY DESTINATION ${platform_dir} COMPONENT platform)
# The layer for programs under the debugger, which is loaded by path.
install(TARGETS kestrel_layer LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/kestrel COMPONENT tool)
# For OCL_ICD_VENDORS: makes a loader of OpenCL drivers find this platform and no other driver. It holds the configured path,
# since loaders need an absolute one; whoever moves the tree has to change this line.
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/installed/kestrel.icd
     CONTENT "${CMAKE_INSTALL_FULL_LIBDIR}/kestrel-platform/libOpenCL.so.1\n" @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/installed/kestrel.icd DESTINATION ${CMAKE_INSTALL_DATADIR}/kestrel/vendors
        COMPONENT platform)

install(TARGETS kestrel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
execute_process(COMMAND gzip -9n INPUT_FILE ${CMAKE_SOURCE_DIR}/docs/kestrel.1
                OUTPUT_FILE ${CMAKE_BINARY_DIR}/installed/kestrel.1.gz)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS docs/kestrel.1)
install(FILES ${CMAKE_BINARY_DIR}/installed/kestrel.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
set(completions ${CMAKE_BINARY_DIR}/completions)
install(FILES ${completions}/kestrel.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kestrel
        COMPONENT tool)
install(FILES ${completions}/kestrel.zsh DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions RENAME _kestrel
        COMPONENT tool)
install(FILES ${completions}/kestrel.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tool)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/kestrel COMPONENT tool
        PATTERN CMakeLists.txt EXCLUDE)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool PATTERN kestrel.1 EXCLUDE)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)

# For clients: find_package(OVKKestrel), and pkg-config.
install(EXPORT OVKKestrelTargets NAMESPACE OVKKestrel:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OVKKestrel
        COMPONENT development)
configure_package_config_file(cmake/OVKKestrelConfig.cmake.in ${CMAKE_BINARY_DIR}/installed/OVKKestrelConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OVKKestrel)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/installed/OVKKestrelConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/installed/OVKKestrelConfig.cmake
              ${CMAKE_BINARY_DIR}/installed/OVKKestrelConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OVKKestrel COMPONENT development)
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(cmake/OVKKestrel.pc.in ${CMAKE_BINARY_DIR}/installed/OVKKestrel.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/installed/OVKKestrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

# Debian packages: cpack -G DEB.
include(${CMAKE_CURRENT_LIST_DIR}/Packages.cmake)
