# SPDX-License-Identifier: MIT
# Qt 5.15 (the default) or Qt 6 from the same source: -DQT_MAJOR_VERSION=6.
# Every target links Qt${QT_MAJOR_VERSION}::<Module>, also in the installed
# CMake package, so that an application's own Qt choice is never mixed up.
set(QT_MAJOR_VERSION 5 CACHE STRING "Qt major version to build against (5 or 6)")
set_property(CACHE QT_MAJOR_VERSION PROPERTY STRINGS 5 6)
if(QT_MAJOR_VERSION STREQUAL "5")
  set(VORN_QT_MIN_VERSION 5.15)
elseif(QT_MAJOR_VERSION STREQUAL "6")
  set(VORN_QT_MIN_VERSION 6.2)
else()
  message(FATAL_ERROR "QT_MAJOR_VERSION must be 5 or 6, not '${QT_MAJOR_VERSION}'")
endif()

# Installed names, so that a Qt 5 and a Qt 6 build install side by side into
# one prefix (as Qt6Keychain and QCoro6 do). The Qt 5 build keeps the names
# applications already use; a Qt 6 build carries the Qt major version in
# every name (README.md, "Qt 5 and Qt 6"):
#
#                       Qt 5                      Qt 6
#   libraries           libnubra.so               libnubra-qt6.so
#                       libVornNubraHelper.so     libVornNubraHelper-qt6.so
#   CMake package       VornNubraHelper           VornNubraHelperQt6
#   pkg-config          nubra, VornNubraHelper    nubra-qt6, VornNubraHelper-qt6
#   headers             include/{Nubra,VornNubraHelper}/
#                                                 include/VornNubraHelper-qt6/{Nubra,VornNubraHelper}/
#   documentation       share/doc/VornNubraHelper share/doc/VornNubraHelper-qt6
#   tools (vorn, nubra-devcloud)  installed       not installed (VORN_INSTALL_TOOLS)
#
# The imported targets are Vorn::NubraHelper and Vorn::Nubra in both.
if(QT_MAJOR_VERSION STREQUAL "5")
  set(VORN_QT_SUFFIX "")
  set(VORN_PACKAGE_NAME VornNubraHelper)
  set(VORN_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
  set(VORN_INSTALL_TOOLS_DEFAULT ON)
else()
  set(VORN_QT_SUFFIX "-qt${QT_MAJOR_VERSION}")
  set(VORN_PACKAGE_NAME VornNubraHelperQt${QT_MAJOR_VERSION})
  set(VORN_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/VornNubraHelper${VORN_QT_SUFFIX})
  set(CMAKE_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/VornNubraHelper${VORN_QT_SUFFIX})
  # One vorn and one nubra-devcloud per system: the Qt 5 build's.
  set(VORN_INSTALL_TOOLS_DEFAULT OFF)
endif()
option(VORN_INSTALL_TOOLS "Install vorn and nubra-devcloud" ${VORN_INSTALL_TOOLS_DEFAULT})
