# The API reference of the public headers (make docs), in build/docs/html.
# Every public name must be documented: an undocumented one fails the build.
# Included from src/CMakeLists.txt, where zuvero_public_headers is known.

find_package(Doxygen 1.9)
if(NOT DOXYGEN_FOUND)
    return()
endif()

set(DOXYGEN_PROJECT_NAME Zuvero)
set(DOXYGEN_PROJECT_NUMBER "${PROJECT_VERSION}")
set(DOXYGEN_PROJECT_BRIEF "${PROJECT_DESCRIPTION}")
set(DOXYGEN_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/docs")
set(DOXYGEN_GENERATE_LATEX NO)
set(DOXYGEN_HAVE_DOT NO)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
# Headers are included as <Zuvero/Name.h>, whichever folder of the sources they come from.
set(DOXYGEN_FULL_PATH_NAMES NO)
set(DOXYGEN_QT_AUTOBRIEF YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)
set(DOXYGEN_EXCLUDE_SYMBOLS "*Private" "*Private::*")
# What the compiler sees, without the export and Qt macros a reader has no use for.
set(DOXYGEN_ENABLE_PREPROCESSING YES)
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED
    "ZUVERO_EXPORT="
    "Q_OBJECT="
    "Q_GADGET="
    "Q_DECLARE_METATYPE(x)="
    "Q_DISABLE_COPY(x)="
    "Q_DISABLE_COPY_MOVE(x)="
    "Q_DECLARE_FLAGS(x,y)="
    "Q_DECLARE_OPERATORS_FOR_FLAGS(x)="
    "Q_ENUM(x)="
    "Q_PROPERTY(x)="
    "Q_INVOKABLE=")

set(zuvero_documented_headers)
foreach(header IN LISTS zuvero_public_headers)
    list(APPEND zuvero_documented_headers "${CMAKE_CURRENT_SOURCE_DIR}/${header}")
endforeach()

doxygen_add_docs(docs ${zuvero_documented_headers}
    COMMENT "Writing the API reference to ${DOXYGEN_OUTPUT_DIRECTORY}/html")
