# An installed copy serves a project of its own; a copy of the sources serves as a subdirectory.

set(consumerDir ${CMAKE_CURRENT_BINARY_DIR}/consumer)
set(prefix ${consumerDir}/prefix)
set(consumerOptions -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER} -DCMAKE_BUILD_TYPE=$<CONFIG>)

if(KVT_INSTALL)
    add_test(NAME package.clean COMMAND ${CMAKE_COMMAND} -E remove_directory ${consumerDir})
    set_tests_properties(package.clean PROPERTIES FIXTURES_SETUP cleanPackage)

    add_test(NAME package.install
             COMMAND ${CMAKE_COMMAND} --install ${PROJECT_BINARY_DIR} --config $<CONFIG>
                     --prefix ${prefix})
    set_tests_properties(package.install PROPERTIES FIXTURES_REQUIRED cleanPackage
                                                    FIXTURES_SETUP installedPackage)

    if(KVT_HARDEN AND NOT KVT_SANITIZE)
        add_test(NAME package.hardened
                 COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/hardened.sh
                         ${prefix}/${CMAKE_INSTALL_BINDIR}/kvt $<CONFIG> ${hardeningFlags})
        set_tests_properties(package.hardened PROPERTIES FIXTURES_REQUIRED
                                                         "cleanPackage;installedPackage")
    endif()

    add_test(NAME package.find
             COMMAND ${CMAKE_CTEST_COMMAND} --build-and-test
                     ${CMAKE_CURRENT_SOURCE_DIR}/consumer ${consumerDir}/find
                     --build-generator ${CMAKE_GENERATOR} --build-makeprogram ${CMAKE_MAKE_PROGRAM}
                     --build-options ${consumerOptions} -DCMAKE_PREFIX_PATH=${prefix}
                     --test-command consumer)
    set_tests_properties(package.find PROPERTIES FIXTURES_REQUIRED "cleanPackage;installedPackage")
endif()

# Configured but not built: the sources are those that this build compiles anyway.
add_test(NAME package.subdirectory
         COMMAND ${CMAKE_COMMAND} -G ${CMAKE_GENERATOR} ${consumerOptions}
                 -DKVT_SUBDIRECTORY=${PROJECT_SOURCE_DIR} -S ${CMAKE_CURRENT_SOURCE_DIR}/consumer
                 -B ${CMAKE_CURRENT_BINARY_DIR}/subdirectory)
