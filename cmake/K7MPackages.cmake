# Debian packages, by scripts/package: libk7m0, libk7m-dev and k7m-tools.
set(K7M_PACKAGE_CONTACT "libK7M maintainers <maintainers@libk7m.example.org>"
    CACHE STRING "Who answers for the packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libk7m)
set(CPACK_PACKAGE_VENDOR "libK7M maintainers")
set(CPACK_PACKAGE_CONTACT ${K7M_PACKAGE_CONTACT})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# For packages of programs that link libK7M.so: this version and later ones will do.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The first line of a component's description is its summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")

set(runtime libk7m${K7M_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "reads and writes K7M media files - shared library
libK7M reads and writes media files in the K7M container, a member of the
ISO base media file family, and in its fragmented variant K7R. All input and
output passes through callbacks of the program that uses it.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libk7m-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_DEV_DESCRIPTION "reads and writes K7M media files - development files
Headers, the static library, files for CMake and pkg-config, documentation
and example programs of libK7M, which reads and writes media files in the
K7M container.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME k7m-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "looks into K7M media files, checks and copies them
The program k7m shows what is in media files of the K7M container and its
fragmented variant K7R, lists and extracts their samples, checks them,
copies them, and makes, mends, continues and serves fragmented ones.")

# Read by the script that adds what Debian asks for to the staged files.
set(CPACK_K7M_PACKAGES "runtime=${runtime};dev=libk7m-dev;tools=k7m-tools")
set(CPACK_K7M_STRIP ${CMAKE_STRIP})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/K7MDebianFiles.cmake)
include(CPack)
