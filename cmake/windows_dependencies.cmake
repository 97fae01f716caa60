# Highway, GoogleTest, Google Benchmark and the libraries of picture formats for the cross build; ./dev fetches the
# sources, and builds the latter.

set(BENCHMARK_ENABLE_TESTING OFF)
set(BENCHMARK_ENABLE_WERROR OFF)
set(BENCHMARK_ENABLE_INSTALL OFF)

target_link_libraries(panoval_openmp INTERFACE gomp)

if(PANOVAL_CLI)
    set(codecs "${PANOVAL_DEPS}/windows")
    target_include_directories(panoval_codecs SYSTEM INTERFACE "${codecs}/include")
    target_link_libraries(panoval_codecs INTERFACE "${codecs}/lib/libtiff.a" "${codecs}/lib/libjpeg.a"
                          "${codecs}/lib/libpng.a" "${codecs}/lib/libz.a")
endif()

if(PANOVAL_TESTS)
    add_library(gtest_windows STATIC EXCLUDE_FROM_ALL /usr/src/googletest/googletest/src/gtest-all.cc)
    target_include_directories(gtest_windows SYSTEM PUBLIC /usr/src/googletest/googletest/include
                               PRIVATE /usr/src/googletest/googletest)
    target_link_libraries(panoval_gtest INTERFACE gtest_windows)
endif()

if(PANOVAL_BENCH)
    file(GLOB benchmark_sources "${PANOVAL_DEPS}/benchmark/src/*.cc")
    list(FILTER benchmark_sources EXCLUDE REGEX "benchmark_main.cc$")
    add_library(benchmark_windows STATIC EXCLUDE_FROM_ALL ${benchmark_sources})
    target_include_directories(benchmark_windows SYSTEM PUBLIC "${PANOVAL_DEPS}/benchmark/include")
    target_compile_definitions(benchmark_windows PUBLIC BENCHMARK_STATIC_DEFINE PRIVATE HAVE_STD_REGEX)
    target_link_libraries(benchmark_windows PUBLIC shlwapi)
    target_link_libraries(panoval_benchmark INTERFACE benchmark_windows)
endif()

# Header-only packages of this system, each linked into a folder of its own, so that the system's other headers stay
# out of the cross build.
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/headers")
foreach(package IN ITEMS CLI nlohmann boost)
    if(EXISTS "/usr/include/${package}")
        file(CREATE_LINK "/usr/include/${package}" "${PROJECT_BINARY_DIR}/headers/${package}" SYMBOLIC)
    endif()
endforeach()
set(PANOVAL_HEADERS_DIR "${PROJECT_BINARY_DIR}/headers")
target_include_directories(panoval_eigen SYSTEM INTERFACE /usr/include/eigen3)
target_include_directories(panoval_boost SYSTEM INTERFACE "${PANOVAL_HEADERS_DIR}")
