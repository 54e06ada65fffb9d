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
# The names of this build's Qt (the Qt 6 ones carry the Qt major version).
foreach(f ${INCLUDE_DIR}/VornNubraHelper/VornNubraHelper.h ${INCLUDE_DIR}/Nubra/Manager.h
          ${LIBRARY_FILE} lib/cmake/${PACKAGE_NAME}/${PACKAGE_NAME}Config.cmake)
  if(NOT EXISTS ${WORK_DIR}/prefix/${f})
    message(FATAL_ERROR "install is missing ${f}")
  endif()
endforeach()
if(TOOLS_INSTALLED AND NOT EXISTS ${WORK_DIR}/prefix/bin/vorn)
  message(FATAL_ERROR "install is missing bin/vorn")
elseif(NOT TOOLS_INSTALLED AND EXISTS ${WORK_DIR}/prefix/bin/vorn)
  message(FATAL_ERROR "bin/vorn is installed by a build that leaves the tools to the Qt 5 build")
endif()
run_step("configure consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
         -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=Release -DVORN_PACKAGE_NAME=${PACKAGE_NAME})
run_step("build consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/build -j2)
run_step("run consumer" ${WORK_DIR}/build/consumer)
message(STATUS "consumer said:\n${step_output}")
if(NOT step_output MATCHES "fetchCountries: 0")
  message(FATAL_ERROR "the consumer did not get the cloud's answer")
endif()
