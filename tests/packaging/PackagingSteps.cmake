# SPDX-License-Identifier: MIT
# Steps shared by the packaging tests (cmake -P scripts).

# run_step(<what> <command...>): runs the command, fails the test with its
# output when it exits non-zero; the standard output is left in step_output.
function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  message(STATUS "${what}: ok")
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

# expect_files(<root> <relative path...>)
function(expect_files root)
  foreach(f ${ARGN})
    if(NOT EXISTS ${root}/${f})
      message(FATAL_ERROR "${root} is missing ${f}")
    endif()
  endforeach()
endfunction()

# run_installed_vorn(<bin dir>): `vorn --help` and `vorn demo` from an
# installed tree, with no library path from the environment: the
# executables must find their libraries on their own. The demo starts the
# nubra-devcloud installed beside vorn.
function(run_installed_vorn bindir)
  set(clean_env ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH NUBRA_CONFIG= QT_QPA_PLATFORM=offscreen)
  run_step("installed vorn --help" ${clean_env} ${bindir}/vorn --help)
  if(NOT step_output MATCHES "demo")
    message(FATAL_ERROR "vorn --help does not list the demo:\n${step_output}")
  endif()
  run_step("installed vorn demo" ${clean_env} ${bindir}/vorn demo)
  if(NOT step_output MATCHES "vorn demo: [0-9]+ passed, [0-9]+ skipped [^,]*, 0 failed")
    message(FATAL_ERROR "installed vorn demo did not pass:\n${step_output}")
  endif()
endfunction()

# build_and_run_consumers(<prefix> <libdir> <CMake package> <pkg-config module>):
# builds the consumer against the tree at <prefix> with find_package (glog
# deliberately not findable: it is a private dependency of the libraries)
# and with pkg-config, then runs both against the cloud CLOUD_CONFIG names.
function(build_and_run_consumers prefix libdir package module)
  set(out ${WORK_DIR}/consumers)
  run_step("configure find_package consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${out}/cmake
           -G ${GENERATOR} -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH=${prefix}
           -DCMAKE_DISABLE_FIND_PACKAGE_glog=ON -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
           -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF -DVORN_PACKAGE_NAME=${package})
  run_step("build find_package consumer" ${CMAKE_COMMAND} --build ${out}/cmake -j2)

  set(pkg_config ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/${libdir}/pkgconfig pkg-config)
  run_step("pkg-config flags" ${pkg_config} --cflags --libs ${module})
  separate_arguments(flags UNIX_COMMAND "${step_output}")
  run_step("pkg-config libdir" ${pkg_config} --variable=libdir ${module})
  string(STRIP "${step_output}" pc_libdir)
  # Qt 5 is built with reduced relocations: its users compile with -fPIC.
  run_step("build pkg-config consumer" ${CXX} -std=c++17 -fPIC ${CONSUMER_DIR}/main.cpp ${flags}
           -Wl,-rpath,${pc_libdir} -o ${out}/pkgconfig-consumer)

  foreach(consumer cmake/consumer pkgconfig-consumer)
    run_step("run ${consumer}" ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH NUBRA_CONFIG=${CLOUD_CONFIG}
             ${out}/${consumer})
    message(STATUS "${consumer} said:\n${step_output}")
    if(NOT step_output MATCHES "fetchCountries: 0")
      message(FATAL_ERROR "${consumer} did not get the cloud's answer")
    endif()
  endforeach()
endfunction()

# build_and_run_example(<prefix>): builds the Vorn Companion example
# (EXAMPLE_DIR) on its own against the tree at <prefix>, as an application
# developer would, checks that it uses the installed helper library and runs
# `vorn-companion --help` with it.
function(build_and_run_example prefix)
  set(out ${WORK_DIR}/example)
  run_step("configure the example" ${CMAKE_COMMAND} -S ${EXAMPLE_DIR} -B ${out} -G ${GENERATOR}
           -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH=${prefix} -DQT_MAJOR_VERSION=${QT_MAJOR_VERSION}
           -DCMAKE_DISABLE_FIND_PACKAGE_glog=ON -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
           -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF)
  run_step("build the example" ${CMAKE_COMMAND} --build ${out} -j2)
  run_step("libraries of the example" ldd ${out}/vorn-companion)
  if(NOT step_output MATCHES "libVornNubraHelper[^\n]* => ${prefix}/")
    message(FATAL_ERROR "vorn-companion does not use the installed helper library:\n${step_output}")
  endif()
  run_step("run the example" ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH QT_QPA_PLATFORM=offscreen
           ${out}/vorn-companion --help)
  if(NOT step_output MATCHES "Vorn Companion")
    message(FATAL_ERROR "vorn-companion --help said:\n${step_output}")
  endif()
endfunction()
