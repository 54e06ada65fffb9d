# SPDX-License-Identifier: MIT
# The API reference: Doxygen over the public headers of the helper and the
# client. `cmake --build build --target docs` writes build/docs/api/html;
# every warning (an undocumented class, function, signal or enumerator, a
# broken reference) fails the build.
find_package(Doxygen 1.9)
if(NOT DOXYGEN_FOUND)
  message(STATUS "doxygen not found: no docs target (scripts/bootstrap installs it)")
  return()
endif()

set(DOXYGEN_PROJECT_NAME "VornNubraHelper")
set(DOXYGEN_PROJECT_NUMBER ${PROJECT_VERSION})
set(DOXYGEN_PROJECT_BRIEF "Blocking calls to the Vorn cloud for Qt applications, and the cloud client under them")
set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs/api)
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/docs/api-reference.md)
set(DOXYGEN_WARN_AS_ERROR YES)
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
set(DOXYGEN_WARN_IF_INCOMPLETE_DOC YES)
set(DOXYGEN_EXTRACT_ALL NO)
set(DOXYGEN_EXTRACT_PRIVATE NO)
set(DOXYGEN_HIDE_UNDOC_RELATIONS YES)
set(DOXYGEN_HAVE_DOT NO)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_GENERATE_LATEX NO)
set(DOXYGEN_SORT_MEMBER_DOCS NO)
set(DOXYGEN_SHOW_INCLUDE_FILES YES)
# Include lines as an application writes them: <VornNubraHelper.h>, <Nubra/Manager.h>.
set(DOXYGEN_STRIP_FROM_INC_PATH
  ${PROJECT_SOURCE_DIR}/VornNubraHelper/src
  ${PROJECT_BINARY_DIR}/VornNubraHelper/include
  ${PROJECT_SOURCE_DIR}/nubra/include)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
# Qt's and our export macros mean nothing to the reader.
set(DOXYGEN_ENABLE_PREPROCESSING YES)
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED
  "NUBRA_EXPORT=" "VORN_NUBRA_HELPER_EXPORT=" "Q_OBJECT=" "Q_GADGET=" "Q_ENUM(x)=" "Q_DECLARE_METATYPE(x)="
  "Q_SLOTS=slots" "Q_SIGNALS=signals")

doxygen_add_docs(docs
  ${PROJECT_SOURCE_DIR}/docs/api-reference.md
  ${PROJECT_SOURCE_DIR}/VornNubraHelper/src/VornNubraHelper.h
  ${PROJECT_SOURCE_DIR}/VornNubraHelper/src/VornNubraHelperRespWatcher.h
  ${PROJECT_SOURCE_DIR}/VornNubraHelper/src/NubraCommon.h
  ${PROJECT_SOURCE_DIR}/VornNubraHelper/src/AESEncryption.h
  ${PROJECT_SOURCE_DIR}/VornNubraHelper/src/eddata.h
  ${PROJECT_BINARY_DIR}/VornNubraHelper/include/VornNubraHelperVersion.h
  ${PROJECT_SOURCE_DIR}/nubra/include/Nubra/Manager.h
  ${PROJECT_SOURCE_DIR}/nubra/include/Nubra/Reply.h
  ${PROJECT_SOURCE_DIR}/nubra/include/Nubra/Error.h
  COMMENT "API reference (Doxygen) in ${PROJECT_BINARY_DIR}/docs/api/html")
