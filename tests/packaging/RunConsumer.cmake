# cmake -P script: install, configure + build the consumer, run it.
file(REMOVE_RECURSE ${WORK_DIR})

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  message(STATUS "${what}: ok")
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
foreach(f include/VornNubraHelper/VornNubraHelper.h include/Nubra/Manager.h
          lib/cmake/VornNubraHelper/VornNubraHelperConfig.cmake)
  if(NOT EXISTS ${WORK_DIR}/prefix/${f})
    message(FATAL_ERROR "install is missing ${f}")
  endif()
endforeach()
run_step("configure consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
         -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=Release)
run_step("build consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/build -j2)
run_step("run consumer" ${WORK_DIR}/build/consumer)
message(STATUS "consumer said:\n${step_output}")
if(NOT step_output MATCHES "fetchCountries: 0")
  message(FATAL_ERROR "the consumer did not get the cloud's answer")
endif()
