# Four Debian packages, one component each: the library, what is needed to build against it, the software platform, the tool. scripts/package makes
# and checks them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Kestrel's developers <maintainers@kestrel.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_COMPONENTS_ALL library development platform tool)
set(debian ${CMAKE_CURRENT_LIST_DIR}/debian)

execute_process(COMMAND ${debian}/changelog.sh ${CMAKE_SOURCE_DIR}/CHANGELOG.md ${PROJECT_VERSION} ${CPACK_PACKAGE_CONTACT}
                COMMAND gzip -9n OUTPUT_FILE ${CMAKE_BINARY_DIR}/installed/changelog.gz)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)


# A package of one component, with the documents that every package must have: the changes, and the licence, which the owner
# hasn't chosen yet, as its text says.
#   depends  dependencies besides the shared libraries that its programs name
macro(kestrel_package component name section depends summary text)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${text}")
  install(FILES ${debian}/copyright ${CMAKE_BINARY_DIR}/installed/changelog.gz
          DESTINATION share/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

kestrel_package(
  library libovkkestrel1 libs "" "single-steps OpenCL kernels (library)"
  "Debugger front ends open a session on a kernel launch and read, at each
stop, the program counter, the execution mask, and every register and byte
of memory of every work-item.")
kestrel_package(
  development libovkkestrel-dev libdevel "libovkkestrel1 (= ${PROJECT_VERSION}), opencl-c-headers"
  "single-steps OpenCL kernels (development files)"
  "Header, link, pkg-config file and CMake package of the library.")
kestrel_package(
  platform kestrel-platform libs "" "OpenCL platform in software, for debugging kernels"
  "An OpenCL 1.2 runtime, a compiler for OpenCL C and IL, and a wide
interpreter, so that kernels run and are debugged on machines without a GPU.
An OpenCL loader finds it by OCL_ICD_VENDORS.")
kestrel_package(
  tool kestrel devel "libovkkestrel1 (= ${PROJECT_VERSION}), kestrel-platform (= ${PROJECT_VERSION})"
  "single-steps OpenCL kernels (command line)"
  "Debugs the launch of an OpenCL kernel at a prompt or by a script, over the
whole dispatch and in both directions.")

# Installing the library updates the loader's cache.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${debian}/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
install(FILES ${debian}/libovkkestrel1.lintian DESTINATION share/lintian/overrides RENAME libovkkestrel1
        COMPONENT library EXCLUDE_FROM_ALL)

include(CPack)
