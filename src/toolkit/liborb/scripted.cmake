# Scripted drivers: a video device and a medium that do what a test says, when it says so.
rv_library(orbscripted
    drivers/scripted/scriptedmedia.cpp
    drivers/scripted/scriptedvideo.cpp
    drivers/scripted/transcript.cpp
)
rv_has_objects(orbscripted)
target_link_libraries(orbscripted PUBLIC orb)
