# Debian packages of a release, made by CPack from the install rules (make package):
#
#   libzuvero1      the shared library
#   libzuvero-dev   its headers, the CMake package and the pkg-config file
#   zuvero-tools    zuvero-devserver, zuvero-cli and zuvero-demo
#
# The library's rules name their components (src/CMakeLists.txt); every other
# install rule of the project (the dev server's, the CLI's, the demo's) names
# none and falls in "tools" (CMAKE_INSTALL_DEFAULT_COMPONENT_NAME, set before
# their directories), so a new program needs only its install(TARGETS ...) line.
# Included from the top level once the library target exists.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zuvero)
set(CPACK_PACKAGE_VENDOR Zuvero)
set(CPACK_PACKAGE_CONTACT "Zuvero developers <dev@zuvero.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Debug information stays in the build tree: the packages carry what runs.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${PROJECT_HOMEPAGE_URL}")
# What the binaries link to becomes Depends; the components' own order is added to it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# The tools link to the library of this very build, which no installed package holds yet.
get_target_property(zuvero_library_dir Zuvero BINARY_DIR)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${zuvero_library_dir}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "libzuvero${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzuvero-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# find_package(Zuvero) and pkg-config look for Qt's own development files.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "qt6-base-dev (>= 6.4)")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zuvero-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)

include(CPack)

cpack_add_component(runtime
    DISPLAY_NAME "Zuvero library"
    DESCRIPTION "The Zuvero customer-messaging library for Qt 6 applications.")
cpack_add_component(development
    DISPLAY_NAME "Zuvero development files"
    DESCRIPTION "Headers, CMake package and pkg-config file of the Zuvero library."
    DEPENDS runtime)
cpack_add_component(tools
    DISPLAY_NAME "Zuvero tools"
    DESCRIPTION "zuvero-devserver (a local chat server), zuvero-cli and the zuvero-demo application."
    DEPENDS runtime)
