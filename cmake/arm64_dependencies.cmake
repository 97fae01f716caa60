# Highway and GoogleTest for the build for 64-bit Arm, from the sources that ./dev fetches: no package of a second
# architecture is installed. Eigen has headers only.

find_package(Threads REQUIRED)

# The one instruction set that all these processors have. Some kernels keep vectors in structs, which the scalable
# vectors of SVE cannot be.
target_compile_definitions(panoval_hwy_objects PUBLIC HWY_COMPILE_ONLY_STATIC)
target_compile_definitions(panoval_highway INTERFACE HWY_COMPILE_ONLY_STATIC)

target_link_libraries(panoval_openmp INTERFACE gomp)

if(PANOVAL_TESTS)
    add_library(gtest_arm64 STATIC EXCLUDE_FROM_ALL /usr/src/googletest/googletest/src/gtest-all.cc)
    target_include_directories(gtest_arm64 SYSTEM PUBLIC /usr/src/googletest/googletest/include
                               PRIVATE /usr/src/googletest/googletest)
    target_link_libraries(panoval_gtest INTERFACE gtest_arm64 Threads::Threads)
endif()

file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/headers")
foreach(package IN ITEMS boost CLI nlohmann)
    if(EXISTS "/usr/include/${package}")
        file(CREATE_LINK "/usr/include/${package}" "${PROJECT_BINARY_DIR}/headers/${package}" SYMBOLIC)
    endif()
endforeach()
set(PANOVAL_HEADERS_DIR "${PROJECT_BINARY_DIR}/headers")
target_include_directories(panoval_eigen SYSTEM INTERFACE /usr/include/eigen3)
target_include_directories(panoval_boost SYSTEM INTERFACE "${PANOVAL_HEADERS_DIR}")
# Eigen fuses multiplications and additions here, whatever the flags say; see there.
target_compile_options(panoval_eigen INTERFACE -include "${PROJECT_SOURCE_DIR}/libmath/unfused_eigen.h")
target_include_directories(panoval_eigen INTERFACE "${PROJECT_SOURCE_DIR}")
