set(architecture armhf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(compiler arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
