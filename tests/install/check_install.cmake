# Installs the build tree into a scratch prefix, then builds and runs a small
# host against it twice: through find_package(Zuvero) and through pkg-config.
#   cmake -DBUILD_DIR=... -DWORK_DIR=... -DCONSUMER_DIR=... -P check_install.cmake

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(result)
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

set(prefix "${WORK_DIR}/prefix")
file(REMOVE_RECURSE "${WORK_DIR}")
run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}")

# A host built with CMake.
run("${CMAKE_COMMAND}" -S "${CONSUMER_DIR}" -B "${WORK_DIR}/cmake-host" -G Ninja
    "-DCMAKE_PREFIX_PATH=${prefix}")
run("${CMAKE_COMMAND}" --build "${WORK_DIR}/cmake-host")
run("${WORK_DIR}/cmake-host/zuvero-host")
if(NOT output MATCHES "apiKey=9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08 colour=#0f80f0 keys=1")
    message(FATAL_ERROR "unexpected output of the CMake host: ${output}")
endif()

# A host built with pkg-config.
file(GLOB_RECURSE pc_file "${prefix}/zuvero.pc")
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
run("${CMAKE_COMMAND}" -E env "PKG_CONFIG_PATH=${pc_dir}" pkg-config --cflags --libs zuvero)
separate_arguments(flags UNIX_COMMAND "${output}")
find_program(cxx NAMES c++ g++ REQUIRED)
file(GLOB_RECURSE library "${prefix}/libZuvero.so")
get_filename_component(library_dir "${library}" DIRECTORY)
run("${cxx}" -std=c++20 -fPIC "${CONSUMER_DIR}/main.cpp" -o "${WORK_DIR}/pkg-config-host" ${flags}
    "-Wl,-rpath,${library_dir}")
run("${WORK_DIR}/pkg-config-host")
if(NOT output MATCHES "apiKey=9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08 colour=#0f80f0 keys=1")
    message(FATAL_ERROR "unexpected output of the pkg-config host: ${output}")
endif()
