# SPDX-License-Identifier: MIT
# Per-target build settings: warnings and sanitizers are applied to our own
# targets only, never forced on consumers through global flags.

function(vorn_target_defaults target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic
                                             -Wnon-virtual-dtor -Woverloaded-virtual)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      target_compile_options(${target} PRIVATE -Wshadow=local)
    endif()
    if(VORN_WERROR)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
  endif()
  if(VORN_SANITIZE)
    # -fno-sanitize=enum: the application hands enumerators over as plain
    # numbers and the library must answer unknown ones (an unknown cipher
    # mode, catalogue value, ...); tests pass such values on purpose.
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-omit-frame-pointer
                                             -fno-sanitize-recover=undefined -fno-sanitize=enum)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
endfunction()

# A test executable registered with CTest under the given labels.
#   vorn_add_test(NAME name SOURCES ... LIBS ... LABELS ... [FIXTURES ...] [TIMEOUT s])
function(vorn_add_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS;FIXTURES;ENV" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS})
  vorn_target_defaults(${T_NAME})
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}" TIMEOUT ${T_TIMEOUT})
  set(env "QT_QPA_PLATFORM=offscreen" "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp"
          ${T_ENV})
  set_tests_properties(${T_NAME} PROPERTIES ENVIRONMENT "${env}")
  if(T_FIXTURES)
    set_tests_properties(${T_NAME} PROPERTIES FIXTURES_REQUIRED "${T_FIXTURES}")
  endif()
endfunction()
