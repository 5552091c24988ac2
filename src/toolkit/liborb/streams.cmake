# Streams: what to read ahead and in which order, and the media drivers for clip files and play lists.
rv_library(orbmedia
    orbreadahead.cpp
    orbreadorder.cpp
    drivers/clip/clipdriver.cpp
    drivers/clip/clipformat.cpp
    drivers/clip/clipleg.cpp
    drivers/clip/clipsink.cpp
    drivers/clip/clipsource.cpp
    drivers/clip/ioworker.cpp
    drivers/clip/playlistsource.cpp
    drivers/clip/readdriver.cpp
    drivers/clip/writedriver.cpp
)
target_link_libraries(orbmedia PUBLIC orbvalues clip)
