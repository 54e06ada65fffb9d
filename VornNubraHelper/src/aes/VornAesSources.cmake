# SPDX-License-Identifier: MIT
# Sources of the AES implementations, usable by the helper library and by
# stand-alone targets (fuzzing). No file needs instruction-set flags: the
# AES-NI functions carry their own target attribute, and the choice to run
# them is made at run time (cpuid).
set(VORN_AES_DIR ${CMAKE_CURRENT_LIST_DIR})
set(VORN_AES_SOURCES
  ${VORN_AES_DIR}/AesImplementation.h
  ${VORN_AES_DIR}/AesImplementation.cpp
  ${VORN_AES_DIR}/AesKeySchedule.cpp
  ${VORN_AES_DIR}/AesModes.cpp
  ${VORN_AES_DIR}/AesConstantTime.cpp
  ${VORN_AES_DIR}/AesNi.cpp)
