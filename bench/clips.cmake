# Clips that lose their writer, what writing and opening them costs, and how long the event loop is away in a recording.
rv_program(clip_copy ${CMAKE_CURRENT_LIST_DIR}/clip_copy.cpp)
target_link_libraries(clip_copy PRIVATE orb)
add_library(loop_probe MODULE ${CMAKE_CURRENT_LIST_DIR}/loop_probe.cpp)
target_link_libraries(loop_probe PRIVATE rv_options ${CMAKE_DL_LIBS})
set_target_properties(loop_probe PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
add_dependencies(programs loop_probe)
