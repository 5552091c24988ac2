# How long a medium with many clips takes to be listed.
rv_program(clip_listing ${PROJECT_SOURCE_DIR}/bench/clip_listing.cpp)
target_include_directories(clip_listing PRIVATE ${PROJECT_SOURCE_DIR}/src/services/rvmedia)
target_link_libraries(clip_listing PRIVATE mediaservice)
