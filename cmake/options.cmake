# Compiler options that every target of the project shares.
add_library(quil_options INTERFACE)
target_include_directories(quil_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_options(quil_options INTERFACE -Wall -Wextra -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # g++ 12 sees overlapping copies in every "literal" + std::string (its bug 105651).
    target_compile_options(quil_options INTERFACE -Wno-restrict)
endif()
if(QUIL_WERROR)
    target_compile_options(quil_options INTERFACE -Werror)
endif()
if(QUIL_SANITIZE)
    target_compile_options(quil_options INTERFACE -fsanitize=${QUIL_SANITIZE} -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(quil_options INTERFACE -fsanitize=${QUIL_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # Calls between the binaries go through function pointers, and the check compares type records by their address,
        # which differ wherever symbols are hidden.
        target_compile_options(quil_options INTERFACE -fno-sanitize=function)
    endif()
elseif(CMAKE_BUILD_TYPE STREQUAL "Release" OR CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    target_compile_options(quil_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
    target_link_options(quil_options INTERFACE -Wl,-z,relro,-z,now)
endif()
if(QUIL_FUZZERS AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Coverage for the fuzzer in all of the project's code; only the fuzz targets bring the fuzzer itself.
    target_compile_options(quil_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

find_program(QUIL_CCACHE ccache)
if(QUIL_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${QUIL_CCACHE})
endif()
