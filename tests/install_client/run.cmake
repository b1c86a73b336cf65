# Install, configure, build, run: what a stranger does with an installed Vela. Every step gets only
# the prefix, never the build tree.
function(step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "failed (${code}): ${ARGN}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

set(flags "")
if(SANITIZE)
  set(flags "-fsanitize=${SANITIZE}")
endif()

file(REMOVE_RECURSE ${WORK})
step(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/fresh)
# What works only where it was first put is not an install.
file(RENAME ${WORK}/fresh ${WORK}/moved)

step(${CMAKE_COMMAND} -S ${CLIENT} -B ${WORK}/build -DCMAKE_PREFIX_PATH=${WORK}/moved
     -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_CXX_FLAGS=${flags})
step(${CMAKE_COMMAND} --build ${WORK}/build)
step(${WORK}/build/client ${WORK}/client.dmr)
if(NOT output MATCHES "3 samples from 0\\.2 to 0\\.4, the last 16\n")
  message(FATAL_ERROR "the client printed:\n${output}")
endif()

step(${WORK}/moved/bin/vela ls --repository ${WORK}/client.dmr)
if(NOT output MATCHES "first light")
  message(FATAL_ERROR "the installed command printed:\n${output}")
endif()

# What is installed finds the program that reads data files.
step(${WORK}/moved/bin/vela save ${WORK}/client.dat --repository ${WORK}/client.dmr)
step(${WORK}/moved/bin/vela load ${WORK}/client.dat --repository ${WORK}/copy.dmr)

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} ${WORK}/moved/lib/pkgconfig)
  step(${PKG_CONFIG} --cflags --libs vela)
  string(STRIP "${output}" output)
  separate_arguments(arguments UNIX_COMMAND "${output}")
  step(${COMPILER} ${flags} ${CLIENT}/main.cpp ${arguments} -Wl,-rpath,${WORK}/moved/lib
       -o ${WORK}/client_by_pkgconfig)
  step(${WORK}/client_by_pkgconfig ${WORK}/client2.dmr)
endif()
