# What is installed serves a project of its own, with a static library and with a shared one, and so
# does a copy of the sources as a subdirectory. The shared library exports its interface alone and
# is hardened as the tool is.

set(compilerOptions -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER} -DCMAKE_BUILD_TYPE=$<CONFIG>)
set(makeOptions --build-generator ${CMAKE_GENERATOR} --build-makeprogram ${CMAKE_MAKE_PROGRAM})
set(installedTool ${CMAKE_INSTALL_BINDIR}/kvt)
set(installedLibrary ${CMAKE_INSTALL_LIBDIR}/${CMAKE_SHARED_LIBRARY_PREFIX}kvt)
string(APPEND installedLibrary ${CMAKE_SHARED_LIBRARY_SUFFIX})

# Adds the test PACKAGE.NAME of what is installed.
function(package_test package name)
    add_test(NAME ${package}.${name} ${ARGN})
    set_tests_properties(${package}.${name} PROPERTIES
                         FIXTURES_REQUIRED "${package}Empty;${package}Installed")
endfunction()

# Installs what stands in `build` into an empty directory, for a project to find it there.
function(package_tests package build)
    set(dir ${CMAKE_CURRENT_BINARY_DIR}/${package})
    add_test(NAME ${package}.clean COMMAND ${CMAKE_COMMAND} -E remove_directory ${dir})
    set_tests_properties(${package}.clean PROPERTIES FIXTURES_SETUP ${package}Empty)

    add_test(NAME ${package}.install
             COMMAND ${CMAKE_COMMAND} --install ${build} --config $<CONFIG> --prefix ${dir}/prefix)
    set_tests_properties(${package}.install PROPERTIES
                         FIXTURES_REQUIRED "${package}Built;${package}Empty"
                         FIXTURES_SETUP ${package}Installed)

    package_test(${package} find
                 COMMAND ${CMAKE_CTEST_COMMAND} --build-and-test
                         ${CMAKE_CURRENT_SOURCE_DIR}/consumer ${dir}/find ${makeOptions}
                         --build-options ${compilerOptions} -DCMAKE_PREFIX_PATH=${dir}/prefix
                         --test-command consumer)
endfunction()

function(hardening_test package name file)
    if(KVT_HARDEN AND NOT KVT_SANITIZE)
        package_test(${package} ${name}
                     COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/hardened.sh ${file} $<CONFIG>
                             ${hardeningFlags})
    endif()
endfunction()

function(shared_library_tests package)
    set(prefix ${CMAKE_CURRENT_BINARY_DIR}/${package}/prefix)
    file(GLOB publicHeaders CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/ko/*.h)
    package_test(${package} exports
                 COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/exports.sh ${prefix}/${installedLibrary}
                         ${publicHeaders})
    hardening_test(${package} hardenedlibrary ${prefix}/${installedLibrary})
    # The tool finds the library wherever both have been moved to.
    package_test(${package} runpath COMMAND readelf --dynamic ${prefix}/${installedTool})
    set_tests_properties(${package}.runpath PROPERTIES PASS_REGULAR_EXPRESSION
                         "RUNPATH[^\n]*[[][$]ORIGIN/")
    package_test(${package} tool
                 COMMAND ${prefix}/${installedTool} check ${PROJECT_SOURCE_DIR}/examples/studio.kvt)
endfunction()

if(KVT_INSTALL)
    set(prefix ${CMAKE_CURRENT_BINARY_DIR}/package/prefix)
    package_tests(package ${PROJECT_BINARY_DIR})
    hardening_test(package hardened ${prefix}/${installedTool})
    if(BUILD_SHARED_LIBS AND NOT KVT_SANITIZE)
        shared_library_tests(package)
    elseif(NOT BUILD_SHARED_LIBS)
        package_test(package runpath COMMAND readelf --dynamic ${prefix}/${installedTool})
        set_tests_properties(package.runpath PROPERTIES FAIL_REGULAR_EXPRESSION "RPATH|RUNPATH")
    endif()
endif()

if(KVT_SANITIZE)
    message(STATUS "kvt: no tests of the shared library: they need a build without sanitizers")
elseif(NOT BUILD_SHARED_LIBS)
    set(sharedBuild ${CMAKE_CURRENT_BINARY_DIR}/sharedbuild)
    add_test(NAME shared.build
             COMMAND ${CMAKE_CTEST_COMMAND} --build-and-test ${PROJECT_SOURCE_DIR} ${sharedBuild}
                     ${makeOptions} --build-noclean --build-options ${compilerOptions}
                     -DBUILD_SHARED_LIBS=ON -DKVT_TESTS=OFF -DKVT_HARDEN=${KVT_HARDEN}
                     -DKVT_WERROR=${KVT_WERROR} -DCLI11_DIR=${CLI11_DIR}
                     -DCMAKE_INSTALL_BINDIR=${CMAKE_INSTALL_BINDIR}
                     -DCMAKE_INSTALL_LIBDIR=${CMAKE_INSTALL_LIBDIR})
    set_tests_properties(shared.build PROPERTIES FIXTURES_SETUP sharedBuilt PROCESSORS 2)
    package_tests(shared ${sharedBuild})
    shared_library_tests(shared)
endif()

# Configured but not built: the sources are those that this build compiles anyway.
add_test(NAME package.subdirectory
         COMMAND ${CMAKE_COMMAND} -G ${CMAKE_GENERATOR} ${compilerOptions}
                 -DKVT_SUBDIRECTORY=${PROJECT_SOURCE_DIR} -S ${CMAKE_CURRENT_SOURCE_DIR}/consumer
                 -B ${CMAKE_CURRENT_BINARY_DIR}/subdirectory)
