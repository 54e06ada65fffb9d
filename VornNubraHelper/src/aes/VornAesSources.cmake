# Sources of the AES implementations, usable by the helper library and by
# stand-alone targets (fuzzing). The AES-NI file alone gets the instruction
# set flags; the choice to run it is made at run time (cpuid).
set(VORN_AES_DIR ${CMAKE_CURRENT_LIST_DIR})
set(VORN_AES_SOURCES
  ${VORN_AES_DIR}/AesImplementation.h
  ${VORN_AES_DIR}/AesImplementation.cpp
  ${VORN_AES_DIR}/AesKeySchedule.cpp
  ${VORN_AES_DIR}/AesModes.cpp
  ${VORN_AES_DIR}/AesConstantTime.cpp
  ${VORN_AES_DIR}/AesNi.cpp)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|amd64|i[3-6]86"
   AND CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  set_source_files_properties(${VORN_AES_DIR}/AesNi.cpp PROPERTIES COMPILE_OPTIONS "-maes;-msse4.1")
endif()
