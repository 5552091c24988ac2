# The shipped engine on scripted drivers, in virtual time.
rv_library(enginerig
    ${CMAKE_CURRENT_LIST_DIR}/enginerig.cpp
    ${CMAKE_CURRENT_LIST_DIR}/simdispatcher.cpp)
set_target_properties(enginerig PROPERTIES AUTOMOC ON)
target_include_directories(enginerig PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(enginerig PUBLIC transport orbscripted Qt6::Test)

foreach(topic modes playback record)
    rv_test(tst_engine_${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_engine_${topic}.cpp)
    target_link_libraries(tst_engine_${topic} PRIVATE enginerig)
endforeach()
