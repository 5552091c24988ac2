# Random stories, and what they have found. The long run is tests' alone: ninja soak_engine.
rv_library(enginestress
    ${CMAKE_CURRENT_LIST_DIR}/invariants.cpp
    ${CMAKE_CURRENT_LIST_DIR}/operator.cpp
    ${CMAKE_CURRENT_LIST_DIR}/story.cpp
    ${CMAKE_CURRENT_LIST_DIR}/stressrig.cpp)
target_link_libraries(enginestress PUBLIC enginerig)

rv_test(tst_engine_random fast ${CMAKE_CURRENT_LIST_DIR}/tst_engine_random.cpp)
target_link_libraries(tst_engine_random PRIVATE enginestress)

add_custom_target(soak_engine
    COMMAND ${CMAKE_COMMAND} -E env RV_STRESS_SEEDS=12000 QTEST_FUNCTION_TIMEOUT=3600000
        $<TARGET_FILE:tst_engine_random>
    DEPENDS tst_engine_random
    USES_TERMINAL)

rv_test(tst_engine_found fast ${CMAKE_CURRENT_LIST_DIR}/tst_engine_found.cpp)
target_link_libraries(tst_engine_found PRIVATE enginerig)
