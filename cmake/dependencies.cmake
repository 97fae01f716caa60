# What the library, its tests and the program stand on. For Windows, Highway, GoogleTest, Google Benchmark and the
# libraries of picture formats are built from the sources that ./dev puts into build/deps, because the distribution has no
# such packages; for 64-bit Arm Highway and GoogleTest are.

set(PANOVAL_DEPS "${PROJECT_SOURCE_DIR}/build/deps")

add_library(panoval_highway INTERFACE)
add_library(panoval_openmp INTERFACE)
add_library(panoval_gtest INTERFACE)
add_library(panoval_benchmark INTERFACE)
add_library(panoval_eigen INTERFACE)
add_library(panoval_codecs INTERFACE)
add_library(panoval_boost INTERFACE) # headers only

# Highway as a part of our libraries, so that none needs it beside itself.
if(EXISTS "${PANOVAL_DEPS}/highway/hwy/targets.cc")
    add_library(panoval_hwy_objects OBJECT
        "${PANOVAL_DEPS}/highway/hwy/aligned_allocator.cc"
        "${PANOVAL_DEPS}/highway/hwy/per_target.cc"
        "${PANOVAL_DEPS}/highway/hwy/print.cc"
        "${PANOVAL_DEPS}/highway/hwy/targets.cc")
    target_include_directories(panoval_hwy_objects SYSTEM PUBLIC "${PANOVAL_DEPS}/highway")
    set_target_properties(panoval_hwy_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
    # Its messages name its files, which would tell where the build was, and make it another one elsewhere. Compiler caches
    # may give the compiler relative names.
    file(RELATIVE_PATH deps_from_build "${PROJECT_BINARY_DIR}" "${PANOVAL_DEPS}")
    target_compile_options(panoval_hwy_objects PRIVATE "-ffile-prefix-map=${PANOVAL_DEPS}/="
                           "-ffile-prefix-map=${deps_from_build}/=")
    add_library(panoval_hwy STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:panoval_hwy_objects>)
    target_include_directories(panoval_hwy SYSTEM PUBLIC "${PANOVAL_DEPS}/highway")
    target_link_libraries(panoval_highway INTERFACE panoval_hwy)
elseif(NOT WIN32)
    message(WARNING "Panoval will need the system's libhwy beside itself: found no sources of Highway in "
                    "${PANOVAL_DEPS}/highway; expected those that ./dev build fetches")
    target_link_libraries(panoval_highway INTERFACE hwy)
endif()

if(WIN32)
    include(windows_dependencies)
elseif(CMAKE_CROSSCOMPILING)
    include(arm64_dependencies)
else()
    find_package(Threads REQUIRED)
    target_link_libraries(panoval_openmp INTERFACE gomp)
    target_link_libraries(panoval_gtest INTERFACE gtest Threads::Threads)
    if(PANOVAL_BENCH)
        find_package(benchmark REQUIRED)
        target_link_libraries(panoval_benchmark INTERFACE benchmark::benchmark)
    endif()
    if(PANOVAL_CLI OR PANOVAL_FUZZ)
        find_package(ZLIB REQUIRED)
        find_package(PNG REQUIRED)
        find_package(TIFF REQUIRED)
        find_package(JPEG REQUIRED)
        target_link_libraries(panoval_codecs INTERFACE PNG::PNG TIFF::TIFF JPEG::JPEG ZLIB::ZLIB)
    endif()
    find_path(PANOVAL_EIGEN_DIR Eigen/Core PATHS /usr/include/eigen3 REQUIRED)
    target_include_directories(panoval_eigen SYSTEM INTERFACE "${PANOVAL_EIGEN_DIR}")
    find_path(PANOVAL_BOOST_DIR boost/graph/boykov_kolmogorov_max_flow.hpp REQUIRED)
    target_include_directories(panoval_boost SYSTEM INTERFACE "${PANOVAL_BOOST_DIR}")
endif()
