# SPDX-License-Identifier: MIT
# cmake -P script: install into a scratch prefix, run the installed vorn,
# check what the libraries export, then build and run the consumer with
# find_package and with pkg-config, and the example application on its own.
include(${CMAKE_CURRENT_LIST_DIR}/PackagingSteps.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
# The names of this build's Qt (the Qt 6 ones carry the Qt major version).
expect_files(${prefix}
  ${INCLUDEDIR}/VornNubraHelper/VornNubraHelper.h
  ${INCLUDEDIR}/VornNubraHelper/VornNubraHelperExport.h
  ${INCLUDEDIR}/VornNubraHelper/VornNubraHelperVersion.h
  ${INCLUDEDIR}/Nubra/Manager.h
  ${INCLUDEDIR}/Nubra/NubraExport.h
  ${LIBDIR}/cmake/${PACKAGE_NAME}/${PACKAGE_NAME}Config.cmake
  ${LIBDIR}/cmake/${PACKAGE_NAME}/${PACKAGE_NAME}ConfigVersion.cmake
  ${LIBDIR}/pkgconfig/VornNubraHelper${QT_SUFFIX}.pc
  ${LIBDIR}/pkgconfig/nubra${QT_SUFFIX}.pc
  share/doc/VornNubraHelper${QT_SUFFIX}/LICENSE
  share/doc/VornNubraHelper${QT_SUFFIX}/CHANGELOG.md)

if(TOOLS_INSTALLED)
  run_installed_vorn(${prefix}/${BINDIR})
elseif(EXISTS ${prefix}/${BINDIR}/vorn)
  message(FATAL_ERROR "bin/vorn is installed by a build that leaves the tools to the Qt 5 build")
endif()

# Only the public API leaves the shared libraries: every exported symbol
# belongs to a public class or function, or is a template instance of the
# standard library or of Qt's meta-type system (vague linkage keeps those
# visible; Qt 6's converter registration adds unique guard variables).
function(expect_public_exports name allowed)
  run_step("exported symbols of lib${name}" nm -DC --defined-only ${prefix}/${LIBDIR}/lib${name}${QT_SUFFIX}.so)
  string(REPLACE "\n" ";" symbols "${step_output}")
  set(count 0)
  foreach(line ${symbols})
    string(REGEX REPLACE "^[0-9a-f]* *[A-Za-z] " "" symbol "${line}")
    string(REGEX REPLACE "^(vtable|typeinfo|typeinfo name|guard variable) for " "" symbol "${symbol}")
    if(NOT symbol MATCHES "^(${allowed})" AND NOT symbol MATCHES "^([a-z]+ )?(std|QMetaType|QMetaSequence|QtPrivate)::")
      message(FATAL_ERROR "lib${name} exports an internal symbol: ${line}")
    endif()
    math(EXPR count "${count} + 1")
  endforeach()
  message(STATUS "lib${name}: ${count} exported symbols, all public")
endfunction()
expect_public_exports(nubra "Nubra::(Manager|Reply|Error)($|::)")
expect_public_exports(VornNubraHelper
  "(VornNubraHelper|VornNubraHelperRespWatcher|AESEncryption|EDData)($|::)|NubraCommon::(createInterfaceMap|userLoginSource)")

build_and_run_consumers(${prefix} ${LIBDIR} ${PACKAGE_NAME} VornNubraHelper${QT_SUFFIX})

if(EXAMPLE_DIR)
  build_and_run_example(${prefix})
endif()
