# The controller proven rule by rule, and the door to the store with what is published beside it.
rv_test(tst_shmstring fast ${CMAKE_CURRENT_SOURCE_DIR}/tst_shmstring.cpp)
target_compile_options(tst_shmstring PRIVATE -O2) # its plain reader copies as programs do, not byte by byte
target_link_libraries(tst_shmstring PRIVATE shmstring)

if(TARGET orbscripted)
    foreach(topic wiring dispatch transport)
        rv_test(tst_controller_${topic} fast ${CMAKE_CURRENT_SOURCE_DIR}/tst_controller_${topic}.cpp)
        target_link_libraries(tst_controller_${topic} PRIVATE app orbscripted simdispatcher)
        target_compile_definitions(tst_controller_${topic} PRIVATE RV_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
        # The clip lists have one name in the whole machine.
        set_tests_properties(tst_controller_${topic} PROPERTIES RESOURCE_LOCK clip_lists)
    endforeach()
endif()

# So have the shared texts.
set_tests_properties(tst_configupdater PROPERTIES RESOURCE_LOCK clip_lists)
