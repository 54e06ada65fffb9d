# SPDX-License-Identifier: MIT
# cmake -P script: build the Debian packages with CPack, check them with
# lintian (no errors allowed; docs/packaging.md lists the warnings kept),
# extract them into a scratch root with dpkg-deb, run the extracted vorn
# from there, and build and run the consumer against the extracted
# development files.
include(${CMAKE_CURRENT_LIST_DIR}/PackagingSteps.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
set(debs ${WORK_DIR}/debs)
set(root ${WORK_DIR}/root)

run_step("cpack" ${CMAKE_COMMAND} -E chdir ${BUILD_DIR} cpack -G DEB -B ${debs})
set(packages libnubra1 libvornnubrahelper1 libvornnubrahelper-dev vorn nubra-devcloud)
set(files)
foreach(p ${packages})
  file(GLOB deb ${debs}/${p}_*.deb)
  if(NOT deb)
    message(FATAL_ERROR "cpack made no package ${p}")
  endif()
  list(APPEND files ${deb})
  run_step("contents of ${p}" dpkg-deb --contents ${deb})
  if(NOT step_output MATCHES "/usr/share/doc/${p}/copyright")
    message(FATAL_ERROR "${p} has no copyright file")
  endif()
  run_step("dependencies of ${p}" dpkg-deb --field ${deb} Depends)
  set(depends_${p} "${step_output}")
endforeach()
# Computed from the binaries (dpkg-shlibdeps) and from our own packages.
foreach(check "libnubra1:libcurl4" "libvornnubrahelper1:libnubra1 (= " "libvornnubrahelper1:libgoogle-glog"
              "vorn:libvornnubrahelper1 (= " "nubra-devcloud:libsqlite3" "libvornnubrahelper-dev:-dev (>= ")
  string(REPLACE ":" ";" check "${check}")
  list(GET check 0 p)
  list(GET check 1 expected)
  string(FIND "${depends_${p}}" "${expected}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${p} does not depend on ${expected}: ${depends_${p}}")
  endif()
endforeach()

find_program(LINTIAN lintian)
if(LINTIAN)
  execute_process(COMMAND ${LINTIAN} ${files} OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message(STATUS "lintian:\n${out}")
  if(out MATCHES "(^|\n)E: ")
    message(FATAL_ERROR "lintian reports errors")
  endif()
else()
  message(WARNING "lintian not installed (scripts/bootstrap installs it): packages not checked")
endif()

foreach(deb ${files})
  run_step("extract ${deb}" dpkg-deb -x ${deb} ${root})
endforeach()
run_installed_vorn(${root}/usr/${BINDIR})
build_and_run_consumers(${root}/usr ${LIBDIR} VornNubraHelper VornNubraHelper)
