# Installs the build tree into a scratch prefix, then builds and runs a small
# host against it twice: through find_package(Zuvero) and through pkg-config.
#   cmake -DBUILD_DIR=... -DWORK_DIR=... -DCONSUMER_DIR=... [-DFROM=deb] -P check_install.cmake
#
# FROM=deb installs from the Debian packages instead: CPack makes them from the
# build tree as it is (nothing is rebuilt), and they are unpacked into a scratch
# root with dpkg-deb -x, as dpkg would install them but without root.

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(result)
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

# A package's control field, checked against a pattern.
function(expect_field deb field pattern)
    run(dpkg-deb --field "${deb}" "${field}")
    if(NOT output MATCHES "${pattern}")
        message(FATAL_ERROR "${deb}: ${field} is \"${output}\", expected to match ${pattern}")
    endif()
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
if(FROM STREQUAL "deb")
    set(root "${WORK_DIR}/root")
    set(prefix "${root}/usr")
    if(NOT CMAKE_CPACK_COMMAND)
        find_program(CMAKE_CPACK_COMMAND cpack REQUIRED)
    endif()
    run("${CMAKE_CPACK_COMMAND}" --config "${BUILD_DIR}/CPackConfig.cmake" -B "${WORK_DIR}/debs")
    file(GLOB debs "${WORK_DIR}/debs/*.deb")
    set(names)
    foreach(deb IN LISTS debs)
        run(dpkg-deb --field "${deb}" Package)
        string(STRIP "${output}" name)
        list(APPEND names "${name}")
        set(deb_${name} "${deb}")
        run(dpkg-deb -x "${deb}" "${root}")
    endforeach()
    list(SORT names)
    if(NOT names STREQUAL "libzuvero-dev;libzuvero1;zuvero-tools")
        message(FATAL_ERROR "unexpected packages: ${names}")
    endif()
    # Depends: what dpkg-shlibdeps found the binaries link to, and the library itself.
    expect_field("${deb_libzuvero1}" Depends "libqt6widgets6.*libssl3|libssl3.*libqt6widgets6")
    expect_field("${deb_libzuvero-dev}" Depends "libzuvero1 \\(= [0-9.]+\\)")
    expect_field("${deb_libzuvero-dev}" Depends "qt6-base-dev")
    expect_field("${deb_zuvero-tools}" Depends "libzuvero1 \\(= [0-9.]+\\)")
    expect_field("${deb_zuvero-tools}" Depends "libsqlite3")
    foreach(tool zuvero-devserver zuvero-cli zuvero-demo)
        if(NOT EXISTS "${prefix}/bin/${tool}")
            message(FATAL_ERROR "zuvero-tools holds no ${tool}")
        endif()
    endforeach()
    # The packaged command-line host runs against the packaged library.
    file(GLOB_RECURSE library "${prefix}/libZuvero.so.*.*")
    get_filename_component(library_dir "${library}" DIRECTORY)
    run("${CMAKE_COMMAND}" -E env "LD_LIBRARY_PATH=${library_dir}" "${prefix}/bin/zuvero-cli" --help)
else()
    set(prefix "${WORK_DIR}/prefix")
    run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}")
endif()

set(expected "apiKey=9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08 colour=#0f80f0 keys=1 title=Assistance")

# A host built with CMake.
run("${CMAKE_COMMAND}" -S "${CONSUMER_DIR}" -B "${WORK_DIR}/cmake-host" -G Ninja
    "-DCMAKE_PREFIX_PATH=${prefix}")
run("${CMAKE_COMMAND}" --build "${WORK_DIR}/cmake-host")
run("${WORK_DIR}/cmake-host/zuvero-host")
if(NOT output MATCHES "${expected}")
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
if(NOT output MATCHES "${expected}")
    message(FATAL_ERROR "unexpected output of the pkg-config host: ${output}")
endif()
