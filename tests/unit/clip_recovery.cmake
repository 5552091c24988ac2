# Clips whose writer died, and what completes them.
rv_test(tst_clip_recovery fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_recovery.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_tools.h)
target_include_directories(tst_clip_recovery PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_clip_recovery PRIVATE clip)

rv_test(tst_clip_listed fast ${CMAKE_CURRENT_LIST_DIR}/tst_clip_listed.cpp)
target_include_directories(tst_clip_listed PRIVATE ${PROJECT_SOURCE_DIR}/src/services/rvmedia)
target_link_libraries(tst_clip_listed PRIVATE mediaservice)
target_compile_definitions(tst_clip_listed PRIVATE RVGROK="$<TARGET_FILE:rvgrok>")
add_dependencies(tst_clip_listed rvgrok)
