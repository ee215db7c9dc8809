# SPDX-License-Identifier: GPL-3.0-or-later
# lf_library(<folder> SOURCES ... [PUBLIC libs...] [PRIVATE libs...]): one folder of src/ as one static library, lf_<folder>.
# With QT the library's QObjects get their meta-object code.
function(lf_library folder)
  cmake_parse_arguments(ARG "QT" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(lf_${folder} STATIC ${ARG_SOURCES})
  target_include_directories(lf_${folder} PUBLIC "${CMAKE_SOURCE_DIR}/src")
  target_link_libraries(lf_${folder} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
  if(ARG_QT)
    set_target_properties(lf_${folder} PROPERTIES AUTOMOC ON)
    target_compile_definitions(lf_${folder} PRIVATE QT_NO_CAST_FROM_ASCII QT_NO_FOREACH
                                                    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
  endif()
endfunction()

# What the sanitizer run builds.
add_custom_target(fast-tests)

# lf_test(<name> SOURCES ... LIBS ... [LABELS ...] [PRIVATE_BUS] [TIMEOUT seconds]): a GoogleTest program.
# The label "fast" puts it into the sanitizer run too. Each program is one ctest entry, run in an environment of its own;
# with PRIVATE_BUS it runs under dbus-run-session.
function(lf_test name)
  cmake_parse_arguments(ARG "PRIVATE_BUS;QT;OWN_MAIN" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/src" "${CMAKE_SOURCE_DIR}/tests")
  if(ARG_OWN_MAIN)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock)
  else()
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main GTest::gmock)
  endif()
  if(ARG_QT)
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
  endif()
  if("fast" IN_LIST ARG_LABELS)
    add_dependencies(fast-tests ${name})
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  if(ARG_PRIVATE_BUS)
    add_test(NAME ${name} COMMAND dbus-run-session -- $<TARGET_FILE:${name}>)
  else()
    add_test(NAME ${name} COMMAND ${name})
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}"
    ENVIRONMENT "TZ=Europe/Berlin;QT_QPA_PLATFORM=offscreen;LC_ALL=C.UTF-8;LF_TEST_DATA=${CMAKE_SOURCE_DIR}/tests/data;LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp")
endfunction()
