# Compiler options that every target shares, and where things are built.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
if(WIN32)
    set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
else()
    set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
endif()
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/archive")

# The loader looks beside the library (and in ../lib for programs), but after the environment's library path, so that a
# host can put its own libmath in place of ours: RUNPATH, not RPATH.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_BUILD_RPATH "$ORIGIN;$ORIGIN/../lib")
if(NOT WIN32)
    add_link_options(-Wl,--enable-new-dtags)
endif()

add_library(panoval_options INTERFACE)
target_compile_options(panoval_options INTERFACE
    -Wall -Wextra -Wshadow -Wconversion $<$<BOOL:${PANOVAL_WERROR}>:-Werror>
    # Results are part of the interface: no contraction into fused multiply-add, no fast-math anywhere.
    -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC takes the sentinel returns of intrinsics and of inlined vectors for defects at -O2.
    target_compile_options(panoval_options INTERFACE -Wno-psabi -Wno-maybe-uninitialized)
endif()
# Lines are all that a report needs of the debug information. One instruction set for each width of vectors but AVX-512's:
# with all of them the kernels take twice as long to compile.
set(few_targets -g1 "-DHWY_DISABLED_TARGETS=(HWY_SSSE3|HWY_AVX3|HWY_AVX3_DL)")
if(PANOVAL_SANITIZE)
    set(sanitizers "${PANOVAL_SANITIZE}")
    if(PANOVAL_SANITIZE STREQUAL "ON")
        # Conversions out of range are undefined behaviour that the group named so does not hold.
        set(sanitizers "address,undefined,float-cast-overflow")
    endif()
    add_compile_options(-fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 ${few_targets})
    add_link_options(-fsanitize=${sanitizers})
    if(CMAKE_C_COMPILER_ID STREQUAL "Clang")
        # One routine may have two names, each with a record of its own: MatfReset, MatiReset.
        add_compile_options(-fno-sanitize=function)
    endif()
endif()
# What ./dev coverage counts; tests are compiled as ever. Threads count together, and counts are kept in a file, whatever
# ends the process. Highway includes a kernel's source once per instruction set, and Clang counts nothing that a system's
# header includes: to those sources Highway is none, whose warnings are not ours then.
if(PANOVAL_COVERAGE)
    add_link_options(-fprofile-instr-generate)
endif()
function(panoval_count target)
    if(NOT PANOVAL_COVERAGE)
        return()
    endif()
    target_compile_options(${target} PRIVATE
        -fprofile-instr-generate -fcoverage-mapping -fprofile-update=atomic -mllvm -runtime-counter-relocation)
    get_target_property(sources ${target} SOURCES)
    foreach(source IN LISTS sources)
        file(STRINGS "${source}" kernels REGEX "hwy/foreach_target.h" LIMIT_COUNT 1)
        if(kernels)
            set_source_files_properties("${source}" TARGET_DIRECTORY ${target}
                PROPERTIES COMPILE_OPTIONS "--no-system-header-prefix=hwy/;-w")
        endif()
    endforeach()
endfunction()

# Hardening of what is released: what a defect could still be used for is made hard. None of it touches arithmetic.
# tests/interface/hardening.sh looks for it in what was built; docs/performance.md has its cost.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$" AND NOT PANOVAL_SANITIZE)
    if(WIN32)
        # Stack protection would have MinGW's libraries import a library more.
        add_link_options(-Wl,--dynamicbase,--nxcompat,--high-entropy-va)
    else()
        add_compile_options(-fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
        add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
        if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
            add_compile_options(-fcf-protection)
        else()
            add_compile_options(-mbranch-protection=standard)
        endif()
    endif()
endif()

# The names of a list in tests/interface, for a linker's file: FORMAT is what stands for one name, with @ in its place.
function(panoval_exported_names list format result)
    file(STRINGS "${PROJECT_SOURCE_DIR}/tests/interface/${list}.exports" names REGEX "^[^#]")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                 "${PROJECT_SOURCE_DIR}/tests/interface/${list}.exports")
    set(lines "")
    foreach(name IN LISTS names)
        string(REPLACE "@" "${name}" line "${format}")
        string(APPEND lines "${line}\n")
    endforeach()
    set(${result} "${lines}" PARENT_SCOPE)
endfunction()

# A library that stands on the first one's objects exports its own names alone, not theirs.
function(panoval_export_only target)
    if(WIN32)
        panoval_exported_names(${target} "@" names)
        set(file "${CMAKE_CURRENT_BINARY_DIR}/${target}.def")
        file(CONFIGURE OUTPUT "${file}" CONTENT "EXPORTS\n${names}" @ONLY)
        target_sources(${target} PRIVATE "${file}")
        return()
    endif()
    panoval_exported_names(${target} "        @;" names)
    set(file "${CMAKE_CURRENT_BINARY_DIR}/${target}.map")
    file(CONFIGURE OUTPUT "${file}" CONTENT "{\n    global:\n${names}    local:\n        *;\n};\n" @ONLY)
    target_link_options(${target} PRIVATE "-Wl,--version-script=${file}")
    set_target_properties(${target} PROPERTIES LINK_DEPENDS "${file}")
endfunction()

# What every shared library of ours has in common: it brings the compiler's run-time library along, and none of that
# library's C++ symbols leave it.
function(panoval_shared_library target)
    if(WIN32)
        set_target_properties(${target} PROPERTIES PREFIX "")
        target_link_options(${target} PRIVATE -static)
        return()
    endif()
    target_link_options(${target} PRIVATE -Wl,--exclude-libs,ALL -Wl,-z,defs)
    get_target_property(listed ${target} LINK_DEPENDS)
    if(NOT listed)
        target_link_options(${target} PRIVATE "-Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/hide_cpp.map")
        set_target_properties(${target} PROPERTIES LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/hide_cpp.map")
    endif()
    if(PANOVAL_SANITIZE)
        # Clang leaves the sanitizer's symbols to the program.
        target_link_options(${target} PRIVATE -Wl,-z,undefs)
    else()
        target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
    endif()
endfunction()
