# The controller and what stands around it.
function(rv_app_test name)
    rv_test(${name} fast ${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp)
    target_link_libraries(${name} PRIVATE ${ARGN})
endfunction()

# Virtual time for tests that need no engine.
rv_library(simdispatcher ${CMAKE_CURRENT_SOURCE_DIR}/../engine/simdispatcher.cpp)
set_target_properties(simdispatcher PROPERTIES AUTOMOC ON)
target_include_directories(simdispatcher PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/../engine)
target_link_libraries(simdispatcher PUBLIC Qt6::Core)

rv_app_test(tst_freespace media)
rv_app_test(tst_mediamanager media simdispatcher)
rv_app_test(tst_configinterface configinterface)
rv_app_test(tst_configupdater configinterface)
rv_app_test(tst_lututils vanta)
rv_app_test(tst_clipfinder vanta)
if(TARGET transport)
    rv_app_test(tst_alarmhandler alarms transport)
    rv_app_test(tst_formatmap app)
endif()
if(TARGET orbscripted)
    foreach(topic params transport clips streams spare luts life)
        rv_app_test(tst_mainobject_${topic} app orbscripted simdispatcher)
        # The clip lists have one name in the whole machine.
        set_tests_properties(tst_mainobject_${topic} PROPERTIES RESOURCE_LOCK clip_lists)
    endforeach()
endif()
