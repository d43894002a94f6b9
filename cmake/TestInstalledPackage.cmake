# Installs the build into a scratch prefix, then builds and runs a tiny consumer against it twice:
# once through find_package(vorx) and once through pkg-config's vorx.pc.
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

run(${CMAKE_COMMAND} -S "${CONSUMER_DIR}" -B "${WORK_DIR}/cmake-build" -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build "${WORK_DIR}/cmake-build")
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} "${WORK_DIR}/cmake-build/consumer")
message(STATUS "find_package consumer: ${last_output}")

run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${libdir}/pkgconfig pkg-config --cflags --libs vorx)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(c++ "${CONSUMER_DIR}/main.cpp" ${flags} -o "${WORK_DIR}/consumer-pc")
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} "${WORK_DIR}/consumer-pc")
message(STATUS "pkg-config consumer: ${last_output}")
