# The toolkit's value types and process services: one program a topic.
foreach(topic id numbers descs setup timecode buffer frame playlist alarm metatypes log lockfile getopts thread)
    rv_test(tst_orb${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_orb${topic}.cpp)
    target_link_libraries(tst_orb${topic} PRIVATE orbvalues)
endforeach()
target_compile_definitions(tst_orbid PRIVATE
    RV_TOOLKIT_HEADERS="${PROJECT_SOURCE_DIR}/src/toolkit/liborb")
