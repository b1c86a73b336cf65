# The one shared library made of all rooms, and what an installed Vela consists of: library,
# headers, CMake package and pkg-config file.
include(CMakePackageConfigHelpers)

get_property(rooms GLOBAL PROPERTY VELA_ROOMS)
list(TRANSFORM rooms REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE room_objects)

# Made of the objects, not of the archives: features and importers register themselves in objects
# nobody refers to. Linking the rooms as well brings the third-party libraries they use.
add_library(nexstore SHARED ${room_objects})
target_link_libraries(nexstore PRIVATE ${rooms} $<BUILD_INTERFACE:vela_settings>)
set_target_properties(nexstore PROPERTIES
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
if(NOT VELA_SANITIZE)
  target_link_options(nexstore PRIVATE LINKER:-z,defs)
endif()
add_dependencies(nexstore vela_schema_files)
# The headers show types of header-only boost; every other third party is an affair of the library.
target_link_libraries(nexstore INTERFACE Boost::headers)
target_compile_features(nexstore INTERFACE cxx_std_20)
# Headers name each other by their room, clients by vela/ in front.
target_include_directories(nexstore INTERFACE
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/vela>)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vela)
install(TARGETS nexstore EXPORT vela LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT vela NAMESPACE vela:: DESTINATION ${package_dir} FILE velaTargets.cmake)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/velaConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velaConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velaConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velaConfig.cmake ${PROJECT_BINARY_DIR}/velaConfigVersion.cmake
  DESTINATION ${package_dir})

# Relative, so that the file holds wherever the tree is installed or moved to.
file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/vela.pc.in ${PROJECT_BINARY_DIR}/vela.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vela.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

foreach(tree platform src)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${tree}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vela
    FILES_MATCHING PATTERN "*.h")
endforeach()
foreach(room comparison formats)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${room} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vela
    FILES_MATCHING PATTERN "*.h")
endforeach()
