# What `cmake --install` leaves on a machine: headers, shared and static libraries, the program, pkg-config files and the
# CMake package, whose targets are panoval::panoval, panoval::mosaic, panoval::measure and panoval::libmath, and the same
# with _static behind the name.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The static twin of a shared library: its own objects, and the libraries that it stands on.
function(panoval_static_library name objects)
    add_library(${name}_static STATIC)
    foreach(part IN LISTS objects)
        target_sources(${name}_static PRIVATE $<TARGET_OBJECTS:${part}>)
    endforeach()
    get_target_property(output ${name} OUTPUT_NAME)
    if(NOT output)
        set(output ${name})
    endif()
    set_target_properties(${name}_static PROPERTIES OUTPUT_NAME ${output} PREFIX lib)
    target_compile_definitions(${name}_static INTERFACE PANOVAL_STATIC)
    target_link_libraries(${name}_static INTERFACE ${ARGN})
endfunction()

# name: as a target here; exported: as others know it
function(panoval_installed_library name exported)
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                          EXPORT_NAME ${exported} INSTALL_RPATH "$ORIGIN")
    set_target_properties(${name}_static PROPERTIES EXPORT_NAME ${exported}_static)
    # A project that has this one as a part of itself names them as one that has found them installed.
    add_library(panoval::${exported} ALIAS ${name})
    add_library(panoval::${exported}_static ALIAS ${name}_static)
    foreach(target IN ITEMS ${name} ${name}_static)
        set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "")
        target_include_directories(${target} INTERFACE "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>"
                                   "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
                                   "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    endforeach()
    install(TARGETS ${name} ${name}_static EXPORT panoval_targets
            RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime
            LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development
            ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
endfunction()

# file: name of the .pc file; the rest: words behind -l, what it requires, what static hosts link besides
function(panoval_pkg_config file description libraries requires private)
    set(PC_NAME "${file}")
    set(PC_DESCRIPTION "${description}")
    set(PC_LIBRARIES "${libraries}")
    set(PC_REQUIRES "${requires}")
    set(PC_PRIVATE "${private}")
    file(RELATIVE_PATH PC_UP "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/library.pc.in" "${PROJECT_BINARY_DIR}/pkgconfig/${file}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/pkgconfig/${file}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
            COMPONENT development)
endfunction()

panoval_static_library(libmath libmath_objects)
if(TARGET panoval_hwy_objects)
    panoval_static_library(panoval "panoval_objects;panoval_hwy_objects" libmath_static)
    set(static_words "-lmath -lgomp -lstdc++ -lm")
else()
    panoval_static_library(panoval panoval_objects libmath_static hwy)
    set(static_words "-lmath -lhwy -lgomp -lstdc++ -lm")
endif()
panoval_static_library(panoval_mosaic panoval_mosaic_objects panoval_static)
panoval_static_library(panoval_measure panoval_measure_objects panoval_static)
# Programs in C have to bring the run-time libraries of C++.
target_link_libraries(panoval_static INTERFACE gomp stdc++ m)
target_link_libraries(panoval_mosaic_static INTERFACE pthread)

panoval_installed_library(libmath libmath)
panoval_installed_library(panoval panoval)
panoval_installed_library(panoval_mosaic mosaic)
panoval_installed_library(panoval_measure measure)
install(FILES include/panoval.h include/panoval_mosaic.h include/panoval_measure.h include/panoval_version.h
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)
install(FILES libmath/libmath.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/libmath" COMPONENT development)

panoval_pkg_config(libmath "The small linear algebra of Panoval" "-lmath" "" "-lstdc++ -lm")
panoval_pkg_config(panoval "Blending, gains, filters, inpainting and shape detection on plain images" "-lpanoval" ""
                   "${static_words}")
panoval_pkg_config(panoval_mosaic "Panoramas of any size within a fixed memory" "-lpanoval_mosaic" ""
                   "-lpanoval ${static_words} -lpthread")
panoval_pkg_config(panoval_measure "Round targets measured with their uncertainty" "-lpanoval_measure" ""
                   "-lpanoval ${static_words}")

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/panoval")
install(EXPORT panoval_targets NAMESPACE panoval:: DESTINATION "${package_dir}" COMPONENT development)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/panovalConfig.cmake.in"
                              "${PROJECT_BINARY_DIR}/panovalConfig.cmake" INSTALL_DESTINATION "${package_dir}"
                              PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/panovalConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/panovalConfig.cmake" "${PROJECT_BINARY_DIR}/panovalConfigVersion.cmake"
        DESTINATION "${package_dir}" COMPONENT development)

# After cli/ has been read.
function(panoval_install_program)
    file(RELATIVE_PATH up "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
    set_target_properties(panoval_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${up}")
    install(TARGETS panoval_cli RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT program)
    if(TARGET reference)
        install(DIRECTORY "${PROJECT_BINARY_DIR}/reference/" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
                COMPONENT program FILES_MATCHING PATTERN "*.1")
        install(FILES "${PROJECT_BINARY_DIR}/reference/panoval.bash" RENAME panoval COMPONENT program
                DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
    endif()
endfunction()
