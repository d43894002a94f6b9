# Installs the build into a scratch prefix, then builds and runs a tiny consumer against it twice:
# once through find_package(vorx) and once through pkg-config's vorx.pc, and runs the installed
# vorx tool, which must find libvorx.so by its own run path.
# The consumer is configured with the outer build's generator, make program and compiler
# (GENERATOR, MAKE_PROGRAM, CXX_COMPILER), so it needs nothing the outer build did not.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
file(GLOB_RECURSE libdirs LIST_DIRECTORIES false "${prefix}/*/libvorx.so")
list(GET libdirs 0 lib)
get_filename_component(libdir "${lib}" DIRECTORY)

# The installed tool starts without LD_LIBRARY_PATH.
run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH "${prefix}/bin/vorx" --version)
message(STATUS "installed tool: ${last_output}")

set(configure_args -S "${CONSUMER_DIR}" -B "${WORK_DIR}/cmake-build" -DCMAKE_PREFIX_PATH=${prefix})
if(GENERATOR)
  list(APPEND configure_args -G "${GENERATOR}")
endif()
if(MAKE_PROGRAM)
  list(APPEND configure_args "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}")
endif()
if(CXX_COMPILER)
  list(APPEND configure_args "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}")
else()
  set(CXX_COMPILER c++)
endif()
run(${CMAKE_COMMAND} ${configure_args})
run(${CMAKE_COMMAND} --build "${WORK_DIR}/cmake-build")
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} "${WORK_DIR}/cmake-build/consumer")
message(STATUS "find_package consumer: ${last_output}")

run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${libdir}/pkgconfig pkg-config --cflags --libs vorx)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run("${CXX_COMPILER}" "${CONSUMER_DIR}/main.cpp" ${flags} -o "${WORK_DIR}/consumer-pc")
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} "${WORK_DIR}/consumer-pc")
message(STATUS "pkg-config consumer: ${last_output}")
