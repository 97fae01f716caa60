# What the library and its tests stand on. For Windows, Highway, GoogleTest and Google Benchmark are built from the
# sources that ./dev puts into build/deps, because the distribution has no such packages.

set(PANOVAL_DEPS "${CMAKE_SOURCE_DIR}/build/deps")

add_library(panoval_highway INTERFACE)
add_library(panoval_openmp INTERFACE)
add_library(panoval_gtest INTERFACE)
add_library(panoval_benchmark INTERFACE)
add_library(panoval_eigen INTERFACE)

if(WIN32)
    include(windows_dependencies)
else()
    find_package(Threads REQUIRED)
    target_link_libraries(panoval_highway INTERFACE hwy)
    target_link_libraries(panoval_openmp INTERFACE gomp)
    target_link_libraries(panoval_gtest INTERFACE gtest Threads::Threads)
    if(PANOVAL_BENCH)
        find_package(benchmark REQUIRED)
        target_link_libraries(panoval_benchmark INTERFACE benchmark::benchmark)
    endif()
    find_path(PANOVAL_EIGEN_DIR Eigen/Core PATHS /usr/include/eigen3 REQUIRED)
    target_include_directories(panoval_eigen SYSTEM INTERFACE "${PANOVAL_EIGEN_DIR}")
endif()
