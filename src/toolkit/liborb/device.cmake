# The software video device: frame clock, capture, playback, program output.
rv_library(orbdevice
    drivers/software/capturequeue.cpp
    drivers/software/colouring.cpp
    drivers/software/deviceconfig.cpp
    drivers/software/frameclock.cpp
    drivers/software/frameschedule.cpp
    drivers/software/inputport.cpp
    drivers/software/machine.cpp
    drivers/software/machine_capture.cpp
    drivers/software/machine_playback.cpp
    drivers/software/mailbox.cpp
    drivers/software/playbackqueue.cpp
    drivers/software/programoutput.cpp
    drivers/software/reference.cpp
    drivers/software/signalgenerator.cpp
    drivers/software/softwaredriver.cpp
    drivers/software/soundfifo.cpp
    drivers/software/speedstepper.cpp
    drivers/software/timecodegenerator.cpp
)
target_link_libraries(orbdevice PUBLIC orbvalues orbcodecs bus picture Qt6::Core)
