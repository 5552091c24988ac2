# How long a recording is without a stream when it goes over to another medium.
rv_program(rollover_gap ${CMAKE_CURRENT_LIST_DIR}/rollover_gap.cpp)
target_link_libraries(rollover_gap PRIVATE orb)
