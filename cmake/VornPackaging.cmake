# SPDX-License-Identifier: MIT
# Debian packages built by CPack from the install components:
#
#   component       package                   contents
#   nubra_runtime   libnubra1                 libnubra.so.1
#   helper_runtime  libvornnubrahelper1       libVornNubraHelper.so.1
#   dev             libvornnubrahelper-dev    headers, link names, CMake package, pkg-config files, docs
#   vorn            vorn                      the command-line tool (and its man page)
#   devcloud        nubra-devcloud            the local development cloud
#
#   cd build && cpack -G DEB        (docs/packaging.md)
#
# Dependencies on system libraries come from dpkg-shlibdeps; those between
# our own packages from the component dependencies below (exact version).

set(VORN_DEB_COMPONENTS nubra_runtime helper_runtime dev vorn devcloud)
set(VORN_DEB_PACKAGES libnubra1 libvornnubrahelper1 libvornnubrahelper-dev vorn nubra-devcloud)

# Every package carries its copyright and change log under
# /usr/share/doc/<package>, as Debian requires. They are only installed by
# component installs (CPack), not into a plain prefix, which has LICENSE and
# CHANGELOG.md under share/doc/VornNubraHelper.
set(VORN_DEB_DOC_DIR ${PROJECT_BINARY_DIR}/packaging)
file(READ ${PROJECT_SOURCE_DIR}/LICENSE _license)
string(REGEX REPLACE "^.*Copyright \\(c\\) ([^\n]*)\n\n" "" _license_terms "${_license}")
string(REGEX MATCH "Copyright \\(c\\) ([^\n]*)" _ "${_license}")
set(_copyright_holder "${CMAKE_MATCH_1}")
string(REGEX REPLACE "\n+$" "" _license_terms "${_license_terms}")
string(REPLACE "\n\n" "\n.\n" _license_terms "${_license_terms}")
string(REPLACE "\n" "\n " _license_terms " ${_license_terms}")
file(WRITE ${VORN_DEB_DOC_DIR}/copyright
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: ${PROJECT_NAME}

Files: *
Copyright: ${_copyright_holder}
License: Expat
${_license_terms}
")

# The Debian change log points to CHANGELOG.md; its date is the release
# date CHANGELOG.md gives for this version.
file(STRINGS ${PROJECT_SOURCE_DIR}/CHANGELOG.md _release REGEX "^## \\[${PROJECT_VERSION}\\] - ")
string(REGEX MATCH "[0-9]+-[0-9]+-[0-9]+" _release_date "${_release}")
if(NOT _release_date)
  message(FATAL_ERROR "CHANGELOG.md has no entry for version ${PROJECT_VERSION}")
endif()
execute_process(COMMAND date -u -R -d "${_release_date}" OUTPUT_VARIABLE _release_date_rfc
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(VORN_DEB_MAINTAINER "Vorn Nubra Helper authors <packages@vorn.example>")

include(CPackComponent)
foreach(component package IN ZIP_LISTS VORN_DEB_COMPONENTS VORN_DEB_PACKAGES)
  file(WRITE ${VORN_DEB_DOC_DIR}/${package}/changelog
"${package} (${PROJECT_VERSION}) unstable; urgency=medium

  * Release ${PROJECT_VERSION}; the changes are listed in
    /usr/share/doc/VornNubraHelper/CHANGELOG.md (libvornnubrahelper-dev).

 -- ${VORN_DEB_MAINTAINER}  ${_release_date_rfc}
")
  execute_process(COMMAND gzip -9nf ${VORN_DEB_DOC_DIR}/${package}/changelog COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${VORN_DEB_DOC_DIR}/copyright ${VORN_DEB_DOC_DIR}/${package}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
          COMPONENT ${component} EXCLUDE_FROM_ALL)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vorn-nubra-helper)
set(CPACK_PACKAGE_VENDOR "the Vorn Nubra Helper authors")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${VORN_DEB_MAINTAINER}")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${VORN_DEB_COMPONENTS})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${VORN_DEB_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Our own libraries are found in the build tree; dpkg-shlibdeps finds no
# package for them and leaves them out (the component dependencies add them).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Shared-library packages refresh the linker cache through dpkg's ldconfig
# trigger (CPack's own maintainer scripts call ldconfig as well).
file(WRITE ${VORN_DEB_DOC_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_NUBRA_RUNTIME_PACKAGE_CONTROL_EXTRA ${VORN_DEB_DOC_DIR}/triggers)
set(CPACK_DEBIAN_HELPER_RUNTIME_PACKAGE_CONTROL_EXTRA ${VORN_DEB_DOC_DIR}/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

cpack_add_component(nubra_runtime
  DISPLAY_NAME "libnubra1"
  DESCRIPTION "Vorn cloud client library
libnubra is the open cloud client under the Vorn Nubra Helper: named requests
over HTTP through libcurl's multi interface and MQTT through libmosquitto,
driven by the Qt event loop, with TLS verification, time-outs, resumable
downloads and upload queues.")
cpack_add_component(helper_runtime
  DISPLAY_NAME "libvornnubrahelper1"
  DEPENDS nubra_runtime
  DESCRIPTION "Blocking calls to the Vorn cloud for Qt applications
libVornNubraHelper gives a Qt application one process-wide object whose calls
name a cloud request, block in a local event loop while the user interface
stays alive, and return a result code and the answer: catalogue requests,
user accounts, cloud disk, message subscription, automatic upgrade, file
download and protected data.")
cpack_add_component(dev
  DISPLAY_NAME "libvornnubrahelper-dev"
  DEPENDS helper_runtime nubra_runtime
  DESCRIPTION "Vorn Nubra Helper and cloud client - development files
Headers, link names, the CMake package (find_package(VornNubraHelper)),
pkg-config files (VornNubraHelper, nubra) and the documentation of
libVornNubraHelper and libnubra.")
cpack_add_component(vorn
  DISPLAY_NAME "vorn"
  DEPENDS helper_runtime
  DESCRIPTION "Command-line tool for the Vorn cloud
vorn runs the Vorn Nubra Helper's calls from a terminal or a script (--json):
sign in, catalogue and account requests, cloud disk, messages, upgrades and
protected data. vorn demo is a guided tour of the library against a local
cloud started from nubra-devcloud.")
cpack_add_component(devcloud
  DISPLAY_NAME "nubra-devcloud"
  DESCRIPTION "Local development cloud for the Vorn cloud client
nubra-devcloud serves the cloud's API, files and messages on loopback, with
demo data and fault injection, for development and tests. It starts its own
mosquitto broker.")

set(CPACK_DEBIAN_NUBRA_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_HELPER_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_VORN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_DEVCLOUD_PACKAGE_SECTION devel)
# The CMake package asks for Qt Core and Network (find_dependency).
if(QT_MAJOR_VERSION STREQUAL "6")
  set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qt6-base-dev (>= ${VORN_QT_MIN_VERSION})")
else()
  set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qtbase5-dev (>= ${VORN_QT_MIN_VERSION})")
endif()
# vorn demo starts the dev cloud.
set(CPACK_DEBIAN_VORN_PACKAGE_RECOMMENDS nubra-devcloud)
# The dev cloud starts a mosquitto broker and reads the ISO country list.
set(CPACK_DEBIAN_DEVCLOUD_PACKAGE_DEPENDS "mosquitto, iso-codes")

include(CPack)
