# cmake -P script: builds the Vorn Companion example on its own against the
# installed package, as an application developer would (its
# CMakeLists.txt with find_package(VornNubraHelper)), and checks that the
# program runs with the installed library.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  message(STATUS "${what}: ok")
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run_step("configure the example" ${CMAKE_COMMAND} -S ${EXAMPLE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
         -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release -DQT_MAJOR_VERSION=${QT_MAJOR_VERSION}
         -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER})
run_step("build the example" ${CMAKE_COMMAND} --build ${WORK_DIR}/build -j2)

set(program ${WORK_DIR}/build/vorn-companion)
run_step("libraries of the example" ldd ${program})
if(NOT step_output MATCHES "libVornNubraHelper[^\n]* => ${prefix}/")
  message(FATAL_ERROR "vorn-companion does not use the installed libVornNubraHelper:\n${step_output}")
endif()
run_step("run the example" ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen ${program} --help)
if(NOT step_output MATCHES "Vorn Companion")
  message(FATAL_ERROR "vorn-companion --help said:\n${step_output}")
endif()
