# The library as a package, as a host's developer meets it: the README's example built with
# CMake (find_package) and with pkg-config, against the build tree and against an install
# prefix, and run. Run as a script:
#   cmake -DQK_SOURCE_DIR=... -DQK_BINARY_DIR=... -DWORK_DIR=... -DCXX=... -P PackageConsumer.cmake
cmake_minimum_required(VERSION 3.18)

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
  set(run_error "${err}" PARENT_SCOPE)
endfunction()

# Runs a built example (the command in ARGN) with no sound system, its common folder and data
# folder as given; it must end well and report no missing HRTF set.
function(run_example what common data)
  run("${what}: running" ${CMAKE_COMMAND} -E env QK_ALSA_DEVICE=virtual
      QK_COMMON_ROOT=${common} QK_DATA_DIR=${data} QK_SETTINGS_DIR=${WORK_DIR} ${ARGN})
  if(run_error MATCHES "not found|FAILURE")
    message(FATAL_ERROR "${what}: the example reported:\n${run_error}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/empty-common)

# The example: the first C++ block of the README.
file(READ ${QK_SOURCE_DIR}/README.md readme)
string(FIND "${readme}" "```cpp\n" start)
if(start EQUAL -1)
  message(FATAL_ERROR "the README has no C++ example")
endif()
math(EXPR start "${start} + 7")
string(SUBSTRING "${readme}" ${start} -1 rest)
string(FIND "${rest}" "```" end)
string(SUBSTRING "${rest}" 0 ${end} example)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/consumer/CMakeLists.txt DESTINATION ${WORK_DIR}/consumer)
file(WRITE ${WORK_DIR}/consumer/main.cpp "${example}")

set(prefix ${WORK_DIR}/prefix)
run("install" ${CMAKE_COMMAND} --install ${QK_BINARY_DIR} --prefix ${prefix})
set(build_data ${QK_BINARY_DIR}/data)
set(prefix_data ${prefix}/share/quendarik)

# CMake: the build tree (Quendarik_DIR), then the prefix (CMAKE_PREFIX_PATH).
foreach(kind build prefix)
  set(dir ${WORK_DIR}/cmake-${kind})
  if(kind STREQUAL "build")
    set(where -DQuendarik_DIR=${QK_BINARY_DIR})
    set(common ${build_data})
  else()
    set(where -DCMAKE_PREFIX_PATH=${prefix})
    set(common ${WORK_DIR}/empty-common)
  endif()
  run("cmake against the ${kind}: configure" ${CMAKE_COMMAND} -S ${WORK_DIR}/consumer -B ${dir}
      -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Release ${where})
  run("cmake against the ${kind}: build" ${CMAKE_COMMAND} --build ${dir})
  run_example("cmake against the ${kind}" ${common} ${prefix_data} ${dir}/consumer)
endforeach()

# pkg-config: PKG_CONFIG_PATH at the build folder, then at the prefix's.
foreach(kind build prefix)
  if(kind STREQUAL "build")
    set(pcdir ${QK_BINARY_DIR})
  else()
    file(GLOB_RECURSE pcfile ${prefix}/*/quendarik.pc)
    get_filename_component(pcdir "${pcfile}" DIRECTORY)
  endif()
  run("pkg-config against the ${kind}" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pcdir}
      pkg-config --cflags --libs quendarik)
  string(STRIP "${run_output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  if(kind STREQUAL "build" AND NOT flags MATCHES "-I${QK_SOURCE_DIR}/include")
    message(FATAL_ERROR "pkg-config against the build tree gives ${flags}")
  endif()
  set(program ${WORK_DIR}/pkg-${kind})
  run("pkg-config against the ${kind}: build" ${CXX} -std=c++17 ${WORK_DIR}/consumer/main.cpp
      -o ${program} ${flags})
  if(kind STREQUAL "build")
    run_example("pkg-config against the build" ${build_data} ${prefix_data} ${program})
  else()
    get_filename_component(libdir "${pcdir}" DIRECTORY)
    run_example("pkg-config against the prefix" ${WORK_DIR}/empty-common ${prefix_data}
                ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} ${program})
  endif()
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})
