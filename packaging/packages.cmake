# Debian packages of what is installed, one for each part; scripts/package makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tarsil)
set(CPACK_PACKAGE_VENDOR "Tarsil developers")
set(CPACK_PACKAGE_CONTACT "Tarsil developers <developers@tarsil.example>")
# Each package has a summary of its own, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL tool dev udev doc)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# What Debian wants in every package, and in places of its own.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian/finish.cmake)
set(CPACK_TARSIL_DEBIAN_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}/debian)

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME tarsil)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS tarsil-udev)
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS "tarsil-doc, gnuplot-nox")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "tools for the Tarsil sensor glove
Finds gloves, shows their data live, records sessions and plays them back, and
checks the joint sensors. Looks at, mends, converts and draws recordings. With
a virtual glove, to try it without hardware.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtarsil-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# What the package configurations for other builds ask for.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libcurl4-openssl-dev (>= 7.85) | libcurl4-gnutls-dev (>= 7.85)")
set(CPACK_DEBIAN_DEV_DESCRIPTION "device library for the Tarsil sensor glove - development files
The C++ library on which the tools are built: sources of frames from a glove,
a recording or without either, recording, and the health analysis.")

set(CPACK_DEBIAN_UDEV_PACKAGE_NAME tarsil-udev)
set(CPACK_DEBIAN_UDEV_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_UDEV_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_UDEV_PACKAGE_DEPENDS udev)
set(CPACK_DEBIAN_UDEV_DESCRIPTION "access to the Tarsil sensor glove without being root
A device rule that gives serial ports over USB to whoever is logged in, keeps
modem managers away from them, and sets adapters to low latency.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME tarsil-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_DESCRIPTION "documentation of the Tarsil sensor glove's tools and library
The wire protocol, the recording formats, the health check, what to do when
something does not work, how the library works inside, and examples.")

if(BUILD_SHARED_LIBS)
  list(APPEND CPACK_COMPONENTS_ALL library)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libtarsil${TARSIL_INTERFACE_VERSION})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "device library for the Tarsil sensor glove
What programs need that are linked with the shared library.")
  string(PREPEND CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${PROJECT_VERSION}), ")
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  # The package's name changes with the interface; no later version of it has less.
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
  # The trigger is all that it takes. Scripts that call ldconfig as well come with every library unless there are others:
  # these names stand for no files.
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers
    ${CMAKE_CURRENT_LIST_DIR}/debian/none/postinst ${CMAKE_CURRENT_LIST_DIR}/debian/none/postrm)
endif()

include(CPack)
