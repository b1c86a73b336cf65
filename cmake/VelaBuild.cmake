# How a room of the house is built: compiler settings and the few functions the CMakeLists use.

option(VELA_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" ON)
set(VELA_SANITIZE "" CACHE STRING "Sanitizers, as given to -fsanitize=")

add_library(vela_settings INTERFACE)
target_compile_options(vela_settings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                               -Wno-sign-conversion -Wnon-virtual-dtor)
# g++ 12 sees overlapping copies in its own std::string when it optimises; a bug of that release.
target_compile_options(vela_settings INTERFACE -Wno-restrict)
if(VELA_WARNINGS_AS_ERRORS)
  target_compile_options(vela_settings INTERFACE -Werror)
endif()
if(VELA_SANITIZE)
  target_compile_options(vela_settings INTERFACE -fsanitize=${VELA_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all)
  target_link_options(vela_settings INTERFACE -fsanitize=${VELA_SANITIZE})
  # g++ 12 warns about its own library's inlined code in instrumented builds.
  target_compile_options(vela_settings INTERFACE -Wno-maybe-uninitialized -Wno-stringop-overflow)
endif()
target_include_directories(vela_settings INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/platform>
                                                   $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/src>
                                                   $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>)

# vela_room(NAME SOURCES files... USES libraries...)
#
# One room: a static library that tests link by itself and that becomes part of libnexstore.
# USES names the rooms below it (as vela_<room>) and the third-party libraries it calls.
function(vela_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;USES" ${ARGN})
  add_library(vela_${name} STATIC ${ROOM_SOURCES})
  target_link_libraries(vela_${name} PUBLIC ${ROOM_USES} PRIVATE $<BUILD_INTERFACE:vela_settings>)
  set_property(GLOBAL APPEND PROPERTY VELA_ROOMS vela_${name})
endfunction()

# vela_test(NAME SOURCES files... USES libraries... [LABELS labels...])
function(vela_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;USES;LABELS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE ${TEST_USES} GTest::gmock GTest::gtest_main vela_settings)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS "${TEST_LABELS}" TIMEOUT 900)
endfunction()
