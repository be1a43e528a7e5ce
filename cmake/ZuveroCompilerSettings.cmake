# Compiler settings shared by every target of the project.
#
# ZUVERO_SANITIZER selects an instrumented build:
#   address - AddressSanitizer + UndefinedBehaviorSanitizer
#   thread  - ThreadSanitizer
# ZUVERO_FUZZ builds everything with clang's coverage instrumentation for
# libFuzzer plus AddressSanitizer and UndefinedBehaviorSanitizer; the fuzz
# targets themselves link libFuzzer (fuzz/CMakeLists.txt).

set(ZUVERO_SANITIZER "" CACHE STRING "Sanitizer build: empty, 'address' (ASan+UBSan) or 'thread' (TSan)")
set_property(CACHE ZUVERO_SANITIZER PROPERTY STRINGS "" address thread)
option(ZUVERO_FUZZ "Build the libFuzzer targets (needs clang; use a build directory of its own)" OFF)
# GCC's warnings are the project's gate; clang, in the fuzzing build, warns about other things.
if(ZUVERO_FUZZ)
    option(ZUVERO_WERROR "Treat compiler warnings in the project's own code as errors" OFF)
else()
    option(ZUVERO_WERROR "Treat compiler warnings in the project's own code as errors" ON)
endif()

if(ZUVERO_SANITIZER STREQUAL "address")
    set(_zuvero_sanitizer_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined
        -fno-omit-frame-pointer)
elseif(ZUVERO_SANITIZER STREQUAL "thread")
    set(_zuvero_sanitizer_flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT ZUVERO_SANITIZER STREQUAL "")
    message(FATAL_ERROR "ZUVERO_SANITIZER must be empty, 'address' or 'thread', not '${ZUVERO_SANITIZER}'")
endif()
if(ZUVERO_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "ZUVERO_FUZZ needs clang: -DCMAKE_CXX_COMPILER=clang++")
    endif()
    if(ZUVERO_SANITIZER)
        message(FATAL_ERROR "ZUVERO_FUZZ already brings AddressSanitizer and UBSan; leave ZUVERO_SANITIZER empty")
    endif()
    # Qt is built by GCC without RTTI checks in mind: the vptr check would
    # flag Qt's own objects.
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize=vptr
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer -gline-tables-only)
    add_link_options(-fsanitize=address,undefined)
endif()
if(_zuvero_sanitizer_flags)
    add_compile_options(${_zuvero_sanitizer_flags})
    add_link_options(${_zuvero_sanitizer_flags})
endif()

# Applies the project's warnings and Qt's strict-conversion switches to one of our own targets.
function(zuvero_strict_target target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor
        -Woverloaded-virtual -Wimplicit-fallthrough)
    if(ZUVERO_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_FROM_ASCII
        QT_NO_CAST_TO_ASCII
        QT_NO_CAST_FROM_BYTEARRAY
        QT_NO_URL_CAST_FROM_STRING
        QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
        QT_NO_FOREACH
        QT_DISABLE_DEPRECATED_UP_TO=0x060400)
endfunction()
